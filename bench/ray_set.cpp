#include "ray_set.h"

#include <cmath>
#include <cstring>
#include <fstream>

namespace {

struct Header {
    char          magic[8];
    std::uint32_t kind, zero0;
    std::uint64_t count;
    float         radius;
    std::uint32_t zero1;
};
static_assert(sizeof(Header) == 32);

constexpr char kMagic[9] = "RAYFILE1";

template <class T>
bool WriteArray(std::ofstream& file, const std::vector<T>& values)
{
    file.write(reinterpret_cast<const char*>(values.data()), static_cast<std::streamsize>(values.size() * sizeof(T)));
    return static_cast<bool>(file.flush());
}

/// Bytes left in a file, so that a header cannot ask for more memory than the file has data.
std::uint64_t BytesLeft(std::ifstream& file)
{
    const auto here = file.tellg();
    file.seekg(0, std::ios::end);
    const auto end = file.tellg();
    file.seekg(here);
    return file ? static_cast<std::uint64_t>(end - here) : 0;
}

template <class T>
bool ReadArray(std::ifstream& file, std::uint64_t count, std::vector<T>& values)
{
    if (count > BytesLeft(file) / sizeof(T)) return false;
    values.resize(count);
    file.read(reinterpret_cast<char*>(values.data()), static_cast<std::streamsize>(count * sizeof(T)));
    return static_cast<bool>(file);
}

}  // namespace

bool ReadRays(const std::string& path, RaySet& set)
{
    std::ifstream file(path, std::ios::binary);
    Header        header;
    if (!file.read(reinterpret_cast<char*>(&header), sizeof(header))) return false;
    if (std::memcmp(header.magic, kMagic, sizeof(header.magic)) != 0 || header.kind > 1) return false;
    set.name   = path;
    set.kind   = static_cast<RayKind>(header.kind);
    set.radius = header.radius;
    return ReadArray(file, header.count, set.rays);
}

bool WriteRays(const std::string& path, const RaySet& set)
{
    std::ofstream file(path, std::ios::binary);
    Header        header{{}, static_cast<std::uint32_t>(set.kind), 0, set.rays.size(), set.radius, 0};
    std::memcpy(header.magic, kMagic, sizeof(header.magic));
    file.write(reinterpret_cast<const char*>(&header), sizeof(header));
    return WriteArray(file, set.rays);
}

bool WriteAnswers(const std::string& path, const std::vector<Answer>& answers)
{
    std::ofstream file(path, std::ios::binary);
    return WriteArray(file, answers);
}

bool ReadAnswers(const std::string& path, std::vector<Answer>& answers)
{
    std::ifstream file(path, std::ios::binary);
    return file && ReadArray(file, BytesLeft(file) / sizeof(Answer), answers);
}

Differences Compare(const RaySet& set, const std::vector<Answer>& a, const std::vector<Answer>& b, float tolerance)
{
    Differences differences;
    const auto  is_hit = [&](const Answer& answer) {
        return set.kind == RayKind::Closest ? std::isfinite(answer.t) : answer.t != 0.0f;
    };
    for (std::size_t n = 0; n < std::min(a.size(), b.size()); ++n) {
        if (is_hit(a[n]) != is_hit(b[n])) {
            ++differences.one_sided;
        } else if (is_hit(a[n])) {
            if (std::fabs(a[n].t - b[n].t) > tolerance * set.radius)
                ++differences.distance;
            else if (a[n].triangle != b[n].triangle)
                ++differences.triangle;
        }
    }
    return differences;
}
