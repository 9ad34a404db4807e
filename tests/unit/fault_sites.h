// What the failure of one platform call has to mean for the caller of a function: told by the call
// itself, from the log of a run of that function in which nothing failed.
//
// The tables here are the promise: a kind of call at a place of a file has one code. They know the
// formats and the order of steps that docs/LOCKING.md and the manual tell, and nothing of the code
// under test. What is passed over by promise (a release at the very end, the hole that a purge
// makes, memory for the search of a slot) has the result of the run without failures.
#pragma once

#include "tests/sim/sim.h"

#include <string_view>
#include <vector>

namespace tarsil::support {

enum class step : uint8_t {
    ask_position, // of a range request, covered or not
    go_to_range,
    come_back, // from a range
    place,     // a range
    give_back, // a range
    move,      // to the place of a transfer
    ask_size,
    transfer,
    flush,
    other // open, create, close, remove, zero, allocate
};

constexpr size_t nowhere = SIZE_MAX;

struct fault_site {
    sim::logged call;
    step what = step::other;
    int32_t code = 0;          // what the function answers if this call fails
    int32_t or_code = 0;       // or this; mostly the same
    bool passed_over = false;  // the function then goes on: `code` is that of success
    bool goes_on = false;      // it does so too, and tells the code at its end
    bool asked_again = false;  // a release that is tried a second time
    size_t range = nowhere;    // the call that places or gives back the range that this one serves
    bool in_flush = false;     // a range that is let go for the length of a flush
    size_t transfer = nowhere; // the transfer that this call serves; of a range: that it guards
};

constexpr int64_t whole_file = 0x7fffffff;

inline bool is_data(std::string_view file) { return !file.empty() && file[0] == 'd'; }
inline bool is_header_bracket(const sim::logged& call)
{
    return is_data(call.file) && call.offset == 4 && call.length == 24;
}
inline bool is_whole_file(const sim::logged& call) { return call.length == whole_file; }
inline bool is_bracket(const sim::logged& call)
{
    return is_whole_file(call) || is_header_bracket(call);
}

// `success`: what the function answered in the run that left this log.
std::vector<fault_site> find_sites(const std::vector<sim::logged>& log, std::string_view function,
                                   int32_t success, bool shared);

} // namespace tarsil::support
