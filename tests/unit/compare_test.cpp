// The order of keys: every letter, the tie-break, the ends of strings, the tolerances. Nodes and
// search values are heap blocks of exactly their size, so that the address sanitizer sees a scan
// that looks further.
#include "index/compare.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "core/tables.h"

namespace tarsil {
namespace {

using testing::ElementsAre;

template <class number> std::string raw(number value)
{
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

struct field {
    char type;
    int32_t length;
};

key_record key_of_fields(const std::vector<field>& fields)
{
    key_record key = {};
    for (const field& each : fields) {
        key.fields[key.field_count].type = each.type;
        key.fields[key.field_count++].length = each.length;
        key.entry_key_bytes += each.length;
    }
    key.entry_key_bytes += 4;
    return key;
}

struct place {
    scan_result result;
    int32_t position;
    bool operator==(const place&) const = default;
};
constexpr scan_result before = scan_result::before;
constexpr scan_result found = scan_result::found;
constexpr scan_result behind_all = scan_result::behind_all;

// Entries and the search value are given as packed keys, in modes without a record offset the
// latter as little as a caller may pass.
place scan(const key_record& key, const std::vector<std::string>& entries,
           const std::string& search, bool exact)
{
    std::string node;
    for (const std::string& entry : entries) node += raw(int32_t{-1}) + entry;
    const std::vector<unsigned char> bytes(node.begin(), node.end());
    const std::vector<unsigned char> value(search.begin(), search.end());
    place end = {behind_all, -7};
    end.result = node_scan(key, bytes.data() + 4, value.data(),
                           static_cast<int32_t>(entries.size()), end.position, exact);
    return end;
}

// Where one value stands to one other.
scan_result order_of(char type, const std::string& search, const std::string& entry)
{
    const key_record key = key_of_fields({{type, static_cast<int32_t>(entry.size())}});
    return scan(key, {entry + raw(int32_t{28})}, search, false).result;
}

class Compare : public testing::Test {
protected:
    void SetUp() override { compare_precision = default_precision; }
};

TEST_F(Compare, IntegersCompareAsTheirLetterSays)
{
    const struct {
        const char* letters;
        std::string lower;
        std::string higher;
    } cases[] = {
        {"LU", raw(uint32_t{0}), raw(uint32_t{0xffffffff})},
        {"il", raw(int32_t{-1}), raw(int32_t{0})},
        {"il", raw(std::numeric_limits<int32_t>::min()), raw(std::numeric_limits<int32_t>::max())},
        {"H", raw(uint16_t{0}), raw(uint16_t{65535})},
        {"h", raw(int16_t{-1}), raw(int16_t{0})},
        {"c", raw(uint8_t{0x7f}), raw(uint8_t{0x80})},
    };
    for (const auto& each : cases) {
        for (const char letter : std::string(each.letters)) {
            SCOPED_TRACE(letter);
            EXPECT_EQ(order_of(letter, each.lower, each.higher), before);
            EXPECT_EQ(order_of(letter, each.higher, each.lower), behind_all);
            EXPECT_EQ(order_of(letter, each.lower, each.lower), found);
        }
    }
}

TEST_F(Compare, StringsEndAtAZeroAndCountSignedBytes)
{
    const std::string zero(1, '\0');
    const struct {
        std::string search;
        std::string entry;
        scan_result expected;
    } cases[] = {
        {"abcd", "abcd", found},
        {"ab" + zero + "X", "ab" + zero + "Y", found},
        {"ab" + zero, "ab" + zero + "Y", found}, // all of the caller's buffer there is
        {"ab" + zero + "X", "abXY", before},
        {"ab\xff" + zero, "ab" + zero + zero, before}, // before its own beginning
        {"\x80", "\xff", before},
        {"\x7f", "\x80", behind_all},
        {"name0000" + zero + "yyyyyyy", "name0000" + zero + "zzzzzzz", found},
        {"name0000ab" + zero + "qqqqq", "name0000b" + zero + "rrrrrr", before},
        {"name0000name0000\xe4" + zero, "name0000name0000" + zero + zero, before},
        {"name0000name0000name0001", "name0000name0000name0000", behind_all},
        {"name0000name000\x80name0000", "name0000name000\x7fname0000", before},
    };
    for (const auto& each : cases)
        EXPECT_EQ(order_of('s', each.search, each.entry), each.expected) << each.search;
}

constexpr double edge = 0.9999999999; // the tolerance of doubles before the first product
constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr double no_number = std::numeric_limits<double>::quiet_NaN();

TEST_F(Compare, RealsAreEqualWithinTheTolerance)
{
    const struct {
        const char* letters;
        int32_t precision;
        double search;
        double entry;
        scan_result expected;
    } cases[] = {
        {"df", 3, 1.0, 1.0005, found},
        {"df", 3, 1.0, 1.0020, before},
        {"df", 0, 1.0, 1.9, found},
        {"df", 0, 2.0, 1.0, behind_all},
        {"d", 0, edge, 0.0, behind_all},
        {"f", 0, edge - 1e-7, 0.0, found},                // a single knows no 0.9999999999
        {"d", 3, 0.00099999999995, 0.0, behind_all},      // the chain does not begin at 1
        {"f", 3, 0.0010000000474974513, 0.0, behind_all}, // the very tolerance
        {"f", 2, 0.01, 0.0, found},                       // the chain in singles ends above 0.01
        {"df", 45, 5.0, 5.0, found},
        {"f", 46, 5.0, 5.0, behind_all},
        {"d", 323, 5.0, 5.0, found},
        {"d", 324, 5.0, 5.0, behind_all},
        {"df", 0x7fffffff, 5.0, 5.0, behind_all},
        {"df", 3, no_number, 1.0, found},
        {"df", 324, 1.0, no_number, found},
        {"df", 3, infinite, infinite, found},
        {"df", 3, -infinite, infinite, before},
        {"df", 3, infinite, -infinite, behind_all},
        {"df", 3, 1.0, infinite, before},
    };
    for (const auto& each : cases) {
        compare_precision = each.precision;
        for (const char letter : std::string(each.letters)) {
            const bool wide = letter == 'd';
            const auto stored = [wide](double value) {
                return wide ? raw(value) : raw(static_cast<float>(value));
            };
            EXPECT_EQ(order_of(letter, stored(each.search), stored(each.entry)), each.expected)
                << letter << ' ' << each.search << ' ' << each.entry << ' ' << each.precision;
        }
    }
}

// Entries of a key of one 'l' field and the record offset.
std::string numbered(int32_t value, int32_t record) { return raw(value) + raw(record); }

TEST_F(Compare, TheRecordFurtherBackStandsFirst)
{
    const key_record key = key_of_fields({{'l', 4}});
    const std::vector<std::string> entries = {numbered(7, 500), numbered(7, 100), numbered(9, 300)};
    const struct {
        int32_t value;
        int32_t record;
        bool exact;
        place expected;
    } cases[] = {
        {7, 300, true, {before, 1}},  {7, 700, true, {before, 0}},     {7, 50, true, {before, 2}},
        {7, 100, true, {found, 1}},   {9, 299, true, {behind_all, 3}}, {7, 300, false, {found, 0}},
        {8, 300, false, {before, 2}}, {10, 0, false, {behind_all, 3}}, {6, 0, true, {before, 0}},
    };
    for (const auto& each : cases) {
        const std::string search = each.exact ? numbered(each.value, each.record) : raw(each.value);
        EXPECT_EQ(scan(key, entries, search, each.exact), each.expected)
            << each.value << ' ' << each.record;
    }
    EXPECT_EQ(scan(key, {}, numbered(7, 100), true), (place{before, 0}));
    EXPECT_EQ(scan(key, {}, raw(7), false), (place{before, 0}));
}

TEST_F(Compare, FurtherFieldsDecideWhereTheFirstIsEqual)
{
    const key_record key = key_of_fields({{'s', 3}, {'d', 8}, {'h', 2}});
    const auto packed = [](const std::string& text, double real, int number) {
        return text + raw(real) + raw(static_cast<int16_t>(number));
    };
    std::vector<std::string> entries;
    for (const std::string& each : {packed("abc", 1.0, -1), packed("abc", 1.0, 1),
                                    packed("abc", 2.0, 0), packed({"b\0z", 3}, 0.0, 0)})
        entries.push_back(each + raw(int32_t{28}));

    EXPECT_EQ(scan(key, entries, packed("abc", 1.0004, 1), false), (place{found, 1}));
    EXPECT_EQ(scan(key, entries, packed("abc", 1.0, 0), false), (place{before, 1}));
    EXPECT_EQ(scan(key, entries, packed("abc", 1.5, 9), false), (place{before, 2}));
    EXPECT_EQ(scan(key, entries, packed({"b\0q", 3}, 0.0, 0), false), (place{found, 3}));

    // A search by the first fields, or the start of a string, shortens the key record meanwhile;
    // entries keep their stride.
    key_record partial = key;
    partial.field_count = 1;
    partial.fields[0].length = 1;
    EXPECT_EQ(scan(partial, entries, "b", false), (place{found, 3}));
    partial.fields[0].type = '?';
    EXPECT_EQ(scan(partial, entries, "b", false), (place{found, 0}));
}

// One string field and the record offset, without words and blocks.
int32_t plain_difference(const std::string& search, const std::string& entry, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        if (search[i] != entry[i])
            return static_cast<signed char>(search[i]) - static_cast<signed char>(entry[i]);
        if (search[i] == 0) break;
    }
    return load_i32(&entry[length]) - load_i32(&search[length]);
}

TEST_F(Compare, AScanEndsAtTheFirstEntryThatIsNotPassed)
{
    std::mt19937 random(20240607);
    const auto below = [&random](size_t limit) { return random() % limit; };
    for (int round = 0; round < 5000; ++round) {
        const size_t length = 1 + below(26);
        const auto make = [&] {
            std::string text(length, 'm'); // the most of it is the same in all
            for (size_t changes = below(4); changes > 0; --changes)
                text[below(length)] = "\x80\0ab"[below(4)];
            return text + raw(static_cast<int32_t>(100 * below(3)));
        };
        std::vector<std::string> entries(below(30));
        std::generate(entries.begin(), entries.end(), make);
        std::sort(entries.begin(), entries.end(), [length](const auto& one, const auto& other) {
            return plain_difference(one, other, length) < 0;
        });
        if (entries.size() > 1 && below(4) == 0)
            std::swap(entries.front(), entries.back()); // a damaged node

        const std::string search = make();
        const auto end = std::find_if(
            entries.begin(), entries.end(),
            [&](const std::string& entry) { return plain_difference(search, entry, length) <= 0; });
        scan_result result = entries.empty() ? before : behind_all;
        if (end != entries.end())
            result = plain_difference(search, *end, length) == 0 ? found : before;
        const key_record key = key_of_fields({{'s', static_cast<int32_t>(length)}});
        ASSERT_EQ(scan(key, entries, search, true),
                  (place{result, static_cast<int32_t>(end - entries.begin())}));
    }
}

TEST_F(Compare, FieldsBeyondTheRecordPackAsZeros)
{
    key_record key = key_of_fields({{'s', 4}, {'l', 4}, {'h', 2}, {'s', 3}, {'c', 1}});
    const int32_t offsets[] = {1, 6, std::numeric_limits<int32_t>::max(), -2, 8};
    for (int32_t i = 0; i < key.field_count; ++i) key.fields[i].offset = offsets[i];
    const std::vector<unsigned char> record = {'0', '1', '2', '3', '4', '5', '6', '7'};
    std::vector<unsigned char> packed(static_cast<size_t>(key.entry_key_bytes), 0xee);
    pack_key(key, {record.data(), static_cast<int32_t>(record.size())}, 0x01020304, packed.data());
    EXPECT_THAT(packed,
                ElementsAre('1', '2', '3', '4', '6', '7', 0, 0, 0, 0, 0, 0, 0, 0, 4, 3, 2, 1));
    pack_key(key, {nullptr, 0}, -1, packed.data());
    EXPECT_THAT(std::vector<unsigned char>(packed.begin(), packed.end() - 4), testing::Each(0));
}

} // namespace
} // namespace tarsil
