#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace hv {

inline constexpr std::size_t kLineLimit = 4095;  ///< characters of a line, its line feed not counted

/// What separates words: the white space of the classic locale, whatever the locale of the process.
inline constexpr const char* kSpace = " \t\n\v\f\r";

/// Text that comes line by line.
class LineSource {
public:
    virtual ~LineSource() = default;

    /// The next line without its line feed, ended by a zero byte and valid until the next call; null at the end. A line
    /// longer than kLineLimit comes in pieces of that many characters, for all of which but the last IsCut() holds.
    virtual const char* NextLine() = 0;

    /// Whether the last line goes on in the next one.
    virtual bool IsCut() const { return false; }
};

/// A text file, through one buffer of fixed size. Only regular files open: reading a directory fails late, and a pipe
/// may never end.
class TextFile final : public LineSource {
public:
    explicit TextFile(const std::string& path);
    ~TextFile() override;
    TextFile(const TextFile&)            = delete;
    TextFile& operator=(const TextFile&) = delete;

    bool IsOpen() const { return file_ >= 0; }

    /// Bytes of the file when it was opened.
    std::size_t Size() const { return size_; }

    const char* NextLine() override;
    bool        IsCut() const override { return is_cut_; }

private:
    void Refill();

    int                     file_ = -1;
    std::size_t             size_ = 0;
    std::unique_ptr<char[]> buffer_;
    char*                   next_       = nullptr;  ///< first byte that was not handed out
    char*                   end_        = nullptr;  ///< behind the last byte read; one more is allocated
    char                    covered_    = '\0';     ///< what the zero byte behind a cut line stands on
    bool                    is_cut_     = false;
    bool                    is_drained_ = false;  ///< nothing more to read from the file
};

}  // namespace hv
