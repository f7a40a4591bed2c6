// The check of TIFF: a directory of fields that point all over the file.

#include "output/picture_formats.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <vector>

namespace hv {
namespace {

enum TiffTag : std::uint32_t {
    kWidth           = 256,
    kHeight          = 257,
    kBitsPerSample   = 258,
    kCompression     = 259,
    kPhotometric     = 262,
    kFillOrder       = 266,
    kStripOffsets    = 273,
    kOrientation     = 274,
    kSamplesPerPixel = 277,
    kRowsPerStrip    = 278,
    kStripByteCounts = 279,
    kPlanar          = 284,
    kFaxOptions3     = 292,
    kFaxOptions4     = 293,
    kPredictor       = 317,
    kColorMap        = 320,
    kTileWidth       = 322,
    kTileHeight      = 323,
    kTileOffsets     = 324,
    kTileByteCounts  = 325,
    kExtraSamples    = 338,
    kSampleFormat    = 339,
    kJpegTables      = 347,
    kChromaSampling  = 530,
    kCameraRaw       = 50706,
};

/// The fields that make the pixels. All others, with the previews and notes that they lead to, are taken out before the
/// library sees the file.
constexpr std::uint32_t kKept[] = {kWidth,           kHeight,       kBitsPerSample, kCompression,     kPhotometric,
                                   kFillOrder,       kStripOffsets, kOrientation,   kSamplesPerPixel, kRowsPerStrip,
                                   kStripByteCounts, kPlanar,       kFaxOptions3,   kFaxOptions4,     kPredictor,
                                   kColorMap,        kTileWidth,    kTileHeight,    kTileOffsets,     kTileByteCounts,
                                   kExtraSamples,    kSampleFormat, kJpegTables,    kChromaSampling};

/// Best ratios of the compressions that are read here, in bytes of pixels for a byte of the file.
struct Compression {
    std::uint32_t code;
    std::uint64_t ratio;
};

constexpr std::uint32_t kJpeg = 7;

constexpr Compression kCompressions[] = {
    {1, 1},                                  // none
    {2, 1 << 16},                            // fax codes, one bit a pixel: a white row is a single code
    {3, 1 << 16},  {4, 1 << 16}, {5, 2800},  // LZW: the longest string of a 12-bit code
    {kJpeg, 512},                            // a bit a block
    {8, 1032},                               // deflate
    {32946, 1032},                           // deflate, its older number
    {32773, 64},                             // packed runs
};

enum Photometric : std::uint32_t { kWhiteIsZero = 0, kBlackIsZero = 1, kRgb = 2, kPalette = 3, kInks = 5, kChroma = 6 };

/// What the pieces of a picture are, strips or tiles.
struct Layout {
    std::uint64_t width = 0, height = 0, bits = 0, samples = 0, planes = 1;
    std::uint64_t piece_width = 0, piece_height = 0;
    std::uint32_t compression = 0, photometric = 0, sample_format = 1;
    bool          is_planar = false, is_tiled = false;
};

constexpr std::size_t kFieldBytes = 12;

struct Field {
    std::uint32_t tag = 0, type = 0, count = 0;
    std::size_t   entry = 0, position = 0;  ///< where the field and its values stand

    std::uint32_t ValueBytes() const
    {
        constexpr std::uint32_t kBytes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
        return type < std::size(kBytes) ? kBytes[type] : 0;
    }
};

class Tiff {
public:
    Tiff(std::span<std::uint8_t> file, bool& needs_child)
        : file_(file), is_big_endian_(file[0] == 'M'), needs_child_(needs_child)
    {
    }

    /// Checks the first picture and leaves nothing else in its directory.
    std::string Check()
    {
        ByteReader          start(file_, 4);
        const std::uint32_t offset = Read32(start);
        if (start.IsSpent()) return kCutOff;
        // Files of cameras only look like it.
        needs_child_ = start.Byte() == 'C' && start.Byte() == 'R';
        if (std::string problem = ReadDirectory(offset); !problem.empty()) return problem;
        needs_child_ = needs_child_ || Find(kCameraRaw);
        if (needs_child_) return "";
        if (std::string problem = CheckPixels(); !problem.empty()) return problem;
        // Other kinds of pictures may be made by further fields.
        if (!needs_child_) KeepPixelFields(offset);
        return "";
    }

private:
    std::uint32_t Read16(ByteReader& reader) const { return is_big_endian_ ? reader.Big16() : reader.Little16(); }
    std::uint32_t Read32(ByteReader& reader) const { return is_big_endian_ ? reader.Big32() : reader.Little32(); }

    /// The fields of the first directory. The values of those that are kept must lie in the file.
    std::string ReadDirectory(std::uint32_t offset)
    {
        ByteReader          reader(file_, offset);
        const std::uint32_t count = Read16(reader);
        if (count == 0) return reader.IsSpent() ? kCutOff : kDamaged;
        for (std::uint32_t i = 0; i < count; ++i) {
            Field field;
            field.entry               = reader.Position();
            field.tag                 = Read16(reader);
            field.type                = Read16(reader);
            field.count               = Read32(reader);
            field.position            = reader.Position();
            const std::uint32_t place = Read32(reader);
            if (reader.IsSpent()) return kCutOff;
            if (field.tag != kCameraRaw && std::ranges::find(kKept, field.tag) == std::end(kKept)) continue;
            if (std::string problem = CheckField(field, place); !problem.empty()) return problem;
            fields_.push_back(field);
        }
        Read32(reader);  // where the next directory is
        return reader.IsSpent() ? kCutOff : "";
    }

    std::string CheckField(Field& field, std::uint32_t place)
    {
        constexpr std::uint32_t kShort = 3, kLong = 4;

        const bool is_number = field.type == kShort || field.type == kLong;
        if (!is_number && field.tag != kJpegTables && field.tag != kCameraRaw) {
            needs_child_ = true;  // the library has its ways with numbers of other sizes
            return "";
        }
        const std::uint64_t bytes = static_cast<std::uint64_t>(field.count) * field.ValueBytes();
        if (bytes > 4) field.position = place;
        if (bytes == 0 || Find(field.tag)) return kDamaged;
        return bytes > file_.size() || field.position > file_.size() - bytes ? kCutOff : "";
    }

    /// Moves the kept fields together and ends the directory, and the chain of directories, behind them.
    void KeepPixelFields(std::uint32_t offset)
    {
        auto out = file_.begin() + offset + 2;
        for (Field& field : fields_) {
            const bool is_inside = field.position == field.entry + 8;
            out         = std::copy_n(file_.begin() + static_cast<std::ptrdiff_t>(field.entry), kFieldBytes, out);
            field.entry = static_cast<std::size_t>(out - file_.begin()) - kFieldBytes;
            if (is_inside) field.position = field.entry + 8;
        }
        std::fill_n(out, 4, std::uint8_t{0});
        const auto count                         = fields_.size();  // at most one for each kept tag, so it fits a byte
        file_[offset + (is_big_endian_ ? 0 : 1)] = 0;
        file_[offset + (is_big_endian_ ? 1 : 0)] = static_cast<std::uint8_t>(count);
    }

    const Field* Find(std::uint32_t tag) const
    {
        const auto found = std::ranges::find(fields_, tag, &Field::tag);
        return found == fields_.end() ? nullptr : &*found;
    }

    /// Value `index` of a field of numbers; of the last one for an index beyond.
    std::uint32_t Value(const Field& field, std::uint32_t index) const
    {
        const std::size_t at = std::min(index, field.count - 1);
        ByteReader        reader(file_, field.position + at * field.ValueBytes());
        return field.ValueBytes() == 2 ? Read16(reader) : Read32(reader);
    }

    std::uint32_t Value(TiffTag tag, std::uint32_t fallback) const
    {
        const Field* field = Find(tag);
        return field ? Value(*field, 0) : fallback;
    }

    Layout ReadLayout() const
    {
        Layout layout;
        layout.width         = Value(kWidth, 0);
        layout.height        = Value(kHeight, 0);
        layout.bits          = Value(kBitsPerSample, 1);
        layout.samples       = Value(kSamplesPerPixel, 1);
        layout.compression   = Value(kCompression, 1);
        layout.photometric   = Value(kPhotometric, ~0u);
        layout.sample_format = Value(kSampleFormat, 1);
        layout.is_planar     = Value(kPlanar, 1) == 2;
        layout.planes        = layout.is_planar ? layout.samples : 1;
        layout.is_tiled      = Find(kTileOffsets) != nullptr;
        layout.piece_width   = layout.is_tiled ? Value(kTileWidth, 0) : layout.width;
        layout.piece_height  = layout.is_tiled ? Value(kTileHeight, 0) : Value(kRowsPerStrip, ~0u);
        if (!layout.is_tiled) layout.piece_height = std::min(layout.piece_height, layout.height);
        return layout;
    }

    /// Whether the samples of a pixel make a colour that the library knows how to read, as it asserts but does not
    /// check.
    bool IsKnownColor(const Layout& layout) const
    {
        const Field* map = Find(kColorMap);
        switch (layout.photometric) {
        case kWhiteIsZero:
        case kBlackIsZero:
            return layout.samples == 1 ||
                   (layout.samples == 2 && layout.bits <= 16 && !layout.is_tiled && !layout.is_planar);
        case kRgb:
            return layout.samples == 3 || layout.samples == 4;
        case kPalette:
            return layout.samples == 1 && layout.bits <= 8 && map && map->count == 3u << layout.bits;
        case kInks:
            return layout.samples == 4 && (layout.bits == 8 || layout.bits == 16);
        case kChroma:
            return layout.samples == 3 && layout.bits == 8 && layout.compression == kJpeg && !layout.is_planar;
        default:
            return false;
        }
    }

    /// Whether this guard knows enough of a kind of picture to let it pass.
    bool IsKnown(const Layout& layout) const
    {
        const std::uint64_t bits   = layout.bits;
        const bool          is_fax = layout.compression >= 2 && layout.compression <= 4;
        if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 32) return false;
        if (bits < 8 && (layout.is_planar || layout.is_tiled || layout.samples != 1)) return false;
        if (is_fax && bits != 1) return false;
        if (layout.compression == kJpeg && bits != 8) return false;
        if (layout.sample_format < 1 || layout.sample_format > 3) return false;
        return IsKnownColor(layout) && !HasMixedSamples();
    }

    /// Samples of one pixel must be of one size and one kind.
    bool HasMixedSamples() const
    {
        for (const TiffTag tag : {kBitsPerSample, kSampleFormat}) {
            const Field* field = Find(tag);
            for (std::uint32_t i = 1; field && i < std::min(field->count, 4u); ++i)
                if (Value(*field, i) != Value(*field, 0)) return true;
        }
        return false;
    }

    std::string CheckPixels()
    {
        constexpr std::uint64_t kLargestTile = 1 << 26;  // pixels

        const Layout layout = ReadLayout();
        const auto   known  = std::ranges::find(kCompressions, layout.compression, &Compression::code);
        if (known == std::end(kCompressions) || !IsKnown(layout)) {
            needs_child_ = true;
            return "";
        }
        const std::uint64_t pixel_bits = std::max<std::uint64_t>(layout.bits * layout.samples, 8);
        if (std::string problem = CheckSize(layout.width, layout.height, pixel_bits, file_); !problem.empty())
            return problem;
        if (layout.piece_width == 0 || layout.piece_height == 0) return kDamaged;
        const bool is_odd = layout.piece_width % 16 != 0 || layout.piece_height % 16 != 0;
        if (layout.is_tiled &&
            (is_odd || layout.piece_width > kLargestTile || layout.piece_width * layout.piece_height > kLargestTile))
            return kDamaged;
        return CheckPieces(layout, known->ratio);
    }

    /// Every strip or tile lies in the file and can hold its pixels.
    std::string CheckPieces(const Layout& layout, std::uint64_t ratio)
    {
        const Field* offsets = Find(layout.is_tiled ? kTileOffsets : kStripOffsets);
        const Field* counts  = Find(layout.is_tiled ? kTileByteCounts : kStripByteCounts);
        if (!offsets) return kDamaged;
        if (!counts) {
            needs_child_ = true;  // the library guesses them
            return "";
        }
        const std::uint64_t across = DividedUp(layout.width, layout.piece_width);
        const std::uint64_t down   = DividedUp(layout.height, layout.piece_height);
        const std::uint64_t pieces = across * down * layout.planes;
        if (offsets->count < pieces || counts->count < pieces) return kDamaged;

        const std::uint64_t samples   = layout.is_planar ? 1 : layout.samples;
        const std::uint64_t row_bytes = (layout.piece_width * layout.bits * samples + 7) / 8;
        for (std::uint32_t i = 0; i < pieces; ++i) {
            const std::uint64_t bytes = Value(*counts, i), offset = Value(*offsets, i);
            if (offset > file_.size() || bytes > file_.size() - offset) return kCutOff;
            const std::uint64_t rows_left = layout.height - i / across % down * layout.piece_height;
            const std::uint64_t rows = layout.is_tiled ? layout.piece_height : std::min(layout.piece_height, rows_left);
            if (row_bytes * rows > ratio * bytes) return Overclaim(layout.width, layout.height, file_);
        }
        return "";
    }

    std::span<std::uint8_t> file_;
    bool                    is_big_endian_;
    bool&                   needs_child_;
    std::vector<Field>      fields_;  ///< those of the first directory that are kept
};

}  // namespace

std::string CheckTiff(std::span<std::uint8_t> file, bool& needs_child) { return Tiff(file, needs_child).Check(); }

}  // namespace hv
