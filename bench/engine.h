// An engine under measurement, as one table of operations.
//
// A process measures one engine and has one store of it open, so an engine keeps its state in its
// own file and the operations take no handle. A store lies in the current folder. An operation that
// an engine doesn't have is null, and its line stays empty. Every add, update and remove is a
// transaction of its own, unless it stands between begin and commit.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/records.h"

namespace bench {

enum layout : int32_t {
    heap,       // records in the order of adding, without a key
    heap_vary,  // the same, of different lengths
    by_id,      // one unique key
    three_keys, // three unique keys: id; name; group and amount
};

struct opening {
    layout kind;
    bool create;
    bool shared;     // several processes at once
    bool after_kill; // the last process was killed: with whatever the engine demands before use
    int32_t records; // how many there will be, for engines that want to know
};

struct engine {
    const char* name;
    const char* setting;
    bool key_order;  // false: a hash, an array
    bool heap_index; // build and walk are there
    void (*version)(char* text, size_t room);
    void (*open)(const opening& how);
    void (*close)();
    bool (*add)(const record& added, int32_t length);   // false: a key is there already
    int32_t (*scan)(record* out, int32_t count);        // the next `count` records of the file
    void (*build)();                                    // a key on id over a heap
    int32_t (*walk)(record* out, int32_t count);        // the next `count` records by that key
    bool (*look_up)(int32_t id, record* out);           // false: not there
    bool (*find_prefix)(const char* name, record* out); // the first with these 4 letters
    bool (*update)(const record& changed);              // false: not there
    bool (*remove)(int32_t id);                         // false: not there
    void (*begin)();
    void (*commit)();
};

inline constexpr size_t prefix_length = 4;

extern const engine own_engine, sqlite_engine, lmdb_engine, berkeley_engine, leveldb_engine,
    tdb_engine, tokyo_engine;

// Ends the process when a step of an engine failed: a line with a failure in it has no figure.
inline void must(bool well, const char* step, long code)
{
    if (well) return;
    std::fprintf(stderr, "bench: %s answered %ld\n", step, code);
    std::exit(1);
}

// Keys for engines that compare keys as bytes: big-endian, doubles (0 and above) by their bits.
inline uint32_t ordered_id(int32_t id) { return __builtin_bswap32(static_cast<uint32_t>(id)); }

struct group_key {
    char bytes[12];
};

inline group_key ordered_group(const record& from)
{
    group_key key;
    const uint32_t group = ordered_id(from.group);
    uint64_t amount = 0;
    std::memcpy(&amount, &from.amount, sizeof amount);
    amount = __builtin_bswap64(amount);
    std::memcpy(key.bytes, &group, sizeof group);
    std::memcpy(key.bytes + sizeof group, &amount, sizeof amount);
    return key;
}

} // namespace bench
