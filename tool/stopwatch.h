// How long the stages of a run take.
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace koTool {

class Stopwatch {
public:
    struct Stage {
        std::string name;
        double milliseconds;
    };

    /// Later stages bear this before their names; "" is nothing.
    void nameWork(std::string const& work) { work_ = work.empty() ? "" : work + ": "; }

    /// A stage ends: what has passed since the one before, or since the start.
    void lap(std::string const& stage)
    {
        auto const now = std::chrono::steady_clock::now();
        stages_.push_back({work_ + stage, std::chrono::duration<double, std::milli>(now - last_).count()});
        last_ = now;
    }

    std::vector<Stage> const& stages() const { return stages_; }

private:
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
    std::vector<Stage> stages_;
    std::string work_;
};

}  // namespace koTool
