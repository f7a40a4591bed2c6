#include "scene/obj_import.h"

#include "scene/number.h"
#include "scene/text_file.h"
#include "session/console.h"
#include "shading/shading.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>
#include <unordered_map>

namespace hv {

namespace {

constexpr int kMaxCorners = 8;  // of a face; the rest of the line is not read

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// A line feed cannot stand in a line, the zero byte ends it.
bool IsLineEnd(char c) { return c == '\0' || c == '\r'; }

const char* SkipBlanks(const char* text)
{
    while (IsBlank(*text)) ++text;
    return text;
}

const char* SkipToBlank(const char* text)
{
    while (!IsBlank(*text) && !IsLineEnd(*text)) ++text;
    return text;
}

const char* SkipToCornerEnd(const char* text)
{
    while (*text != '/' && !IsBlank(*text) && !IsLineEnd(*text)) ++text;
    return text;
}

// A word that is no number reads as 0.
const char* ReadFloat(const char* text, float& value) { return SkipToBlank(ScanFloat(SkipBlanks(text), value)); }

/// A corner as written: 0 is none, positive counts from the first, negative from the last.
struct CornerText {
    int position = 0, uv = 0, normal = 0;
};

// p, p/t, p/t/n or p//n; what stands behind a third number is passed over.
const char* ReadCorner(const char* text, CornerText& corner)
{
    corner = {};
    text   = SkipToCornerEnd(ScanInt(text, corner.position));
    if (*text == '/') text = SkipToCornerEnd(ScanInt(text + 1, corner.uv));
    if (*text == '/') text = SkipToCornerEnd(ScanInt(text + 1, corner.normal));
    return *text == '/' ? SkipToBlank(text) : text;
}

int ReadCorners(const char* text, CornerText (&corners)[kMaxCorners])
{
    int count = 0;
    for (text = SkipBlanks(text); count < kMaxCorners && !IsLineEnd(*text); text = SkipBlanks(text))
        text = ReadCorner(text, corners[count++]);
    return count;
}

/// A vector in double precision: the limits below are too narrow for the rounding of floats.
struct WideVector {
    double x, y, z;
};

double Dot(WideVector a, WideVector b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// Under the length guard of all normalisations.
WideVector Normalized(WideVector v)
{
    const double square = Dot(v, v);
    const double scale  = square == 0.0 ? 1.0 : 1.0 / (square > 1e-10 ? std::sqrt(square) : 1e-5);
    return {v.x * scale, v.y * scale, v.z * scale};
}

WideVector Direction(Vector from, Vector to)
{
    return Normalized(WideVector{double{to.x} - from.x, double{to.y} - from.y, double{to.z} - from.z});
}

WideVector Across(WideVector a, WideVector b)
{
    return Normalized(WideVector{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x});
}

/// Whether a face stays in one piece: the normals at its corners agree, and its edges stand at right angles. Written so
/// that non-numbers fail.
bool IsFlatAndSquare(const Vector (&corners)[4])
{
    WideVector edges[4], normals[4];
    for (int i = 0; i < 4; ++i) edges[i] = Direction(corners[i], corners[(i + 1) % 4]);
    for (int i = 0; i < 4; ++i) normals[i] = Across(edges[i], edges[(i + 1) % 4]);
    for (int i = 0; i < 4; ++i) {
        const int next = (i + 1) % 4;
        if (!(Dot(normals[i], normals[next]) > 0.999999)) return false;
        if (!(std::fabs(Dot(edges[i], edges[next])) < 1e-6)) return false;
    }
    return true;
}

/// The state of one file between its lines.
class ObjReader {
public:
    explicit ObjReader(StagedMesh& staged)
        : staged_(staged),
          position_base_(staged.positions.size()),
          uv_base_(staged.uvs.size()),
          normal_base_(staged.normals.size())
    {
    }

    void ReadLine(const char* line);

private:
    void ReadPosition(const char* values);
    void ReadUV(const char* values);
    void ReadNormal(const char* values);
    void ReadFace(const char* values);
    void ReadSmoothing(const char* values);
    void ReadMaterial(const char* values);

    StagedCorner Resolve(const CornerText& corner) const;
    void         AddTriangle(const StagedCorner& a, const StagedCorner& b, const StagedCorner& c);
    void         AddQuadrangle(const StagedCorner (&corners)[4]);
    bool         AddDegenerate(const StagedCorner (&corners)[4]);
    bool         IsTetragon(const StagedCorner (&corners)[4]) const;
    void         WarnOnce(bool& is_told, std::string_view message);

    StagedMesh&                                    staged_;
    const std::size_t                              position_base_, uv_base_, normal_base_;  ///< sizes at the start
    std::uint32_t                                  shader_ = 0;
    std::unordered_map<std::string, std::uint32_t> shaders_;  ///< by name: the registry's search is a linear one
    bool                                           has_normals_         = true;  ///< false behind "s off"
    bool                                           is_told_of_polygons_ = false, is_told_of_degenerates_ = false;
};

// Positive numbers count from where the file began, negative ones from the last element read so far. A number that
// names nothing stays out of range, so that it is met when the faces are flattened.
std::uint32_t ResolveIndex(int index, std::size_t base, std::size_t size)
{
    if (index == 0) return kNone;
    return static_cast<std::uint32_t>(index > 0 ? base + static_cast<std::size_t>(index) - 1
                                                : size + static_cast<std::size_t>(index));
}

StagedCorner ObjReader::Resolve(const CornerText& corner) const
{
    StagedCorner staged;
    staged.position = ResolveIndex(corner.position, position_base_, staged_.positions.size());
    staged.uv       = ResolveIndex(corner.uv, uv_base_, staged_.uvs.size());
    if (has_normals_) staged.normal = ResolveIndex(corner.normal, normal_base_, staged_.normals.size());
    return staged;
}

void ObjReader::WarnOnce(bool& is_told, std::string_view message)
{
    if (is_told) return;
    is_told = true;
    PrintWarning(message);
    PrintRule();
}

void ObjReader::AddTriangle(const StagedCorner& a, const StagedCorner& b, const StagedCorner& c)
{
    staged_.triangles.push_back({{a, b, c}, shader_});
}

bool ObjReader::AddDegenerate(const StagedCorner (&corners)[4])
{
    StagedCorner distinct[4];
    int          count = 0;
    for (const StagedCorner& corner : corners) {
        bool is_known = false;
        for (int i = 0; i < count; ++i) is_known = is_known || distinct[i].position == corner.position;
        if (!is_known) distinct[count++] = corner;
    }
    if (count == 4) return false;
    WarnOnce(is_told_of_degenerates_, "object - there are degenerated quadrangles");
    if (count == 3) AddTriangle(distinct[0], distinct[1], distinct[2]);
    return true;
}

// A quadrangle whose corners come later in the file cannot be tested, and is split.
bool ObjReader::IsTetragon(const StagedCorner (&corners)[4]) const
{
    Vector positions[4];
    for (int i = 0; i < 4; ++i) {
        if (corners[i].position >= staged_.positions.size()) return false;
        positions[i] = staged_.positions[corners[i].position];
    }
    return IsFlatAndSquare(positions);
}

void ObjReader::AddQuadrangle(const StagedCorner (&corners)[4])
{
    if (AddDegenerate(corners)) return;
    if (IsTetragon(corners)) {
        staged_.tetragons.push_back({{corners[0], corners[1], corners[2], corners[3]}, shader_});
        return;
    }
    AddTriangle(corners[0], corners[1], corners[2]);
    AddTriangle(corners[2], corners[3], corners[0]);
}

void ObjReader::ReadFace(const char* values)
{
    CornerText corners[kMaxCorners];
    const int  count = ReadCorners(values, corners);
    if (count == 3) AddTriangle(Resolve(corners[0]), Resolve(corners[1]), Resolve(corners[2]));
    if (count == 4) AddQuadrangle({Resolve(corners[0]), Resolve(corners[1]), Resolve(corners[2]), Resolve(corners[3])});
    if (count > 4) WarnOnce(is_told_of_polygons_, "object - please triangulate/quadrangulate the input model(s)");
}

void ObjReader::ReadPosition(const char* values)
{
    Vector position;
    values = ReadFloat(values, position.x);
    values = ReadFloat(values, position.y);
    ReadFloat(values, position.z);
    staged_.positions.push_back(position);
}

void ObjReader::ReadUV(const char* values)
{
    Vector2 uv;
    values = ReadFloat(values, uv.u);
    ReadFloat(values, uv.v);
    staged_.uvs.push_back(uv);
}

void ObjReader::ReadNormal(const char* values)
{
    Vector normal;
    values = ReadFloat(values, normal.x);
    values = ReadFloat(values, normal.y);
    ReadFloat(values, normal.z);
    staged_.normals.push_back(normal);
}

// Meant: only "off" switches normals off; "0" switches them on.
void ObjReader::ReadSmoothing(const char* values)
{
    const char* const word = SkipBlanks(values);
    has_normals_           = std::string_view(word, SkipToBlank(word)) != "off";
}

void ObjReader::ReadMaterial(const char* values)
{
    const char* const word = values + std::strspn(values, kSpace);
    std::string       name(word, std::strcspn(word, kSpace));
    if (name.empty()) return;
    const auto known = shaders_.find(name);
    shader_          = known != shaders_.end() ? known->second : FindOrAddShader(name);
    if (known == shaders_.end()) shaders_.emplace(std::move(name), shader_);
}

// Groups, material libraries, comments and all other lines say nothing about the part.
void ObjReader::ReadLine(const char* line)
{
    constexpr std::string_view kMaterial = "usemtl";
    const char* const          word      = SkipBlanks(line);
    switch (word[0]) {
    case 'v':
        if (IsBlank(word[1])) return ReadPosition(word + 2);
        if (word[1] == 't' && IsBlank(word[2])) return ReadUV(word + 3);
        if (word[1] == 'n' && IsBlank(word[2])) return ReadNormal(word + 3);
        return;
    case 'f':
        if (IsBlank(word[1])) ReadFace(word + 2);
        return;
    case 's':
        if (IsBlank(word[1])) ReadSmoothing(word + 2);
        return;
    case 'u':
        // A blank before the keyword makes the line an ignored one.
        if (word == line && std::string_view(line).starts_with(kMaterial) && IsBlank(line[kMaterial.size()]))
            ReadMaterial(line + kMaterial.size());
        return;
    default:
        return;
    }
}

// Growing by copying would take two fifths of the time. A mesh takes about 40 bytes of text a triangle and twice that a
// position; untouched memory costs nothing, but no file's size is trusted without limit.
void ReserveFor(StagedMesh& staged, std::size_t bytes)
{
    constexpr std::size_t kBytesPerTriangle = 40, kBytesPerPosition = 80, kLargest = 256u << 20;
    bytes = std::min(bytes, kLargest);
    staged.triangles.reserve(staged.triangles.size() + bytes / kBytesPerTriangle);
    staged.positions.reserve(staged.positions.size() + bytes / kBytesPerPosition);
}

}  // namespace

void ReadObjFile(StagedMesh& staged, const std::string& path)
{
    TextFile file(path);
    if (!file.IsOpen()) {
        PrintError("object - cannot open " + path);
        PrintRule();
        return;
    }
    ReserveFor(staged, file.Size());
    ObjReader reader(staged);
    while (const char* line = file.NextLine()) reader.ReadLine(line);
}

void ReadObjFile(Part& part, const std::string& path)
{
    StagedMesh staged;
    ReadObjFile(staged, path);
    FlattenStagedMesh(staged, part);
}

}  // namespace hv
