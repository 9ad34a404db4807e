// What a check has to say: findings, each citing one numbered invariant of data/data_format.h or
// index/index_format.h.
//
// A damaged file can break one invariant a million times. A list therefore keeps the first few
// findings of each invariant and counts all of them, so that its size doesn't depend on the file.
// Places are given as what a person can look up: an offset in the file that was checked, a record
// number, a key number.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace tarsil::check {

// D1 to D7 stand in data/data_format.h, I1 to I11 in index/index_format.h.
enum class invariant : uint8_t {
    D1,
    D2,
    D3,
    D4,
    D5,
    D6,
    D7,
    I1,
    I2,
    I3,
    I4,
    I5,
    I6,
    I7,
    I8,
    I9,
    I10,
    I11
};
inline constexpr size_t invariant_count = 18;

enum class severity : uint8_t {
    damage,      // the file breaks its own format
    out_of_step, // header and records, or index and records, each sound, don't agree
    note         // worth knowing; nothing is wrong
};
inline constexpr size_t severity_count = 3;

enum class remedy : uint8_t { none, repair_header, reindex, salvage };

inline constexpr int32_t not_given = -1;

struct place {
    int64_t offset = not_given; // in the checked file
    int64_t record = not_given; // from 1
    int32_t key = not_given;    // from 0
};

struct finding {
    invariant broken;
    severity how_bad;
    remedy mended_by;
    place where;
    std::string text; // one sentence
};

struct finding_list {
    static constexpr int64_t kept_of_each = 10;

    std::vector<finding> kept;
    std::array<int64_t, invariant_count> of_invariant{};
    std::array<int64_t, severity_count> of_severity{};

    void add(finding found);
    int64_t count(invariant broken) const { return of_invariant[static_cast<size_t>(broken)]; }
    int64_t count(severity how_bad) const { return of_severity[static_cast<size_t>(how_bad)]; }
    int64_t total() const;
    // Notes don't count against a file.
    bool is_sound() const { return count(severity::damage) + count(severity::out_of_step) == 0; }
};

} // namespace tarsil::check
