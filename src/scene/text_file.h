#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace hv {

inline constexpr std::size_t kLineLimit = 4095;  ///< characters of a line, its line feed not counted

/// What separates words: the white space of the classic locale, whatever the locale of the process.
inline constexpr const char* kSpace = " \t\n\v\f\r";

/// A text file, line by line, through one buffer of fixed size. Only regular files open: reading a directory fails
/// late, and a pipe may never end.
class TextFile {
public:
    explicit TextFile(const std::string& path);
    ~TextFile();
    TextFile(const TextFile&)            = delete;
    TextFile& operator=(const TextFile&) = delete;

    bool IsOpen() const { return file_ >= 0; }

    /// Bytes of the file when it was opened.
    std::size_t Size() const { return size_; }

    /// The next line without its line feed, ended by a zero byte and valid until the next call; null at the end of the
    /// file. A longer line comes in pieces of kLineLimit characters, for all of which but the last IsCut() holds.
    const char* NextLine();

    /// Whether the last line goes on in the next one.
    bool IsCut() const { return is_cut_; }

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
