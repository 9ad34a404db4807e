// tsstati32: how a key is built.
//
// The fields go out as they stand in the key record; the order is half of what a node has room for,
// as it was asked for when the key was created. The cursor letter tells how the key was opened this
// time: no file keeps it.
#include "index/search.h"
#include "multiuser/index_read.h"

using namespace tarsil;

int32_t tsstati32(int32_t data_handle, int32_t index_handle, int32_t key_number, int32_t* order,
                  int32_t* node_bytes, char* cursor, key_report* report)
{
    const key_id id = {data_handle, index_handle, key_number};
    int32_t code = check_key(id);
    if (code != TS_OK) return code;
    code = refresh_root_if_shared(id);
    if (code != TS_OK) return code;

    const key_slot& key = key_of(id);
    const key_record& record = key.key_record;
    *order = record.max_entries / 2;
    *node_bytes = record.node_bytes;
    *cursor = has_cursor(key) ? yes : no;
    for (int32_t i = 0; i < record.field_count; ++i) {
        report->types[i] = record.fields[i].type;
        report->lengths[i] = record.fields[i].length;
        report->offsets[i] = record.fields[i].offset;
    }
    report->field_count = record.field_count;
    return TS_OK;
}
