#include "session/console.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <locale>
#include <string>

namespace hv {
namespace {

std::string Captured(const std::function<void()>& print)
{
    testing::internal::CaptureStdout();
    print();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// The layout is a contract with hosts that read the report: every blank counts.
TEST(Console, LinesHaveTheLayoutOfTheReport)
{
    const float triple[3] = {-1.5f, 0.0f, 123456.789f};
    const float infinity  = std::numeric_limits<float>::infinity();

    const struct {
        std::function<void()> print;
        std::string           line;
    } cases[] = {
        {[] { PrintRule(); }, std::string(80, '_') + "\n\n"},
        {[] { PrintTitle("progressive final gathering"); }, "progressive final gathering\n"},
        {[] { ReportValue("photon cast   ", 12.0f, "seconds"); }, "photon cast             12.0000 [ seconds ]\n"},
        {[] { ReportValue("x", 0.125f, "", 2); }, "x             0.12 \n"},
        {[] { ReportValue("x", 2.75f, "m", 0); }, "x                3 [ m ]\n"},
        {[&] { ReportValue("x", infinity, "m"); }, "x              inf [ m ]\n"},
        {[] { ReportValue("x", -std::nanf(""), "m"); }, "x              nan [ m ]\n"},
        {[] { ReportValue("x", 3.4028235e38f, "m", 1); }, "x 340282346638528859811704183484516925440.0 [ m ]\n"},
        {[] { ReportCount("renderer sample", 64, "n/a"); }, "renderer sample               64 [ n/a ]\n"},
        {[] { ReportCount("x", std::numeric_limits<std::int64_t>::min(), "n/a"); }, "x -9223372036854775808 [ n/a ]\n"},
        {[&] { ReportTriple("scene min   ", triple, "n/a"); },
         "scene min             -1.5000            0.0000       123456.7891 [ n/a ]\n"},
        {[] { ReportPair("performance", 3.25f, "M rays/second", "    ", 10.0f, "frames/second"); },
         "performance           3.2500 [ M rays/second ]              10.0000 [ frames/second ]\n"},
        {[] { ReportStatistic("shaders ", 3, 1572864); }, "shaders                 3            1.5000 [ M bytes ]\n"},
        {[] { ReportProgress("photon cast ", 42, "%", false); }, "photon cast                42 [ % ]\r"},
        {[] { ReportProgress("photon cast ", 100, "%", true); }, "photon cast               100 [ % ]\n"},
        {[] { PrintError("object - there is no root object"); }, "error :( \tobject - there is no root object\n"},
        {[] { PrintWarning("odd"); }, "warning :( \todd\n"},
    };
    for (const auto& test : cases) EXPECT_EQ(Captured(test.print), test.line);
}

// A host may have set any locale; the report stays the same.
TEST(Console, NumbersIgnoreTheLocale)
{
    struct Comma : std::numpunct<char> {
        char        do_decimal_point() const override { return ','; }
        char        do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Comma));
    const std::string line   = Captured([] { ReportValue("x", 1234567.5f, "m", 1); });
    std::locale::global(before);
    EXPECT_EQ(line, "x        1234567.5 [ m ]\n");
}

TEST(Console, ReportCanBeSwitchedOff)
{
    SetReport(false);
    EXPECT_EQ(Captured([] { PrintRule(), PrintError("error"), ReportProgress("progress", 1, "%", true); }), "");
    SetReport(true);
    EXPECT_EQ(Captured([] { PrintTitle("again"); }), "again\n");
}

}  // namespace
}  // namespace hv
