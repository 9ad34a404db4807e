// The lines of the comparison, and the stories in which they are measured: a story is one process
// that fills one store and does one kind of work after the other on it.
#pragma once

#include <cstdint>

#include <ctime>

#include "bench/engine.h"

namespace bench {

enum line_id : int32_t {
    line_append,
    line_add_one,
    line_add_three,
    line_look_up,
    line_sequential,
    line_vary,
    line_walk,
    line_prefix,
    line_update,
    line_remove,
    line_build,
    line_two_each,
    line_two_bracket,
    line_kill,
    line_count
};

// Against whom a line is to be ahead.
enum rivals : int32_t {
    any_peer,
    peers_with_key_order,
    only_lmdb,
    only_sqlite,
    own_fixed_length,
    nobody
};

struct line {
    const char* key;   // in the CSV file
    const char* title; // in tables and charts
    double target;     // ratio to reach
    rivals against;
};

inline constexpr line lines[line_count] = {
    {"append", "Append, no key", 2, any_peer},
    {"add1", "Add with one key", 1.5, peers_with_key_order},
    {"add3", "Add with three keys", 1.3, peers_with_key_order},
    {"lookup", "Look-up by key with the record", 1.2, peers_with_key_order},
    {"sequential", "Sequential read", 1, only_lmdb},
    {"variable", "Sequential read, variable length", 1, own_fixed_length},
    {"walk", "Walk in key order, records in random order", 6, only_sqlite},
    {"prefix", "Prefix search", 2, peers_with_key_order},
    {"update", "Update in place by key", 4, peers_with_key_order},
    {"delete", "Delete by key", 2, peers_with_key_order},
    {"index", "Index over records in random order", 1.5, any_peer},
    {"two", "Two processes add, each call for itself", 1.5, only_sqlite},
    {"bracket", "Two processes add, brackets of 1,000", 1, only_lmdb},
    {"kill", "Records lost in kills", 0, nobody},
};

enum story : int32_t {
    story_heap,
    story_keyed,
    story_three,
    story_vary,
    story_two,
    story_kill,
    story_scale,
    story_count
};

inline constexpr const char* story_names[story_count] = {"heap", "keyed", "three", "vary",
                                                         "two",  "kill",  "scale"};

// What one process found out on one line.
struct measurement {
    line_id line;
    double figure;       // calls per second; for kills the records lost
    int64_t peak_kib;    // most that the process had in memory beyond what it began with
    int64_t private_kib; // of that at the end of the line: not pages of mapped files
    uint64_t checksum;   // of the records read, in their order: alike for all engines
};

// What the lines of one process are timed by. With several processes it is always the wall clock.
extern clockid_t line_clock;

// Runs the story in this process, in the current folder, and writes the measurements to a pipe.
// Any failure and any record that isn't what it has to be ends the process with 1.
void run_story(story told, const engine& with, int32_t records, int report);

// To the n-th core from the last of those that the first caller may use, if there are so many.
void pin_to_core(int from_last);

} // namespace bench
