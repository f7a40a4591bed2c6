#include "base/physical_memory.h"
#include "output/image.h"
#include "output/picture_child.h"
#include "output/picture_decoder.h"
#include "session/console.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace hv {
namespace {

/// A file may take this part of the memory, besides its pixels.
constexpr std::uint64_t kFileShare = 4;

/// Descriptor of a file, closed at the end.
struct OpenFile {
    explicit OpenFile(const std::string& path) : descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~OpenFile()
    {
        if (descriptor >= 0) ::close(descriptor);
    }
    OpenFile(const OpenFile&)            = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    int descriptor;
};

/// Reads a file as a whole: the check and the decoder must see the same bytes. Returns what is wrong.
std::string ReadWhole(const std::string& path, std::vector<std::uint8_t>& bytes)
{
    const OpenFile file(path);
    struct stat    status {};
    if (file.descriptor < 0 || ::fstat(file.descriptor, &status) != 0) return "cannot be opened";
    if (!S_ISREG(status.st_mode)) return "is no file";
    if (status.st_size <= 0) return "is empty";
    if (static_cast<std::uint64_t>(status.st_size) > PhysicalMemory() / kFileShare)
        return "is too large for the memory";

    bytes.resize(static_cast<std::size_t>(status.st_size));
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = ::read(file.descriptor, bytes.data() + filled, bytes.size() - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return "cannot be read to its end";
        filled += static_cast<std::size_t>(count);
    }
    return "";
}

std::string Decode(Image& image, const std::string& path, bool in_child)
{
    std::vector<std::uint8_t> file;
    std::string               problem = ReadWhole(path, file);
    return problem.empty() ? DecodePicture(image, file, in_child) : problem;
}

std::string DecodeHere(Image& image, const std::string& path) { return Decode(image, path, false); }
std::string DecodeAsChild(Image& image, const std::string& path) { return Decode(image, path, true); }

/// What is thrown for want of memory ends here too.
std::string TryToDecode(Image& image, const std::string& path)
{
    try {
        return PictureChild.on ? DecodeInChild(image, path, DecodeAsChild) : DecodeHere(image, path);
    } catch (const std::exception&) {
        return "does not fit into memory";
    }
}

void Clear(Image& image) { AllocateImage(image, 0, 0, 0, 0, false); }

}  // namespace

bool ReadImageFile(Image& image, const std::string& full_path)
{
    Clear(image);
    const std::string problem = TryToDecode(image, full_path);
    if (!problem.empty()) {
        Clear(image);
        PrintError("image - " + image.path + "\t" + problem);
        PrintRule();
        return false;
    }
    if (image.width == 0) PrintWarning("image - " + image.path + "\tis of a pixel layout that reads black");
    return true;
}

}  // namespace hv
