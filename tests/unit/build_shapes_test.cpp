// Indexes of every shape built over many records by tscrindd32: checked by the checker, walked both
// ways and searched. TARSIL32_BUILD_RECORDS sets how many records the largest builds have (20000);
// keys of many bytes take a share of it.
#include "check/index_check.h"
#include "check/report_text.h"
#include "tests/support/library_fixture.h"

#include <algorithm>
#include <random>

namespace tarsil {
namespace {

enum class pattern : uint8_t { rising, falling, random };

struct shape {
    const char* name;
    std::vector<key_field> fields; // letter and length; offsets follow
    int32_t share;                 // of the records, one in so many
    bool is_exact; // no two values are equal by the tolerance alone, so that all are found
};

// A double whose values are all further apart than the tolerance, as near as they can be.
constexpr int32_t apart = 1;

// A record is one field behind the other, made from `number`: a larger one doesn't sort before.
struct builder {
    std::mt19937 random{1};

    int32_t below(int32_t limit)
    {
        return static_cast<int32_t>(random() % static_cast<uint32_t>(limit));
    }

    template <class Number> static std::string bytes(Number value)
    {
        return {reinterpret_cast<const char*>(&value), sizeof value};
    }

    // Digits of base 250 in signed order, then an end and anything, or no end at all.
    std::string text(int32_t length, int32_t number)
    {
        std::string made;
        for (int32_t divisor = 250 * 250 * 250; divisor > 0; divisor /= 250) {
            const int32_t digit = number / divisor % 250;
            made += static_cast<char>(digit - 128 + (digit >= 128));
        }
        if (below(3) > 0) made += '\0';
        while (static_cast<int32_t>(made.size()) < length) made += static_cast<char>(below(256));
        made.resize(static_cast<size_t>(length));
        return made;
    }

    std::string field(const key_field& of, int32_t number)
    {
        switch (of.type) {
        case 'c': return bytes(static_cast<uint8_t>(number / 4000));
        case 'h': return bytes(static_cast<int16_t>(number / 100 - 30000));
        case 'd': return bytes(number * (of.reserved_2 == apart ? 0.0011 : 0.0004));
        case 'f': return bytes(static_cast<float>(number % 8000) * 0.0004F);
        case 's': return text(of.length, number);
        default: return bytes(number - 500000);
        }
    }
};

std::vector<key_field> fields_of(std::initializer_list<std::pair<char, int32_t>> list)
{
    std::vector<key_field> fields;
    int32_t offset = 0;
    for (const auto& [type, length] : list) {
        fields.push_back({type, {}, length, offset, 0});
        offset += length;
    }
    return fields;
}

const shape shapes[] = {
    {"number", fields_of({{'l', 4}}), 1, true},
    {"text", fields_of({{'s', 24}}), 2, true},
    {"duplicates", fields_of({{'c', 1}, {'h', 2}}), 4, true},
    {"apart_double", {{'d', {}, 8, 0, apart}}, 4, true},
    {"near_double", fields_of({{'d', 8}}), 4, false},
    {"float_and_text", fields_of({{'f', 4}, {'s', 6}}), 4, false},
    {"widest", std::vector<key_field>(), 20, true},
};

struct Building : support::Library,
                  testing::WithParamInterface<std::tuple<shape, uint32_t, pattern>> {
    int32_t records() const
    {
        const char* value = std::getenv("TARSIL32_BUILD_RECORDS");
        const int32_t most = value == nullptr ? 20000 : std::atoi(value);
        const auto& [of, order, how] = GetParam();
        const bool largest = order == 0 && how == pattern::random;
        const int32_t wanted = most / of.share / (largest ? 1 : 8);
        const int32_t room = 20000000 / (fields().back().offset + fields().back().length);
        return std::clamp(wanted, 50, room); // of the simulated disk
    }

    std::vector<key_field> fields() const
    {
        std::vector<key_field> all = std::get<0>(GetParam()).fields;
        for (int32_t i = 0; all.empty() || (all[0].length == 256 && i < 16); ++i)
            all.push_back({'s', {}, 256, 256 * i, 0});
        return all;
    }

    // The records in the order of the pattern, of numbers that may come twice.
    void add_records(int32_t count, int32_t length)
    {
        ASSERT_EQ(tscrdata32("d", length, 0, nullptr), 0);
        builder make;
        for (int32_t i = 0; i < count; ++i) {
            const pattern how = std::get<2>(GetParam());
            const int32_t number = how == pattern::rising    ? i
                                   : how == pattern::falling ? count - i
                                                             : make.below(count);
            std::string body;
            for (const key_field& each : fields()) body += make.field(each, number);
            ASSERT_EQ(tsadd32(0, body.data(), 0, 'y'), TS_OK);
        }
    }
};

using read_call = int32_t (*)(int32_t, int32_t, int32_t, void*, int32_t*);

int32_t walk(read_call begin, read_call step, std::string& record, int32_t most)
{
    int32_t deleted = 0;
    int32_t entries = begin(0, 0, 0, record.data(), &deleted) == TS_OK ? 1 : 0;
    while (entries <= most && step(0, 0, 0, record.data(), &deleted) == TS_OK) ++entries;
    return entries;
}

// With order 2, values that fall, or are equal, give the tree a level every few insertions, and
// every level a node with each split: the path ends, or the disk is full.
bool may_be_too_deep(const Building::ParamType& tested)
{
    const auto& [of, order, how] = tested;
    const bool least_order = order == 2 || (order == 0 && std::string(of.name) == "widest");
    return least_order && (how == pattern::falling || std::string(of.name) == "duplicates");
}

TEST_P(Building, IsSoundAndWhole)
{
    const auto& [of, order, how] = GetParam();
    const std::vector<key_field> all = fields();
    const int32_t count = records();
    const int32_t length = all.back().offset + all.back().length;
    add_records(count, length);

    key_definition key = {};
    key.cursor = 'y';
    key.order = order;
    key.field_count = static_cast<int32_t>(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
        key.types[i] = all[i].type;
        key.lengths[i] = all[i].length;
        key.offsets[i] = all[i].offset;
    }
    std::string record(static_cast<size_t>(length), '\0');
    const int32_t built = tscrindd32(0, "i", 1, &key, record.data());
    const bool gave_up = built == TS_TREE_TOO_DEEP || built == TS_NODE_WRITE_SHORT;
    if (gave_up && may_be_too_deep(GetParam())) {
        EXPECT_FALSE(sim::exists("i"));
        return;
    }
    ASSERT_EQ(built, 0);
    int32_t deleted = 0;
    std::string packed(TS_MAX_PACKED_KEY, '\0');
    for (int32_t number = of.is_exact ? 1 : count + 1; number <= count; number += 7) {
        ASSERT_EQ(tsgetd32(0, number, record.data(), &deleted), TS_OK);
        ASSERT_EQ(tsseti2d32(0, 0, 0, record.data(), packed.data(), &deleted), TS_OK) << number;
    }
    EXPECT_EQ(walk(tsgetfi32, tsgetni32, record, count), count);
    EXPECT_EQ(walk(tsgetli32, tsgetpi32, record, count), count);
    ASSERT_EQ(tsclosed32(0), TS_OK);
    const std::string data = sim::bytes("d");
    const std::string index = sim::bytes("i");
    const auto span = [](const std::string& bytes) {
        return check::byte_span(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    };
    const check::index_report report = check::check_index_image(span(index), span(data));
    ASSERT_EQ(report.keys.size(), 1U);
    EXPECT_TRUE(report.is_sound()) << check::lines_of(report.keys[0].findings);
    EXPECT_EQ(report.keys[0].entries, count);
    EXPECT_EQ(report.unreached_bytes, 0);
    if (of.is_exact) { EXPECT_EQ(report.keys[0].unsettled_pairs, 0); }
}

std::string name_of(const testing::TestParamInfo<Building::ParamType>& tested)
{
    const auto& [of, order, how] = tested.param;
    const char* const names[] = {"rising", "falling", "random"};
    return std::string(of.name) + "_" + std::to_string(order) + "_" + names[static_cast<int>(how)];
}

INSTANTIATE_TEST_SUITE_P(
    AllShapes, Building,
    testing::Combine(testing::ValuesIn(shapes), testing::Values(2U, 3U, 10U, 0U),
                     testing::Values(pattern::rising, pattern::falling, pattern::random)),
    name_of);

} // namespace
} // namespace tarsil
