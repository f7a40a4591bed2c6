#include "geometry/assembly.h"
#include "session/console.h"

#include <string>

namespace hv {

namespace {

// Bytes that the report counts for one item. Figures of the report, not sizes of records.
constexpr std::int64_t kTriangleBytes = 16, kTetragonBytes = 20, kInstanceBytes = 304;

template <class T>
std::int64_t ValueCount(const std::vector<VertexData<T>>& arrays)
{
    std::int64_t count = 0;
    for (const VertexData<T>& array : arrays) count += static_cast<std::int64_t>(array.values.size());
    return count;
}

/// Sums a number over all parts.
template <class Count>
std::int64_t SumOverParts(const Object& object, Count&& count)
{
    std::int64_t sum = 0;
    for (const Part& part : object.parts) sum += static_cast<std::int64_t>(count(part));
    return sum;
}

void ReportItems(std::string_view label, std::int64_t count, std::int64_t bytes_each)
{
    ReportStatistic(label, count, count * bytes_each);
}

void ReportVector(const std::string& label, Vector value, std::string_view unit)
{
    const float values[3] = {value.x, value.y, value.z};
    ReportTriple(label, values, unit);
}

void ReportVertexArrays(const Object& object)
{
    ReportItems("positions",
                SumOverParts(object,
                             [](const Part& part) {
                                 return static_cast<std::int64_t>(part.positions.size()) + ValueCount(part.vectors);
                             }),
                12);
    ReportItems("uv coords", SumOverParts(object, [](const Part& part) { return ValueCount(part.uvs); }), 8);
    ReportItems("scalars  ", SumOverParts(object, [](const Part& part) { return ValueCount(part.scalars); }), 4);
    ReportItems("normals  ", SumOverParts(object, [](const Part& part) { return part.normals.size(); }), 3);
    ReportItems("tangents ", SumOverParts(object, [](const Part& part) { return part.tangents.size(); }), 3);
    PrintRule();
}

void ReportPrimitives(const Object& object)
{
    ReportItems("particles", SumOverParts(object, [](const Part& part) { return part.particles.size(); }), 4);
    ReportItems("cylinders", SumOverParts(object, [](const Part& part) { return part.cylinders.size(); }), 4);
    ReportItems("triangles", SumOverParts(object, [](const Part& part) { return part.triangles.size(); }),
                kTriangleBytes);
    ReportItems("tetragons", SumOverParts(object, [](const Part& part) { return part.tetragons.size(); }),
                kTetragonBytes);
    ReportItems("instances", static_cast<std::int64_t>(object.instances.size()), kInstanceBytes);
    PrintRule();
}

}  // namespace

void ReportBox(const char* prefix, const Box& box)
{
    const std::string label(prefix);
    const Box         shown = IsEmpty(box) ? Box{{0, 0, 0}, {0, 0, 0}} : box;
    ReportVector(label + "size  ", shown.max - shown.min, "m");
    ReportVector(label + "min   ", shown.min, "n/a");
    ReportVector(label + "max   ", shown.max, "n/a");
    ReportVector(label + "center", 0.5f * (shown.min + shown.max), "n/a");
    PrintRule();
}

void ReportObject(const Object& object)
{
    ReportVertexArrays(object);
    ReportPrimitives(object);
    ReportBox("bbox ", object.box);
}

}  // namespace hv
