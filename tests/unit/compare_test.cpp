// The order of keys: the tolerances, further fields, and all letters beside a plain comparison.
// A node ends where memory ends, and a search value is a heap block of exactly its size, so that a
// scan that looks further is seen, there by the address sanitizer.
#include "index/compare.h"

#include <gmock/gmock.h>
#include <sys/mman.h>

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

// The end of a page, behind which stands one that nobody may read.
unsigned char* end_of_memory()
{
    constexpr size_t page = 4096;
    static unsigned char* const end = [] {
        void* const pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        unsigned char* const second = static_cast<unsigned char*>(pages) + page;
        EXPECT_EQ(mprotect(second, page, PROT_NONE), 0);
        return second;
    }();
    return end;
}

// Entries and the search value are given as packed keys, in modes without a record offset the
// latter as little as a caller may pass.
place scan(const key_record& key, const std::vector<std::string>& entries,
           const std::string& search, bool exact)
{
    std::string node;
    for (const std::string& entry : entries) node += raw(int32_t{-1}) + entry;
    unsigned char* const bytes = end_of_memory() - node.size();
    std::copy(node.begin(), node.end(), bytes);
    const std::vector<unsigned char> value(search.begin(), search.end());
    place end = {behind_all, -7};
    end.result = node_scan(key, bytes + 4, value.data(), static_cast<int32_t>(entries.size()),
                           end.position, exact);
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

std::string value_of(char letter, int32_t number)
{
    switch (letter) {
    case 'H':
    case 'h': return raw(static_cast<int16_t>(number));
    case 'c':
    case 's': return std::string(1, static_cast<char>(number));
    case 'f': return raw(static_cast<float>(number));
    case 'L':
    case 'U':
    case 'i':
    case 'l': return raw(number);
    default: return raw(static_cast<double>(number));
    }
}

// A field of each letter, and of some that are none, in front of one that would decide the other
// way, by nine entries: a block that may be passed as a whole, and one behind it.
TEST_F(Compare, TheFirstFieldThatDiffersDecidesIfItsLetterIsKnown)
{
    for (const char letter : std::string("sHhcLUilfd!?Vetz")) {
        const bool is_known = fixed_field_length(letter) != unknown_letter;
        for (const bool leads : {true, false}) {
            std::vector<field> fields = {{letter, static_cast<int32_t>(value_of(letter, 1).size())},
                                         {'c', 1}};
            if (!leads) fields.insert(fields.begin(), field{'c', 1});
            const key_record key = key_of_fields(fields);
            const auto of_both = [&](int32_t number, int32_t further) {
                return (leads ? "" : "x") + value_of(letter, number) + value_of('c', further);
            };
            const auto packed = [&](int32_t number) { return of_both(number, 3 - number); };
            for (const int32_t number : {1, 2}) {
                const std::vector<std::string> entries(9, packed(3 - number) + raw(int32_t{28}));
                const bool is_behind = is_known == (number == 2);
                EXPECT_EQ(scan(key, entries, packed(number), false),
                          (is_behind ? place{behind_all, 9} : place{before, 0}))
                    << letter << ' ' << leads << ' ' << number;
            }
            // Only the first of the block is equal where the further field says behind of all.
            std::vector<std::string> rising(9, packed(2) + raw(int32_t{28}));
            rising.front() = packed(1) + raw(int32_t{28});
            EXPECT_EQ(scan(key, rising, of_both(1, 3), false),
                      (is_known ? place{before, 1} : place{behind_all, 9}))
                << letter << ' ' << leads;
        }
    }
}

// What a packed key of one field is, without words and blocks: a number, or the text up to its end;
// and where two have the same, the record further back stands first.
template <class number> number first_of(const std::string& packed)
{
    number value;
    std::memcpy(&value, packed.data(), sizeof value);
    return value;
}

int64_t number_of(char letter, const std::string& packed)
{
    switch (letter) {
    case 'H': return first_of<uint16_t>(packed);
    case 'h': return first_of<int16_t>(packed);
    case 'c': return first_of<uint8_t>(packed);
    case 'L':
    case 'U': return first_of<uint32_t>(packed);
    case '?': return 0;
    default: return first_of<int32_t>(packed);
    }
}

int64_t plain_difference(char letter, const std::string& search, const std::string& entry)
{
    const size_t length = search.size() - 4;
    if (letter != 's' && number_of(letter, search) != number_of(letter, entry))
        return number_of(letter, search) - number_of(letter, entry);
    for (size_t i = 0; letter == 's' && i < length; ++i) {
        if (search[i] != entry[i])
            return static_cast<signed char>(search[i]) - static_cast<signed char>(entry[i]);
        if (search[i] == 0) break;
    }
    return int64_t{load_i32(&entry[length])} - load_i32(&search[length]);
}

TEST_F(Compare, AScanEndsAtTheFirstEntryThatIsNotPassed)
{
    std::mt19937 random(20240607);
    const auto below = [&random](size_t limit) { return random() % limit; };
    const std::string letters = "sHhcLUils?"; // ?: all are equal
    for (size_t round = 0; round < 9000; ++round) {
        const char letter = letters[round % letters.size()];
        const int32_t fixed = fixed_field_length(letter);
        const size_t length = fixed > 0 ? static_cast<size_t>(fixed) : 1 + below(26);
        const auto make = [&] {
            std::string text(length, 'm'); // the most of it is the same in all
            for (size_t changes = below(4); changes > 0; --changes)
                text[below(length)] = "\x80\0ab"[below(4)];
            return text + raw(static_cast<int32_t>(100 * below(3)));
        };
        std::vector<std::string> entries(below(30));
        std::generate(entries.begin(), entries.end(), make);
        std::sort(entries.begin(), entries.end(), [letter](const auto& one, const auto& other) {
            return plain_difference(letter, one, other) < 0;
        });
        if (entries.size() > 1 && below(4) == 0)
            std::swap(entries.front(), entries.back()); // a damaged node

        const std::string search = make();
        const auto end = std::find_if(
            entries.begin(), entries.end(),
            [&](const std::string& entry) { return plain_difference(letter, search, entry) <= 0; });
        scan_result result = entries.empty() ? before : behind_all;
        if (end != entries.end())
            result = plain_difference(letter, search, *end) == 0 ? found : before;
        const key_record key = key_of_fields({{letter, static_cast<int32_t>(length)}});
        ASSERT_EQ(scan(key, entries, search, true),
                  (place{result, static_cast<int32_t>(end - entries.begin())}))
            << letter;
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
