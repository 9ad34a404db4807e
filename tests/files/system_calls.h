// The system calls that the platform makes, counted and refused one by one. The functions of
// system_calls.cpp stand in front of those of the C library in this program, so that the very
// objects of the product run.
#pragma once

#include <cstdint>
#include <string>

namespace tarsil::support {

// Each kind is the letter that stands for it in `calls_made`.
enum class system_call : char {
    none = '-',
    read = 'r',
    write = 'w',
    lock = 'l',
    question = 'q', // whether a lock could be had
    flush = 's',
    sync = 'y', // without the facts that don't matter for reading it
    flush_all = 'S',
    facts = 'f',
    by_name = 'n', // the facts of a name
    facts_of_disk = 'd',
    open = 'o',
    raise = '^', // a descriptor above the standard streams
    link = 'k',
    name_of = '/', // of the folder that a file lies in
    rename = 'e',
    remove = 'u',
    map = 'm',
    room = 'a',
    hole = 'h',
    cut = 't',
    time = 'T',
    limit = 'L',
    close = 'c',
};

struct planned_failure {
    system_call kind = system_call::none;
    uint64_t left = 0; // calls of the kind up to the one that fails
    bool for_good = false;
    int error = 0; // or 0: half of a transfer or of room is made; a size is told too large
    uint64_t met = 0;
};

inline planned_failure planned;
inline uint32_t file_system_kind = 0; // what fstatfs tells instead of the truth, or 0
inline std::string calls_made;        // since the test has cleared it; it keeps at most a hundred

} // namespace tarsil::support
