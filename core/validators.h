// The tests with which exported functions begin. Their order decides which code wins when several
// things are wrong at once, so an exported function calls them exactly in the order its steps tell.
#pragma once

#include <cstdint>

namespace tarsil {

enum class test_key : uint8_t { off, on };

// TS_BAD_DATA_HANDLE, TS_DATA_NOT_OPEN or TS_OK.
[[nodiscard]] int32_t check_data_slot(int32_t data_handle);

// check_data_slot's code, else TS_NO_CURRENT_RECORD or TS_OK.
[[nodiscard]] int32_t check_current(int32_t data_handle);

// TS_NEEDS_FIXED_LENGTH or TS_OK. Does not test the handle: it always runs after check_data_slot or
// check_current.
[[nodiscard]] int32_t check_not_variable(int32_t data_handle);

// check_data_slot's code, else TS_BAD_INDEX_HANDLE, TS_INDEX_NOT_OPEN, with test_key::on
// TS_BAD_KEY_NUMBER, else TS_OK.
[[nodiscard]] int32_t check_key(int32_t data_handle, int32_t index_handle, int32_t key_number,
                                test_key test);

// Rewrites 'Y' and 'N' to 'y' and 'n'. TS_BAD_CURSOR_LETTER, the byte staying, or TS_OK.
[[nodiscard]] int32_t normalise_yes_no(char& letter);

// The lowest free data_handle, TS_NOT_STARTED or TS_NO_FREE_DATA_SLOT. The caller marks the slot.
[[nodiscard]] int32_t find_free_data_slot();

} // namespace tarsil
