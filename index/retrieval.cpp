// Reading records by a key value: the whole value, a leading part of it, or the nearest one.
//
// A partial search shortens the key itself for as long as it lasts: field_count and the length of
// the last field compared are changed in the key record in memory and put back before anybody looks
// at the result. Entries are still walked at their full stride, which goes by entry_key_bytes.
//
// None of these moves the current record of the data file. A miss leaves the cursor's position and
// path as they were, though work_node is another leaf by then.
#include "core/tables.h"
#include "data/frames.h"
#include "index/node_io.h"
#include "index/search.h"
#include "multiuser/index_read.h"

using namespace tarsil;

namespace {

// The leading part of a key that a caller searches for.
struct leading_part {
    const void* key_value;
    int32_t field_count;
    uint32_t last_length;
};

// Where the searches of tsgetip32 and tsgetipp32 differ.
struct search_kind {
    char mode;
    int32_t bad_field_count;
    int32_t bad_length;
};
constexpr search_kind exact_part = {fields_of_value, TS_PARTIAL_BAD_FIELD_COUNT,
                                    TS_PARTIAL_BAD_LENGTH};
constexpr search_kind nearest_part = {nearest_to_value, TS_NEAREST_BAD_FIELD_COUNT,
                                      TS_NEAREST_BAD_LENGTH};

int32_t search_shortened(const key_id& id, const leading_part& part, char mode, search_end& end)
{
    key_record& key = key_of(id).key_record;
    key_field& last = key.fields[part.field_count - 1];
    const int32_t whole_count = key.field_count;
    const int32_t whole_length = last.length;

    key.field_count = part.field_count;
    if (last.type == 's') last.length = static_cast<int32_t>(part.last_length);
    const int32_t result = tree_search(id, static_cast<const unsigned char*>(part.key_value), mode,
                                       end);
    key.field_count = whole_count;
    last.length = whole_length;
    return result;
}

int32_t search_part(const key_id& id, const leading_part& part, const search_kind& kind,
                    search_end& end)
{
    int32_t code = check_key(id);
    if (code != TS_OK) return code;
    code = refresh_root_if_shared(id);
    if (code != TS_OK) return code;

    const key_record& key = key_of(id).key_record;
    if (part.field_count < 1 || part.field_count > key.field_count) return kind.bad_field_count;
    const key_field& last = key.fields[part.field_count - 1];
    const bool too_long = part.last_length > static_cast<uint32_t>(last.length);
    if (last.type == 's' && (part.last_length == 0 || too_long)) return kind.bad_length;
    return search_shortened(id, part, kind.mode, end);
}

int32_t read_previous(const key_id& id, void* record, int32_t* deleted)
{
    return tsgetpi32(id.data_handle, id.index_handle, id.key_number, record, deleted);
}

// The cursor stands on the first entry behind the value: the record before it is wanted, or the
// first record of the key where there is none.
int32_t read_before_cursor(const key_id& id, void* record, int32_t* deleted)
{
    int32_t code = read_previous(id, record, deleted);
    if (code == TS_OK) return 1;
    if (code != TS_PREVIOUS_ENTRY_AT_START) return code;
    code = tsgetfi32(id.data_handle, id.index_handle, id.key_number, record, deleted);
    return code == TS_OK ? 2 : code;
}

} // namespace

int32_t tsgeti32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                 const void* key_value, void* record, int32_t* deleted)
{
    const key_id id = {data_handle, index_handle, key_number};
    int32_t record_offset = no_offset;
    const int32_t code = find_key(id, key_value, record_offset);
    if (code != TS_OK) return code;
    return read_body(data_handle, record, record_offset, *deleted);
}

int32_t tsgetip32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                  const void* key_value, int32_t field_count, uint32_t last_length, void* record,
                  int32_t* deleted)
{
    const key_id id = {data_handle, index_handle, key_number};
    search_end end;
    const int32_t result = search_part(id, {key_value, field_count, last_length}, exact_part, end);
    if (result < 0) return result;
    if (result != TS_OK) return TS_PARTIAL_NO_ENTRY;

    place_cursor(key_of(id), end.position);
    return read_body(data_handle, record, end.link, *deleted);
}

int32_t tsgetipp32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                   const void* key_value, int32_t field_count, uint32_t last_length, void* record,
                   int32_t* deleted)
{
    const key_id id = {data_handle, index_handle, key_number};
    search_end end;
    const int32_t result = search_part(id, {key_value, field_count, last_length}, nearest_part,
                                       end);
    if (result < next_is_behind) return result;

    if (end.link <= 0) {
        // No entry there, as in a key without any: the step back starts from the cursor's own
        // place.
        const int32_t code = read_previous(id, record, deleted);
        return code == TS_OK ? 1 : code;
    }
    place_cursor(key_of(id), end.position);
    if (result == next_is_behind) return read_before_cursor(id, record, deleted);
    const int32_t code = read_body(data_handle, record, end.link, *deleted);
    return code == TS_OK ? result : code;
}
