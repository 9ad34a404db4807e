// Carrying a position from a key's cursor to the data file's current record, and back: the two do
// not follow each other by themselves.
//
// In a file of fixed length the number of a record follows from its offset. In one of variable
// length the frames in front of it are counted.
#include "core/validators.h"
#include "data/frames.h"
#include "data/header.h"
#include "data/places.h"
#include "index/node_io.h"
#include "index/search.h"
#include "multiuser/index_read.h"

using namespace tarsil;

namespace {

// Offsets grow with every frame, so that the count ends at the offset wanted or behind it, whatever
// stands in the entry that names it.
int32_t count_to_record(int32_t data_handle, int32_t wanted, int32_t& number)
{
    int32_t offset = record_offset(data_handle, 1);
    for (number = 1; offset != wanted; ++number) {
        if (offset == no_offset || offset > wanted) return TS_FRAME_READ_POSITION;
        int32_t length = 0;
        int32_t deleted = 0;
        const int32_t code = read_frame(data_handle, offset, length, deleted);
        if (code != TS_OK) return code;
        offset = next_frame(offset, length);
    }
    return TS_OK;
}

// A cursor left behind by a failed search can stand where there is no entry, and a damaged one can
// name anything: an offset where no frame can stand is refused.
int32_t find_number(int32_t data_handle, int32_t offset, int32_t& number)
{
    const bool fixed_length = data_slots[data_handle].header.record_length > 0;
    if (!may_be_frame(data_handle, offset)) return TS_FRAME_READ_POSITION;
    if (!fixed_length) return count_to_record(data_handle, offset, number);
    number = record_number_at(data_handle, offset);
    return TS_OK;
}

// tsgetcd32, telling the length of the record too.
int32_t read_current_record(int32_t data_handle, void* record, int32_t& length)
{
    int32_t code = check_current(data_handle);
    if (code != TS_OK) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;
    int32_t deleted = 0;
    return read_bounded_body(data_handle, record, data_slots[data_handle].current_offset, deleted,
                             length, body_bound::record_length);
}

} // namespace

int32_t tssetd2i32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                   int32_t* record_number)
{
    const key_id id = {data_handle, index_handle, key_number};
    int32_t code = check_cursor(id);
    if (code != TS_OK) return code;
    index_bracket bracket;
    code = begin_index_read(bracket, id);
    if (code < 0) return code;

    const key_slot& key = key_of(id);
    const int32_t offset = entry_record_offset(key, key.position);
    code = find_number(data_handle, offset, *record_number);
    if (code == TS_OK) {
        data_slots[data_handle].current_record = *record_number;
        data_slots[data_handle].current_offset = offset;
    }
    end_index_read(bracket);
    return code;
}

int32_t tsseti2d32(int32_t data_handle, int32_t index_handle, int32_t key_number, void* record,
                   void* key_value, int32_t* record_number)
{
    const key_id id = {data_handle, index_handle, key_number};
    int32_t code = check_key(id);
    if (code != TS_OK) return code;
    int32_t length = 0;
    code = read_current_record(data_handle, record, length);
    if (code != TS_OK) return code;
    // The search starts from the root, which another process may have changed since.
    code = refresh_root_if_shared(id);
    if (code != TS_OK) return code;

    key_slot& key = key_of(id);
    const data_slot& data = data_slots[data_handle];
    auto* packed = static_cast<unsigned char*>(key_value);
    pack_key(key.key_record, {static_cast<unsigned char*>(record), length}, data.current_offset,
             packed);

    key.position = no_position;
    search_end end;
    const int32_t result = tree_search(id, packed, exact_key, end);
    if (result == TS_OK) place_cursor(key, end.position);
    *record_number = data.current_record;
    return result;
}
