// One line on a terminal that says what a long run is doing.
#pragma once

#include "koBase/progress.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace koTool {

/// Shows the current step on standard error, with the fraction done where the step knows it, once the line is
/// half a second old; takes the line away when it ends. Nothing is shown where standard error is no terminal.
///
///   threads   the line is drawn by a thread of its own, so steps that tell no fraction show as well
class ProgressLine final : public koUtil::Progress {
public:
    ProgressLine();
    ~ProgressLine() override;
    ProgressLine(ProgressLine const&) = delete;
    ProgressLine& operator=(ProgressLine const&) = delete;

    /// Names the step that begins, as in "reading sky.exr".
    void begin(std::string step);

    void set(double fraction) override;

    /// Takes the line away, so that a message may be written.
    void hide();

private:
    void run();
    void draw();
    void erase();

    std::chrono::steady_clock::time_point const start_ = std::chrono::steady_clock::now();
    std::mutex mutex_;
    std::condition_variable ended_;
    std::string step_;
    double fraction_ = 0.0;
    bool shown_ = false;
    bool end_ = false;
    std::thread thread_;
};

}  // namespace koTool
