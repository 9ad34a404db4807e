// A platform in memory: the functions of platform/platform.h over simulated files, and what a test
// wants beside them: calls counted and logged, failures planned, leaks counted, file bytes looked
// at and changed.
//
// A second party is simply a further open through the same functions, since locks and share modes
// belong to opens. There is one simulation in a process; reset() makes it as new and belongs before
// each test. Handle numbers are never used twice until then, so that a stale handle can't pass for
// another file.
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace tarsil::sim {

// The kinds of platform calls that count and can fail. GetLastError and LocalFree do neither. A
// look counts as a read; where a failure is planned for it, none is offered, and the read in its
// place fails.
enum class call : uint8_t {
    open,
    create,
    close,
    remove,
    read,
    write,
    position,
    lock,
    unlock,
    flush,
    zero,
    allocate
};
inline constexpr size_t call_kinds = 12;

using kinds = uint32_t;
constexpr kinds only(call kind) { return 1U << static_cast<uint32_t>(kind); }
inline constexpr kinds any_kind = (1U << call_kinds) - 1;
inline constexpr kinds transfers = only(call::read) | only(call::write);

// error: the call fails and does nothing, except that a failed close still closes and a failed
// flush is remembered. one_byte_short concerns reads and writes alone: all bytes but the last move,
// and the call succeeds.
enum class failure : uint8_t { error, one_byte_short };

inline constexpr uint64_t for_good = UINT64_MAX;

struct fault {
    uint64_t at = 1;        // the first call to fail, counted from now on; 1 is the next one
    uint64_t times = 1;     // how many calls fail from that one on
    kinds where = any_kind; // only calls of these kinds count and fail
    failure how = failure::error;
};

void reset();

// One fault can be planned at a time; no call fails after clear_fault. faults_met: calls that have
// failed by plan.
void plan(const fault& planned);
void clear_fault();
uint64_t faults_met();

// Lets another party act: runs `deed` right before the `at`-th call from now on that is among
// `where`. What the deed calls is neither counted nor logged, and never fails by plan.
void meanwhile(uint64_t at, kinds where, std::function<void()> deed);

uint64_t calls();
uint64_t calls(call kind);
void count_afresh();

size_t open_handles();
size_t held_ranges();
size_t live_blocks();

// The names of open files, each as often as it is open.
std::vector<std::string> open_files();

// Closes of handles that weren't open, apart from no_file.
uint64_t stray_closes();

struct range {
    std::string file;
    int64_t offset;
    int64_t length;
    bool operator<(const range& other) const
    {
        return std::tie(file, offset, length) < std::tie(other.file, other.offset, other.length);
    }
};
std::vector<range> ranges();

// Files past all sharing and locking, as a foreign program has them. set_bytes creates what isn't
// there; bytes of such a file are none.
std::map<std::string, std::string> files();
bool exists(const std::string& name);
std::string bytes(const std::string& name);
void set_bytes(const std::string& name, const std::string& content);

// Whether the platform offers looks at files, as it does at first; else all goes by reads.
void offer_looks(bool offered);

// What recording keeps, from start_recording on. The offset of a position is where it led to.
struct logged {
    call kind;
    std::string file;
    int64_t offset;
    int64_t length;
    platform::origin from; // of a position
    bool done;
    std::string written; // by a write
};

void start_recording();
const std::vector<logged>& log();

// What a kill does: every handle is gone, with its locks, and every block is given back.
void end_process();

} // namespace tarsil::sim
