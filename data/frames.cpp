// The record primitives; see data/frames.h for their promises and data/data_format.h for the bytes.
#include "data/frames.h"

#include <cstring>

#include "core/offsets.h"
#include "core/validators.h"
#include "data/header.h"
#include "files/files.h"
#include "multiuser/held_range.h"

namespace tarsil {

int32_t record_offset(int32_t data_handle, int32_t record_number)
{
    const data_header& header = data_slots[data_handle].header;
    const int64_t stride = int64_t{header.record_length} + frame_bytes;
    // The product of two 32-bit numbers and two more of them stay within 64 bits.
    return to_offset(stride * (int64_t{record_number} - 1) + header.field_bytes +
                     field_table_offset);
}

int32_t record_number_at(int32_t data_handle, int32_t offset)
{
    const data_header& header = data_slots[data_handle].header;
    const int64_t stride = int64_t{header.record_length} + frame_bytes;
    if (stride < 1) return 0;
    return static_cast<int32_t>(
        (int64_t{offset} - header.field_bytes - field_table_offset) / stride + 1);
}

int32_t next_frame(int32_t offset, int32_t length)
{
    if (length < 1 || offset < 0) return no_offset;
    return to_offset(int64_t{offset} + frame_bytes + length);
}

int32_t read_frame(int32_t data_handle, int32_t offset, int32_t& length, int32_t& deleted)
{
    const platform::file_handle file = data_slots[data_handle].file;
    if (!move_to(file, offset)) return TS_FRAME_READ_POSITION;

    held_range range;
    int32_t code = lock_if_needed(range, data_range(data_handle, offset, frame_bytes));
    if (code < 0) return code;

    record_frame frame;
    const int32_t bytes = read_file(file, &frame, frame_bytes);

    code = release_if_placed(range);
    if (code < 0) return code;
    if (bytes != frame_bytes) return TS_FRAME_READ_SHORT;

    length = frame.length;
    deleted = frame.mark == mark_deleted ? 1 : 0;
    return TS_OK;
}

namespace {

// Can a body of this length stand behind the frame, and will the caller have room for it? The
// header answers for nearly every record; only what lies beyond its end, as when another process
// has just appended it, costs a look at the size of the file.
bool is_body_length(int32_t data_handle, int32_t offset, int32_t length, body_bound bound)
{
    const data_slot& slot = data_slots[data_handle];
    if (length < 1) return false;
    const bool fixed = slot.header.record_length != variable_length &&
                       bound == body_bound::record_length;
    if (fixed) return length <= slot.header.record_length;

    const int32_t end = next_frame(offset, length);
    if (end == no_offset) return false;
    if (end <= slot.header.end_offset && bound == body_bound::record_length) return true;
    return end <= size_of(slot.file) && move_to(slot.file, offset + frame_bytes);
}

} // namespace

int32_t read_bounded_body(int32_t data_handle, void* record, int32_t offset, int32_t& deleted,
                          int32_t& length, body_bound bound)
{
    int32_t code = read_frame(data_handle, offset, length, deleted);
    if (code != TS_OK) return code;
    if (!is_body_length(data_handle, offset, length, bound)) return TS_BODY_READ_SHORT;

    held_range range;
    code = lock_if_needed(range, data_range(data_handle, at_file_position, length));
    if (code < 0) return code;

    const int32_t bytes = read_file(data_slots[data_handle].file, record, length);

    code = release_if_placed(range);
    if (code < 0) return code;
    if (bytes != length) return TS_BODY_READ_SHORT;
    return TS_OK;
}

int32_t read_body(int32_t data_handle, void* record, int32_t offset, int32_t& deleted)
{
    int32_t length = 0;
    return read_bounded_body(data_handle, record, offset, deleted, length,
                             body_bound::record_length);
}

namespace {

bool has_fixed_length(int32_t data_handle)
{
    return data_slots[data_handle].header.record_length >= 1;
}

// Walks the frames of a file of variable length up to the record asked for.
int32_t walk_to_record(int32_t data_handle, int32_t record_number, int32_t& offset,
                       int32_t& deleted, int32_t& length)
{
    offset = record_offset(data_handle, 1);
    for (int32_t number = 1;; ++number) {
        const int32_t code = read_frame(data_handle, offset, length, deleted);
        if (code != TS_OK) return code;
        if (number == record_number) return TS_OK;
        offset = next_frame(offset, length);
    }
}

int32_t check_record_number(int32_t data_handle, int32_t record_number)
{
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;
    if (record_number < 1 || record_number > data_slots[data_handle].header.record_count)
        return TS_BAD_RECORD_NUMBER;
    return TS_OK;
}

} // namespace

int32_t locate_record(int32_t data_handle, int32_t record_number, int32_t& offset, int32_t& deleted,
                      int32_t& length)
{
    const int32_t code = check_record_number(data_handle, record_number);
    if (code != TS_OK) return code;
    if (!has_fixed_length(data_handle))
        return walk_to_record(data_handle, record_number, offset, deleted, length);
    offset = record_offset(data_handle, record_number);
    return read_frame(data_handle, offset, length, deleted);
}

int32_t find_record(int32_t data_handle, int32_t record_number, int32_t& offset)
{
    const int32_t code = check_record_number(data_handle, record_number);
    if (code != TS_OK) return code;
    if (has_fixed_length(data_handle)) {
        offset = record_offset(data_handle, record_number);
        return TS_OK;
    }
    int32_t deleted = 0;
    int32_t length = 0;
    return walk_to_record(data_handle, record_number, offset, deleted, length);
}

int32_t write_locked(int32_t data_handle, const void* bytes, int32_t count, platform::care wanted)
{
    const platform::file_handle file = data_slots[data_handle].file;
    held_range range;
    int32_t code = lock_if_needed(range, data_range(data_handle, at_file_position, count));
    if (code < 0) return code;

    const int32_t written = write_file(file, bytes, count, wanted);
    if (is_write_through()) {
        code = flush_file(file, data_handle, data_file_number);
        if (code != TS_OK) return code;
    }

    code = release_if_placed(range);
    if (code < 0) return code;
    if (written < count) return TS_RECORD_WRITE_SHORT;
    return TS_OK;
}

namespace {

// Records up to this size go out with their frame in one transfer, where no flush stands between
// the two: a process that is killed in between would leave a frame without its body.
constexpr int32_t one_transfer_bytes = 4096;

int32_t write_at_once(int32_t data_handle, const record_frame& frame, const void* record,
                      platform::care wanted)
{
    unsigned char whole[one_transfer_bytes];
    std::memcpy(whole, &frame, frame_bytes);
    std::memcpy(whole + frame_bytes, record, static_cast<size_t>(frame.length));
    return write_locked(data_handle, whole, frame_bytes + frame.length, wanted);
}

} // namespace

int32_t write_record(int32_t data_handle, const void* record, int32_t length, int32_t offset,
                     platform::care wanted)
{
    if (length < 1) return TS_RECORD_TOO_SHORT;
    if (!fits_in_file(offset, int64_t{frame_bytes} + length)) return TS_RECORD_WRITE_POSITION;
    if (!move_to(data_slots[data_handle].file, offset)) return TS_RECORD_WRITE_POSITION;

    const record_frame frame = {mark_live, {0, 0, 0}, length};
    if (!is_write_through() && length <= one_transfer_bytes - frame_bytes)
        return write_at_once(data_handle, frame, record, wanted);
    const int32_t code = write_locked(data_handle, &frame, frame_bytes);
    if (code != TS_OK) return code;
    return write_locked(data_handle, record, length);
}

} // namespace tarsil
