// The checkers on files put together by hand: sound ones, and one fault at a time in them.
#include "check/report_text.h"
#include "tests/support/checked.h"
#include "tests/support/file_parts.h"
#include "tests/support/temp_folder.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

using namespace tarsil::check;
using namespace tarsil::support;
using testing::ElementsAre;

namespace {

using bytes = std::string;

// "D6 damage repair, D7 note": what was found, in this order.
bytes brief(const finding_list& list)
{
    bytes line;
    for (const finding& found : list.kept) {
        line.append(line.empty() ? "" : ", ").append(name_of(found.broken));
        line.append(" ").append(name_of(found.how_bad));
        if (found.mended_by != remedy::none) line.append(" ").append(name_of(found.mended_by));
    }
    return line;
}

// "I3 I11 I11 (I6)", notes in brackets: of an index, where the remedy always is to build it anew.
bytes brief(const index_report& report)
{
    bytes line;
    const auto add = [&](const finding_list& list) {
        for (const finding& found : list.kept) {
            const bytes name = name_of(found.broken);
            line += line.empty() ? "" : " ";
            line += found.how_bad == severity::note ? "(" + name + ")" : name;
        }
    };
    add(report.findings);
    for (const tarsil::check::key_report& key : report.keys) add(key.findings);
    return line;
}

// Ten records of one 'l' field, 10 to 110 without 60, the third one deleted. Frames stand every 12
// bytes from 36 on, behind a field table of one entry.
constexpr int32_t values[] = {10, 20, 30, 40, 50, 70, 80, 90, 100, 110};
constexpr int32_t frame_of(int32_t index) { return 36 + 12 * index; }

bytes sound_data()
{
    bytes file = with(data_file(10, 1, 4, 156), 20, 8) + i32(4) + i32('l');
    for (const int32_t value : values) file += frame(i32(value), value == 30 ? 'd' : ' ');
    return file;
}

// Fields at the start of the record, one behind the other.
key_shape shape_of(const bytes& letters, int32_t max_entries = 4)
{
    key_shape made = {{}, max_entries};
    for (const char letter : letters)
        made.parts.push_back({letter, letter == 'd' ? 8 : 4, made.stride() - 8});
    return made;
}

bytes leaf_entry(const bytes& image, int64_t record) { return i32(record) + image + i32(record); }

// Of what isn't told no byte is zero.
bytes node_of(const key_shape& key, char type, int64_t count, const bytes& used)
{
    return node(key, type, count, used, '\xEE');
}

const key_shape one_long = shape_of("l");

bytes value_entry(int32_t index) { return leaf_entry(i32(values[index]), frame_of(index)); }

// The tree of those ten records with nodes for 4 entries, of 56 bytes. Leaves A at 2216, B at 2272,
// C at 2328, D at 2384; the left branch at 2440, the right one at 2496, the root at 2552. The
// separator above A is that of a record with 30 at 5000, which has been reused since.
constexpr size_t leaf_a = 2216, leaf_b = 2272, leaf_c = 2328, left = 2440, right = 2496;
constexpr size_t root = 2552, node_bytes = 56, stride = 12, count_at = 48, type_at = 55;

bytes sound_index()
{
    bytes file = index_head({key_block(one_long, root)});
    file += node_of(one_long, 'l', 2, value_entry(0) + value_entry(1));
    file += node_of(one_long, 'l', 3, value_entry(2) + value_entry(3) + value_entry(4));
    file += node_of(one_long, 'l', 3, value_entry(5) + value_entry(6) + value_entry(7));
    file += node_of(one_long, 'l', 2, value_entry(8) + value_entry(9));
    const bytes above_b = i32(50) + i32(frame_of(4));
    const bytes nothing(8, '\0');
    file += node_of(one_long, 'b', 2,
                    i32(leaf_a) + i32(30) + i32(5000) + i32(leaf_b) + above_b + i32(-1) + nothing);
    file += node_of(one_long, 'b', 1,
                    i32(leaf_c) + i32(90) + i32(frame_of(7)) + i32(2384) + nothing);
    file += node_of(one_long, 'b', 1, i32(left) + above_b + i32(right) + nothing);
    return file;
}

// Bytes that go over those of the file from a place on, or behind its end. None: the file ends
// there.
struct fault {
    const char* what;
    size_t at;
    bytes with;
    bytes found;
};

bytes with_fault(bytes file, const fault& one)
{
    if (one.with.empty()) return file.substr(0, one.at);
    return file.replace(one.at, one.with.size(), one.with);
}

TEST(DataCheck, CountsASoundFile)
{
    const bytes file = sound_data() + bytes(40, '\0');
    const data_report report = check_data(file);
    EXPECT_EQ(lines_of(report.findings), "");
    const int64_t told[] = {report.records, report.deleted, report.body_bytes, report.walk_end,
                            report.tail_bytes};
    EXPECT_THAT(told, ElementsAre(10, 1, 40, 156, 40));
    EXPECT_TRUE(report.is_whole && report.tail == tail_kind::zeros);
}

TEST(DataCheck, FindsEachFault)
{
    const bytes good = sound_data();
    const bytes record = frame(i32(1));
    const size_t third = frame_of(2), last = frame_of(9), end = good.size();
    const fault faults[] = {
        {"mark of another kind", 3, "I", "D1 damage"},
        {"another version", 0, "\x1F", "D1 damage"},
        {"record length -2", 12, i32(-2), "D2 damage repair"},
        {"half a field", 20, i32(12), "D3 damage salvage"},
        {"a negative table", 20, i32(-8), "D3 damage salvage"},
        {"a table larger than the file", 20, i32(0x7ffffff8), "D4 damage salvage"},
        {"header ahead by one", 4, i32(11), "D5 out of step repair"},
        {"header behind by one", end, record, "D5 out of step repair"},
        {"a record and zeros", end, record + bytes(9, '\0'), "D5 out of step repair"},
        {"a record and a torn one", end, record + bytes(9, 'x'), "D5 out of step salvage"},
        {"a torn record alone", end, record.substr(0, 11), "D5 note"},
        {"another length behind the end", end, frame("123456"), "D5 note"},
        {"end within a record", 16, i32(150), "D5 damage repair"},
        {"end in front of the records", 16, i32(-1), "D5 damage repair"},
        {"last record cut", last + 10, "", "D5 damage salvage"},
        {"last record gone", last, "", "D5 damage repair"},
        {"length of 0", third + 4, i32(0), "D6 damage salvage"},
        {"and an end before it", 16, i32(40) + good.substr(20, third - 16) + i32(0),
         "D6 damage salvage, D5 damage salvage"},
        {"length beyond the file", third + 4, i32(0x7fffffff), "D5 damage salvage"},
        {"two records in one", third + 4, i32(16), "D6 damage repair, D5 out of step repair"},
        {"a mark that the header doesn't count", last, "d", "D7 out of step repair"},
        {"a mark less", third, "x", "D7 out of step repair"},
    };
    for (const fault& one : faults) {
        const bytes file = with_fault(good, one);
        const finding_list found = check_data(file).findings;
        EXPECT_EQ(brief(found), one.found) << one.what << "\n" << lines_of(found);
    }
}

TEST(IndexCheck, CountsASoundFile)
{
    const bytes file = sound_index() + bytes(100, 'x'), data = sound_data();
    const index_report report = check_index(file, data);
    EXPECT_EQ(brief(report), "");
    EXPECT_EQ(report.unreached_bytes, 100);
    ASSERT_EQ(report.keys.size(), 1U);
    const tarsil::check::key_report& key = report.keys[0];
    const int64_t told[] = {key.depth, key.branches, key.leaves, key.entries, key.fill_percent()};
    EXPECT_THAT(told, ElementsAre(3, 3, 4, 10, 62));
    EXPECT_TRUE(check_index(file, {}).is_sound());
}

TEST(IndexCheck, FindsEachFault)
{
    const bytes good = sound_index(), data = sound_data();
    const auto missing = [](int records) {
        bytes names;
        while (records-- > 0) names += " I11";
        return names;
    };
    const fault faults[] = {
        {"mark of another kind", 3, "D", "I1"},
        {"nine keys", 4, i32(9), "I1"},
        {"no fields", 16, i32(0), "I2"},
        {"17 fields", 16, i32(17), "I2"},
        {"an unknown letter", 28, "x", "I2"},
        {"a wrong length", 32, i32(5), "I2"},
        {"a string of no bytes", 28, bytes("s\0\0\0\0\0\0\0", 8), "I2"},
        {"a wrong packed key", 20, i32(9), "I2"},
        {"odd room", 8, i32(5) + i32(68), "I2"},
        {"room for 2", 8, i32(2) + i32(32), "I2"},
        {"wrong node size", 12, i32(60), "I2"},
        {"node size beyond 32 bits", 8, i32(0x7ffffffe), "I2"},
        {"root outside the file", 24, i32(1 << 30), "I3" + missing(10)},
        {"root in the key records", 24, i32(2160), "I3" + missing(10)},
        {"a circle", right, i32(root), "I3" + missing(3)},
        {"a node into the next one", right + stride, i32(leaf_c + 8), "I3" + missing(2)},
        {"no first child", left, i32(-1), "I3" + missing(2)},
        {"a leaf beside a branch", root, i32(leaf_a), "I4 I4 I11 I11 I11"},
        {"more entries than room", leaf_a + count_at, i32(5), "I5" + missing(2)},
        {"a negative count", leaf_a + count_at, i32(-1), "I5" + missing(2)},
        {"a branch too full", right + count_at, i32(3), "I5" + missing(5)},
        {"neither leaf nor branch", leaf_a + type_at, "x", "I5" + missing(2)},
        {"two entries the other way round", leaf_b, value_entry(3) + value_entry(2), "I6"},
        {"an entry beyond its separator", leaf_b + 2 * stride + 4, i32(51), "I7 I11"},
        {"an entry below the separator before it", leaf_c + 4, i32(50), "I7 I11"},
        {"a separator below its child", left + 4, i32(19), "I7"},
        {"a separator with a lower offset is above", right + 8, i32(0), ""},
        {"a separator with a higher offset is below", right + 8, i32(frame_of(8)), "I7"},
        {"no final child on the right edge", right + stride, i32(-1), "I8" + missing(2)},
        {"a final child off it", left + 2 * stride, i32(leaf_a), "I8 I3"},
        {"a link that isn't the record", leaf_a, i32(5000), "I9 I11 I11"},
        {"a final entry with a key", right + stride + 4, i32(1), "I9"},
        {"an unused entry with a link", leaf_a + 3 * stride, i32(0), "I10"},
        {"an unused entry with a key", leaf_a + 2 * stride + 4, i32(7), "I10"},
        {"an unused entry of a branch", root + 2 * stride + 8, i32(7), "I10"},
        {"a key field that isn't the record's", leaf_a + 4, i32(11), "I11"},
        {"an entry far behind", leaf_a + stride, leaf_entry(i32(20), frame_of(1 << 22)), "I11 I11"},
        {"two entries for a record", leaf_a + stride, value_entry(0), "I6 I11 I11"},
        {"no entry for a record", leaf_a, node_of(one_long, 'l', 1, value_entry(0)), "I11"},
    };
    for (const fault& one : faults) {
        const bytes file = with_fault(good, one);
        const index_report report = check_index(file, data);
        EXPECT_EQ(brief(report), one.found) << one.what;
    }
}

// Every bit of both files counts but those that the formats call meaningless and those that turn
// a right value into another right one, and every file that is cut is found out. With sanitizers
// this also shows that nothing in a file leads out of bounds.
enum class bit { counts, is_free, can_be_right };

bit bit_of_data(size_t at)
{
    if (at < 36) return at < 24 ? bit::counts : bit::is_free; // spare word and field table
    const size_t in_frame = (at - 36) % 12;
    if (in_frame == 0) return at == frame_of(2) ? bit::counts : bit::is_free; // no mark is near 'd'
    return in_frame < 4 ? bit::is_free : bit::counts;
}

bit bit_of_index(size_t at)
{
    if (at == 4 || at == 28) return bit::can_be_right; // no key at all; 'L' for 'l'
    if (at < 2216) return at >= 40 || (at >= 29 && at < 32) ? bit::is_free : bit::counts;
    const size_t in_node = (at - 2216) % node_bytes;
    if (in_node >= 52 && in_node < type_at) return bit::is_free;
    const bool separator = at >= left && in_node < 2 * stride && in_node % stride >= 4;
    return separator ? bit::can_be_right
                     : bit::counts; // from the child's last to the next one's first
}

TEST(Checkers, MissNoBitAndNoMissingByte)
{
    const bytes data = sound_data(), index = sound_index();
    const auto is_sound = [](const bytes& data_file, const bytes& index_file) {
        return check_data(data_file).findings.is_sound() &&
               check_index(index_file, data_file).is_sound();
    };
    const auto flip_each = [&](const bytes& file, bit (*bit_of)(size_t), auto&& check) {
        for (size_t i = 0; i < 8 * file.size(); i += bit_of(i / 8) == bit::is_free ? 3U : 1U) {
            bytes changed = file;
            changed[i / 8] = static_cast<char>(changed[i / 8] ^ (1 << i % 8));
            const bool sound = check(changed);
            if (bit_of(i / 8) == bit::can_be_right) continue;
            EXPECT_EQ(sound, bit_of(i / 8) == bit::is_free) << "bit " << i % 8 << " at " << i / 8;
        }
    };
    flip_each(data, bit_of_data, [&](const bytes& file) { return is_sound(file, index); });
    flip_each(index, bit_of_index, [&](const bytes& file) { return is_sound(data, file); });
    for (size_t i = 0; i < data.size(); ++i) EXPECT_FALSE(is_sound(data.substr(0, i), index)) << i;
    for (size_t i = 0; i < index.size(); ++i) EXPECT_FALSE(is_sound(data, index.substr(0, i))) << i;
}

bytes one_leaf(const key_shape& key, const std::vector<bytes>& images)
{
    bytes used;
    int64_t record = 1000;
    for (const bytes& image : images) used += leaf_entry(image, record -= 10);
    const int64_t count = static_cast<int64_t>(images.size());
    return index_head({key_block(key, 2216)}) + node_of(key, 'l', count, used);
}

// Record offsets descend in all of these leaves.
TEST(IndexCheck, KeepsToTheRulesOfEachLetter)
{
    const auto d = [](double value) { return raw(value); };
    const auto f = [](float value) { return raw(value); };
    const bytes nan = d(__builtin_nan(""));
    const char *sound = "", *fault = "I6", *note = "(I6)";
    const struct {
        const char* what;
        bytes letters;
        std::vector<bytes> images;
        const char* found;
        int32_t precision = 3;
    } cases[] = {
        {"-1 before 0 as 'l'", "l", {i32(-1), i32(0)}, sound},
        {"-1 behind 0 as 'L'", "L", {i32(-1), i32(0)}, fault},
        {"bytes above 127 first", "s", {"a\x80zz", bytes("a\0zz", 4), "abzz"}, sound},
        {"bytes above 127 last", "s", {"abzz", "a\x80zz"}, fault},
        {"no byte behind a zero counts", "s", {bytes("a\0z\0", 4), bytes("a\0a\0", 4)}, sound},
        {"near values the wrong way", "d", {d(1.0005), d(1.0)}, sound},
        {"a long way down in small steps", "d", {d(1.0018), d(1.0009), d(1.0)}, sound},
        {"the same in one step", "d", {d(1.0018), d(1.0)}, note},
        {"the same with a smaller precision", "d", {d(1.0018), d(1.0)}, sound, 2},
        {"not a number equals all", "dl", {nan + i32(2), d(1) + i32(1)}, note},
        {"no tolerance at all", "d", {d(1), d(1), d(1)}, sound, 400},
        {"infinities", "d", {d(-1e308 * 10), d(5), d(1e308 * 10), d(1e308 * 10)}, sound},
        {"floats have their own tolerance", "f", {f(1.0005F), f(1.0F)}, sound},
        {"fields in front of a float", "lf", {i32(2) + f(1), i32(1) + f(2)}, fault},
        {"fields behind a float", "fl", {f(1) + i32(2), f(1) + i32(1)}, note},
        {"the same in order", "fl", {f(1.0005F) + i32(1), f(1) + i32(2)}, sound},
    };
    for (const auto& one : cases) {
        const bytes file = one_leaf(shape_of(one.letters), one.images);
        const index_report report = check_index_image(span_of(file), {}, one.precision);
        EXPECT_EQ(brief(report), one.found) << one.what;
    }
}

TEST(IndexCheck, LetsRecordsDifferWhereTheFormatDoes)
{
    const key_shape key = shape_of("s");
    const auto found = [&](const bytes& first, const bytes& second) {
        const bytes frames = frame(first) + frame(second);
        const int64_t behind_first = 36 + static_cast<int64_t>(first.size());
        const bytes entries = leaf_entry("ab" + bytes(2, '\0'), behind_first) +
                              leaf_entry("abcd", 28);
        const bytes index = index_head({key_block(key, 2216)}) + node_of(key, 'l', 2, entries);
        const int64_t end = 28 + static_cast<int64_t>(frames.size());
        const bytes data = data_file(2, 0, -1, end, frames);
        return brief(check_index(index, data));
    };
    EXPECT_EQ(found("abcdef", "ab"), "");            // a short record is zeros where it ends
    EXPECT_EQ(found("abcd", bytes("ab\0x", 4)), ""); // changed behind the string's end
    EXPECT_EQ(found("abce", bytes("ab\0x", 4)), "I11");
    EXPECT_EQ(found("abc", "abx"), "I11 I11");
}

// Two keys of different node sizes share a file; a node of one reaches into a node of the other.
TEST(IndexCheck, FindsOverlapsBetweenKeys)
{
    const key_shape second = shape_of("l", 6);
    const bytes empty = node_of(one_long, 'l', 0, {}), other = node_of(second, 'l', 0, {});
    const int64_t after = 2216 + static_cast<int64_t>(node_bytes);
    const bytes nodes = empty + other;
    const bytes good = index_head({key_block(one_long, 2216), key_block(second, after)}) + nodes;
    const bytes bad = index_head({key_block(one_long, 2216), key_block(second, after - 1)}) + nodes;
    EXPECT_EQ(brief(check_index(good, {})), "");
    EXPECT_EQ(brief(check_index(bad, {})), "I3");
    const bytes data = data_file(0, 0, 4, 28);
    EXPECT_TRUE(check_index(good, data).is_sound());
}

// An insertion that failed between record and header leaves entries for records that the header
// doesn't count: the header is what has to be mended.
TEST(IndexCheck, TellsAStaleHeaderFromAStaleIndex)
{
    bytes data = sound_data();
    data.replace(4, 16, i32(8) + i32(1) + i32(4) + i32(frame_of(8)));
    const bytes index = sound_index();
    const index_report report = check_index(index, data);
    EXPECT_EQ(brief(report.keys[0].findings), "I11 out of step repair");
}

// A file on disk is read through a window; what comes out has to be as if it lay in memory. Keys
// run against the order of the file, so that every record is a jump.
TEST(Checkers, SayTheSameOfFilesAndOfMemory)
{
    constexpr int32_t count = 400;
    const key_shape wide = shape_of("l", count);
    bytes records, entries;
    for (int64_t i = 0; i < count; ++i) {
        const int64_t offset = 28 + static_cast<int64_t>(records.size());
        entries = leaf_entry(i32(-i), offset) + entries;
        records += frame(i32(i == 250 ? 0 : -i) + bytes(static_cast<size_t>(i * 37 % 9000), 'x'));
    }
    const int64_t end = 28 + static_cast<int64_t>(records.size());
    const bytes data = data_file(count + 1, 2, -1, end, records);
    const bytes index = index_head({key_block(wide, 2216)}) + node_of(wide, 'l', count, entries);

    const temp_folder folder;
    set_file_bytes(folder.file("d"), data);
    set_file_bytes(folder.file("i"), index);
    tarsil::check::file_bytes data_file, index_file;
    ASSERT_EQ(data_file.open(folder.file("d").c_str()), open_result::opened);
    ASSERT_EQ(index_file.open(folder.file("i").c_str()), open_result::opened);

    frame_list frames;
    const data_report of_data = check_data_file(data_file, &frames);
    const data_side side = {data_file, frames};
    const index_report of_index = check_index_file(index_file, &side);
    EXPECT_EQ(lines_of(of_data.findings), lines_of(check_data(data).findings));
    EXPECT_EQ(of_data.records, count);
    EXPECT_EQ(brief(of_index), brief(check_index(index, data)));
    EXPECT_EQ(lines_of(of_index.keys[0].findings),
              "I11 out of step, key 0, record 251, at " + std::to_string(2216 + 149 * 12) +
                  ": Key field 1 of the entry isn't that of the record. Remedy: reindex.\n");
    EXPECT_FALSE(data_file.failed() || index_file.failed());
    EXPECT_EQ(data_file.open(folder.path().c_str()), open_result::not_a_file);
    EXPECT_EQ(data_file.open(folder.file("none").c_str()), open_result::not_there);
}

} // namespace
