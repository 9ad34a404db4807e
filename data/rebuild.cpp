// tsrbdbh32: opening a data file whose header can't be trusted, and making the header from the
// records.
//
// The scan runs over the frames to the physical end of the file and believes nothing of the header
// but field_bytes, which says where it begins. Bodies are bounded by the file alone, since one
// longer record is how a file shows that its length isn't fixed. Zeros alone up to the end of the
// file are no records but the space that a purge left behind them (data/purge.cpp), and end the
// scan; anything else that can't be a record is refused.
#include <algorithm>

#include "core/tables.h"
#include "core/validators.h"
#include "data/data_format.h"
#include "data/frames.h"
#include "data/header.h"
#include "data/slot_file.h"
#include "files/file_mark.h"
#include "files/files.h"
#include "multiuser/held_range.h"

using namespace tarsil;

namespace {

constexpr int32_t no_record_seen = -2; // as record_length, during the scan alone

struct scan {
    int32_t file_size;
    int32_t offset;
    data_header found;
};

// True if the file holds zeros alone from `offset` to its end.
bool only_zeros_follow(const data_slot& slot, int32_t offset, int32_t file_size)
{
    unsigned char block[4096];
    if (!move_to(slot.file, offset)) return false;
    for (int32_t left = file_size - offset; left > 0;) {
        const int32_t bytes = std::min(left, static_cast<int32_t>(sizeof block));
        if (read_file(slot.file, block, bytes) != bytes) return false;
        const auto is_zero = [](unsigned char byte) { return byte == 0; };
        if (!std::all_of(block, block + bytes, is_zero)) return false;
        left -= bytes;
    }
    return true;
}

// The first record sets the length; one of another length makes the file one of variable length,
// for good.
int32_t combined_length(int32_t record_length, int32_t body_length)
{
    if (record_length == no_record_seen || record_length == body_length) return body_length;
    return variable_length;
}

constexpr int32_t end_of_records = 1;

// Takes in the record at the offset and moves behind it.
int32_t scan_record(int32_t data_handle, void* buffer, scan& run)
{
    int32_t length = 0;
    int32_t deleted = 0;
    int32_t code = read_frame(data_handle, run.offset, length, deleted);
    const bool may_be_tail = code == TS_FRAME_READ_SHORT || (code == TS_OK && length == 0);
    if (may_be_tail && only_zeros_follow(data_slots[data_handle], run.offset, run.file_size))
        return end_of_records;
    if (code != TS_OK) return code;

    code = read_bounded_body(data_handle, buffer, run.offset, deleted, length,
                             body_bound::any_length);
    if (code != TS_OK) return code;

    run.found.deleted_count += deleted;
    run.found.record_count += 1;
    run.found.record_length = combined_length(run.found.record_length, length);
    run.offset = next_frame(run.offset, length);
    return TS_OK;
}

int32_t scan_records(int32_t data_handle, void* buffer, scan& run)
{
    const int32_t told_length = run.found.record_length;
    run.offset = to_offset(int64_t{run.found.field_bytes} + field_table_offset);
    if (run.found.field_bytes < 0 || run.offset == no_offset || run.offset > run.file_size)
        return TS_FRAME_READ_POSITION;
    run.found.record_count = 0;
    run.found.deleted_count = 0;
    if (told_length != variable_length) run.found.record_length = no_record_seen;

    int32_t code = TS_OK;
    while (run.offset < run.file_size && code == TS_OK)
        code = scan_record(data_handle, buffer, run);
    if (code < 0) return code;

    run.found.end_offset = run.offset;
    if (run.found.record_length == no_record_seen)
        run.found.record_length = told_length >= 1 ? told_length : variable_length;
    return TS_OK;
}

// With the header written through, mirror and file agree and the slot is clean; in every other mode
// it ends as dirty.
int32_t store_header(int32_t data_handle, held_range& bracket)
{
    if (!is_shared() && !is_write_through()) return TS_OK;
    if (!is_shared()) data_slots[data_handle].status = slot_clean;
    const int32_t code = write_data_header(data_handle);
    if (code != TS_OK) return code;
    return release_if_placed(bracket);
}

int32_t open_whole_file(int32_t data_handle, const char* name, held_range& bracket,
                        int32_t& file_size)
{
    data_slot& slot = data_slots[data_handle];
    slot.file = open_shared_file(name);
    const int32_t code = lock_if_needed(bracket, whole_data_file(data_handle));
    if (code < 0) return code;
    file_size = size_of(slot.file);
    return file_size < 0 ? int32_t{TS_REBUILD_NO_SIZE} : int32_t{TS_OK};
}

int32_t rebuild(int32_t data_handle, void* buffer, int32_t file_size, held_range& bracket)
{
    data_slot& slot = data_slots[data_handle];
    int32_t code = check_magic(slot.file, data_magic, data_handle, data_file_number);
    if (code != TS_OK) return code;
    code = refresh_data_header(data_handle);
    if (code != TS_OK) return code;

    scan run = {file_size, no_offset, slot.header};
    code = scan_records(data_handle, buffer, run);
    if (code != TS_OK) return code;
    slot.header = run.found;
    return store_header(data_handle, bracket);
}

} // namespace

int32_t tsrbdbh32(const char* name, void* buffer)
{
    if (tsIsFileThere32(name) == 0) return TS_REBUILD_NOT_THERE;
    const int32_t data_handle = find_free_data_slot();
    if (data_handle < 0) return data_handle;

    data_slot& slot = data_slots[data_handle];
    held_range bracket;
    int32_t file_size = 0;
    int32_t code = open_whole_file(data_handle, name, bracket, file_size);
    if (code != TS_OK) {
        static_cast<void>(release_if_placed(bracket));
        close_slot_file(data_handle);
        return code;
    }

    slot.status = slot_dirty;
    code = rebuild(data_handle, buffer, file_size, bracket);
    if (code != TS_OK) {
        static_cast<void>(release_if_placed(bracket));
        spoil_slot(data_handle);
        return code;
    }
    begin_at_first_record(data_handle);
    begin_without_indexes(data_handle);
    return data_handle;
}
