// The walk over one tree in key order: where its nodes lie (I3), how deep (I4), how they hang
// together (I8), and the order of all that they hold (I6, I7).
//
// Entries and separators come in one sequence, each separator between the children to its left and
// right. As the order carries over from neighbour to neighbour, each only has to be compared with
// the one before it; and where it doesn't, neighbours are all that can be judged
// (check/key_order.h).
#pragma once

#include <cstdint>
#include <vector>

#include "check/entry_check.h"
#include "check/index_check.h"

namespace tarsil::check {

// Which bytes of a file belong to nodes that were met, of all its keys: one bit a byte.
class taken_bytes {
public:
    explicit taken_bytes(int64_t file_size) : bits(static_cast<size_t>(file_size / 64 + 1)) {}

    // Takes `count` bytes inside the file; false, with nothing changed, if one of them is taken.
    bool take(int64_t offset, int64_t count);
    int64_t count() const { return taken; }

private:
    std::vector<uint64_t> bits;
    int64_t taken = 0;
};

struct tree_sides {
    file_bytes& file;
    taken_bytes& taken;
    entry_ledger* entries; // or none
    int32_t precision;
};

// `report` holds the key, whose I2 has been found to hold, and takes what is found.
void check_tree(const tree_sides& sides, int32_t key_number, key_report& report);

} // namespace tarsil::check
