// Locks for a stretch of work.
#include "tool/batch_lock.h"

#include <thread>

namespace tarsil::tool {

void batch_lock::release()
{
    lock_ = file_lock();
    is_held_ = false;
}

outcome batch_lock::step()
{
    constexpr uint32_t steps_per_look = 16;
    constexpr auto stretch = std::chrono::milliseconds(20);
    constexpr auto pause = std::chrono::microseconds(200);
    if (!files_.is_shared) return {};
    if (is_held_ && ++steps_ % steps_per_look != 0) return {};
    const clock::time_point now = clock::now();
    if (is_held_ && now < until_) return {};
    if (is_held_) {
        release();
        std::this_thread::sleep_for(pause);
    }
    result<file_lock> placed = files_.data.lock_all();
    if (!placed) return failure_on(placed, files_.data.name());
    lock_ = std::move(placed).value();
    is_held_ = true;
    until_ = clock::now() + stretch;
    return {};
}

} // namespace tarsil::tool
