// The library started on the simulated platform, and what every test of it promises at its end: no
// range is left in the lock table or on the platform, no file stays open behind the slots, no block
// of memory outlives tsfree32.
//
// begin() and finish() stand for one run of the library; SetUp and TearDown call them, and so does
// the sweep over failures (tests/unit/fault_sweep.h), once for each call that fails.
#pragma once

#include "core/tables.h"
#include "core/validators.h"
#include "multiuser/range_lock.h"
#include "tests/sim/sim.h"
#include "tests/support/file_parts.h"

#include <cstring>
#include <gtest/gtest.h>

namespace tarsil::support {

enum class mode : uint8_t { single, write_through, shared, shared_write_through };
inline constexpr mode all_modes[] = {mode::single, mode::write_through, mode::shared,
                                     mode::shared_write_through};

inline bool is_shared_mode(mode in_mode)
{
    return in_mode == mode::shared || in_mode == mode::shared_write_through;
}

inline bool writes_through(mode in_mode)
{
    return in_mode == mode::write_through || in_mode == mode::shared_write_through;
}

inline void switch_to(mode wanted)
{
    if (is_shared_mode(wanted)) { ASSERT_EQ(tsmuser32('y'), TS_OK); }
    ASSERT_EQ(tsautoup32(writes_through(wanted) ? 'y' : 'n'), TS_OK);
}

class Library : public testing::Test {
protected:
    void SetUp() override { begin(); }
    void TearDown() override { finish(); }

    static void begin()
    {
        sim::reset();
        std::memset(static_cast<void*>(data_slots), 0, sizeof data_slots);
        ASSERT_EQ(tsinit32(), TS_STARTED);
    }

    static void start_over(mode wanted)
    {
        finish();
        begin();
        switch_to(wanted);
    }

    static void finish()
    {
        sim::clear_fault();
        EXPECT_EQ(sim::held_ranges(), 0U);
        for (int32_t i = 0;
             lock_table != nullptr && i < TS_MAX_DATA_FILES * files_per_slot * row_entries; ++i)
            EXPECT_EQ(lock_table[i].offset, no_offset) << "entry " << i;
        for (int32_t handle = 0; handle < TS_MAX_DATA_FILES; ++handle) {
            const char status = data_slots[handle].status;
            if (status == slot_clean || status == slot_dirty) {
                EXPECT_EQ(tsclosed32(handle), TS_OK);
            }
        }
        EXPECT_EQ(sim::open_handles(), 0U);
        tsfree32();
        EXPECT_EQ(sim::live_blocks(), 0U);
    }

    static void release_ranges()
    {
        for (int32_t handle = 0; is_shared() && handle < TS_MAX_DATA_FILES; ++handle) {
            if (check_data_slot(handle) != TS_OK) continue;
            EXPECT_GE(tsulalld32(handle), 0);
            for (int32_t index = 0; index < TS_MAX_INDEX_FILES; ++index) {
                if (data_slots[handle].indexes[index] != nullptr) {
                    EXPECT_GE(tsulalli32(handle, index), 0);
                }
            }
        }
    }
};

} // namespace tarsil::support
