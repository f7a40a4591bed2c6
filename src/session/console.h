#pragma once

#include <cstdint>
#include <string_view>

/// The report on standard output. Labels are padded by their callers; numbers are formatted independently of any
/// locale. Every function writes one line and flushes, unless told otherwise. Called outside parallel regions, but for
/// the progress of a photon cast, under a lock.
namespace hv {

/// 80 underscores and two line ends.
void PrintRule();

/// The text as it is and a line end, no flush.
void PrintTitle(std::string_view text);

/// label, blank, value (16 columns), blank, "[ unit ]".
void ReportValue(std::string_view label, float value, std::string_view unit, int decimals = 4);
void ReportCount(std::string_view label, std::int64_t value, std::string_view unit);

/// label, blank, three values with two blanks between them, blank, "[ unit ]".
void ReportTriple(std::string_view label, const float value[3], std::string_view unit);

/// label1, blank, value1, blank, unit1, label2, blank, value2, blank, unit2.
void ReportPair(std::string_view label1, float value1, std::string_view unit1, std::string_view label2, float value2,
                std::string_view unit2);

/// label, blank, count, two blanks, bytes / 1048576 with 4 decimals, blank, "[ M bytes ]".
void ReportStatistic(std::string_view label, std::int64_t count, std::int64_t bytes);

/// A count line that ends in a carriage return, so that the next one overwrites it; `last` ends it with a line feed.
void ReportProgress(std::string_view label, std::int64_t value, std::string_view unit, bool last);

void PrintError(std::string_view message);    ///< "error :( \t" + message
void PrintWarning(std::string_view message);  ///< "warning :( \t" + message

/// Switches the whole report off and on.
void SetReport(bool on);

/// Milliseconds and units of 100 nanoseconds of a monotonic clock.
std::int64_t Milliseconds();
std::int64_t Ticks();

}  // namespace hv
