#pragma once

#include <chrono>
#include <csignal>

/// Follows a render frame by frame: a line on standard error while that is a terminal, and a stop after the frame under
/// way once SIGINT or SIGTERM has come.
class Progress {
public:
    explicit Progress(bool visible);

    /// Notes the start of the first frame.
    void Start();

    /// False when the render is to stop here.
    bool AfterFrame(int finished, int total);

    /// Whether frames are missing: stopped, or the preview window was closed.
    bool is_unfinished() const { return unfinished_; }

private:
    using Clock = std::chrono::steady_clock;

    bool              visible_;
    bool              unfinished_ = true;
    Clock::time_point start_, printed_;
};

/// From now on the first SIGINT or SIGTERM asks for a stop; a second one ends the program as usual.
void CatchStopSignals();
