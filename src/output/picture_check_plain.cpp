// Checks of the formats whose pixels stand row by row: BMP, Targa, portable maps, Radiance.

#include "output/picture_formats.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace hv {
namespace {

struct BmpHeader {
    std::uint32_t data_offset = 0, header_size = 0;
    std::uint32_t width = 0, height = 0, bits = 0, compression = 0, color_count = 0;
    std::size_t   header_end = 0;
};

constexpr std::uint32_t kOldBmpHeader = 12;

enum BmpCompression : std::uint32_t { kBmpPlain = 0, kBmpRuns8 = 1, kBmpRuns4 = 2, kBmpMasks = 3 };

/// A negative height stands for rows from the top.
std::uint32_t Magnitude(std::uint32_t number) { return number & 0x80000000u ? 0u - number : number; }

BmpHeader ReadBmpHeader(ByteReader& reader)
{
    BmpHeader header;
    reader.Skip(10);
    header.data_offset = reader.Little32();
    header.header_size = reader.Little32();
    const bool is_old  = header.header_size == kOldBmpHeader;
    header.width       = is_old ? reader.Little16() : reader.Little32();
    header.height      = is_old ? reader.Little16() : Magnitude(reader.Little32());
    reader.Skip(2);
    header.bits = reader.Little16();
    if (!is_old) {
        header.compression = reader.Little32();
        reader.Skip(12);
        header.color_count = reader.Little32();
    }
    header.header_end = 14 + static_cast<std::size_t>(header.header_size);
    return header;
}

bool IsKnownBmp(const BmpHeader& header)
{
    constexpr std::uint32_t kSizes[] = {kOldBmpHeader, 40, 52, 56, 64, 108, 124};
    constexpr std::uint32_t kBits[]  = {1, 4, 8, 16, 24, 32};
    if (std::ranges::find(kSizes, header.header_size) == std::end(kSizes)) return false;
    if (std::ranges::find(kBits, header.bits) == std::end(kBits)) return false;
    switch (header.compression) {
    case kBmpPlain:
        return true;
    case kBmpRuns8:
        return header.bits == 8;
    case kBmpRuns4:
        return header.bits == 4;
    default:
        return header.compression == kBmpMasks && (header.bits == 16 || header.bits == 32);
    }
}

/// Walks run-length coded rows: pairs of count and value, a count of 0 before a command. All of them must lie inside
/// the picture, and the last command must be there.
std::string WalkBmpRuns(FileBytes file, ByteReader reader, const BmpHeader& header)
{
    constexpr std::uint64_t kBestRatio = 128;  // 255 pixels for a pair

    // The last command may come early, but then the picture is none.
    if (static_cast<std::uint64_t>(header.width) * header.height > kBestRatio * file.size())
        return Overclaim(header.width, header.height, file);
    std::uint64_t x = 0, y = 0;
    while (!reader.IsSpent()) {
        const std::uint32_t count = reader.Byte(), value = reader.Byte();
        if (count > 0) {
            x += count;
        } else if (value == 0) {
            x = 0;
            ++y;
        } else if (value == 1) {
            return reader.IsSpent() ? kCutOff : "";
        } else if (value == 2) {
            x += reader.Byte();
            y += reader.Byte();
        } else {
            x += value;
            const std::uint32_t bytes = header.bits == 8 ? value : (value + 1) / 2;
            reader.Skip((bytes + 1) / 2 * 2);
        }
        const bool is_inside = x <= header.width && (y < header.height || (y == header.height && x == 0));
        if (!reader.IsSpent() && !is_inside) return kDamaged;
    }
    return kCutOff;
}

struct TargaHeader {
    std::uint32_t id_length = 0, has_map = 0, type = 0;
    std::uint32_t map_first = 0, map_length = 0, map_bits = 0;
    std::uint32_t width = 0, height = 0, bits = 0;

    bool          HasRuns() const { return type >= 9; }
    std::uint32_t PixelBytes() const { return (bits + 7) / 8; }
};

constexpr std::size_t      kTargaHeaderBytes = 18;
constexpr std::size_t      kTargaFooterBytes = 26;
constexpr std::string_view kTargaSignature   = "TRUEVISION-XFILE";

TargaHeader ReadTargaHeader(ByteReader& reader)
{
    TargaHeader header;
    header.id_length  = reader.Byte();
    header.has_map    = reader.Byte();
    header.type       = reader.Byte();
    header.map_first  = reader.Little16();
    header.map_length = reader.Little16();
    header.map_bits   = reader.Byte();
    reader.Skip(4);
    header.width  = reader.Little16();
    header.height = reader.Little16();
    header.bits   = reader.Byte();
    reader.Skip(1);
    return header;
}

bool HasTargaFooter(FileBytes file)
{
    if (file.size() < kTargaHeaderBytes + kTargaFooterBytes) return false;
    const FileBytes footer = file.last(kTargaFooterBytes).subspan(8, kTargaSignature.size());
    return std::equal(footer.begin(), footer.end(), kTargaSignature.begin(),
                      [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); });
}

bool IsKnownTarga(const TargaHeader& header)
{
    if (header.has_map > 1) return false;
    if (header.has_map == 1 && (header.map_first >= header.map_length || header.map_bits == 0 || header.map_bits > 32))
        return false;
    const std::uint32_t plain_type = header.HasRuns() ? header.type - 8 : header.type;
    const bool          known_bits = header.bits == 8 || header.bits == 16 || header.bits == 24 || header.bits == 32;
    return plain_type >= 1 && plain_type <= 3 && known_bits && header.width > 0 && header.height > 0;
}

/// Packets of up to 128 equal or different pixels, which may go on from row to row.
std::string WalkTargaRuns(ByteReader reader, const TargaHeader& header)
{
    std::uint64_t left = static_cast<std::uint64_t>(header.width) * header.height;
    while (left > 0 && !reader.IsSpent()) {
        const std::uint32_t packet = reader.Byte();
        const std::uint32_t count  = (packet & 127u) + 1;
        reader.Skip(static_cast<std::uint64_t>(header.PixelBytes()) * (packet & 128u ? 1 : count));
        if (count > left) return kDamaged;
        left -= count;
    }
    return reader.IsSpent() ? kCutOff : "";
}

/// The footer leads to further parts, of which the library reads a small picture.
std::string CheckTargaExtension(FileBytes file, const TargaHeader& header)
{
    constexpr std::size_t kExtensionBytes = 495, kStampField = 486;

    ByteReader          footer(file, file.size() - kTargaFooterBytes);
    const std::uint32_t extension = footer.Little32();
    if (extension == 0) return "";
    if (extension > file.size() || file.size() - extension < kExtensionBytes) return kDamaged;
    const std::uint32_t stamp = ByteReader(file, extension + kStampField).Little32();
    if (stamp == 0) return "";
    ByteReader          pixels(file, stamp);
    const std::uint64_t width = pixels.Byte(), height = pixels.Byte();
    pixels.Skip(width * height * header.PixelBytes());
    return pixels.IsSpent() || width == 0 || height == 0 ? kDamaged : "";
}

/// The next number of a header of text, past anything else and past comments, which run to the end of their line. The
/// character behind the number is used up. -1 at the end of the file, for a number that lasts to it or is too large.
std::int64_t NextNumber(ByteReader& reader)
{
    constexpr std::int64_t kTooLarge = 1 << 30;

    std::uint32_t character  = reader.Byte();
    bool          is_comment = false;
    while (!reader.IsSpent() && (is_comment || character < '0' || character > '9')) {
        is_comment = is_comment ? character != '\n' : character == '#';
        character  = reader.Byte();
    }
    std::int64_t number = 0;
    while (!reader.IsSpent() && character >= '0' && character <= '9') {
        number = number * 10 + (character - '0');
        if (number > kTooLarge) return -1;
        character = reader.Byte();
    }
    return reader.IsSpent() ? -1 : number;
}

/// Samples of text: as many numbers as are wanted must follow.
std::string CheckTextSamples(ByteReader reader, std::uint64_t wanted)
{
    if (wanted > reader.Left()) return kCutOff;
    for (; wanted > 0; --wanted)
        if (NextNumber(reader) < 0) return kCutOff;
    return "";
}

/// The next line without its end; spent at the end of the file and for a line that the library finds too long.
std::string_view NextLine(FileBytes file, ByteReader& reader)
{
    constexpr std::size_t kLongestLine = 256;

    const std::size_t start  = reader.Position();
    std::size_t       length = 0;
    for (std::uint32_t character = reader.Byte(); character != '\n'; character = reader.Byte()) {
        if (++length >= kLongestLine) reader.Skip(file.size());
        if (reader.IsSpent()) return {};
    }
    return {reinterpret_cast<const char*>(file.data()) + start, length};
}

void SkipBlanks(std::string_view& line)
{
    line.remove_prefix(std::min(line.find_first_not_of(" \t\r\v\f"), line.size()));
}

/// Takes a word and the number behind it off a line, with any blanks before each and any sign but minus. 0 if they are
/// not there.
std::uint32_t TakeNumber(std::string_view& line, std::string_view word)
{
    SkipBlanks(line);
    if (!line.starts_with(word)) return 0;
    line.remove_prefix(word.size());
    SkipBlanks(line);
    if (line.starts_with('+')) line.remove_prefix(1);
    std::uint32_t     number = 0;
    const char* const end    = std::from_chars(line.data(), line.data() + line.size(), number).ptr;
    line.remove_prefix(static_cast<std::size_t>(end - line.data()));
    return number;
}

/// One row of pixels whose four bytes stand apart, each as runs of 1 to 127 equal or 1 to 128 different values.
std::string WalkRadianceRow(ByteReader& reader, std::uint32_t width)
{
    for (int channel = 0; channel < 4; ++channel) {
        for (std::uint32_t left = width; left > 0;) {
            const std::uint32_t code   = reader.Byte();
            const bool          is_run = code > 128;
            const std::uint32_t count  = is_run ? code - 128 : code;
            reader.Skip(is_run ? 1 : count);
            if (reader.IsSpent()) return kCutOff;
            if (count == 0 || count > left) return kDamaged;
            left -= count;
        }
    }
    return "";
}

/// Rows with runs tell their width; at the first that does not, plain pixels follow to the end.
std::string WalkRadianceRows(ByteReader reader, std::uint32_t width, std::uint32_t height)
{
    for (std::uint64_t y = 0; y < height; ++y) {
        ByteReader ahead = reader;
        const auto first = ahead.Byte(), second = ahead.Byte();
        const auto length   = ahead.Big16();
        const bool has_runs = width >= 8 && width <= 0x7fff && first == 2 && second == 2 && length < 0x8000;
        if (!has_runs) return reader.Left() < (height - y) * width * 4 ? kCutOff : "";
        if (ahead.IsSpent()) return kCutOff;
        if (length != width) return kDamaged;
        reader = ahead;
        if (std::string problem = WalkRadianceRow(reader, width); !problem.empty()) return problem;
    }
    return "";
}

}  // namespace

std::string CheckBmp(FileBytes file)
{
    ByteReader      reader(file);
    const BmpHeader header = ReadBmpHeader(reader);
    if (reader.IsSpent()) return kCutOff;
    if (!IsKnownBmp(header)) return kUnreadable;
    if (std::string problem = CheckSize(header.width, header.height, header.bits, file); !problem.empty())
        return problem;

    const std::size_t palette_bytes =
        header.bits <= 8 ? std::min(header.color_count ? header.color_count : 1u << header.bits, 1u << header.bits) *
                               (header.header_size == kOldBmpHeader ? 3u : 4u)
                         : 0;
    ByteReader pixels(file, std::max<std::size_t>(header.data_offset, header.header_end + palette_bytes));
    if (header.compression == kBmpRuns8 || header.compression == kBmpRuns4) return WalkBmpRuns(file, pixels, header);
    const std::uint64_t row_bytes = (static_cast<std::uint64_t>(header.width) * header.bits + 31) / 32 * 4;
    pixels.Skip(row_bytes * header.height);
    return pixels.IsSpent() ? kCutOff : "";
}

bool LooksLikeTarga(FileBytes file)
{
    ByteReader        reader(file);
    const TargaHeader header = ReadTargaHeader(reader);
    return HasTargaFooter(file) || (!reader.IsSpent() && IsKnownTarga(header));
}

std::string CheckTarga(FileBytes file)
{
    ByteReader        reader(file);
    const TargaHeader header = ReadTargaHeader(reader);
    if (!IsKnownTarga(header)) return kUnreadable;
    if (std::string problem = CheckSize(header.width, header.height, header.bits, file); !problem.empty())
        return problem;

    const bool is_mapped = header.type == 1 || header.type == 9;
    if (is_mapped && (header.has_map == 0 || header.bits != 8 || header.map_length > 256)) return kUnreadable;
    reader.Skip(header.id_length);
    if (header.has_map) reader.Skip(static_cast<std::uint64_t>(header.map_length) * ((header.map_bits + 7) / 8));
    if (HasTargaFooter(file))
        if (std::string problem = CheckTargaExtension(file, header); !problem.empty()) return problem;

    if (header.HasRuns()) return WalkTargaRuns(reader, header);
    reader.Skip(static_cast<std::uint64_t>(header.width) * header.height * header.PixelBytes());
    return reader.IsSpent() ? kCutOff : "";
}

std::string CheckAnymap(FileBytes file)
{
    ByteReader reader(file);
    reader.Skip(1);
    const std::uint32_t kind     = reader.Byte() - '0';  // 1 to 3 text, 4 to 6 binary; bits, grey, colour
    const bool          is_bits  = kind == 1 || kind == 4;
    const std::uint64_t channels = kind == 3 || kind == 6 ? 3 : 1;
    const std::int64_t  width = NextNumber(reader), height = NextNumber(reader);
    const std::int64_t  white = is_bits ? 1 : NextNumber(reader);
    if (reader.IsSpent()) return kCutOff;
    if (width < 0 || height < 0 || white < 1 || white > 65535) return kDamaged;

    const auto          columns = static_cast<std::uint64_t>(width), rows = static_cast<std::uint64_t>(height);
    const std::uint64_t sample_bytes = white > 255 ? 2 : 1;
    if (std::string problem = CheckSize(columns, rows, 8 * sample_bytes * channels, file); !problem.empty())
        return problem;
    const std::uint64_t samples   = columns * rows * channels;
    const std::uint64_t row_bytes = is_bits ? (columns + 7) / 8 : columns * channels * sample_bytes;
    if ((kind <= 3 ? samples : row_bytes * rows) > reader.Left()) return Overclaim(columns, rows, file);
    return kind <= 3 && !is_bits ? CheckTextSamples(reader, samples) : "";
}

std::string CheckFloatMap(FileBytes file)
{
    ByteReader reader(file);
    reader.Skip(1);
    const std::uint64_t channels = reader.Byte() == 'F' ? 3 : 1;
    const std::int64_t  width = NextNumber(reader), height = NextNumber(reader);
    NextLine(file, reader);  // the scale
    if (reader.IsSpent()) return kCutOff;
    if (width < 0 || height < 0) return kDamaged;

    const auto columns = static_cast<std::uint64_t>(width), rows = static_cast<std::uint64_t>(height);
    if (std::string problem = CheckSize(columns, rows, 32 * channels, file); !problem.empty()) return problem;
    return columns * rows * channels * 4 > reader.Left() ? Overclaim(columns, rows, file) : "";
}

std::string CheckRadiance(FileBytes file)
{
    ByteReader reader(file);
    bool       has_format = false;
    for (std::string_view line = NextLine(file, reader); !line.empty(); line = NextLine(file, reader))
        has_format = has_format || line == "FORMAT=32-bit_rle_rgbe";
    std::string_view size = NextLine(file, reader);
    if (reader.IsSpent()) return kCutOff;
    if (!has_format || !size.starts_with("-Y")) return kUnreadable;

    const std::uint32_t height = TakeNumber(size, "-Y"), width = TakeNumber(size, "+X");
    if (std::string problem = CheckSize(width, height, 96, file); !problem.empty()) return problem;
    return WalkRadianceRows(reader, width, height);
}

}  // namespace hv
