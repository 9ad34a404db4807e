// One process among several on the same data file with two index files: opens them, repeats what
// is refused, and does a share of mixed work. For children of tests (support/child_process.h); what
// must not happen throws, which ends the child with a failure.
//
// Records carry their owner, a serial number and a check sum over all of their bytes. Index "a" has
// one key without duplicates (owner, serial) and one of names, index "b" one with few values.
#pragma once

#include "tarsil32.h"

#include <cstdint>
#include <functional>
#include <random>
#include <set>
#include <string>

namespace tarsil::support {

struct shared_record {
    int32_t owner;
    int32_t serial;
    int32_t bucket;
    char name[16];
    char payload[60];
    uint32_t sum;
};
inline constexpr int32_t shared_record_bytes = sizeof(shared_record);

shared_record make_record(int32_t owner, int32_t serial, std::mt19937& random);
bool is_whole(const shared_record& record);

// How a party protects what isn't one step by itself: with locks taken beforehand, as
// docs/LOCKING.md tells, or not at all, so that calls can be refused half way.
enum class manner : uint8_t { locking, bare };

struct work_done {
    int64_t adds = 0;      // that returned 0, or stored the record and failed behind it
    int64_t half_adds = 0; // of these, the latter
    int64_t refused = 0;   // calls that were repeated
    int64_t changed = 0;   // TS_CURSOR_FILE_CHANGED
    int64_t odd = 0;       // codes of bare searches beside a growing tree
};

// Calls until the answer is another one than TS_LOCK_REFUSED, with pauses of growing length.
int32_t repeat(const std::function<int32_t()>& call, work_done* done = nullptr);

// The answer, if it is 0 or above or one of those given; else throws.
int32_t must(int32_t code, const char* what, std::initializer_list<int32_t> others = {});

// Opens a data file that others may be opening at the same moment.
int32_t open_shared(const std::string& name);

class party {
public:
    party(std::string folder, int32_t own_number, manner how_to_work, bool with_reuse);

    // The files are made by the first one.
    void create();
    void open();
    void close();
    void work(int64_t operations);

    int32_t add();
    void walk_all(bool forward);
    const work_done& done() const { return told; }
    int32_t data() const { return d; }
    static constexpr int32_t index_a = 0;
    static constexpr int32_t index_b = 1;

private:
    template <class Deed> void as_one_step(Deed&& deed);
    void one_operation();
    void remove_or_restore(int32_t what);
    void update(bool with_key);
    void read(int32_t what);
    void check_read(int32_t code, const shared_record& record);
    int32_t some_number();

    const std::string folder_;
    const int32_t own;
    const manner how;
    const bool reuse;
    std::mt19937 random;
    work_done told;
    int32_t d = -1;
    int32_t serial = 0;
};

} // namespace tarsil::support
