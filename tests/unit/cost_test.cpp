// What operations may cost in single-user mode: reads and writes of files, and nothing else. No
// lock, flush or look at a file's size, and no block of memory, since those are calls of the
// platform as well. Positioning is no call of the system.
#include "tests/sim/sim.h"
#include "tests/support/library_fixture.h"

namespace tarsil {
namespace {

using support::i32;

struct priced {
    const char* what;
    std::function<int32_t()> call;
    int32_t code;
    uint64_t reads;
    uint64_t writes;
};

// Ten records with rising numbers under a key of order 2: a root and three leaves, of the numbers
// 10 to 30, 40 to 60 and 70 to 100.
class Cost : public support::Library {
protected:
    static std::string body(int32_t number) { return i32(number) + std::string(20, '.'); }

    static void create()
    {
        ASSERT_EQ(tscrdata32("d", 24, 0, nullptr), 0);
        key_definition key = support::define_key(2, {{'l'}});
        ASSERT_EQ(tscrind32(0, "i", 1, &key), 0);
        for (int32_t number = 10; number <= 100; number += 10) ASSERT_EQ(add(number), TS_OK);
    }

    static int32_t add(int32_t number) { return tsadd32(0, body(number).data(), 0, 'n'); }

    static uint64_t reads_of_add(int32_t number)
    {
        sim::count_afresh();
        EXPECT_EQ(add(number), TS_OK);
        return sim::calls(sim::call::read);
    }

    static void pay(const std::vector<priced>& list)
    {
        for (const priced& each : list) {
            SCOPED_TRACE(each.what);
            sim::count_afresh();
            EXPECT_EQ(each.call(), each.code);
            EXPECT_EQ(sim::calls(sim::call::read), each.reads);
            EXPECT_EQ(sim::calls(sim::call::write), each.writes);
            EXPECT_EQ(sim::calls() - sim::calls(sim::call::position),
                      sim::calls(sim::call::read) + sim::calls(sim::call::write));
        }
    }

    char record[24] = {};
    char scratch[24] = {};
    char packed[8] = {};
    int32_t deleted = 0;
    int32_t told[5] = {};
};

TEST_F(Cost, OfReading)
{
    create();
    ASSERT_EQ(tsclosei32(0, 0), TS_OK);
    char cursors[] = "y";
    ASSERT_EQ(tsopeni32(0, "i", cursors), 0);
    const std::string fifty = i32(50);
    const std::string between = i32(65);
    const auto next = [&] { return tsgetni32(0, 0, 0, record, &deleted); };
    const auto previous = [&] { return tsgetpi32(0, 0, 0, record, &deleted); };
    pay({
        {"facts", [&] { return tsstatd32(0, told, told, told, told, told); }, TS_OK, 0, 0},
        {"by number", [&] { return tsgetd32(0, 4, record, &deleted); }, TS_OK, 2, 0},
        {"next record", [&] { return tsgetnd32(0, record, &deleted); }, TS_OK, 3, 0},
        {"previous record", [&] { return tsgetpd32(0, record, &deleted); }, TS_OK, 2, 0},
        {"length", [&] { return tsrecd32(0, told, told, told); }, TS_OK, 1, 0},
        // A leaf, and the record; the root is in memory.
        {"value", [&] { return tsgeti32(0, 0, 0, fifty.data(), record, &deleted); }, TS_OK, 3, 0},
        {"next entry", next, TS_OK, 2, 0},
        {"next entry in the next leaf", next, TS_OK, 4, 0}, // its branch, itself
        {"previous entry in the leaf before", previous, TS_OK, 4, 0},
        {"current entry", [&] { return tsgetci32(0, 0, 0, record, &deleted); }, TS_OK, 2, 0},
        {"cursor to record", [&] { return tssetd2i32(0, 0, 0, told); }, TS_OK, 0, 0},
        {"record to cursor", [&] { return tsseti2d32(0, 0, 0, record, packed, told); }, TS_OK, 3,
         0},
        {"first entry", [&] { return tsgetfi32(0, 0, 0, record, &deleted); }, TS_OK, 3, 0},
        {"nearest, in the leaf before the value",
         [&] { return tsgetipp32(0, 0, 0, between.data(), 1, 0, record, &deleted); }, 1, 5, 0},
        {"key",
         [&] {
             char c;
             key_report r;
             return tsstati32(0, 0, 0, told, told, &c, &r);
         },
         TS_OK, 0, 0},
    });
    ASSERT_EQ(tsclosed32(0), TS_OK); // written for its new records
    ASSERT_EQ(tsopend32("d"), 0);
    ASSERT_EQ(tsopeni32(0, "i", cursors), 0);
    sim::count_afresh();
    EXPECT_EQ(tsclosed32(0), TS_OK);
    EXPECT_EQ(sim::calls(sim::call::write), 0U) << "nothing has changed";
}

TEST_F(Cost, OfChanging)
{
    create();
    const std::string new_number = body(45);
    std::string same_number = body(50);
    same_number.back() = '!';
    const auto update = [&](const std::string& to, int32_t mode) {
        return tsupd32(0, 5, to.data(), 0, &deleted, scratch, mode);
    };
    pay({
        {"delete", [] { return tsdeld32(0, 5); }, TS_OK, 1, 1},
        {"undelete", [] { return tsundeld32(0, 5); }, TS_OK, 1, 1},
        {"update in place", [&] { return update(same_number, 0); }, TS_OK, 3, 1},
        {"refused update", [&] { return update(new_number, 0); }, TS_UPDATE_KEY_CHANGED, 3, 0},
        {"duplicate", [] { return add(60); }, TS_DUPLICATE_KEY, 1, 0},
        // The leaf for the duplicate test and for the insertion; the record and the leaf.
        {"add", [] { return add(35); }, TS_OK, 2, 2},
        // Also the branch, and the leaf again; two leaves, two branches, the new root, and the key
        // records with each of the three levels.
        {"add that splits up to the root", [] { return add(95); }, TS_OK, 4, 9},
        // Below a branch: that and the leaf, which is all that the insertion reads again.
        {"add in three levels", [] { return add(99); }, TS_OK, 3, 2},
    });
    ASSERT_EQ(tsclosei32(0, 0), TS_OK);
    pay({{"append without keys", [] { return add(200); }, TS_OK, 0, 1},
         {"update without keys", [&] { return update(new_number, 0); }, TS_OK, 1, 1}});
    // Frame and body go out in one write, unless they are longer than the library puts together.
    ASSERT_EQ(tscrdata32("long", 5000, 0, nullptr), 1);
    const std::string long_body(5000, 'l');
    pay({{"long append", [&] { return tsadd32(1, long_body.data(), 0, 'y'); }, TS_OK, 0, 2}});
    ASSERT_EQ(tsautoup32('y'), TS_OK);
    reads_of_add(300);
    EXPECT_EQ(sim::calls(sim::call::write), 3U) << "frame, body, header: each is flushed";
    EXPECT_EQ(sim::calls(sim::call::flush), 3U);
}

// Under locks of the caller over both files a series of adds costs what it costs alone, and the
// header each time. What was read under them is read anew after a release, and after a failure.
TEST_F(Cost, OfASeriesUnderLocksOfTheCaller)
{
    ASSERT_EQ(tsmuser32('y'), TS_OK);
    create();
    const auto lock = [] { return tslockd32(0) + tslocki32(0, 0); };
    ASSERT_EQ(lock(), 2);
    EXPECT_EQ(reads_of_add(35), 5U) << "header, key records, root, and the leaf twice";
    EXPECT_EQ(sim::calls(sim::call::lock) + sim::calls(sim::call::unlock), 0U);
    EXPECT_EQ(reads_of_add(25), 2U);
    EXPECT_EQ(sim::calls(sim::call::lock) + sim::calls(sim::call::unlock), 0U);
    EXPECT_LE(sim::calls(sim::call::write), 3U);
    EXPECT_EQ(tsulockd32(0) + tsulocki32(0, 0), 0);

    // Somebody else takes the last record out.
    sim::set_bytes("d", support::with(sim::bytes("d"), 4, 11));
    ASSERT_EQ(lock(), 2);
    EXPECT_EQ(tsstatd32(0, told, told + 1, told + 2, told + 3, told + 4), TS_OK);
    EXPECT_EQ(told[0], 11);
    sim::plan({.at = 2, .where = sim::only(sim::call::write)});
    EXPECT_EQ(add(36), TS_HEADER_WRITE_SHORT) << "the record was written, the header not";
    EXPECT_EQ(tsstatd32(0, told, told + 1, told + 2, told + 3, told + 4), TS_OK);
    EXPECT_EQ(told[0], 11);
    EXPECT_EQ(tsulockd32(0) + tsulocki32(0, 0), 0);
    EXPECT_EQ(reads_of_add(37), 9U) << "without locks all is read anew at each step";

    ASSERT_EQ(lock(), 2);
    for (const uint64_t reads : {6U, 4U}) {
        sim::count_afresh();
        EXPECT_EQ(tsgeti32(0, 0, 0, i32(50).data(), record, &deleted), TS_OK);
        EXPECT_EQ(sim::calls(sim::call::read), reads) << "key records and root, but once";
    }
    EXPECT_EQ(tsulockd32(0) + tsulocki32(0, 0), 0);
}

// The one block that the reuse of a slot needs is given back, and so are those of a failed call.
TEST_F(Cost, OfReuseIsOneBlockAtATime)
{
    tsdelow32('y');
    create();
    ASSERT_EQ(tsdeld32(0, 3), TS_OK);
    ASSERT_EQ(tsdeld32(0, 5), TS_OK);
    const size_t blocks = sim::live_blocks();
    reads_of_add(33); // and the next slot is looked for
    EXPECT_EQ(sim::calls(sim::call::allocate), 2U);
    sim::plan({.where = sim::only(sim::call::write)});
    EXPECT_LT(add(34), 0);
    EXPECT_EQ(sim::live_blocks(), blocks);
    EXPECT_EQ(reads_of_add(34), 6U) << "no other slot is looked for where none is left";
}

} // namespace
} // namespace tarsil
