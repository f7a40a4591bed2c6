#include "scene/hair_import.h"

#include "base/physical_memory.h"
#include "scene/grammar.h"
#include "session/console.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace hv {

namespace {

/// What became of a file; a damage is below zero.
enum Status : int {
    kRead           = 0,
    kNoFile         = -1,
    kNoHeader       = -2,
    kWrongSignature = -3,
    kNoSegments     = -4,
    kNoPoints       = -5,
    kNoThickness    = -6,
    kNoTransparency = -7,
    kNoColor        = -8
};

/// Of -1, -2, ...; the path follows.
constexpr const char* kMessages[] = {
    "cannot open ",
    "cannot open hair file header ",
    "hair file has wrong signature ",
    "cannot read hair segments ",
    "cannot read hair points ",
    "cannot read hair thickness ",
    "cannot read hair transparency ",
    "cannot read hair color ",
};

enum ArrayFlag : std::uint32_t { kSegments = 1, kPoints = 2, kThickness = 4, kTransparency = 8, kColor = 16 };

/// The first bytes of a file. What follows the fields, 88 bytes of text, is not read.
struct Header {
    char          signature[4];
    std::uint32_t hair_count, point_count, arrays, default_segments;
    float         default_thickness, default_transparency, default_color[3];
    char          information[88];
};
static_assert(sizeof(Header) == 128);
static_assert(std::endian::native == std::endian::little, "files are little-endian and read as they stand");

/// A file that is read from front to back, with the number of bytes that are still to come: no count that the file
/// claims is believed before it was held against it.
class BinaryFile {
public:
    explicit BinaryFile(const std::string& path)
    {
        std::error_code error;
        left_ = std::filesystem::file_size(path, error);  // fails for all but regular files: a pipe may never end
        if (!error) file_.open(path, std::ios::binary);
        left_ = std::min<std::uint64_t>(left_, PhysicalMemory());  // a file with holes may be larger than it
    }

    bool IsOpen() const { return file_.is_open(); }

    bool Read(void* target, std::uint64_t size)
    {
        if (size > left_) return false;
        left_ -= size;
        return file_.read(static_cast<char*>(target), static_cast<std::streamsize>(size)).good();
    }

    template <class T>
    bool Read(std::vector<T>& values, std::uint64_t count)
    {
        if (count * sizeof(T) > left_) return false;
        values.resize(count);
        return Read(values.data(), count * sizeof(T));
    }

private:
    std::ifstream file_;
    std::uint64_t left_ = 0;
};

Status ReadHeader(BinaryFile& file, HairContainer& hair)
{
    Header header;
    if (!file.Read(&header, sizeof(header))) return kNoHeader;
    if (std::memcmp(header.signature, "HAIR", sizeof(header.signature)) != 0) return kWrongSignature;
    hair.hair_count           = header.hair_count;
    hair.point_count          = header.point_count;
    hair.arrays               = header.arrays;
    hair.default_segments     = header.default_segments;
    hair.default_thickness    = header.default_thickness;
    hair.default_transparency = header.default_transparency;
    std::copy_n(header.default_color, 3, hair.default_color);
    return kRead;
}

Status ReadContainer(HairContainer& hair, const std::string& path)
{
    BinaryFile file(path);
    if (!file.IsOpen()) return kNoFile;
    const Status status = ReadHeader(file, hair);
    if (status != kRead) return status;
    const auto lacks = [&](ArrayFlag flag, auto& values, std::uint32_t count) {
        return (hair.arrays & flag) != 0 && !file.Read(values, count);
    };
    if (lacks(kSegments, hair.segments, hair.hair_count)) return kNoSegments;
    if (lacks(kPoints, hair.points, hair.point_count)) return kNoPoints;
    // Nothing can be made of a file without the array, unless it has nothing to tell.
    const bool is_empty = hair.hair_count == 0 && hair.point_count == 0;
    if ((hair.arrays & kPoints) == 0 && !is_empty) return kNoPoints;
    if (lacks(kThickness, hair.thickness, hair.point_count)) return kNoThickness;
    if (lacks(kTransparency, hair.transparency, hair.point_count)) return kNoTransparency;
    if (lacks(kColor, hair.color, hair.point_count)) return kNoColor;
    return kRead;
}

/// Cuts the points of a part into strands, of which `segments_of` tells the segments. Strands end at the last point,
/// however many segments or strands are said to follow.
template <class SegmentsOf>
void AddStrands(Part& part, std::size_t strand_count, const SegmentsOf& segments_of)
{
    const std::size_t point_count = part.positions.size();
    part.cylinders.reserve(point_count);
    part.strandSizes.reserve(std::min(strand_count, point_count));
    std::size_t first = 0;
    for (std::size_t strand = 0; strand < strand_count && first < point_count; ++strand) {
        const std::size_t segments = std::min<std::size_t>(segments_of(strand), point_count - first - 1);
        for (std::size_t j = 0; j < segments; ++j) part.cylinders.push_back(static_cast<std::uint32_t>(first + j));
        part.strandSizes.push_back(static_cast<std::uint32_t>(segments));
        first += segments + 1;
    }
}

}  // namespace

std::int64_t LoadHairContainer(HairContainer& container, const std::string& path)
{
    HairContainer hair;
    const Status  status = ReadContainer(hair, path);
    container            = status == kRead ? std::move(hair) : HairContainer{};
    return status == kRead ? std::int64_t{container.hair_count} : std::int64_t{status};
}

void ReadHairFile(Part& part, const std::string& path)
{
    HairContainer      hair;
    const std::int64_t status = LoadHairContainer(hair, path);
    if (status < 0) {
        PrintTitle(kMessages[-1 - status] + path);
        return;
    }
    const std::size_t count = hair.points.size();
    const auto        total = static_cast<float>(count);
    part.positions.resize(count);
    part.scalars[0].values.resize(count);
    part.uvs[0].values.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        const float thickness     = hair.thickness.empty() ? hair.default_thickness : hair.thickness[i];
        part.positions[i]         = {hair.points[i][0], hair.points[i][1], hair.points[i][2]};
        part.uvs[0].values[i]     = {static_cast<float>(i) / total, static_cast<float>(i + 1) / total};
        part.scalars[0].values[i] = 0.5f * thickness;
    }
    AddStrands(part, hair.hair_count, [&hair](std::size_t strand) {
        return hair.segments.empty() ? hair.default_segments : std::uint32_t{hair.segments[strand]};
    });
}

void ReadFurFile(Part& part, const std::string& path)
{
    constexpr float  kRadius = 0.003f;
    SceneReader      reader(path);
    std::vector<int> sizes;
    while (reader.NextLine()) {
        if (reader.Keyword() == "segment") {
            int size = 0;
            reader.Read(size);
            sizes.push_back(std::max(size, 0));
        } else if (reader.Keyword() == "position") {
            Vector point;
            reader.Read(point);
            part.positions.push_back(point);
            part.uvs[0].values.push_back({});
            part.scalars[0].values.push_back(kRadius);
        }
    }
    AddStrands(part, sizes.size(), [&sizes](std::size_t strand) { return static_cast<std::size_t>(sizes[strand]); });
}

}  // namespace hv
