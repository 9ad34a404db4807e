// What can be said about one node image by itself: its type and count (I5), its links (I9), and its
// unused entries (I10).
#pragma once

#include <cstdint>

#include "check/index_check.h"

namespace tarsil::check {

struct node_in_hand {
    const key_record& key;
    int32_t key_number;
    key_report& report;
    const unsigned char* image; // node_bytes bytes
    int64_t offset;             // of the node in the file
    bool is_root;
};

void add_damage(const node_in_hand& node, invariant broken, int64_t offset, std::string text);

// Reports what is wrong. False if the count or the type is, so that nothing in the node can be
// read.
bool check_node(const node_in_hand& node);

} // namespace tarsil::check
