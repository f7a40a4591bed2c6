#pragma once

#include "scene/format.h"
#include "scene/scene.h"
#include "scene/transcript.h"

#include <string>
#include <string_view>
#include <vector>

/// The checker of scene folders. Its files look at what the reader noted: line by line (lint_lines.cpp), at names and
/// files (lint_names.cpp), at single values (lint_values.cpp), and at the records that the reader filled
/// (lint_records.cpp).
namespace hv {

struct SurfaceShader;

struct SceneText {
    std::string path;
    Transcript  transcript;
    bool        has_broken_blocks = false;  ///< set by CheckLines: the records lack what the author thinks is in them
};

/// Where something stands: a line of a file, and its place in it.
struct Place {
    const SceneText*  file   = nullptr;
    const LineRecord* line   = nullptr;
    int               column = 0;
};

/// A scene under check. The registries hold what its files say.
struct SceneCheck {
    const SceneFormat&     format;
    std::string            folder;
    std::vector<SceneText> files;  ///< in the order of reading
    std::vector<Finding>   findings;

    void Error(const Place& place, std::string text) { Report(place, true, std::move(text)); }
    void Warn(const Place& place, std::string text) { Report(place, false, std::move(text)); }

    /// A warning about the lines of a file as a whole; left out where its blocks are broken and would be the cause.
    void WarnOfWhole(const Place& place, std::string text)
    {
        if (!place.file->has_broken_blocks) Warn(place, std::move(text));
    }

    void Report(const Place& place, bool is_error, std::string text);
    void ReportFile(const std::string& file, int line, int column, bool is_error, std::string text);

    /// The lines outside of blocks that open a section, file by file.
    std::vector<Place> Sections(std::string_view word) const;
};

/// The lines of a block, those of blocks inside it left out. With a word: those of that keyword.
std::vector<Place> LinesOf(const SceneText& file, int block, std::string_view word = {});

/// The same for the block opened at a place: none if it opens none.
std::vector<Place> LinesIn(const Place& opener, std::string_view word = {});

/// The last line of a keyword in a block, or the block's opener.
Place LineOr(const Place& opener, std::string_view word);

/// Whether the line makes a part of an object, which uses up the pictures that lines before it named.
bool MakesPart(const LineRecord& line);

void CheckLines(SceneCheck& check, SceneText& file);
void CheckNames(SceneCheck& check);
void CheckRepeats(SceneCheck& check);
void CheckValues(SceneCheck& check);
void CheckRecords(SceneCheck& check);

/// Whether any layer of any shader is so.
bool IsAnyLayer(bool (*is_it)(const SurfaceShader&));

inline constexpr int kMostFindings = 100;  ///< of a file: junk is told in a screen or two

/// A text between backquotes as far as it can be shown: other bytes as \xNN, long ones cut.
std::string Shown(std::string_view text);

/// Place for a finding: "line 7", with the file's name when it is another one than `from`.
std::string LineIn(const Place& place, const SceneText* from);

/// The most alike of some words, unless none is much alike. Swapped, missing, added and wrong letters count one each;
/// case does not count.
std::string_view Nearest(std::string_view word, const std::vector<std::string_view>& known);

}  // namespace hv
