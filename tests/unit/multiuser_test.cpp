// Multi-user mode, the ranges that a caller takes, and what range_lock does with its table and the
// platform. The other party is a second open of the same file: locks belong to opens, not to
// processes.
#include "multiuser/held_range.h"
#include "tests/support/library_fixture.h"

#include <climits>
#include <cstring>

using namespace tarsil;
using namespace tarsil::support;

namespace {

struct MultiUser : Library {
    void SetUp() override
    {
        Library::SetUp();
        sim::set_bytes("d",
                       data_file(3, 1, 4, 64, frame("aaaa") + frame("bbbb", 'd') + frame("cccc")));
    }

    // The file open under handle 0 and, as another party, under handle 1.
    static void open_twice()
    {
        ASSERT_EQ(tsmuser32('y'), TS_OK);
        ASSERT_EQ(tsopend32("d"), 0);
        ASSERT_EQ(tsopend32("d"), 1);
    }

    static int32_t place(int32_t offset, int32_t length)
    {
        return range_lock(data_range(0, offset, length), lock_action::place);
    }
    static int32_t release(int32_t offset, int32_t length)
    {
        return range_lock(data_range(0, offset, length), lock_action::release);
    }
    static lock_entry entry(int32_t i) { return lock_table[data_file_number * row_entries + i]; }
};

TEST_F(MultiUser, SwitchingTheMode)
{
    EXPECT_EQ(tsmuser32('N'), TS_OK);
    sim::plan({.where = sim::only(sim::call::allocate)});
    EXPECT_EQ(tsmuser32('y'), TS_NO_MEMORY_LOCK_TABLE);
    EXPECT_FALSE(is_shared());
    EXPECT_EQ(tsmuser32('y'), TS_OK);
    EXPECT_EQ(tsmuser32('Y'), TS_MULTI_USER_ALREADY);
    for (int32_t letter = CHAR_MIN; letter <= CHAR_MAX; ++letter) {
        if (letter != 0 && std::strchr("nNyY", letter) != nullptr) continue;
        EXPECT_EQ(tsmuser32(static_cast<char>(letter)), TS_BAD_MULTI_USER_LETTER) << letter;
        EXPECT_EQ(tsautoup32(static_cast<char>(letter)), TS_BAD_AUTO_UPDATE_LETTER) << letter;
    }
    EXPECT_TRUE(is_shared());
    for (const char letter : {'y', 'N', 'Y', 'n'}) {
        EXPECT_EQ(tsautoup32(letter), TS_OK);
        EXPECT_EQ(is_write_through(), letter == 'y' || letter == 'Y');
    }
}

TEST_F(MultiUser, ARecordLockNeedsARecordWithAPlaceInTheFile)
{
    open_twice();
    EXPECT_EQ(tslockdr32(0, 2), TS_OK);
    EXPECT_EQ(tsulckdr32(0, 2), TS_OK);
    EXPECT_EQ(tsulckdr32(0, 2), TS_UNLOCK_NOT_HELD);

    sim::set_bytes("v", data_file(1, 0, -1, 40, frame("aaaa")));
    EXPECT_EQ(tslockdr32(2, 1), TS_DATA_NOT_OPEN);
    ASSERT_EQ(tsopend32("v"), 2);
    for (const int32_t number : {0, 1}) EXPECT_EQ(tslockdr32(2, number), TS_NEEDS_FIXED_LENGTH);
    // Headers whose record has no place in a file, so that the offset must not be taken for "here".
    for (const int32_t record_length : {INT32_MAX, INT32_MAX - 8, 0, -2, -9, INT32_MIN}) {
        sim::set_bytes("v", data_file(INT32_MAX, 0, record_length, 40, frame("aaaa")));
        EXPECT_EQ(tslockdr32(2, INT32_MAX), TS_LOCK_POSITION) << record_length;
        EXPECT_EQ(tsulckdr32(2, INT32_MAX), TS_LOCK_POSITION) << record_length;
    }
    sim::set_bytes("v", data_file(1, 0, -1, 40, frame("aaaa")));
}

TEST_F(MultiUser, TheRowOfAFile)
{
    open_twice();
    EXPECT_EQ(release(0, 10), TS_UNLOCK_NOT_HELD);
    for (const int32_t offset : {1000, 2000, 3000, 4000, 5000}) EXPECT_EQ(place(offset, 10), 1);
    EXPECT_EQ(place(6000, 1), TS_LOCK_TABLE_FULL);
    EXPECT_EQ(place(5000, 10), 0);
    EXPECT_EQ(place(5009, 1), 0);
    EXPECT_EQ(release(5000, 9), TS_UNLOCK_NOT_HELD_FULL);
    EXPECT_EQ(release(2000, 10), 0);
    const int32_t left[] = {1000, 3000, 4000, 5000, no_offset};
    for (int32_t i = 0; i < row_entries; ++i) EXPECT_EQ(entry(i).offset, left[i]);
    EXPECT_EQ(release(5000, 9), TS_UNLOCK_NOT_HELD);
    EXPECT_EQ(place(5001, 10), TS_LOCK_REFUSED); // one byte too far to be covered, and it overlaps
    EXPECT_EQ(place(1010, 10), 1);
    EXPECT_EQ(release(3000, 10), 0);
    EXPECT_EQ(place(1005, 10), TS_LOCK_REFUSED); // two neighbours together don't cover
    EXPECT_EQ(place(3000, 10), 1);
    for (const size_t held : {5U, 4U, 3U, 0U}) {
        while (sim::held_ranges() < held)
            ASSERT_EQ(place(static_cast<int32_t>(sim::held_ranges()) * 100 + 8000, 1), 1);
        EXPECT_EQ(tsulalld32(0), held == 5 ? 4 : static_cast<int32_t>(held));
        EXPECT_EQ(sim::held_ranges(), 0U);
    }
}

TEST_F(MultiUser, APlaceThatAnotherPartysPurgeTookAwayIsPassedOver)
{
    tsdelow32('y');
    open_twice();
    ASSERT_EQ(tsundeld32(0, 2), TS_OK);
    ASSERT_EQ(tsdeld32(0, 3), TS_OK);
    ASSERT_EQ(data_slots[0].reuse_offset, 52);
    char body[4];
    int32_t removed = 0;
    ASSERT_EQ(tspurge32(1, body, &removed), TS_OK);

    EXPECT_EQ(tsadd32(0, "dddd", 4, 'y'), TS_OK);
    EXPECT_EQ(data_slots[0].reuse_offset, no_offset);
    EXPECT_EQ(sim::bytes("d"),
              data_file(3, 0, 4, 64, frame("aaaa") + frame("bbbb") + frame("dddd")));
}

TEST_F(MultiUser, AFlushGivesUpAllRangesAndTakesThemBackInOrder)
{
    open_twice();
    for (const int32_t offset : {5000, 0, 1000, 4000, 3000}) ASSERT_EQ(place(offset, 100), 1);
    ASSERT_EQ(tsautoup32('y'), TS_OK);
    size_t seen = 9;
    sim::meanwhile(1, sim::only(sim::call::flush), [&seen] { seen = sim::held_ranges(); });
    EXPECT_EQ(tsadd32(0, "dddd", 4, 'y'), TS_OK);
    EXPECT_EQ(seen, 0U);
    const int32_t held[] = {5000, 0, 1000, 4000, 3000};
    for (int32_t i = 0; i < row_entries; ++i) EXPECT_EQ(entry(i).offset, held[i]);

    sim::plan({.where = sim::only(sim::call::flush)});
    EXPECT_EQ(tsdeld32(0, 1), TS_FLUSH_FAILED);
    EXPECT_EQ(sim::held_ranges(), 0U);
}

} // namespace
