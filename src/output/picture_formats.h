#pragma once

#include "output/picture_check.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// One check for each format, and what they share. Private to the guard.
namespace hv {

inline constexpr const char* kCutOff     = "is cut off";
inline constexpr const char* kDamaged    = "is damaged";
inline constexpr const char* kUnreadable = "is of a kind that cannot be read";

/// Each says what is wrong with a file of its format, empty for nothing. Those that take a writable span overwrite what
/// the library need not see. Those that take `needs_child` set it for kinds that nobody here vouches for.
std::string CheckBmp(FileBytes file);
std::string CheckTarga(FileBytes file);
std::string CheckAnymap(FileBytes file);    ///< portable bit, grey and pixel maps, P1 to P6
std::string CheckFloatMap(FileBytes file);  ///< portable float map
std::string CheckRadiance(FileBytes file);
std::string CheckPng(std::span<std::uint8_t> file);
std::string CheckJpeg(std::span<std::uint8_t> file, bool& needs_child);
std::string CheckGif(FileBytes file);
std::string CheckPsd(std::span<std::uint8_t> file, bool& needs_child);
std::string CheckTiff(std::span<std::uint8_t> file, bool& needs_child);
std::string CheckExr(FileBytes file, bool& needs_child);

/// Whether a file without a known beginning can be a Targa picture, by the measure of the picture library.
bool LooksLikeTarga(FileBytes file);

/// What is wrong with a size: no pixels, sides beyond a million, more bytes than a quarter of the memory. `pixel_bits`
/// counts a pixel as it is decoded.
std::string CheckSize(std::uint64_t width, std::uint64_t height, std::uint64_t pixel_bits, FileBytes file);

/// "claims ... pixels in ... bytes".
std::string Overclaim(std::uint64_t width, std::uint64_t height, FileBytes file);

/// Rounded up to a whole number.
inline std::uint64_t DividedUp(std::uint64_t number, std::uint64_t divisor) { return (number + divisor - 1) / divisor; }

/// Reads numbers off a file. Beyond the end everything reads 0 and the reader is spent for good.
class ByteReader {
public:
    explicit ByteReader(FileBytes file, std::size_t position = 0) : file_(file), position_(position)
    {
        if (position_ > file_.size()) Spend();
    }

    bool        IsSpent() const { return is_spent_; }
    std::size_t Position() const { return position_; }
    std::size_t Left() const { return file_.size() - position_; }

    std::uint32_t Byte() { return Has(1) ? file_[position_++] : 0; }
    std::uint32_t Little16() { return Combined(2, false); }
    std::uint32_t Little32() { return Combined(4, false); }
    std::uint32_t Big16() { return Combined(2, true); }
    std::uint32_t Big32() { return Combined(4, true); }

    void Skip(std::uint64_t count)
    {
        if (Has(count)) position_ += static_cast<std::size_t>(count);
    }

private:
    bool Has(std::uint64_t count)
    {
        if (count > Left()) Spend();
        return !is_spent_;
    }

    void Spend()
    {
        is_spent_ = true;
        position_ = file_.size();
    }

    std::uint32_t Combined(unsigned count, bool is_big_endian)
    {
        if (!Has(count)) return 0;
        std::uint32_t number = 0;
        for (unsigned i = 0; i < count; ++i)
            number |= static_cast<std::uint32_t>(file_[position_ + i]) << 8 * (is_big_endian ? count - 1 - i : i);
        position_ += count;
        return number;
    }

    FileBytes   file_;
    std::size_t position_;
    bool        is_spent_ = false;
};

}  // namespace hv
