#include "check/node_check.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tarsil::check {

namespace {

int64_t entry_offset(const node_in_hand& node, int32_t entry)
{
    return node.offset + int64_t{entry} * entry_stride(node.key);
}

bool is_zero(const unsigned char* bytes, int32_t count)
{
    return std::all_of(bytes, bytes + count, [](unsigned char byte) { return byte == 0; });
}

bool is_cleared(const key_record& key, const unsigned char* entry)
{
    return entry_link(entry) == no_offset && is_zero(packed_key(entry), key.entry_key_bytes);
}

// I5. The least and the most entries that a node can have.
bool has_right_count(const node_in_hand& node)
{
    const char type = node_type(node.key, node.image);
    const int64_t tail = node.offset + node.key.node_bytes - node_tail_bytes;
    if (type != node_leaf && type != node_branch) {
        add_damage(node, invariant::I5, tail, "The node is neither a leaf nor a branch.");
        return false;
    }
    const bool leaf = type == node_leaf;
    const int32_t count = entry_count(node.key, node.image);
    const int32_t least = leaf && node.is_root ? 0 : 1;
    const int32_t most = leaf ? node.key.max_entries : node.key.max_entries - 2;
    if (count >= least && count <= most) return true;
    add_damage(node, invariant::I5, tail,
               std::string(leaf ? "The leaf" : "The branch") + " has " + std::to_string(count) +
                   " entries; it can have " + std::to_string(least) + " to " +
                   std::to_string(most) + ".");
    return false;
}

// I9.
void check_links(const node_in_hand& node, int32_t count)
{
    if (!is_leaf(node.key, node.image)) {
        const unsigned char* final_entry = entry_at(node.key, node.image, count);
        if (is_zero(packed_key(final_entry), node.key.entry_key_bytes)) return;
        add_damage(node, invariant::I9, entry_offset(node, count),
                   "The entry of the final child holds more than the link.");
        return;
    }
    for (int32_t i = 0; i < count; ++i) {
        const unsigned char* entry = entry_at(node.key, node.image, i);
        if (entry_link(entry) == entry_record(node.key, entry)) continue;
        add_damage(node, invariant::I9, entry_offset(node, i),
                   "The entry names the record at " + std::to_string(entry_link(entry)) +
                       " and the record at " + std::to_string(entry_record(node.key, entry)) + ".");
    }
}

// I10. If the first unused entry is cleared and each is as the one before it, all are: one pass
// over the bytes, which nearly always is all there is to do.
void check_unused(const node_in_hand& node, int32_t first)
{
    const int32_t unused = node.key.max_entries - first;
    if (unused <= 0) return;
    const size_t stride = static_cast<size_t>(entry_stride(node.key));
    const unsigned char* start = entry_at(node.key, node.image, first);
    const size_t rest = stride * static_cast<size_t>(unused - 1);
    if (is_cleared(node.key, start) && std::memcmp(start, start + stride, rest) == 0) return;
    for (int32_t i = first; i < node.key.max_entries; ++i) {
        if (is_cleared(node.key, entry_at(node.key, node.image, i))) continue;
        add_damage(node, invariant::I10, entry_offset(node, i), "An unused entry isn't cleared.");
    }
}

} // namespace

void add_damage(const node_in_hand& node, invariant broken, int64_t offset, std::string text)
{
    node.report.findings.add({broken,
                              severity::damage,
                              remedy::reindex,
                              {.offset = offset, .record = not_given, .key = node.key_number},
                              std::move(text)});
}

bool check_node(const node_in_hand& node)
{
    if (!has_right_count(node)) return false;
    const int32_t count = entry_count(node.key, node.image);
    check_links(node, count);
    check_unused(node, is_leaf(node.key, node.image) ? count : count + 1);
    return true;
}

} // namespace tarsil::check
