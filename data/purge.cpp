// tspurge32: taking the deleted records out of a data file, in place, and growing all open indexes
// anew.
//
// A record moves only towards the front, over bytes that were read already, through the one buffer
// of the caller. There is no way back: a failure in the middle leaves the file half done, and every
// bracket stays held, so that no other process takes such a file for a sound one before the caller
// has decided. The file keeps its length; what lies behind the last record afterwards is made to
// read as zeros, so that neither old records nor old lengths come back to life when the header is
// rebuilt from the records (data/rebuild.cpp).
#include <algorithm>

#include "core/tables.h"
#include "core/validators.h"
#include "data/frames.h"
#include "data/header.h"
#include "data/places.h"
#include "data/slot_file.h"
#include "files/files.h"
#include "index/node_io.h"
#include "index/regrow.h"
#include "multiuser/held_range.h"

using namespace tarsil;

namespace {

struct purge_brackets {
    held_range data;
    held_range indexes[TS_MAX_INDEX_FILES];
};

int32_t lock_indexes(int32_t data_handle, purge_brackets& held)
{
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (!has_index(data_handle, index_handle)) continue;
        const int32_t code = lock_if_needed(held.indexes[index_handle],
                                            whole_index_file(data_handle, index_handle));
        if (code < 0) return code;
    }
    return TS_OK;
}

// Up to here nothing has changed, and whatever was placed goes with the brackets.
int32_t prepare(int32_t data_handle, purge_brackets& held)
{
    int32_t code = lock_if_needed(held.data, whole_data_file(data_handle));
    if (code < 0) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;
    if (data_slots[data_handle].header.deleted_count == 0) return TS_PURGE_NOTHING_DELETED;
    if (!may_be_frame(data_handle, record_offset(data_handle, 1))) return TS_FRAME_READ_POSITION;
    code = lock_indexes(data_handle, held);
    if (code != TS_OK) return code;
    return begin_regrowth(data_handle);
}

struct walk {
    void* buffer;
    int32_t read_offset;  // frame in hand in the old layout
    int32_t write_offset; // place of the next record that stays; never above read_offset
};

// Brings the record in hand to its new place and into the new trees. Tells its length.
int32_t keep_record(int32_t data_handle, walk& run, int32_t& length)
{
    int32_t deleted = 0;
    int32_t code = read_bounded_body(data_handle, run.buffer, run.read_offset, deleted, length,
                                     body_bound::record_length);
    if (code != TS_OK) return code;
    if (run.write_offset != run.read_offset) {
        code = write_record(data_handle, run.buffer, length, run.write_offset);
        if (code != TS_OK) return code;
    }
    const record_image image = {static_cast<const unsigned char*>(run.buffer), length};
    code = regrow_record(data_handle, image, run.write_offset);
    if (code != TS_OK) return code;
    run.write_offset = next_frame(run.write_offset, length);
    return TS_OK;
}

// The frame alone says where the next one begins. A length that no record of the file has would
// lead the walk into the middle of live ones, and they would be taken for something else.
bool is_record_length(int32_t data_handle, int32_t length)
{
    const int32_t record_length = data_slots[data_handle].header.record_length;
    return length >= 1 && (record_length == variable_length || length == record_length);
}

int32_t walk_record(int32_t data_handle, walk& run)
{
    int32_t length = 0;
    int32_t deleted = 0;
    int32_t code = read_frame(data_handle, run.read_offset, length, deleted);
    if (code != TS_OK) return code;
    if (!is_record_length(data_handle, length)) return TS_BODY_READ_SHORT;
    if (deleted == 0) code = keep_record(data_handle, run, length);
    if (code != TS_OK) return code;
    run.read_offset = next_frame(run.read_offset, length);
    return TS_OK;
}

int32_t squeeze(int32_t data_handle, walk& run)
{
    const int32_t first_offset = record_offset(data_handle, 1);
    run.read_offset = first_offset;
    run.write_offset = first_offset;
    const int32_t record_count = data_slots[data_handle].header.record_count;
    for (int32_t number = 1; number <= record_count; ++number) {
        const int32_t code = walk_record(data_handle, run);
        if (code != TS_OK) return code;
    }
    // With a record in them, all roots are on the disk already.
    return run.write_offset == first_offset ? write_empty_roots(data_handle) : int32_t{TS_OK};
}

// The count follows from the two of the header, as an undamaged file has them, and not from the
// walk.
void take_new_state(int32_t data_handle, int32_t write_offset, int32_t& removed)
{
    data_slot& slot = data_slots[data_handle];
    data_header& header = slot.header;
    const int64_t left = int64_t{header.record_count} - header.deleted_count;
    note_copies(data_handle, data_file_number, false);
    header.end_offset = write_offset;
    header.record_count = static_cast<int32_t>(std::clamp<int64_t>(left, 0, INT32_MAX));
    slot.status = slot_dirty;
    begin_at_first_record(data_handle);
    removed = header.deleted_count;
    header.deleted_count = 0;
}

// Clears what the walk has passed over and nobody needs any more, and not a byte behind it: records
// of which the header doesn't know may stand there. A failure is passed over, since records and
// header are right either way.
void clear_behind(platform::file_handle file, const walk& run)
{
    const int32_t end = std::min(run.read_offset, size_of(file));
    if (end > run.write_offset)
        platform::ZeroFileRange(file, run.write_offset, end - run.write_offset);
}

int32_t store_index(int32_t data_handle, int32_t index_handle, held_range& bracket)
{
    const int32_t code = write_key_records(data_handle, index_handle);
    const int32_t release_code = release_if_placed(bracket);
    return code != TS_OK ? code : release_code;
}

// In multi-user mode all is stored at once, the data file first. In single-user mode the key
// records wait for the close of their index, and so does the header without write-through.
int32_t store(int32_t data_handle, purge_brackets& held)
{
    if (!is_shared()) return is_write_through() ? write_data_header(data_handle) : int32_t{TS_OK};

    int32_t code = write_data_header(data_handle);
    const int32_t release_code = release_if_placed(held.data);
    if (code != TS_OK) return code;
    if (release_code < 0) return release_code;
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (!has_index(data_handle, index_handle)) continue;
        code = store_index(data_handle, index_handle, held.indexes[index_handle]);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

int32_t finish(int32_t data_handle, const walk& run, purge_brackets& held, int32_t& removed)
{
    const platform::file_handle file = data_slots[data_handle].file;
    take_new_state(data_handle, run.write_offset, removed);
    if (seek_end(file, run.write_offset) != 0) {
        static_cast<void>(release_if_placed(held.data));
        return TS_PURGE_END_POSITION;
    }
    clear_behind(file, run);
    return store(data_handle, held);
}

void keep_all(purge_brackets& held)
{
    held.data.keep();
    for (held_range& bracket : held.indexes) bracket.keep();
}

} // namespace

int32_t tspurge32(int32_t data_handle, void* buffer, int32_t* removed)
{
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;

    purge_brackets held;
    code = prepare(data_handle, held);
    if (code != TS_OK) return code;

    walk run = {buffer, no_offset, no_offset};
    code = squeeze(data_handle, run);
    end_regrowth(data_handle);
    if (code == TS_OK) code = finish(data_handle, run, held, *removed);
    if (code != TS_OK) keep_all(held);
    return code;
}
