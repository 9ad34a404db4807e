// Indexes of every shape built over many records by tscrindd32: checked by the checker, walked both
// ways and searched. TARSIL32_BUILD_RECORDS sets how many records the largest builds have (20000);
// keys of many bytes take a share of it.
#include "check/index_check.h"
#include "check/report_text.h"
#include "tests/support/library_fixture.h"
#include "tests/support/settings.h"

#include <algorithm>
#include <random>

namespace tarsil {
namespace {

using support::key_part;

enum class pattern : uint8_t { rising, falling, random };

struct shape {
    const char* name;
    std::vector<key_part> fields; // letter and length, one field behind the other
    int32_t share;                // of the records, one in so many
    bool is_exact;        // no two values are equal by the tolerance alone, so that all are found
    double step = 0.0004; // between the values of doubles
};

const shape shapes[] = {
    {"number", {{'l', 4}}, 1, true},
    {"text", {{'s', 24}}, 2, true},
    {"duplicates", {{'c', 1}, {'h', 2}}, 4, true},
    {"apart_double", {{'d', 8}}, 4, true, 0.0011}, // as near as the tolerance lets them be
    {"near_double", {{'d', 8}}, 4, false},
    {"float_and_text", {{'f', 4}, {'s', 6}}, 4, false},
    {"widest", std::vector<key_part>(16, {'s', 256}), 20, true},
};

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

    std::string record(const shape& of, int32_t number)
    {
        std::string made;
        for (const key_part& field : of.fields) {
            switch (field.type) {
            case 'c': made += bytes(static_cast<uint8_t>(number / 4000)); break;
            case 'h': made += bytes(static_cast<int16_t>(number / 100 - 30000)); break;
            case 'd': made += bytes(number * of.step); break;
            case 'f': made += bytes(static_cast<float>(number % 8000) * 0.0004F); break;
            case 's': made += text(field.length, number); break;
            default: made += bytes(number - 500000);
            }
        }
        return made;
    }
};

using reader = int32_t (*)(int32_t, int32_t, int32_t, void*, int32_t*);

struct Building : support::Library,
                  testing::WithParamInterface<std::tuple<shape, uint32_t, pattern>> {
    int32_t record_count(int32_t length) const
    {
        const auto most = static_cast<int32_t>(support::setting("TARSIL32_BUILD_RECORDS", 20000));
        const auto& [of, order, how] = GetParam();
        const bool largest = order == 0 && how == pattern::random;
        const int32_t room = 20000000 / length; // of the simulated disk
        return std::clamp(most / of.share / (largest ? 1 : 8), 50, room);
    }

    // The records in the order of the pattern, of numbers that may come twice. The last one shows
    // their length.
    void add_records(int32_t& count, std::string& record) const
    {
        const auto& [of, order, how] = GetParam();
        builder make;
        const auto length = static_cast<int32_t>(make.record(of, 0).size());
        count = record_count(length);
        ASSERT_EQ(tscrdata32("d", length, 0, nullptr), 0);
        for (int32_t i = 0; i < count; ++i) {
            const int32_t numbers[] = {i, count - i, make.below(count)};
            record = make.record(of, numbers[static_cast<int>(how)]);
            ASSERT_EQ(tsadd32(0, record.data(), 0, 'y'), TS_OK);
        }
    }

    // With order 2, values that fall, or are equal, give the tree a level every few insertions, and
    // every level a node with each split: the path ends, or the disk is full.
    static bool may_be_too_deep()
    {
        const auto& [of, order, how] = GetParam();
        const bool least_order = order == 2 || (order == 0 && of.fields.size() == 16);
        return least_order && (how == pattern::falling || of.fields[0].type == 'c');
    }

    static int32_t walk(reader begin, reader step, std::string& record, int32_t most)
    {
        int32_t deleted = 0;
        int32_t entries = begin(0, 0, 0, record.data(), &deleted) == TS_OK ? 1 : 0;
        while (entries <= most && step(0, 0, 0, record.data(), &deleted) == TS_OK) ++entries;
        return entries;
    }
};

TEST_P(Building, IsSoundAndWhole)
{
    const auto& [of, order, how] = GetParam();
    int32_t count = 0;
    std::string record;
    add_records(count, record);
    key_definition key = support::define_key(order, of.fields);
    for (int32_t i = 1; i < key.field_count; ++i)
        key.offsets[i] = key.offsets[i - 1] + key.lengths[i - 1];
    const int32_t built = tscrindd32(0, "i", 1, &key, record.data());
    if ((built == TS_TREE_TOO_DEEP || built == TS_NODE_WRITE_SHORT) && may_be_too_deep()) {
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
