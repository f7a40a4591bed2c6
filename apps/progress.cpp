#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace {

// Written by a signal handler, hence at file scope.
volatile std::sig_atomic_t stop_requested = 0;

// The default action is back by now: a second signal ends the program in the middle of a frame.
void RequestStop(int)
{
    constexpr char kHint[]                 = "halvorne: stopping after this frame; once more stops at once\n";
    stop_requested                         = 1;
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kHint, sizeof kHint - 1);
}

}  // namespace

void CatchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler       = RequestStop;
    action.sa_flags         = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

Progress::Progress(bool visible) : visible_(visible && isatty(STDERR_FILENO) == 1) {}

void Progress::Start() { start_ = printed_ = Clock::now(); }

bool Progress::AfterFrame(int finished, int total)
{
    const bool is_stopped = stop_requested != 0 && finished < total;
    unfinished_           = finished < total;
    if (!visible_) return !is_stopped;

    const Clock::time_point now     = Clock::now();
    const bool              is_last = finished == total || is_stopped;
    if (!is_last && now - printed_ < std::chrono::milliseconds(100)) return !is_stopped;
    printed_ = now;

    // The line ends at column 1, so that the library's next line, or the last one here, covers it.
    std::fputs("\033[K", stderr);
    if (!is_last) {
        const double elapsed = std::chrono::duration<double>(now - start_).count();
        const long   left    = static_cast<long>(elapsed / finished * (total - finished) + 0.5);
        std::fprintf(stderr, "frame %d of %d, %ld:%02ld:%02ld left\r", finished, total, left / 3600, left / 60 % 60,
                     left % 60);
    }
    std::fflush(stderr);
    return !is_stopped;
}
