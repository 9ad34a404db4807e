// How long to go on trying when another process holds a range of a file. The library never waits:
// a conflict is TS_LOCK_REFUSED at once (TS_OPEN_DATA_LOCK_FAILED from an open). The face waits a
// little and asks again, by a policy that the library object carries and any call can override.
//
// Pauses grow from `first` to `longest`, each drawn at random from the stretch reached, so that
// processes that met once don't meet again in step. `total` bounds the whole wait; 0 asks once.
//
// What is repeated is only ever a step that had no effect: the lock that the face places around a
// call, or a call that reads from a named place (docs of data_file and key_cursor tell which).
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>

#include "tarsil32.h"

namespace tarsil {

struct retry {
    std::chrono::microseconds total{1'000'000};
    std::chrono::microseconds first{20};
    std::chrono::microseconds longest{2'000};

    static constexpr retry up_to(std::chrono::microseconds total)
    {
        retry policy;
        policy.total = total;
        return policy;
    }
    static constexpr retry never() { return up_to(std::chrono::microseconds{0}); }
};

// The last argument of every call that can be refused: empty takes the library object's policy.
using retry_choice = std::optional<retry>;

namespace detail {

// The clock is asked only after a refusal, so that a call that gets through pays nothing. Nothing
// is added to a caller's times: the longest there are mean "for ever".
class backoff {
public:
    explicit backoff(const retry& policy) : policy_(policy), reach_(policy.first) {}

    // Sleeps for a pause, or says that the time is over.
    bool wait()
    {
        using std::chrono::steady_clock;
        const auto now = steady_clock::now();
        if (waits_ == 0) begin_ = now;
        const auto waited = std::chrono::floor<std::chrono::microseconds>(now - begin_);
        if (waited >= policy_.total) return false;
        const auto left = policy_.total - waited;
        reach_ = reach_ < policy_.longest / 2 ? reach_ * 2 : policy_.longest;
        std::this_thread::sleep_for(std::min(draw(now.time_since_epoch().count()), left));
        ++waits_;
        return true;
    }

    uint64_t waits() const { return waits_; }

private:
    // The clock's nanoseconds differ between processes; a multiplication spreads their low bits.
    std::chrono::microseconds draw(int64_t seed) const
    {
        const uint64_t spread = (static_cast<uint64_t>(seed) + waits_) * 0x9E3779B97F4A7C15u >> 32;
        const int64_t stretch = std::max<int64_t>(1, (reach_ - policy_.first).count() + 1);
        return policy_.first + std::chrono::microseconds(static_cast<int64_t>(spread) % stretch);
    }

    retry policy_;
    std::chrono::microseconds reach_;
    std::chrono::steady_clock::time_point begin_;
    uint64_t waits_ = 0;
};

// Repeats a step that has no effect when it answers `refused`. `waits` counts the pauses.
template <class Step>
int32_t persist(const retry& policy, uint64_t& waits, Step&& step,
                int32_t refused = TS_LOCK_REFUSED)
{
    backoff pause(policy);
    int32_t code = step();
    while (code == refused && pause.wait()) code = step();
    waits += pause.waits();
    return code;
}

} // namespace detail

} // namespace tarsil
