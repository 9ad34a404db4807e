// Multi-user mode and the ranges that a caller takes itself.
//
// Under a lock of its own a caller makes a series of operations one step against other processes:
// every operation inside finds its ranges covered and leaves them alone. Nothing waits; who comes
// second is refused. Ranges are released before the mode is switched off and before a file is
// closed.
#include <algorithm>

#include "core/tables.h"
#include "core/validators.h"
#include "data/data_format.h"
#include "data/frames.h"
#include "data/header.h"
#include "multiuser/held_range.h"

using namespace tarsil;

namespace {

constexpr int32_t sharing_is_there = 0xff;
constexpr int32_t lock_entries = TS_MAX_DATA_FILES * files_per_slot * row_entries;

int32_t enter_multi_user_mode()
{
    if (lock_table != nullptr) return TS_MULTI_USER_ALREADY;
    auto* table = static_cast<lock_entry*>(platform::LocalAlloc(lock_entries * sizeof(lock_entry)));
    if (table == nullptr) return TS_NO_MEMORY_LOCK_TABLE;
    std::fill_n(table, lock_entries, lock_entry{no_offset, 0});
    lock_table = table;
    multi_user = yes;
    return TS_OK;
}

void leave_multi_user_mode()
{
    multi_user = no;
    platform::LocalFree(lock_table);
    lock_table = nullptr;
}

int32_t lock_data_file(lock_action action, int32_t data_handle)
{
    if (!is_shared()) return TS_DATA_LOCK_SINGLE_USER;
    const int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    return range_lock(whole_data_file(data_handle), action);
}

int32_t lock_index_file(lock_action action, int32_t data_handle, int32_t index_handle)
{
    if (!is_shared()) return TS_INDEX_LOCK_SINGLE_USER;
    const int32_t code = check_key(data_handle, index_handle, 0, test_key::off);
    if (code != TS_OK) return code;
    return range_lock(whole_index_file(data_handle, index_handle), action);
}

// A record's range reaches over frame and body, so that the holder's own reads and writes of it
// find themselves covered. It never reaches over the header, whatever a damaged one tells: the
// release reads the header first.
int32_t lock_record_range(lock_action action, int32_t data_handle, int32_t offset)
{
    const int64_t length = int64_t{data_slots[data_handle].header.record_length} + frame_bytes;
    if (length <= frame_bytes || offset < field_table_offset || !fits_in_file(offset, length))
        return TS_LOCK_POSITION;
    return range_lock(data_range(data_handle, offset, static_cast<int32_t>(length)), action);
}

int32_t lock_data_record(lock_action action, int32_t data_handle, int32_t record_number)
{
    if (!is_shared()) return TS_RECORD_LOCK_SINGLE_USER;
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    code = refresh_data_header(data_handle);
    if (code != TS_OK) return code;
    code = check_not_variable(data_handle);
    if (code != TS_OK) return code;
    data_slot& slot = data_slots[data_handle];
    if (record_number < 1 || record_number > slot.header.record_count)
        return TS_RECORD_LOCK_BAD_NUMBER;

    const int32_t offset = record_offset(data_handle, record_number);
    code = lock_record_range(action, data_handle, offset);
    if (code < 0) return code;
    slot.current_record = record_number;
    slot.current_offset = offset;
    return TS_OK;
}

} // namespace

int32_t check_share_loaded32() { return sharing_is_there; }

int32_t tsmuser32(char letter)
{
    if (check_share_loaded32() != sharing_is_there) return TS_SHARING_NOT_THERE;
    switch (letter) {
    case 'N':
    case 'n': leave_multi_user_mode(); return TS_OK;
    case 'Y':
    case 'y': return enter_multi_user_mode();
    default: return TS_BAD_MULTI_USER_LETTER;
    }
}

int32_t tslockd32(int32_t data_handle) { return lock_data_file(lock_action::place, data_handle); }

int32_t tsulockd32(int32_t data_handle)
{
    return lock_data_file(lock_action::release, data_handle);
}

int32_t tslockdr32(int32_t data_handle, int32_t record_number)
{
    return lock_data_record(lock_action::place, data_handle, record_number);
}

int32_t tsulckdr32(int32_t data_handle, int32_t record_number)
{
    return lock_data_record(lock_action::release, data_handle, record_number);
}

int32_t tslocki32(int32_t data_handle, int32_t index_handle)
{
    return lock_index_file(lock_action::place, data_handle, index_handle);
}

int32_t tsulocki32(int32_t data_handle, int32_t index_handle)
{
    return lock_index_file(lock_action::release, data_handle, index_handle);
}

int32_t tsulalld32(int32_t data_handle)
{
    const int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    return release_all_locks(data_slots[data_handle].file, data_handle, data_file_number);
}

int32_t tsulalli32(int32_t data_handle, int32_t index_handle)
{
    const int32_t code = check_key(data_handle, index_handle, 0, test_key::off);
    if (code != TS_OK) return code;
    return release_all_locks(index_range(data_handle, index_handle, 0, 0).file, data_handle,
                             index_handle);
}
