// The simulation's own instruments: a sweep over planned failures that never fail would prove
// nothing. That the simulated platform behaves as a platform does is the affair of tests/contract/.
#include "tests/sim/sim.h"

#include <cstring>
#include <gtest/gtest.h>

namespace tarsil::sim {
namespace {

using namespace platform;

class Simulation : public testing::Test {
protected:
    Simulation()
    {
        reset();
        set_bytes("a", "0123456789");
        file_ = CreateFileA("a", access::read_write, share::read_write, disposition::open_existing);
        count_afresh();
    }
    ~Simulation() override { reset(); }

    bool write(const char* text) const
    {
        uint32_t moved = 0;
        return WriteFile(file_, text, static_cast<uint32_t>(std::strlen(text)), moved);
    }

    file_handle file_ = no_file;
};

TEST_F(Simulation, TheNthCallOfTheKindsNamedFailsOnceOrForGood)
{
    struct row {
        fault planned;
        const char* outcomes; // of lock, write, lock, write, lock, write: '+' is success
        uint64_t met;
    };
    const row rows[] = {
        {{.at = 1}, "-+++++", 1},
        {{.at = 4}, "+++-++", 1},
        {{.at = 4, .for_good = true}, "+++---", 3},
        {{.at = 7}, "++++++", 0},
        {{.at = 2, .where = only(call::lock)}, "++-+++", 1},
        {{.at = 2, .for_good = true, .where = only(call::lock)}, "++-+-+", 2},
        {{.at = 1, .for_good = true, .how = failure::error_half}, "+-+-+-", 3},
        {{.at = 1, .for_good = true, .how = failure::short_half}, "++++++", 3},
    };
    int number = 0;
    for (const row& r : rows) {
        SCOPED_TRACE(number++);
        const uint64_t met_before = faults_met();
        std::string outcomes;
        plan(r.planned);
        for (int32_t i = 0; i < 3; ++i) {
            const bool locked = LockFile(file_, i, 1);
            outcomes += locked ? '+' : '-';
            outcomes += write("ab") ? '+' : '-';
        }
        clear_fault();
        EXPECT_EQ(outcomes, r.outcomes);
        EXPECT_EQ(faults_met() - met_before, r.met);
        for (int32_t i = 0; i < 3; ++i) UnlockFile(file_, i, 1);
    }
    EXPECT_EQ(calls(call::lock), 24U);
    EXPECT_EQ(calls(call::write), 24U);
}

TEST_F(Simulation, TransfersFailWholeOrMoveAsManyBytesAsPlanned)
{
    struct row {
        failure how;
        uint32_t bytes;
        bool done;
        uint32_t moved;
    };
    const row rows[] = {{failure::error, 0, false, 0},
                        {failure::short_half, 0, true, 2},
                        {failure::error_half, 0, false, 2},
                        {failure::short_bytes, 1, true, 3},
                        {failure::short_bytes, 9, true, 0}};
    for (const row& r : rows) {
        char room[4] = {};
        uint32_t moved = 9;
        set_bytes("a", "0123");
        SetFilePointer(file_, 0, origin::begin);
        plan({.how = r.how, .bytes = r.bytes});
        EXPECT_EQ(ReadFile(file_, room, 4, moved), r.done);
        EXPECT_EQ(moved, r.moved);
        SetFilePointer(file_, 0, origin::begin);
        plan({.how = r.how, .bytes = r.bytes});
        EXPECT_EQ(WriteFile(file_, "abcd", 4, moved), r.done);
        EXPECT_EQ(moved, r.moved);
        EXPECT_EQ(bytes("a"),
                  std::string("abcd").substr(0, r.moved) + std::string("0123").substr(r.moved));
    }
}

TEST_F(Simulation, FailedClosesCloseAndFailedFlushesStayFailed)
{
    plan({.where = only(call::flush)});
    EXPECT_FALSE(FlushFileBuffers(file_));
    EXPECT_FALSE(FlushFileBuffers(file_));
    EXPECT_EQ(faults_met(), 1U);
    EXPECT_TRUE(LockFile(file_, 0, 5));
    EXPECT_EQ(held_ranges(), 1U);
    EXPECT_EQ(open_handles(), 1U);
    plan({.where = only(call::close)});
    EXPECT_FALSE(CloseHandle(file_));
    EXPECT_EQ(held_ranges() + open_handles(), 0U);

    plan({.where = only(call::allocate)});
    EXPECT_EQ(LocalAlloc(10), nullptr);
    void* const block = LocalAlloc(10);
    EXPECT_EQ(live_blocks(), 1U);
    LocalFree(block);
    EXPECT_EQ(live_blocks(), 0U);
}

TEST_F(Simulation, AnotherPartyActsRightBeforeTheCallNamed)
{
    file_handle theirs = no_file;
    meanwhile(2, only(call::lock), [&] {
        theirs = CreateFileA("a", access::read_write, share::read_write,
                             disposition::open_existing);
        LockFile(theirs, 8, 1);
    });
    start_recording();
    EXPECT_TRUE(LockFile(file_, 0, 9));
    EXPECT_TRUE(UnlockFile(file_, 0, 9));
    EXPECT_FALSE(LockFile(file_, 0, 9));
    EXPECT_TRUE(CloseHandle(theirs));
    EXPECT_TRUE(LockFile(file_, 0, 9));

    std::string seen;
    for (const logged& entry : log()) {
        seen += std::to_string(static_cast<int>(entry.kind)) + (entry.done ? "+ " : "- ");
    }
    EXPECT_EQ(seen, "7+ 8+ 7- 2+ 7+ ") << "lock, unlock, lock, close, lock";
    EXPECT_EQ(calls(), 5U);
}

TEST_F(Simulation, TheJournalKnowsWhatAPowerCutCouldLose)
{
    start_recording();
    SetFilePointer(file_, 2, origin::begin);
    EXPECT_TRUE(write("xx"));
    EXPECT_TRUE(ZeroFileRange(file_, 9, 1));
    EXPECT_EQ(stable_bytes("a"), "0123456789");
    ASSERT_EQ(unstable_writes("a").size(), 2U);
    EXPECT_EQ(unstable_writes("a")[0].offset, 2);
    EXPECT_EQ(unstable_writes("a")[0].bytes, "xx");
    EXPECT_TRUE(FlushFileBuffers(file_));
    EXPECT_EQ(stable_bytes("a"), std::string("01xx45678\0", 10));
    EXPECT_TRUE(unstable_writes("a").empty());

    const file_handle created = CreateFileA("new", access::read_write, share::none,
                                            disposition::create_new);
    EXPECT_FALSE(name_is_stable("new"));
    EXPECT_TRUE(FlushFileBuffers(created));
    EXPECT_TRUE(name_is_stable("new"));
    end_process();
    EXPECT_EQ(open_handles(), 0U);
    EXPECT_EQ(bytes("a"), std::string("01xx45678\0", 10));
}

} // namespace
} // namespace tarsil::sim
