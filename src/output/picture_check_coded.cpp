// Checks of the formats that are made of chunks of compressed data: PNG, JPEG, GIF, PSD.

#include "output/picture_formats.h"

#include <algorithm>

namespace hv {
namespace {

constexpr std::uint32_t Tag(const char (&name)[5])
{
    return static_cast<std::uint32_t>(name[0]) << 24 | static_cast<std::uint32_t>(name[1]) << 16 |
           static_cast<std::uint32_t>(name[2]) << 8 | static_cast<std::uint32_t>(name[3]);
}

/// The best that deflate can do: 258 bytes out of 2 bits.
constexpr std::uint64_t kDeflateRatio = 1032;

struct PngHeader {
    std::uint32_t width = 0, height = 0, depth = 0, color = 0, interlace = 0;

    std::uint32_t Channels() const { return color == 2 ? 3u : color == 4 ? 2u : color == 6 ? 4u : 1u; }
    std::uint64_t PixelBits() const { return static_cast<std::uint64_t>(depth) * Channels(); }
};

bool IsKnownPng(const PngHeader& header)
{
    const bool is_whole = header.depth == 8 || header.depth == 16;
    const bool is_part  = header.depth == 1 || header.depth == 2 || header.depth == 4;
    switch (header.color) {
    case 0:
        return is_whole || is_part;
    case 3:
        return header.depth == 8 || is_part;
    default:
        return is_whole && (header.color == 2 || header.color == 4 || header.color == 6);
    }
}

/// Chunks beside the critical ones, which have a capital first, that bear on the pixels.
constexpr std::uint32_t kPngPixelChunks[] = {Tag("tRNS"), Tag("gAMA"), Tag("cHRM"),
                                             Tag("sRGB"), Tag("iCCP"), Tag("sBIT")};

bool MakesPngPixels(std::uint32_t tag)
{
    const bool is_critical = (tag >> 24 & 0x20u) == 0;
    return is_critical || std::ranges::find(kPngPixelChunks, tag) != std::end(kPngPixelChunks);
}

/// Moves what makes the pixels to the front, up to the last chunk, and over all else: the library would keep every text
/// in memory and unpack it. What is behind the last chunk is never read. Returns the bytes of compressed pixels; 0 when
/// chunks are missing.
std::uint64_t KeepPngPixels(std::span<std::uint8_t> file, ByteReader reader)
{
    auto          out   = file.begin() + static_cast<std::ptrdiff_t>(reader.Position());
    std::uint64_t bytes = 0;
    while (!reader.IsSpent()) {
        const auto          chunk  = file.begin() + static_cast<std::ptrdiff_t>(reader.Position());
        const std::uint32_t length = reader.Big32(), tag = reader.Big32();
        reader.Skip(static_cast<std::uint64_t>(length) + 4);  // and the sum
        if (reader.IsSpent()) return 0;
        const auto end = file.begin() + static_cast<std::ptrdiff_t>(reader.Position());
        if (MakesPngPixels(tag)) out = out == chunk ? end : std::copy(chunk, end, out);
        if (tag == Tag("IDAT")) bytes += length;
        if (tag == Tag("IEND")) return bytes;
    }
    return 0;
}

struct JpegFrame {
    std::uint32_t width = 0, height = 0;
    std::uint64_t block_count     = 0;  ///< of 8 x 8 samples, of all components together; 0: no frame yet
    std::uint64_t component_count = 0;
};

/// Scans over a picture: more are no use to any writer, and each costs a walk over all blocks.
constexpr std::uint32_t kMostScans       = 256;
constexpr std::uint64_t kMostBlockVisits = 1ull << 30;

std::string ReadJpegFrame(ByteReader segment, JpegFrame& frame)
{
    if (frame.block_count > 0) return kDamaged;
    const std::uint32_t precision = segment.Byte();
    frame.height                  = segment.Big16();
    frame.width                   = segment.Big16();
    frame.component_count         = segment.Byte();
    const bool known =
        precision == 8 && (frame.component_count == 1 || frame.component_count == 3 || frame.component_count == 4);
    if (segment.IsSpent() || !known) return kUnreadable;

    std::uint32_t across[4] = {}, down[4] = {}, most_across = 1, most_down = 1;
    for (std::uint64_t c = 0; c < frame.component_count; ++c) {
        segment.Skip(1);
        const std::uint32_t factors = segment.Byte();
        segment.Skip(1);
        across[c] = factors >> 4;
        down[c]   = factors & 15u;
        if (across[c] < 1 || across[c] > 4 || down[c] < 1 || down[c] > 4) return kDamaged;
        most_across = std::max(most_across, across[c]);
        most_down   = std::max(most_down, down[c]);
    }
    for (std::uint64_t c = 0; c < frame.component_count; ++c)
        frame.block_count += DividedUp(static_cast<std::uint64_t>(frame.width) * across[c], 8 * most_across) *
                             DividedUp(static_cast<std::uint64_t>(frame.height) * down[c], 8 * most_down);
    return segment.IsSpent() ? kDamaged : "";
}

/// Passes over coded data to the next marker; counts its bytes.
std::uint32_t NextJpegMarker(ByteReader& reader, std::uint64_t& data_bytes)
{
    while (!reader.IsSpent()) {
        ++data_bytes;
        if (reader.Byte() != 0xff) continue;
        std::uint32_t code = reader.Byte();
        while (code == 0xff) code = reader.Byte();
        const bool is_restart = code >= 0xd0 && code <= 0xd7;
        if (code != 0 && !is_restart) return code;
    }
    return 0;
}

/// The frame and the scans of a picture; `data_bytes` are those of coded blocks.
struct JpegWalk {
    JpegFrame     frame;
    std::uint32_t scan_count = 0;
    std::uint64_t data_bytes = 0;
    std::uint32_t note_count = 0;      ///< of those that are kept
    bool          has_end    = false;  ///< the mark behind the last scan is there
    bool          is_unusual = false;  ///< coded in a way that nobody here vouches for
};

constexpr std::uint32_t kJpegEnd = 0xd9, kJpegScan = 0xda;

/// Applications write segments 0 to 15; two of them tell how the colours are meant. The library keeps all that it meets
/// in a list that it walks from its start for each.
constexpr std::uint32_t kFirstJpegNote = 0xe0, kLastJpegNote = 0xef, kJpegComment = 0xfe;
constexpr std::uint32_t kJpegPlainColors = 0xe0, kJpegAdobeColors = 0xee;
constexpr std::uint32_t kMostJpegNotes = 4096;

bool IsJpegNote(std::uint32_t marker)
{
    return (marker >= kFirstJpegNote && marker <= kLastJpegNote) || marker == kJpegComment;
}

bool TellsJpegColors(std::uint32_t marker) { return marker == kJpegPlainColors || marker == kJpegAdobeColors; }

bool IsJpegFrame(std::uint32_t marker)
{
    const bool is_other = marker == 0xc4 || marker == 0xc8 || marker == 0xcc;  // tables
    return marker >= 0xc0 && marker <= 0xcf && !is_other;
}

/// One marker with its segment, and the coded data that follow a scan.
std::string WalkJpegSegment(FileBytes file, ByteReader& reader, std::uint32_t marker, JpegWalk& walk)
{
    constexpr std::uint32_t kLastUsualFrame = 0xc2;  // whole numbers and arithmetic codes are beyond

    const std::size_t   start  = reader.Position();
    const std::uint32_t length = reader.Big16();
    if (length < 2) return reader.IsSpent() ? kCutOff : kDamaged;
    reader.Skip(length - 2);
    if (reader.IsSpent()) return kCutOff;
    if (TellsJpegColors(marker) && ++walk.note_count > kMostJpegNotes) return kDamaged;
    const ByteReader segment(file.first(reader.Position()), start + 2);
    if (IsJpegFrame(marker)) {
        walk.is_unusual = walk.is_unusual || marker > kLastUsualFrame;
        return ReadJpegFrame(segment, walk.frame);
    }
    if (marker == kJpegScan && walk.frame.block_count == 0) return kDamaged;
    if (marker == kJpegScan) ++walk.scan_count;
    return "";
}

std::string WalkJpeg(FileBytes file, JpegWalk& walk)
{
    ByteReader    reader(file, 2);
    std::uint64_t between = 0;
    for (std::uint32_t marker = NextJpegMarker(reader, between); marker != kJpegEnd;) {
        if (reader.IsSpent()) return walk.scan_count > 0 ? "" : kCutOff;
        if (std::string problem = WalkJpegSegment(file, reader, marker, walk); !problem.empty()) return problem;
        marker = NextJpegMarker(reader, marker == kJpegScan ? walk.data_bytes : between);
    }
    walk.has_end = true;
    return "";
}

/// Takes the notes out of a sound picture: what stands behind each moves forward.
void DropJpegNotes(std::span<std::uint8_t> file)
{
    ByteReader    reader(file, 2);
    std::uint64_t between  = 0;
    auto          kept_end = file.begin() + 2, moved_to = kept_end;
    const auto    MoveUpTo = [&](std::ptrdiff_t position) {
        const auto end = file.begin() + position;
        kept_end       = kept_end == moved_to ? end : std::copy(moved_to, end, kept_end);
        moved_to       = end;
    };
    for (;;) {
        const std::uint32_t marker = NextJpegMarker(reader, between);
        const auto          start  = static_cast<std::ptrdiff_t>(reader.Position());
        if (marker == kJpegEnd) return MoveUpTo(start);
        const std::uint32_t length = reader.Big16();
        reader.Skip(length - 2);
        if (!IsJpegNote(marker) || TellsJpegColors(marker)) continue;
        MoveUpTo(start - 2);
        moved_to = file.begin() + static_cast<std::ptrdiff_t>(reader.Position());
    }
}

/// The longest string that a code of 12 bits can stand for, and a little.
constexpr std::uint64_t kGifRatio = 2800;

/// Blocks of up to 255 bytes, closed by an empty one. Returns their bytes.
std::uint64_t SkipGifBlocks(ByteReader& reader)
{
    std::uint64_t bytes = 0;
    for (std::uint32_t length = reader.Byte(); length > 0; length = reader.Byte()) {
        reader.Skip(length);
        bytes += length;
    }
    return bytes;
}

void SkipGifColors(ByteReader& reader, std::uint32_t flags)
{
    if (flags & 0x80u) reader.Skip(3u << ((flags & 7u) + 1));
}

std::string WalkGifPicture(FileBytes file, ByteReader& reader)
{
    reader.Skip(4);
    const std::uint64_t width = reader.Little16(), height = reader.Little16();
    SkipGifColors(reader, reader.Byte());
    const std::uint32_t code_bits = reader.Byte();
    const std::uint64_t bytes     = SkipGifBlocks(reader);
    if (reader.IsSpent()) return kCutOff;
    if (code_bits < 1 || code_bits > 11) return kDamaged;
    if (std::string problem = CheckSize(width, height, 8, file); !problem.empty()) return problem;
    return width * height > kGifRatio * bytes ? Overclaim(width, height, file) : "";
}

std::string WalkGif(FileBytes file, ByteReader& reader)
{
    constexpr std::uint32_t kPicture = 0x2c, kExtension = 0x21, kEnd = 0x3b;

    int picture_count = 0;
    for (std::uint32_t mark = reader.Byte(); mark != kEnd; mark = reader.Byte()) {
        std::string problem;
        if (mark == kPicture) {
            problem = WalkGifPicture(file, reader);
            ++picture_count;
        } else if (mark == kExtension) {
            reader.Skip(1);
            SkipGifBlocks(reader);
        } else if (mark != 0 || reader.IsSpent()) {
            return reader.IsSpent() ? kCutOff : kDamaged;
        }
        if (!problem.empty()) return problem;
    }
    return picture_count > 0 ? "" : "has no pixels";
}

struct PsdHeader {
    std::uint32_t channels = 0, width = 0, height = 0, depth = 0, mode = 0;

    std::uint64_t RowBytes() const { return DividedUp(static_cast<std::uint64_t>(width) * depth, 8); }
};

constexpr std::uint32_t kPsdIndexed = 2;

bool IsKnownPsd(const PsdHeader& header)
{
    constexpr std::uint32_t kLeastChannels[] = {1, 1, 1, 3, 4, 0, 0, 1, 1, 3};  // by mode, 0: there is no such
    const bool              known_mode  = header.mode < std::size(kLeastChannels) && kLeastChannels[header.mode] > 0;
    const bool              known_depth = header.depth == 8 || header.depth == 16 || header.depth == 32;
    return known_mode && known_depth && header.channels >= kLeastChannels[header.mode] && header.channels <= 56;
}

/// Walks the section of resources: signature, number, padded name, padded data. Among them are previews, which the
/// library would decode and copy without measuring them: all get a number that it passes over.
std::string HidePsdResources(std::span<std::uint8_t> section)
{
    constexpr std::uint8_t kUnknown[2] = {0x13, 0x87};  // 4999, the last of those for plug-ins

    ByteReader reader(section);
    while (reader.Left() > 0) {
        const std::uint32_t signature = reader.Big32();
        const std::size_t   number    = reader.Position();
        reader.Skip(2);
        const std::uint32_t name_length = reader.Byte();
        reader.Skip(name_length + (name_length % 2 == 0 ? 1 : 0));
        const std::uint64_t length = reader.Big32();
        reader.Skip(length);
        if (reader.IsSpent() || signature != Tag("8BIM")) return kDamaged;
        std::ranges::copy(kUnknown, section.begin() + static_cast<std::ptrdiff_t>(number));
        if (reader.Left() > 0) reader.Skip(length % 2);
    }
    return "";
}

/// One row of packed bytes: 1 to 128 different ones, or 2 to 128 times the same. It must fill its pixels and no more.
bool IsSoundPsdRow(ByteReader row, std::uint64_t left)
{
    while (row.Left() > 0) {
        const std::uint32_t code = row.Byte();
        if (code == 128) continue;
        const std::uint32_t count = code < 128 ? code + 1 : 257 - code;
        row.Skip(code < 128 ? count : 1);
        if (row.IsSpent() || count > left) return false;
        left -= count;
    }
    return left == 0;
}

/// Packed rows behind a list of their lengths.
std::string CheckPsdRuns(FileBytes file, ByteReader lengths, const PsdHeader& header)
{
    ByteReader          data      = lengths;
    const std::uint64_t row_count = static_cast<std::uint64_t>(header.channels) * header.height;
    data.Skip(2 * row_count);
    for (std::uint64_t row = 0; row < row_count && !data.IsSpent(); ++row) {
        const std::size_t start = data.Position();
        data.Skip(lengths.Big16());
        if (!data.IsSpent() && !IsSoundPsdRow(ByteReader(file.first(data.Position()), start), header.RowBytes()))
            return kDamaged;
    }
    return data.IsSpent() ? kCutOff : "";
}

std::string CheckPsdPixels(FileBytes file, ByteReader reader, const PsdHeader& header)
{
    const std::uint32_t compression = reader.Big16();
    if (compression == 1) return CheckPsdRuns(file, reader, header);
    if (compression != 0) return kUnreadable;
    reader.Skip(header.RowBytes() * header.height * header.channels);
    return reader.IsSpent() ? kCutOff : "";
}

}  // namespace

std::string CheckPng(std::span<std::uint8_t> file)
{
    ByteReader          reader(file, 8);
    const std::uint32_t length = reader.Big32(), tag = reader.Big32();
    PngHeader           header;
    header.width  = reader.Big32();
    header.height = reader.Big32();
    header.depth  = reader.Byte();
    header.color  = reader.Byte();
    reader.Skip(2);
    header.interlace = reader.Byte();
    reader.Skip(4);
    if (reader.IsSpent()) return kCutOff;
    if (length != 13 || tag != Tag("IHDR") || !IsKnownPng(header) || header.interlace > 1) return kDamaged;
    if (std::string problem = CheckSize(header.width, header.height, header.PixelBits(), file); !problem.empty())
        return problem;

    const std::uint64_t data = KeepPngPixels(file, reader);
    if (data == 0) return kCutOff;
    const std::uint64_t row_bytes = DividedUp(header.width * header.PixelBits(), 8);
    return row_bytes * header.height > kDeflateRatio * data ? Overclaim(header.width, header.height, file) : "";
}

std::string CheckJpeg(std::span<std::uint8_t> file, bool& needs_child)
{
    JpegWalk walk;
    if (std::string problem = WalkJpeg(file, walk); !problem.empty()) return problem;
    const JpegFrame& frame = walk.frame;
    if (std::string problem = CheckSize(frame.width, frame.height, 8 * frame.component_count, file); !problem.empty())
        return problem;
    // A block takes a bit at the very least, but for arithmetic codes.
    if (walk.scan_count == 0 || (!walk.is_unusual && frame.block_count > 8 * walk.data_bytes))
        return Overclaim(frame.width, frame.height, file);
    const bool is_endless = walk.scan_count > kMostScans || walk.scan_count * frame.block_count > kMostBlockVisits;
    if (is_endless) return "goes over its pixels too often";

    // Without an end the last rows may be missing, and decoders make them up.
    needs_child = !walk.has_end || walk.is_unusual;
    if (!needs_child) DropJpegNotes(file);
    return walk.has_end ? "" : kCutOff;
}

std::string CheckGif(FileBytes file)
{
    ByteReader reader(file, 10);
    SkipGifColors(reader, reader.Byte());
    reader.Skip(2);
    return WalkGif(file, reader);
}

std::string CheckPsd(std::span<std::uint8_t> file, bool& needs_child)
{
    constexpr std::uint32_t kUsual = 1, kLarge = 2;

    ByteReader          reader(file, 4);
    const std::uint32_t version = reader.Big16();
    PsdHeader           header;
    reader.Skip(6);
    header.channels = reader.Big16();
    header.height   = reader.Big32();
    header.width    = reader.Big32();
    header.depth    = reader.Big16();
    header.mode     = reader.Big16();
    if (reader.IsSpent()) return kCutOff;
    if ((version != kUsual && version != kLarge) || !IsKnownPsd(header)) return kUnreadable;
    // The library holds up to four channels, but goes through all.
    const std::uint64_t pixel_bits = static_cast<std::uint64_t>(header.depth) * std::max(header.channels, 4u);
    if (std::string problem = CheckSize(header.width, header.height, pixel_bits, file); !problem.empty())
        return problem;
    if (version == kLarge) {
        needs_child = true;
        return "";
    }

    const std::uint32_t color_bytes = reader.Big32();
    reader.Skip(color_bytes);
    const std::uint32_t resource_bytes = reader.Big32();
    const std::size_t   resources      = reader.Position();
    reader.Skip(resource_bytes);
    reader.Skip(reader.Big32());  // layers
    if (reader.IsSpent()) return kCutOff;
    if (header.mode == kPsdIndexed && color_bytes != 768) return kDamaged;
    if (std::string problem = HidePsdResources(file.subspan(resources, resource_bytes)); !problem.empty())
        return problem;
    return CheckPsdPixels(file, reader, header);
}

}  // namespace hv
