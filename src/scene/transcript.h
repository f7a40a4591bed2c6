#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// What a reader of scene files saw, line by line: the material of the checker of scene folders and of the reference of
/// the format. Normal reading keeps none.
namespace hv {

/// What a keyword does to its record.
enum class Effect : std::uint8_t {
    Sets,  ///< overwrites: the last one counts
    Adds,  ///< each one counts
    None,  ///< stored, read by nothing
};

/// What the reference and the checker must know of a keyword and its table cannot tell by itself.
struct Note {
    std::string_view example;  ///< values as written; empty where a block follows or the keyword stands alone
    std::string_view unit;     ///< empty: a number without unit, or no number
    std::string_view help;
    Effect           effect  = Effect::Sets;
    std::string_view only_in = {};  ///< has effect only inside a block that this word opens
    std::string_view inside  = {};  ///< of a block: a line that shows its use; empty: the first of it with values
};

/// A keyword of a block, without the record that it fills.
struct KeywordView {
    std::string_view word;
    const Note*      note;  ///< belongs to the table: valid for ever
};

/// What a value names.
enum class Meaning : std::uint8_t {
    Plain,
    OneOf,          ///< one of the words in `choices`
    OneOfOrOther,   ///< the same, but other words mean something, too
    ShaderName,     ///< of the shader that the block defines
    ShaderUse,      ///< a shader for geometry
    ShaderFilter,   ///< a shader that light or an AOV is limited to
    ObjectName,     ///< of the object that the block defines
    ObjectUse,      ///< an object to place
    Picture,        ///< a picture file, looked up when all files are read
    DataPicture,    ///< a picture file, looked up at this line
    PictureFolder,  ///< a folder to look for pictures in
    PictureOutput,  ///< a picture file to be written
    ObjFile,
    StrandFile,
};

enum class ValueKind : std::uint8_t { Int, Float, Word, Quoted };

enum class ValueState : std::uint8_t {
    Read,
    Missing,       ///< the line is at its end
    Unreadable,    ///< something else stands there, or a number out of range
    Skipped,       ///< a value before it could not be read
    NoQuotes,      ///< no quotation mark is left on the line
    Unterminated,  ///< one, but no second: the rest of the line was taken
};

struct ValueRecord {
    ValueKind                     kind     = ValueKind::Float;
    ValueState                    state    = ValueState::Read;
    Meaning                       meaning  = Meaning::Plain;
    bool                          is_glued = false;  ///< the number ends in the middle of a word: "7.9" for an int
    int                           column   = 0;      ///< first byte, from 1
    std::string                   text;    ///< as it stands in the line; of quoted ones what is between the marks
    std::string                   before;  ///< what the variable held: the default, in a fresh record
    std::size_t                   path_count = 0;  ///< entries of ImageSearchPaths when it was read
    std::vector<std::string_view> choices;         ///< of OneOf: the words, in order
};

inline constexpr int kNoBlock = -1;

struct LineRecord {
    int                      number = 0, column = 0;  ///< from 1; `column` of the keyword, in bytes
    int                      block  = kNoBlock;       ///< in Transcript::blocks: where it was read
    int                      opened = kNoBlock;       ///< the block that it opened
    const Note*              note   = nullptr;        ///< null: no keyword of the block
    bool                     closes = false;          ///< the `end` that closed `block`
    std::string              word;                    ///< never empty
    std::vector<ValueRecord> values;
    std::string              rest;  ///< what was not read, without blanks at either end
    int                      rest_column = 0;
    std::string_view         remark;  ///< a finding of the row itself: a text that lives for ever
};

struct BlockRecord {
    const void*              table     = nullptr;  ///< tells blocks of different tables apart
    int                      opener    = -1;       ///< in Transcript::lines
    int                      parent    = kNoBlock;
    bool                     is_closed = false;  ///< by an `end`, not by the end of the file
    std::vector<KeywordView> rows;
};

/// The lines of a file that have a word, but for comments in column 1.
struct Transcript {
    std::vector<LineRecord>  lines;
    std::vector<BlockRecord> blocks;
    std::vector<KeywordView> sections;              ///< rows outside of all blocks
    int                      open      = kNoBlock;  ///< the innermost block under way
    int                      long_line = 0;         ///< number of the line that ended the file; 0: none did

    /// The line that opened a block.
    const LineRecord&  OpenerOf(int block) const { return lines[static_cast<std::size_t>(At(block).opener)]; }
    const BlockRecord& At(int block) const { return blocks[static_cast<std::size_t>(block)]; }
};

}  // namespace hv
