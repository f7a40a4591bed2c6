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

// The layout is a contract with hosts that read the report: every blank counts, whatever locale a host has set.
TEST(Console, LinesHaveTheLayoutOfTheReport)
{
    struct Comma : std::numpunct<char> {
        char        do_decimal_point() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before    = std::locale::global(std::locale(std::locale::classic(), new Comma));
    const float       triple[3] = {-1.5f, 0.0f, 123456.789f};
    const struct {
        std::function<void()> print;
        std::string           line;
    } cases[] = {
        {[] { PrintRule(); }, std::string(80, '_') + "\n\n"},
        {[] { PrintTitle("progressive final gathering"); }, "progressive final gathering\n"},
        {[] { ReportValue("photon cast   ", 12.0f, "seconds"); }, "photon cast             12.0000 [ seconds ]\n"},
        {[] { ReportValue("x", 0.125f, "", 2); }, "x             0.12 \n"},
        {[] { ReportValue("x", -std::nanf(""), "m"); }, "x              nan [ m ]\n"},
        {[] { ReportValue("x", 3.4028235e38f, "m", 1); }, "x 340282346638528859811704183484516925440.0 [ m ]\n"},
        {[] { ReportCount("x", std::numeric_limits<std::int64_t>::min(), "n/a"); }, "x -9223372036854775808 [ n/a ]\n"},
        {[&] { ReportTriple("scene min   ", triple, "n/a"); },
         "scene min             -1.5000            0.0000       123456.7891 [ n/a ]\n"},
        {[] { ReportPair("performance", 3.25f, "M rays/second", "    ", 10.0f, "frames/second"); },
         "performance           3.2500 [ M rays/second ]              10.0000 [ frames/second ]\n"},
        {[] { ReportStatistic("shaders ", 3, 1572864); }, "shaders                 3            1.5000 [ M bytes ]\n"},
        {[] { ReportProgress("photon cast ", 42, "%", false); }, "photon cast                42 [ % ]\r"},
        {[] { ReportProgress("photon cast ", 100, "%", true); }, "photon cast               100 [ % ]\n"},
    };
    for (const auto& test : cases) EXPECT_EQ(Captured(test.print), test.line);
    std::locale::global(before);
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
