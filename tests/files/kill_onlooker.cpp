// What was answered against what the files hold after a kill; see tests/files/kill_onlooker.h.
//
// A record in work is old, new or made of both byte by byte, which one write within a page isn't
// but in a mapping. Keys lack that record alone, but for the neighbours that a split was moving. In
// a tree with a node in work nothing more is asked, as a search there may go wrong; but there is
// one such node at most, in one tree.
#include "tests/files/kill_onlooker.h"

#include "check/report_text.h"
#include "tests/support/checked.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <tuple>
#include <unordered_map>

namespace tarsil::kills {

bool place::is_whole(const mode_of_work& how) const
{
    const bool is_named = read.writer >= 1 && read.writer <= how.writers && read.number >= 1 &&
                          read.number <= how.begin + new_numbers;
    if (!is_named || body.size() != how.length(read.number)) return false;
    return body == how.body_of(make_row(read.writer, read.number, read.version));
}

bool place::crosses_page() const
{
    const auto end = static_cast<size_t>(offset) + frame_bytes + body.size() - 1;
    return static_cast<size_t>(offset) / page != end / page;
}

bool place::is_made_of(const row& a, const row& b) const
{
    for (size_t i = 0; i < body.size(); ++i)
        if (body[i] != byte_of(a, i) && body[i] != byte_of(b, i)) return false;
    return true;
}

namespace {

bool is_before(const row& a, const row& b, size_t key)
{
    if (key == 1) return std::strncmp(a.name, b.name, sizeof a.name) < 0;
    return std::tie(a.writer, a.number, a.epoch) < std::tie(b.writer, b.number, b.epoch);
}

std::vector<place> places_in(const std::string& file)
{
    std::vector<place> places;
    int32_t offset = field_table_offset;
    for (const support::stored_record& one : support::records_in(file)) {
        place found = {offset, one.mark, one.body, {}};
        std::memcpy(&found.read, one.body.data(), std::min(one.body.size(), sizeof found.read));
        places.push_back(found);
        offset += frame_bytes + static_cast<int32_t>(one.body.size());
    }
    return places;
}

// The records that the leaves below a node lead to, with their leaves, in a tree without damage.
void gather(const std::string& file, const key_record& key, int32_t node,
            std::unordered_map<int32_t, int32_t>& records)
{
    const auto* const image = reinterpret_cast<const unsigned char*>(file.data()) + node;
    const bool leaf = is_leaf(key, image);
    for (int32_t i = 0; i < entry_count(key, image) + (leaf ? 0 : 1); ++i) {
        const int32_t link = entry_link(entry_at(key, image, i));
        if (leaf)
            records[link] = node;
        else if (link != no_offset)
            gather(file, key, link, records);
    }
}

// A tree, damaged or not: its nodes, and the places of all entries and separators, with their
// nodes, in the order of the keys.
struct walked_tree {
    std::set<int64_t> nodes;
    std::vector<std::pair<int64_t, int64_t>> in_order;
};

void walk(const std::string& file, const key_record& key, int64_t node, walked_tree& tree)
{
    const bool is_in_file = node >= first_node_offset &&
                            node + key.node_bytes <= static_cast<int64_t>(file.size());
    if (!is_in_file || !tree.nodes.insert(node).second) return;
    const auto* const image = reinterpret_cast<const unsigned char*>(file.data()) + node;
    const int32_t children = is_leaf(key, image) ? 0 : 1;
    const int32_t count = entry_count(key, image);
    if (count < 0 || count + children > key.max_entries) return;
    for (int32_t i = 0; i < count + children; ++i) {
        if (children > 0) walk(file, key, entry_link(entry_at(key, image, i)), tree);
        if (i < count) tree.in_order.push_back({node + int64_t{i} * entry_stride(key), node});
    }
}

// The nodes of which one is to blame for a finding: the one it was made in and, where two
// neighbours are in the wrong order, the one that holds the first of them.
std::set<int64_t> nodes_to_blame(const check::finding& found, const key_record& key,
                                 const walked_tree& tree)
{
    std::set<int64_t> nodes;
    const auto behind = tree.nodes.upper_bound(found.where.offset);
    if (behind != tree.nodes.begin() && found.where.offset < *std::prev(behind) + key.node_bytes)
        nodes.insert(*std::prev(behind));
    if (found.broken != check::invariant::I6 && found.broken != check::invariant::I7) return nodes;
    const auto at = std::find_if(tree.in_order.begin(), tree.in_order.end(), [&](const auto& each) {
        return each.first == found.where.offset;
    });
    if (at != tree.in_order.begin() && at != tree.in_order.end())
        nodes.insert(std::prev(at)->second);
    return nodes;
}

} // namespace

// One write was cut, so that one node has to explain everything; where that write goes by the
// system, one over the edge of a page. A split cut between its writes leaves whole nodes, but
// a branch on the right edge has given its last child (I8) to a half that nothing leads to yet.
void onlooker::expect_damage(const std::string& file, const check::key_report& key,
                             damage_left& left) const
{
    walked_tree tree;
    walk(file, key.key, key.key.root_offset, tree);
    std::set<int64_t> can_be_torn = tree.nodes;
    if (!how.is_stored_bytewise())
        std::erase_if(can_be_torn, [&](int64_t node) {
            return node / page == (node + key.key.node_bytes - 1) / page;
        });
    bool is_torn = false;
    std::set<int64_t> edges;
    for (const check::finding& one : key.findings.kept) {
        if (one.how_bad != check::severity::damage) continue;
        const std::set<int64_t> blamed = nodes_to_blame(one, key.key, tree);
        EXPECT_FALSE(blamed.empty()) << "damage outside of nodes";
        if (one.broken == check::invariant::I8) {
            edges.insert(blamed.begin(), blamed.end());
            continue;
        }
        is_torn = true;
        std::erase_if(can_be_torn, [&](int64_t node) { return !blamed.contains(node); });
    }
    EXPECT_TRUE(!is_torn || !can_be_torn.empty()) << "not by one write that was cut";
    left.torn_nodes += is_torn;
    left.cut_edges += static_cast<int32_t>(edges.size());
}

bool onlooker::is_under_way(const place& at, bool with_a_new_key) const
{
    const answered& told = notes[at.read.writer - 1];
    return told.target != 0 && told.number == at.read.number &&
           (!with_a_new_key || (told.has_a_new_key() && told.target == at.read.version));
}

// A live record is the one that was acknowledged last, or the one under way. A deleted one is
// the last of a record that is deleted, or the last before a key was changed.
bool onlooker::is_as_answered(const place& at) const
{
    if (!at.is_whole(how)) return false;
    const answered& told = notes[at.read.writer - 1];
    const int32_t version = told.versions[at.read.number];
    const int32_t target = is_under_way(at) ? told.target.load() : version;
    if (at.mark != 'd') return at.read.version == version || at.read.version == target;
    const bool is_before_key = at.read.version % versions_of_key == versions_of_key - 1 &&
                               at.read.version < std::max(std::abs(version), target);
    return at.read.version == -version || at.read.version == -target || is_before_key;
}

// What one may have been writing over: zeros at the end, the same record, or any deleted one.
bool onlooker::can_be_torn_by(const answered& told, int32_t writer, const place& at,
                              bool is_last) const
{
    if (told.target <= 0 || told.version() < 0) return false;
    const row wanted = make_row(writer, told.number, told.target);
    if (!told.has_a_new_key())
        return at.is_made_of(wanted, make_row(writer, told.number, told.version()));
    if (is_last && !how.is_counted_at_once() && at.is_made_of(wanted, row{})) return true;
    for (int32_t i = 0; i < how.writers && !how.is_variable; ++i)
        for (int32_t n = 1; n <= notes[i].records; ++n) {
            int32_t old = notes[i].versions[n];
            if (at.is_made_of(wanted, make_row(i + 1, n, std::abs(old)))) return true;
            for (old = std::abs(old) / versions_of_key * versions_of_key - 1; old > 0;
                 old -= versions_of_key)
                if (at.is_made_of(wanted, make_row(i + 1, n, old))) return true;
        }
    return false;
}

int32_t onlooker::writer_who_tears(const place& at, bool is_last,
                                   const std::vector<bool>& tears) const
{
    for (int32_t i = 0; i < how.writers; ++i)
        if (!tears[static_cast<size_t>(i)] && can_be_torn_by(notes[i], i + 1, at, is_last))
            return i;
    return -1;
}

// Ends with the records that may lack keys in `in_work`.
void onlooker::expect_records(const std::vector<place>& places, places_in_work& in_work)
{
    std::map<std::pair<int32_t, int32_t>, int32_t> live_ones;
    std::vector<bool> tears(most_writers);
    for (const place& at : places) {
        if (is_as_answered(at)) {
            if (at.mark != 'd') ++live_ones[{at.read.writer, at.read.number}];
            if (is_under_way(at, true)) in_work.insert(at.offset);
            continue;
        }
        SCOPED_TRACE(testing::Message() << "record at " << at.offset << ", mark " << at.mark
                                        << ", version " << at.read.version);
        const int32_t who = writer_who_tears(at, &at == &places.back(), tears);
        ASSERT_GE(who, 0) << "neither answered nor under way";
        const bool is_back = at.is_whole(how); // its frame is written and nothing else
        EXPECT_TRUE(at.crosses_page() || how.is_stored_bytewise() ||
                    (is_back && how.is_in_two_writes(at.body.size())));
        tears[static_cast<size_t>(who)] = true;
        in_work.insert(at.offset);
        ++totals[is_back ? "deleted records that are back" : "records that a kill has torn"];
        has_torn = true;
    }
    for (int32_t i = 0; i < how.writers; ++i)
        for (int32_t n = 1; n <= notes[i].records + 1; ++n)
            expect_live(i + 1, n, live_ones[{i + 1, n}], tears[static_cast<size_t>(i)]);
}

// An update in place keeps its record, if it hasn't torn it.
void onlooker::expect_live(int32_t writer, int32_t number, int32_t found, bool is_torn) const
{
    const answered& told = notes[writer - 1];
    const bool is_in_work = told.number == number && told.target != 0;
    const bool is_other_mark = told.target < 0 || told.version() < 0;
    const bool may_differ = is_in_work && (is_other_mark || told.has_a_new_key() || is_torn);
    const int32_t wanted = told.versions[number] > 0 ? 1 : 0;
    EXPECT_TRUE(found == wanted || (may_differ && found <= 1))
        << "writer " << writer << ", " << number << ": " << found << " of " << wanted;
}

// A node in work is damage (expect_damage). A split in work has written one half of a node and not
// yet what leads to the other: what is missing are neighbours, nearly half a node of them or more.
// They are in two places if the half that was written is a branch and was cut itself. Where nothing
// is mapped, the one entry that was to move over the edge of a page can go.
void onlooker::expect_keys(const std::string& data, std::vector<place> places,
                           const places_in_work& in_work, int32_t most_runs)
{
    const std::string file = support::file_bytes(index_name);
    const check::index_report report = support::check_index(file, data);
    ASSERT_EQ(report.keys.size(), 2U);
    damage_left left;
    for (size_t k = 0; k < 2; ++k) {
        const check::key_report& key = report.keys[k];
        SCOPED_TRACE(check::lines_of(key.findings));
        if (key.findings.count(check::severity::damage) > 0) {
            ++totals["trees with a node in work"];
            expect_damage(file, key, left);
            is_out_of_step = true;
            continue;
        }
        for (const check::finding& one : key.findings.kept) {
            if (one.where.offset == check::not_given) continue;
            ASSERT_GT(one.where.record, 0);
            const auto number = static_cast<size_t>(one.where.record);
            EXPECT_TRUE(in_work.contains(places[number - 1].offset));
        }
        std::sort(places.begin(), places.end(), [k](const place& a, const place& b) {
            if (is_before(a.read, b.read, k)) return true;
            return !is_before(b.read, a.read, k) && a.offset > b.offset;
        });
        expect_split(file, key.key, places, in_work, most_runs);
        std::sort(places.begin(), places.end(),
                  [](const place& a, const place& b) { return a.offset < b.offset; });
    }
    // Held writers end the write that they are in. A split holds the whole file, so that behind the
    // one that was cut there are those of others only who came after the kill.
    EXPECT_LE(left.torn_nodes, 1);
    EXPECT_LE(left.cut_edges, most_runs / 2);
    totals["of these right edges cut in a split"] += left.cut_edges;
}

void onlooker::expect_split(const std::string& file, const key_record& key,
                            const std::vector<place>& in_order, const places_in_work& in_work,
                            int32_t most_runs)
{
    std::unordered_map<int32_t, int32_t> entered;
    gather(file, key, key.root_offset, entered);
    int32_t lost = 0;
    int32_t runs = 0;
    int32_t leaf = 0; // of the record before
    bool is_in_run = false;
    bool is_at_edge = false;
    for (const place& at : in_order) {
        const bool is_missing = !entered.contains(at.offset);
        if (is_missing && !in_work.contains(at.offset))
            is_at_edge = leaf / page != (leaf + key.node_bytes - 1) / page;
        if (!is_missing) leaf = entered[at.offset];
        if (in_work.contains(at.offset)) {
            totals["records in work without a key"] += is_missing;
            continue;
        }
        lost += is_missing;
        runs += is_missing && !is_in_run;
        is_in_run = is_missing;
    }
    if (lost == 0) return;
    is_out_of_step = true;
    if (lost == 1 && is_at_edge && !is_built_to_map) {
        ++totals["entries lost at the edge of a page"];
        return;
    }
    ++totals["splits cut"];
    EXPECT_LE(runs, most_runs) << lost << " records";
    EXPECT_GE(lost, static_cast<int32_t>(order_of_keys) - 1);
}

void onlooker::look(int32_t most_runs)
{
    const std::string data = support::file_bytes(data_name);
    const std::vector<place> places = places_in(data);
    const check::data_report report = support::check_data(data);
    EXPECT_EQ(report.records, report.header.record_count);
    EXPECT_LE(std::abs(report.deleted - report.header.deleted_count),
              how.is_counted_at_once() ? how.writers : 0);
    totals["kills of a file grown ahead"] += report.tail_bytes > page;
    places_in_work in_work;
    expect_records(places, in_work);
    if (!testing::Test::HasFailure()) expect_keys(data, places, in_work, most_runs);
}

void onlooker::settle()
{
    for (int32_t i = 0; i < how.writers; ++i)
        if (notes[i].target != 0)
            notes[i].versions[notes[i].number] = -std::abs(notes[i].version());
    for (const place& at : places_in(support::file_bytes(data_name)))
        if (at.mark != 'd' && is_under_way(at)) {
            answered& told = notes[at.read.writer - 1];
            told.versions[told.number] = at.read.version;
            told.records = std::max<int32_t>(told.records, told.number);
        }
    for (int32_t i = 0; i < how.writers; ++i) notes[i].target = 0;
}

} // namespace tarsil::kills
