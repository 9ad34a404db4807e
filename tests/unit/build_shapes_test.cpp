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
};

const shape shapes[] = {
    {"number", {{'l', 4}}, 1},
    {"duplicates", {{'c', 1}, {'h', 2}}, 4},
    {"apart_double", {{'d', 8}}, 4, 0.0011},
    {"near_double", {{'d', 8}}, 4},
    {"widest", std::vector<key_part>(16, {'s', 256}), 20},
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
    key_definition key = support::define_key(order, of.fields);
    for (int32_t i = 1; i < key.field_count; ++i)
        key.offsets[i] = key.offsets[i - 1] + key.lengths[i - 1];
    key_definition same_key = key; // a creation puts the order that it has chosen into it
    const int32_t built = tscrindd32(0, "i", 1, &key, record.data());
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
    ASSERT_EQ(report.keys.size(), 1U);
    EXPECT_TRUE(report.is_sound()) << check::lines_of(report.keys[0].findings);
    EXPECT_EQ(report.keys[0].entries, count);
    EXPECT_EQ(report.unreached_bytes, 0);

    ASSERT_EQ(tsmuser32('y'), TS_OK);
    ASSERT_EQ(tsopend32("d"), 0);
    ASSERT_EQ(tscrindd32(0, "j", 1, &same_key, record.data()), 0);
    EXPECT_EQ(behind_cursor(record), next);
    EXPECT_TRUE(sim::bytes("j") == sim::bytes("i"));
}

// Leaves of all keys share the slots of what is held back, and nodes of all sizes the file.
using BuildingOfSeveralKeys = support::Library;

TEST_F(BuildingOfSeveralKeys, AreTheSameToTheByteWhetherHeldBackOrNot)
{
    struct row {
        int32_t number;
        char name[12];
        double amount;
        float part;
    };
    const std::vector<key_definition> keys = {
        support::define_key(2, {{'l', 4, offsetof(row, number)}}, 'n'),
        support::define_key(50, {{'s', 12, offsetof(row, name)}}),
        support::define_key(0, {{'d', 8, offsetof(row, amount)}, {'l', 4, offsetof(row, number)}},
                            'n'),
        support::define_key(6, {{'f', 4, offsetof(row, part)}})};
    std::mt19937 random(3);
    row one{};
    ASSERT_EQ(tscrdata32("d", int32_t{sizeof one}, 0, nullptr), 0);
    for (int32_t i = 0; i < 4000; ++i) {
        one.number = static_cast<int32_t>(random() % 3000);
        std::snprintf(one.name, sizeof one.name, "%u", static_cast<unsigned>(random() % 500));
        one.amount = static_cast<double>(random() % 1000) * 0.0004;
        one.part = static_cast<float>(random() % 100) * 0.0004F;
        ASSERT_EQ(tsadd32(0, &one, 0, 'y'), TS_OK);
    }
    const auto build = [&](const char* name) {
        std::vector<key_definition> given = keys; // a creation changes them
        EXPECT_EQ(tscrindd32(0, name, static_cast<int32_t>(given.size()), given.data(), &one), 0);
        EXPECT_EQ(tsclosed32(0), TS_OK);
    };
    build("i");
    tsfree32(); // Unused bytes of a node are what another one has left in a buffer.
    ASSERT_EQ(tsinit32(), 1);
    ASSERT_EQ(tsopend32("d"), 0);
    // The index itself, four times a key and a root, twice a leaf and a path, two buffers for all;
    // then what is to hold entries back.
    sim::plan({.at = 16, .where = sim::only(sim::call::allocate)});
    build("j");
    EXPECT_EQ(sim::faults_met(), 1U);
    EXPECT_TRUE(sim::bytes("i") == sim::bytes("j"));
    EXPECT_GT(sim::bytes("i").size(), 500000U);
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
