#include "output/picture_child.h"

#include "base/physical_memory.h"

#include <fcntl.h>
#include <omp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <limits>
#include <new>
#include <span>

// Sanitizers reserve more addresses than any limit would leave, so under them memory is not limited.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HV_LIMIT_MEMORY 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define HV_LIMIT_MEMORY 0
#endif
#endif
#ifndef HV_LIMIT_MEMORY
#define HV_LIMIT_MEMORY 1
#endif

namespace hv {

PictureChildSettings PictureChild;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kMagic          = 0x3170696874636970u;
constexpr std::uint64_t kLongestProblem = 256;
constexpr std::uint64_t kMegabyte       = 1 << 20;

/// What a child sends first; the words of the problem or the pixels follow.
struct Reply {
    std::uint64_t magic          = kMagic;
    std::uint64_t problem_length = 0;
    std::uint64_t pixel_bytes    = 0;
    std::int32_t  width = 0, height = 0, channels = 0, bits = 0;
    std::int32_t  packed = 0;
    std::int32_t  loaded = 0;
};

/// How the reading of a reply ended.
enum class Arrival { Complete, Ended, Late };

struct Pipe {
    Pipe()
    {
        if (::pipe2(ends, O_CLOEXEC) != 0) ends[0] = ends[1] = -1;
    }
    ~Pipe()
    {
        Close(0);
        Close(1);
    }
    Pipe(const Pipe&)            = delete;
    Pipe& operator=(const Pipe&) = delete;

    void Close(int end)
    {
        if (ends[end] >= 0) ::close(ends[end]);
        ends[end] = -1;
    }

    int ends[2];  ///< for reading, for writing
};

bool Send(int descriptor, std::span<const std::byte> bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

Arrival Receive(int descriptor, std::span<std::byte> bytes, Clock::time_point deadline)
{
    while (!bytes.empty()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return Arrival::Late;
        pollfd     waited = {.fd = descriptor, .events = POLLIN, .revents = 0};
        const auto ready  = ::poll(&waited, 1, static_cast<int>(std::min<std::int64_t>(left, 1000)));
        if (ready < 0 && errno != EINTR) return Arrival::Ended;
        if (ready <= 0) continue;
        const ssize_t count = ::read(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return Arrival::Ended;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return Arrival::Complete;
}

std::span<const std::byte> BytesOf(const std::string& text)
{
    return std::as_bytes(std::span(text.data(), text.size()));
}

/// Bytes of addresses that this process has in use, as the limit counts them; 0 where there is none to be set.
std::uint64_t AddressesInUse()
{
    std::FILE* const file = HV_LIMIT_MEMORY ? std::fopen("/proc/self/statm", "re") : nullptr;
    if (!file) return 0;
    unsigned long pages = 0;
    const int     found = std::fscanf(file, "%lu", &pages);
    std::fclose(file);
    return found == 1 ? pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) : 0;
}

void Limit(int resource, std::uint64_t soft, std::uint64_t hard)
{
    const rlimit limit = {.rlim_cur = soft, .rlim_max = hard};
    ::setrlimit(static_cast<__rlimit_resource>(resource), &limit);
}

void LimitChild(std::uint64_t addresses_in_use)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const auto seconds = static_cast<std::uint64_t>(PictureChild.seconds);
    Limit(RLIMIT_CPU, seconds, seconds + 1);
    Limit(RLIMIT_CORE, 0, 0);
    if (addresses_in_use > 0) {
        const std::uint64_t bytes = addresses_in_use + static_cast<std::uint64_t>(PictureChild.megabytes) * kMegabyte;
        Limit(RLIMIT_AS, bytes, bytes);
    }
    // The host's handlers would act for the host, and its threads are not here to help a decoder.
    for (int signal = 1; signal < NSIG; ++signal) std::signal(signal, SIG_DFL);
    std::signal(SIGINT, SIG_IGN);  // a terminal sends it to both: the host decides what becomes of its picture
    omp_set_num_threads(1);
}

/// Decoders write their complaints past us. A host without standard streams may have given their number to our pipe.
void SilenceChild(int output)
{
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
        if (stream != output) ::dup2(nowhere, stream);
}

std::string TryToDecode(Image& image, const std::string& path, PictureDecoder decode)
{
    try {
        return decode(image, path);
    } catch (const std::bad_alloc&) {
        return "needs more than " + std::to_string(PictureChild.megabytes) + " MB to decode";
    } catch (const std::exception&) {
        return "cannot be decoded";
    }
}

/// The life of a child. It ends without the closing work of the host's process, whose buffers it holds copies of.
[[noreturn]] void RunChild(Image& image, const std::string& path, PictureDecoder decode, int output,
                           std::uint64_t addresses_in_use)
{
    LimitChild(addresses_in_use);
    SilenceChild(output);
    std::string problem = TryToDecode(image, path, decode);
    problem.resize(std::min<std::size_t>(problem.size(), kLongestProblem));

    Reply reply;
    reply.problem_length = problem.size();
    reply.loaded         = image.loaded;
    if (problem.empty() && image.width > 0) {
        reply.width       = image.width;
        reply.height      = image.height;
        reply.channels    = image.channels;
        reply.bits        = image.bits;
        reply.packed      = image.packed;
        reply.pixel_bytes = PixelBytes(image).size();
    }
    const bool sent = Send(output, std::as_bytes(std::span(&reply, 1))) && Send(output, BytesOf(problem)) &&
                      (reply.pixel_bytes == 0 || Send(output, PixelBytes(image)));
    ::_exit(sent ? 0 : 1);
}

/// Bytes of pixels that a reply of this layout must bring; 0 for a layout that no picture has.
std::uint64_t ExpectedBytes(const Reply& reply)
{
    constexpr std::int32_t kLongestSide = 1 << 24;

    const bool has_size = std::min(reply.width, reply.height) > 0 && std::max(reply.width, reply.height) < kLongestSide;
    const bool has_bytes = reply.bits == 8 || reply.bits == 16 || reply.bits == 32;
    if (!has_size || !has_bytes || reply.channels < 1 || reply.channels > 4) return 0;
    const auto pixels = static_cast<std::uint64_t>(reply.width) * static_cast<std::uint64_t>(reply.height);
    return reply.packed == 1 ? pixels * 4 : pixels * static_cast<std::uint64_t>(reply.channels * reply.bits / 8);
}

/// Takes over what a child sent. It may have been led astray by its file, so nothing it says is believed unseen.
Arrival ReceiveReply(int input, Clock::time_point deadline, Image& image, std::string& problem)
{
    Reply         reply;
    const Arrival arrival = Receive(input, std::as_writable_bytes(std::span(&reply, 1)), deadline);
    if (arrival != Arrival::Complete) return arrival;
    if (reply.magic != kMagic || reply.problem_length > kLongestProblem) return Arrival::Ended;

    problem.resize(reply.problem_length);
    if (!problem.empty()) return Receive(input, std::as_writable_bytes(std::span(problem)), deadline);
    if (reply.loaded != 1) return Arrival::Ended;
    image.loaded = true;
    if (reply.pixel_bytes == 0) return Arrival::Complete;

    if (reply.pixel_bytes != ExpectedBytes(reply)) return Arrival::Ended;
    if (!AllocateImage(image, reply.width, reply.height, reply.channels, reply.bits, reply.packed == 1)) {
        problem = "does not fit into memory";
        return Arrival::Complete;
    }
    const std::span<std::byte> store = PixelBytes(image);
    return store.size() == reply.pixel_bytes ? Receive(input, store, deadline) : Arrival::Ended;
}

/// Ends a child, if it has not ended by itself, and tells how it did; -1 where the host lets the system reap for it. A
/// child that is not reaped keeps its number, so the signal can meet no other process.
int EndChild(pid_t child)
{
    int   status = 0;
    pid_t reaped = ::waitpid(child, &status, WNOHANG);
    if (reaped == 0) ::kill(child, SIGKILL);
    while (reaped == 0 || (reaped < 0 && errno == EINTR)) reaped = ::waitpid(child, &status, 0);
    return reaped == child ? status : -1;
}

/// In megabytes.
int HalfOfMemory()
{
    const std::uint64_t megabytes = PhysicalMemory() / 2 / kMegabyte;
    return static_cast<int>(std::min<std::uint64_t>(megabytes, std::numeric_limits<int>::max()));
}

std::string TooSlow() { return "took longer than " + std::to_string(PictureChild.seconds) + " s to decode"; }

std::string Cause(Arrival arrival, int status)
{
    if (arrival == Arrival::Late) return TooSlow();
    if (status != -1 && WIFSIGNALED(status)) {
        if (WTERMSIG(status) == SIGXCPU) return TooSlow();
        return "cannot be decoded: the decoder crashed with signal " + std::to_string(WTERMSIG(status));
    }
    return "cannot be decoded: the decoder crashed";
}

}  // namespace

void SetPictureChild(bool on, int seconds, int megabytes)
{
    constexpr PictureChildSettings kDefault;
    PictureChild.on        = on;
    PictureChild.seconds   = seconds > 0 ? seconds : kDefault.seconds;
    PictureChild.megabytes = megabytes > 0 ? megabytes : std::max(kDefault.megabytes, HalfOfMemory());
}

std::string DecodeInChild(Image& image, const std::string& path, PictureDecoder decode)
{
    Pipe pipe;
    if (pipe.ends[0] < 0) return "cannot be decoded: no pipe to a child process";
    const std::uint64_t addresses_in_use = AddressesInUse();
    const auto          deadline         = Clock::now() + std::chrono::seconds(PictureChild.seconds);

    const pid_t child = ::fork();
    if (child < 0) return "cannot be decoded: no child process";
    if (child == 0) RunChild(image, path, decode, pipe.ends[1], addresses_in_use);

    pipe.Close(1);
    std::string problem;
    Arrival     arrival = Arrival::Ended;
    try {
        arrival = ReceiveReply(pipe.ends[0], deadline, image, problem);
    } catch (const std::exception&) {
        problem = "does not fit into memory";
        arrival = Arrival::Complete;
    }
    pipe.Close(0);
    const int status = EndChild(child);
    return arrival == Arrival::Complete ? problem : Cause(arrival, status);
}

}  // namespace hv
