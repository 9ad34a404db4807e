// The order of keys: the tolerances, and keys of all letters beside the comparison of the model.
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
#include "tests/support/file_parts.h"
#include "tests/support/model.h"

namespace tarsil {
namespace {

using support::raw;
using testing::ElementsAre;

key_record key_of_fields(const std::vector<model::field>& fields)
{
    key_record key = {};
    for (const model::field& each : fields) {
        key.fields[key.field_count].type = each.type;
        key.fields[key.field_count].offset = each.offset;
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

// A search by the first fields, or the start of a string, shortens the key record meanwhile;
// entries keep their stride. Without a record offset a caller passes no more than what counts.
place scan(const std::vector<model::field>& fields, const std::vector<model::entry>& entries,
           const model::entry& wanted, const model::part& part, bool exact)
{
    key_record key = key_of_fields(fields);
    key.field_count = static_cast<int32_t>(part.fields);
    key.fields[part.fields - 1].length = part.last_length;
    std::string value = wanted.image + raw(wanted.offset);
    if (!exact) {
        size_t bytes = 0;
        for (size_t i = 0; i + 1 < part.fields; ++i) bytes += static_cast<size_t>(fields[i].length);
        value.resize(bytes + static_cast<size_t>(part.last_length));
        const size_t text_end = value.find('\0', bytes);
        if (fields[part.fields - 1].type == 's' && text_end != std::string::npos)
            value.resize(text_end + 1);
    }
    const std::vector<unsigned char> search(value.begin(), value.end());

    std::string node;
    for (const model::entry& each : entries)
        node += raw(int32_t{-1}) + each.image + raw(each.offset);
    unsigned char* const bytes = end_of_memory() - node.size();
    std::copy(node.begin(), node.end(), bytes);
    place end = {behind_all, -7};
    end.result = node_scan(key, bytes + 4, search.data(), static_cast<int32_t>(entries.size()),
                           end.position, exact);
    return end;
}

// Where one value stands to one other.
scan_result order_of(char type, const std::string& search, const std::string& entry)
{
    const auto length = static_cast<int32_t>(entry.size());
    return scan({{type, length, 0}}, {{entry, 28}}, {search, 28}, {search, 1, length}, false)
        .result;
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

int32_t below(std::mt19937& random, int32_t limit)
{
    return static_cast<int32_t>(random() % static_cast<uint32_t>(limit));
}

// One of few values: most bytes are the same in all, and reals stand around multiples of a half,
// within the tolerance.
std::string draw_field(std::mt19937& random, const model::field& of, int32_t variety)
{
    const double real = (below(random, variety) - 1) / 2.0 + (below(random, 5) - 2) * 0.0001;
    if (of.type == 'd') return raw(real);
    if (of.type == 'f') return raw(static_cast<float>(real));
    std::string bytes(static_cast<size_t>(of.length), 'm');
    for (int32_t changes = below(random, variety); changes > 0; --changes)
        bytes[random() % bytes.size()] = "\x80\0ab"[below(random, 4)];
    return bytes;
}

// Keys by chance: of one to three fields, among them letters that are none. Searched for is an
// entry with its record, a value, or the first fields of one with the start of a string.
TEST_F(Compare, AScanEndsAtTheFirstEntryThatIsNotPassed)
{
    std::mt19937 random(20240607);
    for (int32_t round = 0; round < 30000 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::vector<model::field> fields(1 + random() % 3);
        std::vector<int32_t> varieties;
        for (model::field& each : fields) {
            each.type = "sssHhcLUilfd?!Vetz"[below(random, 18)];
            const int32_t fixed = fixed_field_length(each.type);
            each.length = fixed > 0 ? fixed : 1 + below(random, 26);
            varieties.push_back(1 + below(random, 4));
        }
        const auto make = [&] {
            model::entry made = {{}, 100 * below(random, 3)};
            for (size_t i = 0; i < fields.size(); ++i)
                made.image += draw_field(random, fields[i], varieties[i]);
            return made;
        };
        const model::entry_order stands_before = {&fields};
        std::vector<model::entry> entries(random() % 30);
        std::generate(entries.begin(), entries.end(), make);
        std::sort(entries.begin(), entries.end(), stands_before);
        if (entries.size() > 1 && random() % 4 == 0)
            std::swap(entries.front(), entries.back()); // a damaged node

        const bool exact = random() % 2 == 0;
        const model::entry wanted = make();
        model::part part = {wanted.image, exact ? fields.size() : 1 + random() % fields.size(), 0};
        const model::field& last = fields[part.fields - 1];
        part.last_length = exact || last.type != 's' ? last.length : 1 + below(random, last.length);
        const auto is_passed = [&](const model::entry& each) {
            return exact ? stands_before(each, wanted) : stands_before(each, part);
        };
        const auto end = std::find_if_not(entries.begin(), entries.end(), is_passed);
        place expected = {entries.empty() ? before : behind_all,
                          static_cast<int32_t>(end - entries.begin())};
        if (end != entries.end()) {
            const bool is_before = exact ? stands_before(wanted, *end) : stands_before(part, *end);
            expected.result = is_before ? before : found;
        }
        EXPECT_EQ(scan(fields, entries, wanted, part, exact), expected);
    }
}

TEST_F(Compare, FieldsBeyondTheRecordPackAsZeros)
{
    const key_record key = key_of_fields(
        {{'s', 4, 1}, {'l', 4, 6}, {'h', 2, INT32_MAX}, {'s', 3, -2}, {'c', 1, 8}});
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
