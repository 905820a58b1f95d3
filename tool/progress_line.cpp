#include "tool/progress_line.h"

#include <cstdio>
#include <string_view>
#include <utility>

#include <unistd.h>

namespace koTool {

namespace {

using namespace std::chrono_literals;

constexpr auto firstShown = 500ms;
constexpr auto redrawn = 100ms;

void writeToTerminal(std::string_view text)
{
    // What the terminal does not take is not missed: the line is only looked at.
    [[maybe_unused]] auto const written = ::write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

ProgressLine::ProgressLine()
{
    if (::isatty(STDERR_FILENO) == 1)
        thread_ = std::thread(&ProgressLine::run, this);
}

ProgressLine::~ProgressLine()
{
    if (!thread_.joinable())
        return;
    {
        std::lock_guard const lock(mutex_);
        end_ = true;
    }
    ended_.notify_one();
    thread_.join();
    erase();
}

void ProgressLine::begin(std::string step)
{
    std::lock_guard const lock(mutex_);
    step_ = std::move(step);
    fraction_ = 0.0;
}

void ProgressLine::set(double fraction)
{
    std::lock_guard const lock(mutex_);
    fraction_ = fraction;
}

void ProgressLine::hide()
{
    std::lock_guard const lock(mutex_);
    step_.clear();
    erase();
}

void ProgressLine::run()
{
    std::unique_lock lock(mutex_);
    auto next = start_ + firstShown;
    while (!ended_.wait_until(lock, next, [this] { return end_; })) {
        draw();
        next = std::chrono::steady_clock::now() + redrawn;
    }
}

void ProgressLine::draw()
{
    if (step_.empty())
        return;
    std::string line = "\r\033[Kkoimage: " + step_;
    if (fraction_ > 0.0)
        line.append(" ").append(std::to_string(static_cast<int>(fraction_ * 100.0))).append(" %");
    writeToTerminal(line);
    shown_ = true;
}

void ProgressLine::erase()
{
    if (std::exchange(shown_, false))
        writeToTerminal("\r\033[K");
}

}  // namespace koTool
