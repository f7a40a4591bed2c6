#include "scene/text_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace hv {

namespace {

constexpr std::size_t kBufferSize = 256 * 1024;  // small enough to stay in the second-level cache

int OpenRegularFile(const std::string& path, std::size_t& size)
{
    // Not blocking: opening a pipe without a writer would wait for ever. It means nothing to a regular file.
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return -1;
    struct stat status;
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(file);
        return -1;
    }
    size = static_cast<std::size_t>(status.st_size);
    return file;
}

}  // namespace

TextFile::TextFile(const std::string& path) : buffer_(new char[kBufferSize + 1])
{
    file_ = OpenRegularFile(path, size_);
    next_ = end_ = buffer_.get();
    is_drained_  = !IsOpen();
}

TextFile::~TextFile()
{
    if (IsOpen()) close(file_);
}

void TextFile::Refill()
{
    const auto rest = static_cast<std::size_t>(end_ - next_);
    std::memmove(buffer_.get(), next_, rest);
    next_ = buffer_.get();
    end_  = next_ + rest;
    while (!is_drained_ && end_ < buffer_.get() + kBufferSize) {
        const ssize_t got = read(file_, end_, static_cast<std::size_t>(buffer_.get() + kBufferSize - end_));
        if (got < 0 && errno == EINTR) continue;
        is_drained_ = got <= 0;  // a read error ends the file like its end
        if (got > 0) end_ += got;
    }
}

const char* TextFile::NextLine()
{
    if (is_cut_) *next_ = covered_;
    is_cut_ = false;
    if (!is_drained_ && static_cast<std::size_t>(end_ - next_) <= kLineLimit) Refill();
    if (next_ == end_) return nullptr;

    char* const line     = next_;
    const auto  rest     = static_cast<std::size_t>(end_ - line);
    char* const feed     = static_cast<char*>(std::memchr(line, '\n', std::min(rest, kLineLimit + 1)));
    char* const line_end = feed != nullptr ? feed : line + std::min(rest, kLineLimit);
    is_cut_              = feed == nullptr && line_end < end_;
    covered_             = *line_end;
    next_                = feed != nullptr ? feed + 1 : line_end;
    *line_end            = '\0';
    return line;
}

}  // namespace hv
