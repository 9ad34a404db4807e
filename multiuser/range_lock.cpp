// Placing and releasing byte ranges; see multiuser/range_lock.h for the table and docs/LOCKING.md
// for who takes which range.
//
// The covered test is what lets operations nest: an inner step that asks for a part of a held range
// gets 0 and leaves it alone. A request that is wider than a held range is not covered, reaches the
// platform, overlaps and is refused.
#include "multiuser/range_lock.h"

#include <algorithm>

#include "core/tables.h"
#include "files/files.h"

namespace tarsil {

using platform::file_handle;

namespace {

lock_entry* row_of(int32_t data_handle, int32_t file_number)
{
    return lock_table + (data_handle * files_per_slot + file_number) * row_entries;
}

int32_t end_of(int32_t offset, int32_t length)
{
    // Ends are compared as the 32-bit numbers of the formats; a sum beyond them wraps, without
    // overflow.
    return static_cast<int32_t>(static_cast<uint32_t>(offset) + static_cast<uint32_t>(length));
}

bool covers(const lock_entry& entry, int32_t offset, int32_t length)
{
    return entry.offset <= offset && end_of(entry.offset, entry.length) >= end_of(offset, length);
}

constexpr int32_t range_is_covered = -1; // in place of an entry number

// The free entry that a new range goes into, or range_is_covered, or TS_LOCK_TABLE_FULL.
int32_t entry_for_placing(const lock_entry* row, int32_t offset, int32_t length)
{
    for (int32_t i = 0; i < row_entries; ++i) {
        if (row[i].offset == no_offset) return i;
        if (covers(row[i], offset, length)) return range_is_covered;
    }
    return TS_LOCK_TABLE_FULL;
}

// The entry with exactly this range, or TS_UNLOCK_NOT_HELD, or TS_UNLOCK_NOT_HELD_FULL.
int32_t entry_for_releasing(const lock_entry* row, int32_t offset, int32_t length)
{
    for (int32_t i = 0; i < row_entries; ++i) {
        if (row[i].offset == no_offset) return TS_UNLOCK_NOT_HELD;
        if (row[i].offset == offset && row[i].length == length) return i;
    }
    return TS_UNLOCK_NOT_HELD_FULL;
}

int32_t ask_platform(file_handle file, lock_action action, int32_t offset, int32_t length,
                     int32_t saved_position)
{
    for (int32_t attempt = 0; attempt < lock_tries; ++attempt) {
        if (offset != saved_position && !move_to(file, offset)) return TS_LOCK_POSITION;
        const bool done = action == lock_action::place ? platform::LockFile(file, offset, length)
                                                       : platform::UnlockFile(file, offset, length);
        if (done) return TS_OK;
    }
    return TS_LOCK_REFUSED;
}

void remove_entry(lock_entry* row, int32_t entry)
{
    std::copy(row + entry + 1, row + row_entries, row + entry);
    row[row_entries - 1].offset = no_offset;
}

} // namespace

int32_t range_lock(const file_range& range, lock_action action)
{
    const uint32_t position = platform::SetFilePointer(range.file, 0, platform::origin::current);
    const int32_t saved_position = static_cast<int32_t>(position);
    const int32_t offset = range.offset == at_file_position ? saved_position : range.offset;
    if (range.offset == at_file_position) lock_position = offset;
    if (saved_position < 0) return TS_LOCK_NO_POSITION;

    lock_entry* row = row_of(range.data_handle, range.file_number);
    const bool placing = action == lock_action::place;
    const int32_t entry = placing ? entry_for_placing(row, offset, range.length)
                                  : entry_for_releasing(row, offset, range.length);
    if (placing && entry == range_is_covered) return 0;
    if (entry < 0) return entry;

    const int32_t code = ask_platform(range.file, action, offset, range.length, saved_position);
    if (code != TS_OK) return code;

    if (placing)
        row[entry] = {offset, range.length};
    else
        remove_entry(row, entry);

    if (!move_to(range.file, saved_position)) return TS_LOCK_RESTORE_POSITION;
    return static_cast<int32_t>(action);
}

int32_t release_all_locks(file_handle file, int32_t data_handle, int32_t file_number)
{
    if (!is_shared()) return TS_UNLOCK_ALL_SINGLE_USER;
    const lock_entry* first = row_of(data_handle, file_number);
    for (int32_t released = 0; released < row_entries; ++released) {
        if (first->offset == no_offset) return released;
        const int32_t code = range_lock(
            {file, data_handle, file_number, first->offset, first->length}, lock_action::release);
        if (code < 0) return code;
    }
    return row_entries - 1; // the count has no 5: a full row tells 4 as well
}

int32_t flush_file(file_handle file, int32_t data_handle, int32_t file_number)
{
    lock_entry held[row_entries];
    if (is_shared()) {
        std::copy_n(row_of(data_handle, file_number), row_entries, held);
        const int32_t code = release_all_locks(file, data_handle, file_number);
        if (code < 0) return code;
    }

    if (!platform::FlushFileBuffers(file)) return TS_FLUSH_FAILED;
    if (!is_shared()) return TS_OK;

    for (const lock_entry& range : held) {
        if (range.offset == no_offset) break;
        const int32_t code = range_lock(
            {file, data_handle, file_number, range.offset, range.length}, lock_action::place);
        if (code < 0) return code;
    }
    return TS_OK;
}

namespace {

// The entry of a range over the whole file, or none.
lock_entry* whole_file_entry(int32_t data_handle, int32_t file_number)
{
    if (!is_shared()) return nullptr;
    lock_entry* row = row_of(data_handle, file_number);
    lock_entry* const end = row + row_entries;
    lock_entry* const found = std::find_if(row, end, [](const lock_entry& entry) {
        return entry.offset == 0 && entry.length == whole_file_bytes;
    });
    return found == end ? nullptr : found;
}

} // namespace

bool copies_are_fresh(int32_t data_handle, int32_t file_number)
{
    const lock_entry* entry = whole_file_entry(data_handle, file_number);
    return entry != nullptr && entry->has_fresh_copies;
}

void note_copies(int32_t data_handle, int32_t file_number, bool are_fresh)
{
    lock_entry* entry = whole_file_entry(data_handle, file_number);
    if (entry != nullptr) entry->has_fresh_copies = are_fresh;
}

void forget_ranges(int32_t data_handle, int32_t file_number)
{
    if (lock_table == nullptr) return;
    lock_entry* row = row_of(data_handle, file_number);
    std::for_each(row, row + row_entries, [](lock_entry& entry) { entry.offset = no_offset; });
}

} // namespace tarsil
