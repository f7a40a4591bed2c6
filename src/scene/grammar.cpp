#include "scene/grammar.h"

#include "scene/number.h"
#include "session/console.h"
#include "session/search_paths.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

namespace hv {

namespace {

std::string_view FirstWord(const char* text) { return {text, std::strcspn(text, kSpace)}; }

const char* SkippedSpace(const char* text) { return text + std::strspn(text, kSpace); }

bool IsExponentSign(char c) { return (c | 0x20) == 'e'; }

// Whether the number first..last is followed by an exponent without digits. It then has no other: "1e5e" is 1e5.
bool IsExponentBroken(const char* first, const char* last)
{
    return IsExponentSign(*last) && std::none_of(first, last, IsExponentSign);
}

// Digits with a sign, as from_chars reads them, but with a leading plus as well.
template <class Integer>
bool ScanNumber(const char*& cursor, Integer& value)
{
    const char* const digits = *cursor == '+' && IsDigit(cursor[1]) ? cursor + 1 : cursor;
    Integer           read   = 0;
    const auto        result = std::from_chars(digits, digits + std::strlen(digits), read);
    if (result.ec != std::errc()) return false;
    cursor = result.ptr;
    value  = read;
    return true;
}

// As with stream extraction, an exponent without digits and a value out of range are failures.
bool ScanNumber(const char*& cursor, float& value)
{
    float             read = 0.0f;
    const char* const end  = ScanFloat(cursor, read);
    if (end == cursor || IsExponentBroken(cursor, end) || !std::isfinite(read)) return false;
    cursor = end;
    value  = read;
    return true;
}

template <class Number>
std::string Written(Number value)
{
    char       text[40];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return {text, result.ptr};
}

}  // namespace

SceneReader::SceneReader(const std::string& path) : path_(path)
{
    auto file = std::make_unique<TextFile>(path);
    is_open_  = file->IsOpen();
    lines_    = std::move(file);
}

SceneReader::SceneReader(const std::string& path, Transcript& transcript) : SceneReader(path)
{
    transcript_ = &transcript;
}

SceneReader::SceneReader(std::unique_ptr<LineSource> lines, Transcript& transcript)
    : lines_(std::move(lines)), transcript_(&transcript)
{
}

bool SceneReader::NextLine()
{
    do {
        if (is_ended_) return false;
        line_             = lines_->NextLine();
        const bool is_cut = lines_->IsCut();
        is_ended_         = line_ == nullptr || is_cut;
        ++line_number_;
        if (!is_cut) continue;
        if (transcript_ != nullptr)
            transcript_->long_line = line_number_;
        else
            PrintWarning("scene - line is too long, the rest of the file is left out: " + path_);
    } while (is_ended_ || *line_ == '\0' || *line_ == '#');

    const char* const word = SkippedSpace(line_);
    keyword_               = FirstWord(word);
    cursor_                = word + keyword_.size();
    is_failed_             = false;
    if (transcript_ != nullptr && !keyword_.empty()) {
        LineRecord& line = transcript_->lines.emplace_back();
        line.number      = line_number_;
        line.column      = static_cast<int>(word - line_) + 1;
        line.block       = transcript_->open;
        line.word        = keyword_;
        WriteRest();
    }
    return true;
}

void SceneReader::SkipSpace() { cursor_ = SkippedSpace(cursor_); }

std::string SceneReader::Quoted(Meaning meaning, std::string_view before)
{
    const char* const open    = std::strchr(cursor_, '"');
    const char* const close   = open != nullptr ? std::strchr(open + 1, '"') : nullptr;
    const char* const at      = open != nullptr ? open : SkippedSpace(cursor_);
    ValueRecord*      written = transcript_ != nullptr ? WriteValue(ValueKind::Quoted, at) : nullptr;
    if (written != nullptr) {
        written->meaning  = meaning;
        written->before   = before;
        written->is_glued = open != nullptr && SkippedSpace(cursor_) != open;
        written->state    = open == nullptr    ? ValueState::NoQuotes
                            : close == nullptr ? ValueState::Unterminated
                                               : ValueState::Read;
    }
    if (open == nullptr) return {};
    std::string text = close != nullptr ? std::string(open + 1, close) : std::string(open + 1);
    if (close == nullptr && text.ends_with('\r')) text.pop_back();  // files with either line end read alike
    cursor_ = close != nullptr ? close + 1 : cursor_ + std::strlen(cursor_);
    if (written != nullptr) written->text = text;
    return text;
}

void SceneReader::ReadWord(std::string& word, Meaning meaning)
{
    SkipSpace();
    const std::string_view next = FirstWord(cursor_);
    if (ValueRecord* const written = transcript_ != nullptr ? WriteValue(ValueKind::Word, cursor_) : nullptr) {
        written->meaning = meaning;
        written->before  = word;
        written->text    = next;
        written->state   = next.empty() ? ValueState::Missing : ValueState::Read;
    }
    cursor_ += next.size();
    if (!next.empty()) word = next;
}

template <class Number>
int SceneReader::ReadNumber(ValueKind kind, Number& value)
{
    SkipSpace();
    const bool         was_failed = is_failed_;
    const char* const  start      = cursor_;
    ValueRecord* const written    = transcript_ != nullptr ? WriteValue(kind, start) : nullptr;
    if (written != nullptr) written->before = Written(value);
    is_failed_ = is_failed_ || !ScanNumber(cursor_, value);
    if (written != nullptr) {
        const std::string_view word = FirstWord(start);
        written->text               = word;
        written->is_glued           = !is_failed_ && cursor_ != start + word.size();
        written->state              = was_failed     ? ValueState::Skipped
                                      : !is_failed_  ? ValueState::Read
                                      : word.empty() ? ValueState::Missing
                                                     : ValueState::Unreadable;
    }
    return is_failed_ ? 0 : 1;
}

int SceneReader::ReadValue(float& value) { return ReadNumber(ValueKind::Float, value); }

int SceneReader::ReadValue(int& value) { return ReadNumber(ValueKind::Int, value); }

int SceneReader::ReadValue(std::int64_t& value) { return ReadNumber(ValueKind::Int, value); }

int SceneReader::ReadValue(std::uint32_t& value)
{
    int       read   = static_cast<int>(value);
    const int stored = ReadValue(read);
    if (stored == 1) value = static_cast<std::uint32_t>(read);
    return stored;
}

// ---- The transcript: all of these are called with one, and with a line in it ----

ValueRecord* SceneReader::WriteValue(ValueKind kind, const char* at)
{
    ValueRecord& value = transcript_->lines.back().values.emplace_back();
    value.kind         = kind;
    value.column       = static_cast<int>(at - line_) + 1;
    value.path_count   = ImageSearchPaths.size();
    return &value;
}

void SceneReader::WriteRest()
{
    LineRecord&            line  = transcript_->lines.back();
    const char* const      first = SkippedSpace(cursor_);
    const std::string_view rest  = first;
    line.rest                    = rest.substr(0, rest.find_last_not_of(kSpace) + 1);
    line.rest_column             = static_cast<int>(first - line_) + 1;
}

void SceneReader::WriteOpening(const void* table, std::vector<KeywordView> rows)
{
    const int opener                 = static_cast<int>(transcript_->lines.size()) - 1;
    const int block                  = static_cast<int>(transcript_->blocks.size());
    transcript_->lines.back().opened = block;
    transcript_->blocks.push_back({table, opener, transcript_->open, false, std::move(rows)});
    transcript_->open = block;
}

void SceneReader::WriteEnd(bool by_end)
{
    BlockRecord& block = transcript_->blocks[static_cast<std::size_t>(transcript_->open)];
    block.is_closed    = by_end;
    transcript_->open  = block.parent;
    if (by_end) transcript_->lines.back().closes = true;
}

// Behind a block the line under way is its `end`, or the last one of the file: its rest has been written.
void SceneReader::WriteKeywordEnd()
{
    const LineRecord& line = transcript_->lines.back();
    if (line.number == line_number_ && line.opened == kNoBlock && line.note != nullptr) WriteRest();
}

void SceneReader::Offer(std::string_view word, bool is_before)
{
    if (transcript_ == nullptr || transcript_->lines.back().values.empty()) return;
    ValueRecord& value = transcript_->lines.back().values.back();
    value.choices.push_back(word);
    if (is_before) value.before = word;
}

void SceneReader::Remark(std::string_view text)
{
    if (transcript_ != nullptr) transcript_->lines.back().remark = text;
}

}  // namespace hv
