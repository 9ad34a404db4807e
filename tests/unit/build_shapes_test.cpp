// Indexes of every shape built by tscrindd32 over records that rise, fall or come by chance: found
// sound by the checker, walked both ways, and the same to the byte as in multi-user mode, where no
// insertion is held back; the cursor stands alike, too. TARSIL32_BUILD_RECORDS sets how many
// records the largest builds have (20000); keys of many bytes take a share of it.
#include "check/report_text.h"
#include "tests/support/checked.h"
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
    double step = 0.0004;         // between the values of doubles; the tolerance is 0.001
    bool apart = false;           // each field is a key of its own, every second one has a cursor
};

const shape shapes[] = {
    {"number", {{'l', 4}}, 1},
    {"duplicates", {{'c', 1}, {'h', 2}}, 4},
    {"apart_double", {{'d', 8}}, 4, 0.0011},
    {"near_double", {{'d', 8}}, 4},
    {"widest", std::vector<key_part>(16, {'s', 256}), 20},
    // Leaves of all keys share the slots of what is held back, and nodes of all sizes the file.
    {"several", {{'h', 2}, {'s', 60}, {'l', 4}, {'d', 8}}, 2, 0.0004, true},
};

// One field behind the other, made from `number`: a larger one doesn't sort before.
std::string record_of(const shape& of, int32_t number)
{
    std::string made;
    for (const key_part& field : of.fields) {
        switch (field.type) {
        case 'c': made += support::raw(static_cast<uint8_t>(number / 4000)); break;
        case 'h': made += support::raw(static_cast<int16_t>(number / 100 - 30000)); break;
        case 'd': made += support::raw(number * of.step); break;
        case 'l': made += support::raw(number - 500000); break;
        default:
            std::string text = std::to_string(100000 + number);
            text.resize(static_cast<size_t>(field.length));
            made += text;
        }
    }
    return made;
}

struct Building : support::Library,
                  testing::WithParamInterface<std::tuple<shape, uint32_t, pattern>> {
    // Numbers may come twice.
    static int32_t add_records(size_t length)
    {
        const auto& [of, order, how] = GetParam();
        const auto most = static_cast<int32_t>(support::setting("TARSIL32_BUILD_RECORDS", 20000));
        const bool largest = order == 0 && how == pattern::random;
        const auto room = static_cast<int32_t>(20000000 / length); // of the simulated disk
        const int32_t count = std::clamp(most / of.share / (largest ? 1 : 8), 50, room);
        std::mt19937 random(1);
        EXPECT_EQ(tscrdata32("d", static_cast<int32_t>(length), 0, nullptr), 0);
        for (int32_t i = 0; i < count; ++i) {
            const auto any = static_cast<int32_t>(random() % static_cast<uint32_t>(count));
            const int32_t numbers[] = {i, count - i, any};
            const std::string record = record_of(of, numbers[static_cast<int>(how)]);
            EXPECT_EQ(tsadd32(0, record.data(), 0, 'y'), TS_OK);
        }
        return count;
    }

    // A creation puts the orders that it has chosen into them.
    static std::vector<key_definition> definitions()
    {
        const auto& [of, order, how] = GetParam();
        std::vector<key_part> parts = of.fields;
        std::vector<key_definition> apart;
        int32_t offset = 0;
        for (key_part& each : parts) {
            each.offset = std::exchange(offset, offset + each.length);
            apart.push_back(support::define_key(order, {each}, apart.size() % 2 == 0 ? 'y' : 'n'));
        }
        if (of.apart) return apart;
        return {support::define_key(order, parts)};
    }

    // With order 2, values that fall, or are equal, give the tree a level every few insertions, and
    // every level a node with each split: the path ends, or the disk is full.
    static bool may_be_too_deep()
    {
        const auto& [of, order, how] = GetParam();
        const bool least_order = order == 2 || (order == 0 && of.fields.size() == 16);
        return least_order && (how == pattern::falling || of.fields[0].type == 'c');
    }

    using reader = int32_t (*)(int32_t, int32_t, int32_t, void*, int32_t*);
    static int32_t walk(reader begin, reader step, std::string& record, int32_t most)
    {
        int32_t deleted = 0;
        int32_t entries = begin(0, 0, 0, record.data(), &deleted) == TS_OK ? 1 : 0;
        while (entries <= most && step(0, 0, 0, record.data(), &deleted) == TS_OK) ++entries;
        return entries;
    }

    // The record behind the one at the cursor, or that there is none.
    static std::string behind_cursor(std::string& record)
    {
        int32_t deleted = 0;
        const int32_t code = tsgetni32(0, 0, 0, record.data(), &deleted);
        return code == TS_OK ? record : std::to_string(code);
    }
};

TEST_P(Building, IsSoundAndWhole)
{
    const auto& [of, order, how] = GetParam();
    std::string record = record_of(of, 0);
    const int32_t count = add_records(record.size());
    std::vector<key_definition> keys = definitions();
    const auto key_count = static_cast<int32_t>(keys.size());
    const int32_t built = tscrindd32(0, "i", key_count, keys.data(), record.data());
    if ((built == TS_TREE_TOO_DEEP || built == TS_NODE_WRITE_SHORT) && may_be_too_deep()) {
        EXPECT_FALSE(sim::exists("i"));
        return;
    }
    ASSERT_EQ(built, 0);
    const std::string next = behind_cursor(record);
    EXPECT_EQ(walk(tsgetfi32, tsgetni32, record, count), count);
    EXPECT_EQ(walk(tsgetli32, tsgetpi32, record, count), count);
    ASSERT_EQ(tsclosed32(0), TS_OK);
    const check::index_report report = support::check_index(sim::bytes("i"), sim::bytes("d"));
    ASSERT_EQ(report.keys.size(), keys.size());
    for (const check::key_report& key : report.keys) {
        EXPECT_TRUE(key.findings.is_sound()) << check::lines_of(key.findings);
        EXPECT_EQ(key.entries, count);
    }
    EXPECT_TRUE(report.is_sound());
    EXPECT_EQ(report.unreached_bytes, 0);

    tsfree32(); // Unused bytes of a node are what another one has left in a buffer.
    ASSERT_EQ(tsinit32(), TS_STARTED);
    ASSERT_EQ(tsmuser32('y'), TS_OK);
    ASSERT_EQ(tsopend32("d"), 0);
    keys = definitions();
    ASSERT_EQ(tscrindd32(0, "j", key_count, keys.data(), record.data()), 0);
    EXPECT_EQ(behind_cursor(record), next);
    EXPECT_TRUE(sim::bytes("j") == sim::bytes("i"));
}

std::string name_of(const testing::TestParamInfo<Building::ParamType>& tested)
{
    const auto& [of, order, how] = tested.param;
    const char* const names[] = {"_rising", "_falling", "_random"};
    return of.name + ("_" + std::to_string(order)) + names[static_cast<int>(how)];
}

INSTANTIATE_TEST_SUITE_P(AllShapes, Building,
                         testing::Combine(testing::ValuesIn(shapes), testing::Values(2U, 10U, 0U),
                                          testing::Values(pattern::rising, pattern::falling,
                                                          pattern::random)),
                         name_of);

} // namespace
} // namespace tarsil
