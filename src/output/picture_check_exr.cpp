// The check of OpenEXR: attributes, then a table of places in the file, then the blocks that it leads to.

#include "output/picture_formats.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace hv {
namespace {

constexpr std::uint32_t kTiled = 0x200, kLongNames = 0x400, kVersionMask = 0xff;

struct ExrHeader {
    bool          is_tiled = false;
    std::int64_t  left = 0, top = 0, right = -1, bottom = -1;  ///< data window, all inside
    std::uint32_t compression = ~0u, channel_count = 0, pixel_bits = 0;
    std::uint32_t tile_width = 0, tile_height = 0, tile_mode = 0;

    std::uint64_t Width() const { return static_cast<std::uint64_t>(std::max<std::int64_t>(right - left + 1, 0)); }
    std::uint64_t Height() const { return static_cast<std::uint64_t>(std::max<std::int64_t>(bottom - top + 1, 0)); }
};

/// Rows of a block and the best ratio, by the number of the compression. Wavelets and cosines store an even block in a
/// few bytes whatever its size.
struct ExrCompression {
    std::uint32_t rows;
    std::uint64_t ratio;
};

constexpr ExrCompression kExrCompressions[] = {{1, 1},     {1, 64},  {1, 1032}, {16, 1032},    {32, 1 << 16},
                                               {16, 1032}, {32, 16}, {32, 16},  {32, 1 << 16}, {256, 1 << 16}};

/// A text that a zero ends, of at most `longest` letters; spends the reader otherwise.
std::string_view ReadName(FileBytes file, ByteReader& reader, std::size_t longest)
{
    const std::size_t start  = reader.Position();
    std::size_t       length = 0;
    while (reader.Byte() != 0)
        if (++length > longest) reader.Skip(file.size());
    if (reader.IsSpent()) return {};
    return {reinterpret_cast<const char*>(file.data()) + start, length};
}

std::int64_t Signed32(ByteReader& reader) { return static_cast<std::int32_t>(reader.Little32()); }

/// Names, types and steps of the channels, up to an empty name.
std::string ReadChannels(FileBytes file, ByteReader value, std::size_t longest, ExrHeader& header)
{
    constexpr std::uint32_t kMostChannels = 1024, kLargestStep = 2;

    while (!ReadName(file, value, longest).empty()) {
        const std::uint32_t type = value.Little32();
        value.Skip(4);
        const std::uint32_t across = value.Little32(), down = value.Little32();
        if (type > 2 || ++header.channel_count > kMostChannels) return kDamaged;
        if (across < 1 || across > kLargestStep || down < 1 || down > kLargestStep) return kUnreadable;
        header.pixel_bits += type == 1 ? 16 : 32;
    }
    return value.IsSpent() || header.channel_count == 0 ? kDamaged : "";
}

std::string ReadAttribute(FileBytes file, std::string_view name, ByteReader value, std::size_t longest,
                          ExrHeader& header)
{
    if (name == "channels") return ReadChannels(file, value, longest, header);
    if (name == "compression") header.compression = value.Byte();
    if (name == "dataWindow") {
        header.left   = Signed32(value);
        header.top    = Signed32(value);
        header.right  = Signed32(value);
        header.bottom = Signed32(value);
    }
    if (name == "tiles") {
        header.tile_width  = value.Little32();
        header.tile_height = value.Little32();
        header.tile_mode   = value.Byte();
    }
    if (name == "preview") {
        const std::uint64_t width = value.Little32(), height = value.Little32();
        if (width > file.size() || height > file.size()) return kDamaged;
        value.Skip(4 * width * height);
    }
    return value.IsSpent() ? kDamaged : "";
}

std::string ReadAttributes(FileBytes file, ByteReader& reader, std::size_t longest, ExrHeader& header)
{
    for (;;) {
        const std::string_view name = ReadName(file, reader, longest);
        if (reader.IsSpent()) return kCutOff;
        if (name.empty()) return "";
        ReadName(file, reader, longest);
        const std::uint32_t bytes = reader.Little32();
        const std::size_t   start = reader.Position();
        reader.Skip(bytes);
        if (reader.IsSpent()) return kCutOff;
        const FileBytes up_to_end = file.first(reader.Position());
        if (std::string problem = ReadAttribute(up_to_end, name, ByteReader(up_to_end, start), longest, header);
            !problem.empty())
            return problem;
    }
}

/// Whether the picture is there in all halved widths with all halved heights.
bool HasRipmaps(const ExrHeader& header) { return header.is_tiled && (header.tile_mode & 15u) == 2; }

/// Tiles of all sizes of a picture that is stored once, or halved again and again.
std::uint64_t CountTiles(const ExrHeader& header)
{
    const bool    is_halved = (header.tile_mode & 15u) == 1;
    const bool    rounds_up = (header.tile_mode >> 4) == 1;
    std::uint64_t width = header.Width(), height = header.Height(), count = 0;
    for (;;) {
        count += DividedUp(width, header.tile_width) * DividedUp(height, header.tile_height);
        if (!is_halved || (width == 1 && height == 1)) return count;
        width  = std::max<std::uint64_t>((width + (rounds_up ? 1 : 0)) / 2, 1);
        height = std::max<std::uint64_t>((height + (rounds_up ? 1 : 0)) / 2, 1);
    }
}

/// Every entry of the table leads to a block that lies in the file behind the table.
std::string CheckBlocks(FileBytes file, ByteReader table, std::uint64_t count, bool is_tiled)
{
    const std::uint64_t table_end = table.Position() + 8 * count;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t low = table.Little32(), offset = low | static_cast<std::uint64_t>(table.Little32()) << 32;
        if (offset < table_end || offset > file.size()) return kCutOff;
        ByteReader block(file, static_cast<std::size_t>(offset));
        block.Skip(is_tiled ? 16 : 4);
        block.Skip(block.Little32());
        if (block.IsSpent()) return kCutOff;
    }
    return "";
}

bool HasKnownTiles(const ExrHeader& header)
{
    constexpr std::uint64_t kLargestTile = 1 << 24;  // pixels, beside those of the picture

    const std::uint64_t pixels = static_cast<std::uint64_t>(header.tile_width) * header.tile_height;
    return header.tile_width > 0 && header.tile_height > 0 && pixels <= kLargestTile && (header.tile_mode & 15u) <= 2;
}

std::string CheckPixels(FileBytes file, ByteReader table, const ExrHeader& header)
{
    constexpr std::uint64_t kDecodedBits = 128;  // the library has up to four floats a pixel

    const std::uint64_t width = header.Width(), height = header.Height();
    if (std::string problem = CheckSize(width, height, std::max<std::uint64_t>(kDecodedBits, header.pixel_bits), file);
        !problem.empty())
        return problem;
    const ExrCompression& compression = kExrCompressions[header.compression];
    if (width * height * header.pixel_bits / 8 / 4 > compression.ratio * file.size())
        return Overclaim(width, height, file);

    const std::uint64_t count = header.is_tiled ? CountTiles(header) : DividedUp(height, compression.rows);
    return count > table.Left() / 8 ? kCutOff : CheckBlocks(file, table, count, header.is_tiled);
}

}  // namespace

std::string CheckExr(FileBytes file, bool& needs_child)
{
    ByteReader          reader(file, 4);
    const std::uint32_t version = reader.Little32();
    if (reader.IsSpent()) return kCutOff;
    if ((version & kVersionMask) != 2) return kUnreadable;
    // Several pictures in one, or points with depths.
    if ((version & ~kVersionMask & ~kTiled & ~kLongNames) != 0) {
        needs_child = true;
        return "";
    }
    ExrHeader header;
    header.is_tiled = (version & kTiled) != 0;
    if (std::string problem = ReadAttributes(file, reader, version & kLongNames ? 255 : 31, header); !problem.empty())
        return problem;
    if (header.channel_count == 0 || header.compression >= std::size(kExrCompressions)) return kUnreadable;
    if (header.is_tiled && !HasKnownTiles(header)) return kUnreadable;
    needs_child = HasRipmaps(header);
    if (needs_child) return "";
    return CheckPixels(file, reader, header);
}

}  // namespace hv
