// The progress line: on standard error, for work that takes longer than a second.
//
// On a terminal one line is rewritten in place (percent, records a second, time left); elsewhere a
// line is added every ten seconds. TARSIL_PROGRESS tells other seconds, after which lines are added
// wherever standard error goes. The clock is asked rarely, so that a call costs next to nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tarsil::tool {

class progress {
public:
    // `total` in whatever is counted for the percentage (bytes, records); 0: not known.
    progress(std::string what, int64_t total);
    ~progress() { finish(); }
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

    // So much of the total is done, and so many records.
    void at(int64_t done, int64_t records)
    {
        if (++calls_ % calls_per_look != 0) return;
        look(done, records);
    }
    // The same, looking at the clock at once: for steps that take long themselves.
    void look(int64_t done, int64_t records);
    // Takes the line off the terminal.
    void finish();

private:
    using clock = std::chrono::steady_clock;
    static constexpr uint32_t calls_per_look = 256;

    void choose_pace();

    void show(int64_t done, int64_t records, clock::time_point now);

    std::string what_;
    int64_t total_;
    clock::duration between_;
    bool is_rewritten_; // in place, on a terminal
    bool is_shown_ = false;
    uint32_t calls_ = 0;
    clock::time_point start_;
    clock::time_point next_;
};

} // namespace tarsil::tool
