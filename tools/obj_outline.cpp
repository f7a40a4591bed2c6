#include "obj_outline.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <string_view>
#include <vector>

namespace {

/// Takes the next word off the front of `text`; empty at the end.
std::string_view TakeWord(std::string_view& text)
{
    const std::size_t begin = std::min(text.find_first_not_of(" \t\r"), text.size());
    text.remove_prefix(begin);
    const std::string_view word = text.substr(0, text.find_first_of(" \t\r"));
    text.remove_prefix(word.size());
    return word;
}

double ReadNumber(std::string_view word)
{
    double value = 0.0;
    if (!word.empty() && word.front() == '+') word.remove_prefix(1);
    std::from_chars(word.data(), word.data() + word.size(), value);
    return value;
}

void AddFace(std::string_view line, const std::vector<Point>& positions, ObjOutline& outline)
{
    for (std::string_view word = TakeWord(line); !word.empty(); word = TakeWord(line)) {
        long index = 0;
        std::from_chars(word.data(), word.data() + word.size(), index);
        const long count    = static_cast<long>(positions.size());
        const long position = index < 0 ? count + index : index - 1;
        if (position < 0 || position >= count) continue;
        const Point& point = positions[static_cast<std::size_t>(position)];
        if (!std::isfinite(point[0] + point[1] + point[2])) continue;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            outline.low[axis]  = outline.has_faces ? std::min(outline.low[axis], point[axis]) : point[axis];
            outline.high[axis] = outline.has_faces ? std::max(outline.high[axis], point[axis]) : point[axis];
        }
        outline.has_faces = true;
    }
}

}  // namespace

bool ReadOutline(const std::filesystem::path& file, ObjOutline& outline)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) return false;
    std::ifstream stream(file);
    if (!stream) return false;

    std::vector<Point> positions;
    for (std::string text; std::getline(stream, text);) {
        std::string_view       line    = text;
        const std::string_view keyword = TakeWord(line);
        if (keyword == "v") {
            Point point;
            for (double& value : point) value = ReadNumber(TakeWord(line));
            positions.push_back(point);
        } else if (keyword == "f") {
            AddFace(line, positions, outline);
        } else if (keyword == "usemtl") {
            if (const std::string_view name = TakeWord(line); !name.empty()) outline.materials.emplace(name);
        }
    }
    return !stream.bad();
}
