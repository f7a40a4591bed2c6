#pragma once

#include "base/vector.h"
#include "scene/text_file.h"
#include "scene/transcript.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

/// The machinery of the scene file format: lines, values, and blocks that `end` closes. Which keywords a block has, and
/// what they set, is told by the tables of the ..._sections.cpp files.
namespace hv {

/// A scene file at one of its lines. Reading fails in silence: a value that cannot be read keeps its variable, and so
/// do all that follow it on the line.
class SceneReader {
public:
    explicit SceneReader(const std::string& path);

    /// Reads to check: what is read is written down as well, in silence, and files that lines name are left alone.
    SceneReader(const std::string& path, Transcript& transcript);
    SceneReader(std::unique_ptr<LineSource> lines, Transcript& transcript);

    bool IsOpen() const { return is_open_; }

    /// Whether the importers and pictures that lines name are to be read. They are not where lines are checked only.
    bool LoadsFiles() const { return transcript_ == nullptr; }

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
    /// `before` is the text that it replaces.
    std::string Quoted(Meaning meaning = Meaning::Plain, std::string_view before = {});

    /// The next word; keeps `word` when there is none.
    void ReadWord(std::string& word, Meaning meaning = Meaning::Plain);

    // ---- For those who write down what is read: all of them do nothing without a transcript ----

    /// The block that the keyword of the present line opens, and its end.
    template <class Row, std::size_t count>
    void OpenBlock(const Row (&table)[count])
    {
        if (transcript_ != nullptr) WriteOpening(table, Views(table));
    }
    void CloseBlock(bool by_end)
    {
        if (transcript_ != nullptr) WriteEnd(by_end);
    }

    /// The words that a text just read is compared with; `is_before` marks the one that the record holds.
    void Offer(std::string_view word, bool is_before);

    /// What is wrong with the present line for a reason that no table shows.
    void Remark(std::string_view text);

    /// The keyword of the present line is known; all its values were read.
    void BeginKeyword(const Note& note)
    {
        if (transcript_ != nullptr) transcript_->lines.back().note = &note;
    }
    void EndKeyword()
    {
        if (transcript_ != nullptr) WriteKeywordEnd();
    }

    template <class Row, std::size_t count>
    void ListSections(const Row (&table)[count])
    {
        if (transcript_ != nullptr) transcript_->sections = Views(table);
    }

private:
    template <class Row, std::size_t count>
    static std::vector<KeywordView> Views(const Row (&table)[count])
    {
        std::vector<KeywordView> views;
        for (const Row& row : table) views.push_back({row.word, &row.note});
        return views;
    }

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

    template <class Number>
    int  ReadNumber(ValueKind kind, Number& value);
    void SkipSpace();

    ValueRecord* WriteValue(ValueKind kind, const char* at);
    void         WriteOpening(const void* table, std::vector<KeywordView> rows);
    void         WriteEnd(bool by_end);
    void         WriteKeywordEnd();
    void         WriteRest();

    std::unique_ptr<LineSource> lines_;
    std::string                 path_;
    std::string_view            keyword_;
    const char*                 line_        = "";
    const char*                 cursor_      = "";       ///< in the line, behind what was read
    Transcript*                 transcript_  = nullptr;  ///< null in normal reading
    int                         line_number_ = 0;
    bool                        is_open_     = true;
    bool                        is_failed_   = false;  ///< a value of this line could not be read
    bool                        is_ended_    = false;
};

/// One row of a block's table: what a keyword does to the record that the block fills.
template <class Record>
struct Keyword {
    std::string_view word;
    void (*read)(SceneReader& reader, Record& record);
    Note note;
};

/// Reads the present line by the row of its keyword. A line without a keyword of the table is passed over.
template <class Record, std::size_t count>
void ReadLine(SceneReader& reader, Record& record, const Keyword<std::type_identity_t<Record>> (&table)[count])
{
    for (const auto& row : table) {
        if (row.word != reader.Keyword()) continue;
        reader.BeginKeyword(row.note);
        row.read(reader, record);
        reader.EndKeyword();
        break;
    }
}

/// Reads the lines of a block up to its `end` or the end of the file. A keyword that opens a block inside reads on in
/// the same file.
template <class Record, std::size_t count>
void ReadBlock(SceneReader& reader, Record& record, const Keyword<std::type_identity_t<Record>> (&table)[count])
{
    reader.OpenBlock(table);
    while (reader.NextLine()) {
        if (reader.Keyword() == "end") return reader.CloseBlock(true);
        ReadLine(reader, record, table);
    }
    reader.CloseBlock(false);
}

// ---- Common rows: keywords that set fields of the record as they stand ----

/// Numbers, into one field or several.
template <auto... fields, class Record>
void Numbers(SceneReader& reader, Record& record)
{
    reader.Read(record.*fields...);
}

/// A quoted text.
template <auto field, Meaning meaning = Meaning::Plain, class Record>
void Text(SceneReader& reader, Record& record)
{
    record.*field = reader.Quoted(meaning, record.*field);
}

/// A quoted text that names a picture, into the path of an Image.
template <auto field, Meaning meaning, class Record>
void PicturePath(SceneReader& reader, Record& record)
{
    (record.*field).path = reader.Quoted(meaning, (record.*field).path);
}

/// A word without quotes.
template <auto field, Meaning meaning, class Record>
void Word(SceneReader& reader, Record& record)
{
    reader.ReadWord(record.*field, meaning);
}

/// A flag with a number: on for 1, off for others.
template <auto field, class Record>
void Flag(SceneReader& reader, Record& record)
{
    int value = record.*field ? 1 : 0;
    if (reader.Read(value) == 1) record.*field = value == 1;
}

/// A keyword that stands alone and gives its field one value.
template <auto field, auto value, class Record>
void Choice(SceneReader&, Record& record)
{
    record.*field = value;
}

/// A word of a scene file and what it stands for.
template <class Value>
struct NamedValue {
    std::string_view word;
    Value            value;
};

/// A quoted word out of a list; another one changes nothing.
template <auto field, const auto& names, class Record>
void OneOf(SceneReader& reader, Record& record)
{
    const auto        before = record.*field;
    const std::string word   = reader.Quoted(Meaning::OneOf);
    for (const auto& name : names) {
        reader.Offer(name.word, name.value == before);
        if (name.word == word) record.*field = name.value;
    }
}

}  // namespace hv
