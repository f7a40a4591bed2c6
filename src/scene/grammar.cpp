#include "scene/grammar.h"

#include "scene/number.h"
#include "session/console.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

namespace hv {

namespace {

std::string_view FirstWord(const char* text) { return {text, std::strcspn(text, kSpace)}; }

bool IsExponentSign(char c) { return (c | 0x20) == 'e'; }

// Whether the number first..last is followed by an exponent without digits. It then has no other: "1e5e" is 1e5.
bool IsExponentBroken(const char* first, const char* last)
{
    return IsExponentSign(*last) && std::none_of(first, last, IsExponentSign);
}

// Digits with a sign, as from_chars reads them, but with a leading plus as well.
template <class Integer>
bool ReadInteger(const char*& cursor, Integer& value)
{
    const char* const digits = *cursor == '+' && IsDigit(cursor[1]) ? cursor + 1 : cursor;
    Integer           read   = 0;
    const auto        result = std::from_chars(digits, digits + std::strlen(digits), read);
    if (result.ec != std::errc()) return false;
    cursor = result.ptr;
    value  = read;
    return true;
}

}  // namespace

bool SceneReader::NextLine()
{
    const char* line = nullptr;
    do {
        if (is_ended_) return false;
        line      = file_.NextLine();
        is_ended_ = line == nullptr || file_.IsCut();
        if (file_.IsCut()) PrintWarning("scene - line is too long, the rest of the file is left out: " + path_);
    } while (is_ended_ || *line == '\0' || *line == '#');

    const char* const word = line + std::strspn(line, kSpace);
    keyword_               = FirstWord(word);
    cursor_                = word + keyword_.size();
    is_failed_             = false;
    return true;
}

void SceneReader::SkipSpace() { cursor_ += std::strspn(cursor_, kSpace); }

std::string SceneReader::Quoted()
{
    const char* const open = std::strchr(cursor_, '"');
    if (open == nullptr) return {};
    const char* const close = std::strchr(open + 1, '"');
    std::string       text  = close != nullptr ? std::string(open + 1, close) : std::string(open + 1);
    if (close == nullptr && text.ends_with('\r')) text.pop_back();  // files with either line end read alike
    cursor_ = close != nullptr ? close + 1 : cursor_ + std::strlen(cursor_);
    return text;
}

void SceneReader::ReadWord(std::string& word)
{
    SkipSpace();
    const std::string_view next = FirstWord(cursor_);
    cursor_ += next.size();
    if (!next.empty()) word = next;
}

int SceneReader::ReadValue(float& value)
{
    SkipSpace();
    float             read = 0.0f;
    const char* const end  = ScanFloat(cursor_, read);
    // As with stream extraction, an exponent without digits and a value out of range are failures.
    is_failed_ = is_failed_ || end == cursor_ || IsExponentBroken(cursor_, end) || !std::isfinite(read);
    if (is_failed_) return 0;
    cursor_ = end;
    value   = read;
    return 1;
}

int SceneReader::ReadValue(int& value)
{
    SkipSpace();
    is_failed_ = is_failed_ || !ReadInteger(cursor_, value);
    return is_failed_ ? 0 : 1;
}

int SceneReader::ReadValue(std::int64_t& value)
{
    SkipSpace();
    is_failed_ = is_failed_ || !ReadInteger(cursor_, value);
    return is_failed_ ? 0 : 1;
}

int SceneReader::ReadValue(std::uint32_t& value)
{
    int       read   = 0;
    const int stored = ReadValue(read);
    if (stored == 1) value = static_cast<std::uint32_t>(read);
    return stored;
}

}  // namespace hv
