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

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tarsil::support {

enum class mode : uint8_t { single, write_through, shared, shared_write_through };
inline constexpr mode all_modes[] = {mode::single, mode::write_through, mode::shared,
                                     mode::shared_write_through};

inline void switch_to(mode wanted)
{
    const bool shared = wanted == mode::shared || wanted == mode::shared_write_through;
    const bool through = wanted == mode::write_through || wanted == mode::shared_write_through;
    if (shared) { ASSERT_EQ(tsmuser32('y'), TS_OK); }
    ASSERT_EQ(tsautoup32(through ? 'y' : 'n'), TS_OK);
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

// The bytes of numbers and frames, as they stand in files.
inline std::string i32(int32_t value)
{
    std::string bytes(4, 0);
    std::memcpy(bytes.data(), &value, 4);
    return bytes;
}

// Puts a number into a copy of a file.
inline std::string with(std::string file, size_t offset, int32_t value)
{
    return file.replace(offset, 4, i32(value));
}

inline std::string frame(const std::string& body, char mark = ' ')
{
    return std::string{mark, 0, 0, 0} + i32(static_cast<int32_t>(body.size())) + body;
}

// A data file without fields.
inline std::string data_file(int32_t records, int32_t deleted, int32_t record_length,
                             int32_t end_offset, const std::string& frames = {})
{
    return "*TSD" + i32(records) + i32(deleted) + i32(record_length) + i32(end_offset) + i32(0) +
           i32(0) + frames;
}

// A key; the library itself knows the lengths of all fields but strings.
struct key_part {
    char type;
    int32_t length = 0;
    int32_t offset = 0;
};

inline key_definition define_key(uint32_t order, const std::vector<key_part>& parts,
                                 char cursor = 'y')
{
    key_definition made = {};
    made.cursor = cursor;
    made.order = order;
    made.field_count = static_cast<int32_t>(parts.size());
    for (size_t i = 0; i < parts.size(); ++i) {
        made.types[i] = parts[i].type;
        made.lengths[i] = parts[i].length;
        made.offsets[i] = parts[i].offset;
    }
    return made;
}

} // namespace tarsil::support
