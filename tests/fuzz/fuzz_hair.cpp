// Anything may stand in a hair file or a fur list: what comes out must be strands of points that exist.

#include "scene/hair_import.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void Check(const hv::Part& part)
{
    const std::size_t count = part.positions.size();
    std::size_t       sum   = 0;
    for (const std::uint32_t strand : part.strandSizes) sum += strand;
    if (sum != part.cylinders.size()) std::abort();
    for (const std::uint32_t cylinder : part.cylinders)
        if (cylinder + std::size_t{1} >= count) std::abort();
    if (part.scalars[0].values.size() != count || part.uvs[0].values.size() != count) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const int file = memfd_create("strands", MFD_CLOEXEC);
    if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size)) std::abort();
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    for (const auto read : {hv::ReadHairFile, hv::ReadFurFile}) {
        hv::Part part;
        read(part, path);
        Check(part);
    }
    close(file);
    return 0;
}
