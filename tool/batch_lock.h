// The locks of all files for a stretch of a long work beside other processes: held for some
// milliseconds, in which every call finds its ranges held already, and then given up for a moment,
// so that the others get their turn. Does nothing where the files are held alone.
#pragma once

#include <chrono>

#include "tool/opening.h"

namespace tarsil::tool {

class batch_lock {
public:
    explicit batch_lock(const open_files& files) : files_(files) {}

    // In front of every record.
    outcome step();
    void release();

private:
    using clock = std::chrono::steady_clock;

    const open_files& files_;
    file_lock lock_;
    bool is_held_ = false;
    uint32_t steps_ = 0;
    clock::time_point until_;
};

} // namespace tarsil::tool
