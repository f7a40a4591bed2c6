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

    bool is_stopped() const { return stopped_; }

private:
    using Clock = std::chrono::steady_clock;

    bool              visible_;
    bool              stopped_ = false;
    Clock::time_point start_, printed_;
};

/// From now on the first SIGINT or SIGTERM asks for a stop; a second one ends the program as usual.
void CatchStopSignals();
