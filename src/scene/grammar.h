#pragma once

#include "base/vector.h"
#include "scene/text_file.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

/// The machinery of the scene file format: lines, values, and blocks that `end` closes. Which keywords a block has, and
/// what they set, is told by the tables of the ..._sections.cpp files.
namespace hv {

/// A scene file at one of its lines. Reading fails in silence: a value that cannot be read keeps its variable, and so
/// do all that follow it on the line.
class SceneReader {
public:
    explicit SceneReader(const std::string& path) : file_(path), path_(path) {}

    bool IsOpen() const { return file_.IsOpen(); }

    /// Moves to the next line that is neither empty nor a comment. False at the end of the file, and at a line longer
    /// than kLineLimit, which ends the file with a warning.
    bool NextLine();

    /// First word of the line; empty on a blank one.
    std::string_view Keyword() const { return keyword_; }

    /// Reads values into the variables in turn; returns how many numbers were stored.
    template <class... Values>
    int Read(Values&... values)
    {
        int count = 0;
        ((count += ReadValue(values)), ...);
        return count;
    }

    /// The text between the next two quotation marks. Without a second one the rest of the line, without any nothing.
    std::string Quoted();

    /// The next word; keeps `word` when there is none.
    void ReadWord(std::string& word);

private:
    int ReadValue(float& value);
    int ReadValue(int& value);
    int ReadValue(std::int64_t& value);
    int ReadValue(std::uint32_t& value);
    int ReadValue(Vector& value) { return Read(value.x, value.y, value.z); }
    int ReadValue(Color& value) { return Read(value.r, value.g, value.b); }
    template <std::size_t count>
    int ReadValue(float (&values)[count])
    {
        int stored = 0;
        for (float& value : values) stored += ReadValue(value);
        return stored;
    }

    void SkipSpace();

    TextFile         file_;
    std::string      path_;
    std::string_view keyword_;
    const char*      cursor_    = "";     ///< in the line, behind what was read
    bool             is_failed_ = false;  ///< a value of this line could not be read
    bool             is_ended_  = false;
};

/// One row of a block's table: what a keyword does to the record that the block fills.
template <class Record>
struct Keyword {
    std::string_view word;
    void (*read)(SceneReader& reader, Record& record);
};

/// Reads the lines of a block up to its `end` or the end of the file. A keyword that opens a block inside reads on in
/// the same file. Lines without a keyword of the table are passed over.
template <class Record, std::size_t count>
void ReadBlock(SceneReader& reader, Record& record, const Keyword<std::type_identity_t<Record>> (&table)[count])
{
    while (reader.NextLine()) {
        if (reader.Keyword() == "end") return;
        for (const auto& row : table) {
            if (row.word != reader.Keyword()) continue;
            row.read(reader, record);
            break;
        }
    }
}

// ---- Common rows: keywords that set fields of the record as they stand ----

/// Numbers, into one field or several.
template <auto... fields, class Record>
void Numbers(SceneReader& reader, Record& record)
{
    reader.Read(record.*fields...);
}

/// A quoted text.
template <auto field, class Record>
void Text(SceneReader& reader, Record& record)
{
    record.*field = reader.Quoted();
}

/// A word without quotes.
template <auto field, class Record>
void Word(SceneReader& reader, Record& record)
{
    reader.ReadWord(record.*field);
}

/// A flag with a number: on for 1, off for others.
template <auto field, class Record>
void Flag(SceneReader& reader, Record& record)
{
    int value = 0;
    if (reader.Read(value) == 1) record.*field = value == 1;
}

/// A keyword that stands alone and gives its field one value.
template <auto field, auto value, class Record>
void Choice(SceneReader&, Record& record)
{
    record.*field = value;
}

}  // namespace hv
