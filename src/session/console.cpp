#include "session/console.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>

namespace hv {
namespace {

constexpr std::size_t kRuleWidth  = 80;
constexpr std::size_t kValueWidth = 16;
constexpr float       kMegabyte   = 1048576.0f;

bool report_is_on = true;

/// One call of the stream a line, so that lines of ours and of the host never mix.
void Write(std::string_view text, bool flush)
{
    if (!report_is_on) return;
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (flush) std::fflush(stdout);
}

/// Right-aligned in the value column; wider values push what follows to the right.
void AppendAligned(std::string& line, std::string_view digits)
{
    if (digits.size() < kValueWidth) line.append(kValueWidth - digits.size(), ' ');
    line += digits;
}

void AppendFloat(std::string& line, float value, int decimals)
{
    if (std::isnan(value)) return AppendAligned(line, "nan");  // whatever its sign bit says
    char       digits[128];                                    // 39 digits, a sign, a point and the decimals
    const int  precision = decimals < 0 ? 0 : (decimals > 64 ? 64 : decimals);
    const auto result    = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, precision);
    AppendAligned(line, {digits, static_cast<std::size_t>(result.ptr - digits)});
}

void AppendCount(std::string& line, std::int64_t value)
{
    char       digits[32];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    AppendAligned(line, {digits, static_cast<std::size_t>(result.ptr - digits)});
}

void AppendUnit(std::string& line, std::string_view unit)
{
    line += ' ';
    if (!unit.empty()) line.append("[ ").append(unit).append(" ]");
}

std::string StartLine(std::string_view label)
{
    std::string line(label);
    line += ' ';
    return line;
}

void FinishLine(std::string& line)
{
    line += '\n';
    Write(line, true);
}

void PrintMessage(std::string_view prefix, std::string_view message)
{
    std::string line(prefix);
    line += message;
    FinishLine(line);
}

}  // namespace

void PrintRule()
{
    std::string line(kRuleWidth, '_');
    line += '\n';
    FinishLine(line);
}

void PrintTitle(std::string_view text)
{
    std::string line(text);
    line += '\n';
    Write(line, false);
}

void ReportValue(std::string_view label, float value, std::string_view unit, int decimals)
{
    std::string line = StartLine(label);
    AppendFloat(line, value, decimals);
    AppendUnit(line, unit);
    FinishLine(line);
}

void ReportCount(std::string_view label, std::int64_t value, std::string_view unit)
{
    std::string line = StartLine(label);
    AppendCount(line, value);
    AppendUnit(line, unit);
    FinishLine(line);
}

void ReportTriple(std::string_view label, const float value[3], std::string_view unit)
{
    std::string line = StartLine(label);
    for (int i = 0; i < 3; ++i) {
        if (i > 0) line += "  ";
        AppendFloat(line, value[i], 4);
    }
    AppendUnit(line, unit);
    FinishLine(line);
}

void ReportPair(std::string_view label1, float value1, std::string_view unit1, std::string_view label2, float value2,
                std::string_view unit2)
{
    std::string line = StartLine(label1);
    AppendFloat(line, value1, 4);
    AppendUnit(line, unit1);
    line.append(label2).append(" ");
    AppendFloat(line, value2, 4);
    AppendUnit(line, unit2);
    FinishLine(line);
}

void ReportStatistic(std::string_view label, std::int64_t count, std::int64_t bytes)
{
    std::string line = StartLine(label);
    AppendCount(line, count);
    line += "  ";
    AppendFloat(line, static_cast<float>(bytes) / kMegabyte, 4);
    AppendUnit(line, "M bytes");
    FinishLine(line);
}

void ReportProgress(std::string_view label, std::int64_t value, std::string_view unit, bool last)
{
    std::string line = StartLine(label);
    AppendCount(line, value);
    AppendUnit(line, unit);
    line += last ? '\n' : '\r';
    Write(line, true);
}

void PrintError(std::string_view message) { PrintMessage("error :( \t", message); }

void PrintWarning(std::string_view message) { PrintMessage("warning :( \t", message); }

void SetReport(bool on) { report_is_on = on; }

std::int64_t Milliseconds() { return Ticks() / 10000; }

std::int64_t Ticks()
{
    using Tick = std::chrono::duration<std::int64_t, std::ratio<1, 10000000>>;
    return std::chrono::duration_cast<Tick>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace hv
