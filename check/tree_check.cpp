#include "check/tree_check.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "check/key_order.h"
#include "check/node_check.h"

namespace tarsil::check {

namespace {

// A branch on the way from the root to the node in hand.
struct level {
    int64_t offset;
    int32_t separators;
    int32_t next_child;
    bool on_right_edge;
};

enum class kind : uint8_t { nothing, entry, separator };

struct tree_walk {
    const tree_sides& sides;
    int32_t key_number;
    key_report& report;
    const key_record& key;
    key_order order;
    std::vector<level> levels{};
    std::vector<unsigned char> previous{}; // packed key, of the entry or separator before
    kind previous_kind = kind::nothing;
};

void add(tree_walk& walk, invariant broken, int64_t offset, std::string text)
{
    walk.report.findings.add({broken,
                              severity::damage,
                              remedy::reindex,
                              {.offset = offset, .record = not_given, .key = walk.key_number},
                              std::move(text)});
}

// The last entry below a separator usually is its original, and the last separator of a branch is
// copied into the one above it; else nothing may stand twice. A separator whose record was reused
// may have an heir with the same offset and nearly the same values behind it.
standing judge(const tree_walk& walk, const unsigned char* packed, kind what)
{
    if (walk.previous_kind == kind::nothing) return standing::before;
    const standing stands = walk.order.of(walk.previous.data(), packed);
    if (stands != standing::same) return stands;
    if (what == kind::separator) return standing::before;
    const bool can_be_heir = walk.previous_kind == kind::separator && walk.order.is_tolerant();
    return can_be_heir ? standing::unsettled : standing::reversed;
}

// I6 between entries, I7 where one of the two is a separator.
void next_in_order(tree_walk& walk, const unsigned char* packed, kind what, int64_t offset)
{
    const standing stands = judge(walk, packed, what);
    if (stands == standing::unsettled) ++walk.report.unsettled_pairs;
    if (stands == standing::reversed) {
        if (what == kind::separator) {
            add(walk, invariant::I7, offset,
                "The separator isn't behind all that stands in the child before it.");
        } else if (walk.previous_kind == kind::separator) {
            add(walk, invariant::I7, offset,
                "The entry isn't behind the separator in front of its leaf.");
        } else {
            add(walk, invariant::I6, offset, "The entry isn't behind the one before it.");
        }
    }
    std::memcpy(walk.previous.data(), packed, walk.previous.size());
    walk.previous_kind = what;
}

void take_leaf(tree_walk& walk, const unsigned char* image, int64_t offset)
{
    key_report& report = walk.report;
    const int32_t levels = static_cast<int32_t>(walk.levels.size()) + 1;
    ++report.leaves;
    if (report.depth == 0) report.depth = levels;
    if (levels != report.depth) {
        add(walk, invariant::I4, offset,
            "The leaf is on level " + std::to_string(levels) + ", the first leaf on level " +
                std::to_string(report.depth) + ".");
    }
    const int32_t count = entry_count(walk.key, image);
    report.entries += count;
    for (int32_t i = 0; i < count; ++i) {
        const unsigned char* entry = entry_at(walk.key, image, i);
        const int64_t entry_offset = offset + int64_t{i} * entry_stride(walk.key);
        next_in_order(walk, packed_key(entry), kind::entry, entry_offset);
        if (walk.sides.entries != nullptr) walk.sides.entries->enter(entry, entry_offset);
    }
}

// Looks at the node at `offset`, which `parent` names: a leaf is done with, a branch goes on the
// stack.
void visit(tree_walk& walk, int64_t offset, bool on_right_edge, int64_t parent)
{
    const std::string node = "The node at " + std::to_string(offset) + ", which is named here, ";
    const int64_t bytes = walk.key.node_bytes;
    if (offset < first_node_offset || offset + bytes > walk.sides.file.size()) {
        add(walk, invariant::I3, parent, node + "doesn't lie in the file's node area.");
        return;
    }
    if (static_cast<int32_t>(walk.levels.size()) >= path_words) {
        add(walk, invariant::I4, parent, node + "is deeper than any tree can be.");
        return;
    }
    if (!walk.sides.taken.take(offset, bytes)) {
        add(walk, invariant::I3, parent,
            node + "is a node already, or overlaps one, that was reached from another place.");
        return;
    }
    const byte_span image = walk.sides.file.at(offset, bytes);
    if (image.empty()) return; // the system doesn't give it: file_bytes has noted that
    const node_in_hand hand{walk.key,     walk.key_number, walk.report,
                            image.data(), offset,          walk.levels.empty()};
    if (!check_node(hand)) return;
    if (is_leaf(walk.key, image.data())) {
        take_leaf(walk, image.data(), offset);
        return;
    }
    ++walk.report.branches;
    walk.levels.push_back({.offset = offset,
                           .separators = entry_count(walk.key, image.data()),
                           .next_child = 0,
                           .on_right_edge = on_right_edge});
}

// I8. A final child is looked at wherever there is one.
void visit_final_child(tree_walk& walk, const level& branch, int32_t link, int64_t place)
{
    if (branch.on_right_edge && link == no_offset) {
        add(walk, invariant::I8, place, "The branch is on the right edge and has no final child.");
    }
    if (!branch.on_right_edge && link != no_offset) {
        add(walk, invariant::I8, place, "The branch is off the right edge and has a final child.");
    }
    if (link != no_offset) visit(walk, link, branch.on_right_edge, place);
}

// One child further in the lowest branch, or up. Nothing of a branch is kept but its place: what
// the step needs, the separator before the child and the link to it, is read again.
void step(tree_walk& walk)
{
    level& branch = walk.levels.back();
    const int32_t child = branch.next_child++;
    if (child > branch.separators) {
        walk.levels.pop_back();
        return;
    }
    const level here = branch; // visit() moves the stack
    const int32_t stride = entry_stride(walk.key);
    const int32_t before = child > 0 ? 1 : 0;
    const int64_t place = here.offset + int64_t{child} * stride;
    const byte_span entries = walk.sides.file.at(place - before * stride,
                                                 int64_t{before + 1} * stride);
    if (entries.empty()) return;

    if (before != 0) {
        next_in_order(walk, packed_key(entries.data()), kind::separator, place - stride);
    }
    const int32_t link = entry_link(entries.data() + before * stride);
    if (child == here.separators) {
        visit_final_child(walk, here, link, place);
    } else {
        visit(walk, link, false, place);
    }
}

} // namespace

bool taken_bytes::take(int64_t offset, int64_t count)
{
    const int64_t end = offset + count;
    const auto mask_of = [&](int64_t word) {
        const int64_t low = std::max(offset - word * 64, int64_t{0});
        const int64_t high = std::min(end - word * 64, int64_t{64});
        return (~uint64_t{0} >> (64 - (high - low))) << low;
    };
    for (int64_t word = offset / 64; word * 64 < end; ++word) {
        if ((bits[static_cast<size_t>(word)] & mask_of(word)) != 0) return false;
    }
    for (int64_t word = offset / 64; word * 64 < end; ++word) {
        bits[static_cast<size_t>(word)] |= mask_of(word);
    }
    taken += count;
    return true;
}

void check_tree(const tree_sides& sides, int32_t key_number, key_report& report)
{
    tree_walk walk{.sides = sides,
                   .key_number = key_number,
                   .report = report,
                   .key = report.key,
                   .order = key_order(report.key, sides.precision)};
    walk.previous.resize(static_cast<size_t>(report.key.entry_key_bytes));

    const int64_t root_place = key_records_offset + int64_t{key_number} * key_record_bytes +
                               static_cast<int64_t>(offsetof(key_record, root_offset));
    visit(walk, report.key.root_offset, true, root_place);
    while (!walk.levels.empty()) step(walk);

    if (report.unsettled_pairs == 0) return;
    report.findings.add({invariant::I6,
                         severity::note,
                         remedy::reindex,
                         {.offset = not_given, .record = not_given, .key = key_number},
                         std::to_string(report.unsettled_pairs) +
                             " pairs of neighbours stand against the order of their values by more "
                             "than the tolerance; a search may miss them."});
}

} // namespace tarsil::check
