// One process among several on the same data file with three index files: opens them, repeats what
// is refused, and does a share of mixed work. For children of tests (support/child_process.h); what
// must not happen throws, which ends the child with a failure.
//
// Records carry their owner, a serial number, how often they were rewritten, and a check sum over
// all of their bytes. Index 0 has one key without duplicates (owner, serial) and one of names,
// index 1 one with few values, index 2 both of these. What every record is at this moment stands in
// a ledger that all processes share. Who works under the locks of docs/LOCKING.md changes it under
// them, so that it has to agree with the files at each read under locks, and at the end.
#pragma once

#include "tarsil32.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>

namespace tarsil::support {

struct shared_record {
    int32_t length; // of the body; in a file of variable length some are short, and a few long
    int32_t owner;
    int32_t serial;
    int32_t version;
    int32_t bucket;
    char name[16];
    uint32_t sum;
    char payload[5000];
};
inline constexpr int32_t shortest_record = offsetof(shared_record, payload);
inline constexpr int32_t fixed_record_bytes = shortest_record + 60;

uint32_t sum_of(const shared_record& record);
bool is_whole(const shared_record& record);
bool is_one_of(int32_t code, std::initializer_list<int32_t> codes);

// In memory that is shared with the children, zero at first.
struct ledger {
    static constexpr int32_t most_owners = 5;
    static constexpr int32_t most_serials = 1 << 16;
    std::atomic<int64_t> purges; // twice their number; odd while one is under way
    // 0: never answered; the version of a live record; a deleted or purged one is below 0.
    std::atomic<int32_t> versions[most_owners][most_serials];
    std::atomic<int32_t> numbered[1 << 18]; // adds that were told this record number

    std::atomic<int32_t>& of(const shared_record& record);
};

// How a party protects what isn't one step by itself: with locks taken beforehand, as
// docs/LOCKING.md tells, or not at all, so that calls can be refused half way.
enum class manner : uint8_t { locking, bare };

struct agreement {
    std::string folder;
    manner how;
    bool fixed; // length of records; every second party then reuses deleted ones
    uint32_t seed;
    ledger* book;
};

struct work_done {
    int64_t operations = 0;
    int64_t adds = 0;      // that returned 0, or stored the record and failed behind it
    int64_t half_adds = 0; // of these, the latter
    int64_t refused = 0;   // calls that were repeated
    int64_t changed = 0;   // TS_CURSOR_FILE_CHANGED
    int64_t odd = 0;       // codes of bare searches beside a growing tree
    int64_t purges = 0;
    int64_t purged = 0; // records
};
inline constexpr struct {
    int64_t work_done::*number;
    const char* what;
} work_counts[] = {
    {&work_done::operations, "operations side by side"},
    {&work_done::adds, "adds side by side"},
    {&work_done::half_adds, "of them without some keys"},
    {&work_done::refused, "calls side by side repeated"},
    {&work_done::changed, "calls side by side told of a change"},
    {&work_done::odd, "searches beside a growing tree that ended in a code"},
    {&work_done::purges, "purges side by side"},
    {&work_done::purged, "records purged side by side"},
};

// Calls until the answer is another one than TS_LOCK_REFUSED, with pauses of growing length.
int32_t repeat(const std::function<int32_t()>& call, work_done* done = nullptr);

// The answer, if it is 0 or above or one of those given; else throws.
int32_t must(int32_t code, const char* what, std::initializer_list<int32_t> others = {});
void ensure(bool holds, const char* what);

// The library in multi-user mode, and a data file that others may be opening at the same moment.
void start_shared();
int32_t open_shared(const std::string& name);

class party {
public:
    static constexpr int32_t index_files = 3;

    party(const agreement& terms, int32_t own_number);

    // The files are made by the first one.
    void create();
    void open();
    void close();
    void work(int64_t operations);

    const work_done& done() const { return told; }

private:
    template <class Deed> void as_one_step(Deed&& deed);
    template <class Deed> void with_record_locked(int32_t number, Deed&& deed);
    using index_reader = int32_t (*)(int32_t, int32_t, int32_t, void*, int32_t*);
    int32_t answer(const std::function<int32_t()>& call);
    int32_t by(index_reader call, size_t key);
    void one_operation();
    void take_facts();
    void add(char duplicates);
    int32_t some_number();
    shared_record make_record();
    shared_record look_alike();
    int32_t place(size_t key);
    void check_read(int32_t code, int64_t epoch, bool locked);
    void read(bool locked);
    void read_by_number();
    void change();
    void change_one(int32_t route, int32_t verb, int32_t number);
    int32_t pick(int32_t route, int32_t number, size_t key, const std::string& value);
    void purge();
    void walk_all();

    const agreement agreed;
    const int32_t own;
    const bool locking;
    const bool reuse;
    bool all_locked = false;
    std::mt19937 random;
    work_done told;
    int32_t d = -1;
    int32_t serial = 0;
    int32_t records = 0; // as tsstatd32 told last
    int32_t deleted_records = 0;
    int32_t deleted = 0; // of the record read last, which is in the room below. A read at a place
                         // from before a purge can deliver as much as the file holds.
    std::unique_ptr<char[]> room;
    shared_record& seen() { return *reinterpret_cast<shared_record*>(room.get()); }
};

} // namespace tarsil::support
