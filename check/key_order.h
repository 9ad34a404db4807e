// The order of two packed keys of one key, first the one that stands in front, by the rules of the
// format and written apart from index/compare.cpp.
//
// Keys without float and double fields have a total order, and a tree that obeys it entry by entry
// obeys it as a whole. With the tolerance of 'f' and 'd' that is not so, because "equal within the
// tolerance" doesn't carry over from neighbour to neighbour. What an insertion relies on and leaves
// behind is this: a new entry lies right of the one it is put behind, or it doesn't lie right of
// the one it is put in front of. Hence
//   - entries that stand side by side since the later of them went in are in order or equal within
//     the tolerance, and by descending record offset in the second case;
//   - entries further apart may stand against their order by any amount, each step of the way being
//     within the tolerance, and a NaN in between equals everything;
//   - when the entry in between is taken out, by the reuse of its record, two such entries become
//     neighbours. And the tolerance itself may have been another one when they went in.
// So a pair that stands against the order beyond the tolerance proves no fault. It is called
// unsettled, is counted and mentioned, since a search may miss such entries, and is no damage.
// The fields in front of the first 'f' or 'd' are free of all this: no scan passes an entry whose
// leading fields are larger, or stops at one whose are smaller, so that in every tree the entries
// are sorted by these fields, and a pair that isn't is damage.
#pragma once

#include <cstdint>

#include "index/index_format.h"

namespace tarsil::check {

enum class standing : uint8_t {
    before,   // in order
    same,     // equal in fields and record offset
    reversed, // against the order
    unsettled // against it, where the tolerance leaves it open
};

class key_order {
public:
    // The key's fields have been checked. `precision` as in tsspdoub32.
    key_order(const key_record& key, int32_t precision);

    standing of(const unsigned char* in_front, const unsigned char* behind) const;

    // One of the fields is 'f' or 'd'.
    bool is_tolerant() const { return has_tolerance; }

private:
    enum class relation : uint8_t { less, equal, greater };

    relation field_relation(char type, const unsigned char* left, const unsigned char* right,
                            int32_t length) const;

    const key_record& key;
    bool has_tolerance = false;
    double double_tolerance;
    float float_tolerance;
};

} // namespace tarsil::check
