#include "scene/lint.h"

#include "scene/scratch.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>
#include <tuple>

namespace hv {

namespace fs = std::filesystem;

void SceneCheck::Report(const Place& place, bool is_error, std::string text)
{
    ReportFile(place.file->path, place.line->number, place.column, is_error, std::move(text));
}

void SceneCheck::ReportFile(const std::string& file, int line, int column, bool is_error, std::string text)
{
    findings.push_back({fs::path(file).lexically_normal().string(), line, column, is_error, std::move(text)});
}

std::vector<Place> SceneCheck::Sections(std::string_view word) const
{
    std::vector<Place> places;
    for (const SceneText& file : files)
        for (const LineRecord& line : file.transcript.lines)
            if (line.block == kNoBlock && line.opened != kNoBlock && line.word == word)
                places.push_back({&file, &line, line.column});
    return places;
}

std::vector<Place> LinesOf(const SceneText& file, int block, std::string_view word)
{
    std::vector<Place>             places;
    const std::vector<LineRecord>& lines = file.transcript.lines;
    for (auto i = static_cast<std::size_t>(file.transcript.At(block).opener) + 1; i < lines.size(); ++i) {
        const LineRecord& line = lines[i];
        if (line.block != block) continue;
        if (line.closes) break;
        if (line.note != nullptr && (word.empty() || line.word == word)) places.push_back({&file, &line, line.column});
    }
    return places;
}

std::vector<Place> LinesIn(const Place& opener, std::string_view word)
{
    return opener.line->opened == kNoBlock ? std::vector<Place>{} : LinesOf(*opener.file, opener.line->opened, word);
}

Place LineOr(const Place& opener, std::string_view word)
{
    const std::vector<Place> lines = LinesIn(opener, word);
    return lines.empty() ? opener : lines.back();
}

std::string Shown(std::string_view text)
{
    constexpr std::size_t kLongest = 60;
    std::string           shown    = "`";
    if (text.starts_with("\xef\xbb\xbf"))
        return Shown("\\xef\\xbb\\xbf" + std::string(text.substr(3)));  // seen by nobody
    for (const char c : text.substr(0, kLongest)) {
        constexpr char kDigits[] = "0123456789abcdef";
        const auto     byte      = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f)
            shown += c;
        else
            shown.append("\\x").append(1, kDigits[byte / 16]).append(1, kDigits[byte % 16]);
    }
    return shown + (text.size() > kLongest ? "...`" : "`");
}

std::string LineIn(const Place& place, const SceneText* from)
{
    const std::string line = "line " + std::to_string(place.line->number);
    return place.file == from ? line : fs::path(place.file->path).filename().string() + ", " + line;
}

namespace {

bool HoldsZeroByte(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    char          bytes[65536];
    while (file.read(bytes, sizeof bytes) || file.gcount() > 0)
        if (std::find(bytes, bytes + file.gcount(), '\0') != bytes + file.gcount()) return true;
    return false;
}

std::string Lowered(std::string text)
{
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    return text;
}

/// Whether a name looks as if it were meant for a scene file: ".hv" stands in it, and it is not hidden.
bool LooksLikeSceneFile(const std::string& name)
{
    return !name.starts_with('.') && Lowered(name).find(".hv") != std::string::npos;
}

/// Files that look like scene files but are not read: of another ending, in another folder, no regular files.
void CheckUnread(SceneCheck& check, const std::vector<std::string>& read, const std::string& folder, int depth)
{
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        std::error_code   unknown;
        const std::string name = entry->path().filename().string(), path = folder + "/" + name;
        const bool        is_read = std::find(read.begin(), read.end(), path) != read.end();
        if (!is_read && LooksLikeSceneFile(name))
            check.ReportFile(
                path, 0, 0, false,
                "is not read: scene files end in .hv and stand in shader, render, light, camera or geometry");
        else if (depth > 0 && entry->is_directory(unknown) && !entry->is_symlink(unknown) && !name.starts_with('.'))
            CheckUnread(check, read, path, depth - 1);
    }
}

void ReadFiles(SceneCheck& check, const std::vector<std::string>& paths)
{
    check.files.reserve(paths.size());  // places point at them
    for (const std::string& path : paths) {
        SceneText& file = check.files.emplace_back();
        file.path       = path;
        if (!ReadSceneFile(path, file.transcript)) check.ReportFile(path, 0, 0, true, "the file cannot be opened");
    }
}

void SortFindings(std::vector<Finding>& findings)
{
    const auto key = [](const Finding& finding) { return std::tie(finding.file, finding.line, finding.column); };
    std::stable_sort(findings.begin(), findings.end(),
                     [&](const Finding& a, const Finding& b) { return key(a) < key(b); });

    std::map<std::string, int> counts;
    std::erase_if(findings, [&](const Finding& finding) { return ++counts[finding.file] > kMostFindings; });
    for (const auto& [name, count] : counts) {
        if (count <= kMostFindings) continue;
        const std::string& file   = name;  // lambdas cannot capture a binding everywhere
        const auto         behind = std::find_if(findings.rbegin(), findings.rend(),
                                                 [&](const Finding& finding) { return finding.file == file; });
        findings.insert(behind.base(), {file, behind->line, behind->column, behind->is_error,
                                        "and more: the other findings in this file are left out"});
    }
}

}  // namespace

std::vector<Finding> CheckScene(const std::string& folder)
{
    const std::unique_ptr<SceneFormat> format = LearnSceneFormat();
    const ScratchSession               scratch;
    SetSearchPaths(folder);
    const std::vector<std::string> paths = SceneFiles(folder);
    SceneCheck                     check{*format, folder, {}, {}};
    if (paths.empty()) check.ReportFile(folder, 0, 0, true, "no scene file is in the folder");
    ReadFiles(check, paths);
    CheckUnread(check, paths, folder, 2);
    for (SceneText& file : check.files) {
        if (HoldsZeroByte(file.path))
            check.ReportFile(file.path, 0, 0, true, "is no text: it holds zero bytes");
        else
            CheckLines(check, file);
    }
    CheckNames(check);
    CheckRepeats(check);
    CheckValues(check);
    CheckRecords(check);
    SortFindings(check.findings);
    return std::move(check.findings);
}

}  // namespace hv
