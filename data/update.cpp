// Updating: four operations over one mechanism.
//
// If no field of an open key changes, the record is overwritten where it stands and no index is
// touched. If one does, mode decides: refuse, or delete the old record and add the new image as a
// new one. Delete and add are two operations and not one step; when the add fails the old record
// stays deleted. A record that is deleted is never rewritten in place: that would bring it to life
// with deleted_count unchanged.
#include <algorithm>

#include "core/tables.h"
#include "core/validators.h"
#include "data/frames.h"
#include "data/header.h"
#include "data/places.h"
#include "files/files.h"
#include "index/node_io.h"
#include "index/search.h"
#include "multiuser/index_read.h"

using namespace tarsil;

namespace {

enum class named_by : uint8_t { number, current, key_value, cursor };

struct operation {
    named_by how;
    int32_t deleted_already; // what the delete of this form answers for a deleted record
    int32_t refused;         // what the update answers for it
};

constexpr operation update_by_number = {named_by::number, TS_DELETE_RECORD_DELETED,
                                        TS_UPDATE_RECORD_DELETED};
constexpr operation update_current = {named_by::current, TS_DELETE_CURRENT_DELETED,
                                      TS_UPDATE_CURRENT_DELETED};
constexpr operation update_by_value = {named_by::key_value, TS_DELETE_FOUND_DELETED,
                                       TS_UPDATE_FOUND_DELETED};
constexpr operation update_at_cursor = {named_by::cursor, TS_DELETE_CURSOR_DELETED,
                                        TS_UPDATE_CURSOR_DELETED};

// What the caller asks for. Of the first three, each form uses its own part.
struct request {
    key_id id; // its data_handle counts in every form
    int32_t record_number;
    const void* key_value;
    const void* record;
    int32_t length; // replaced by record_length in a file of fixed length
    int32_t& deleted;
    void* scratch;
    int32_t mode;
};

struct stored_record {
    int32_t offset;
    int32_t length;
};

int32_t find_current(const request& asked, stored_record& stored)
{
    const int32_t data_handle = asked.id.data_handle;
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    code = refresh_if_shared(data_handle);
    if (code != TS_OK) return code;
    const data_slot& slot = data_slots[data_handle];
    if (slot.current_record < 1 || slot.current_record > slot.header.record_count)
        return TS_UPDATE_NO_CURRENT;
    stored.offset = slot.current_offset;
    return TS_OK;
}

int32_t find_at_cursor(const request& asked, index_bracket& bracket, stored_record& stored)
{
    int32_t code = check_cursor(asked.id);
    if (code != TS_OK) return code;
    code = begin_index_read(bracket, asked.id);
    if (code != TS_OK) return code;
    const key_slot& key = key_of(asked.id);
    stored.offset = entry_record_offset(key, key.position);
    return TS_OK;
}

int32_t find_record(const operation& op, const request& asked, index_bracket& bracket,
                    stored_record& stored)
{
    const int32_t data_handle = asked.id.data_handle;
    int32_t code = TS_OK;
    switch (op.how) {
    case named_by::number:
        return locate_record(data_handle, asked.record_number, stored.offset, asked.deleted,
                             stored.length);
    case named_by::current: code = find_current(asked, stored); break;
    case named_by::key_value: code = find_key(asked.id, asked.key_value, stored.offset); break;
    case named_by::cursor: code = find_at_cursor(asked, bracket, stored); break;
    }
    if (code != TS_OK) return code;
    return read_frame(data_handle, stored.offset, stored.length, asked.deleted);
}

// Reads the stored body, of exactly `length` bytes: the caller has room for no more, and another
// process may have changed the frame since it was looked at.
int32_t read_stored_body(int32_t data_handle, int32_t offset, int32_t length, void* scratch,
                         int32_t& deleted)
{
    int32_t length_now = 0;
    int32_t code = read_frame(data_handle, offset, length_now, deleted);
    if (code != TS_OK) return code;
    if (length_now != length || length < 1) return TS_BODY_READ_SHORT;

    held_range range;
    code = lock_if_needed(range, data_range(data_handle, at_file_position, length));
    if (code < 0) return code;

    const int32_t bytes = read_file(data_slots[data_handle].file, scratch, length);

    code = release_if_placed(range);
    if (code < 0) return code;
    return bytes == length ? int32_t{TS_OK} : int32_t{TS_BODY_READ_SHORT};
}

struct image_pair {
    const unsigned char* stored;
    const unsigned char* changed;
    int32_t length; // of both
};

// Raw bytes count, without the tolerance of float and double keys. A string ends at its first 0, if
// both images agree so far. What lies outside the record is the same in both.
bool field_differs(const key_field& field, const image_pair& images)
{
    const int64_t begin = std::clamp<int64_t>(field.offset, 0, images.length);
    const int64_t end = std::clamp<int64_t>(int64_t{field.offset} + field.length, 0, images.length);
    for (int64_t at = begin; at < end; ++at) {
        if (images.stored[at] != images.changed[at]) return true;
        if (field.type == 's' && images.stored[at] == 0) return false;
    }
    return false;
}

bool key_differs(const key_record& key, const image_pair& images)
{
    const auto differs = [&images](const key_field& field) { return field_differs(field, images); };
    return std::any_of(key.fields, key.fields + key.field_count, differs);
}

bool any_open_key_differs(int32_t data_handle, const image_pair& images)
{
    for (const index_slot* index : data_slots[data_handle].indexes) {
        if (index == nullptr) continue;
        const auto differs = [&images](const key_slot* key) {
            return key_differs(key->key_record, images);
        };
        if (std::any_of(index->keys, index->keys + index->key_count, differs)) return true;
    }
    return false;
}

// TS_OK: no key field changes. TS_UPDATE_KEY_CHANGED: one does. TS_UPDATE_LENGTH_DIFFERS. Or the
// code of a read.
int32_t compare_for_update(request& asked, const stored_record& stored)
{
    const data_slot& slot = data_slots[asked.id.data_handle];
    if (slot.header.record_length != variable_length) asked.length = slot.header.record_length;
    if (asked.length != stored.length) return TS_UPDATE_LENGTH_DIFFERS;
    if (slot.open_index_count == 0) return TS_OK;

    const int32_t code = read_stored_body(asked.id.data_handle, stored.offset, stored.length,
                                          asked.scratch, asked.deleted);
    if (code != TS_OK) return code;
    const image_pair images = {static_cast<const unsigned char*>(asked.scratch),
                               static_cast<const unsigned char*>(asked.record), asked.length};
    return any_open_key_differs(asked.id.data_handle, images) ? int32_t{TS_UPDATE_KEY_CHANGED}
                                                              : int32_t{TS_OK};
}

// The delete finds the record anew by its own route.
int32_t delete_record(const operation& op, const request& asked)
{
    const key_id& id = asked.id;
    switch (op.how) {
    case named_by::number: return tsdeld32(id.data_handle, asked.record_number);
    case named_by::current: return tsdelcd32(id.data_handle);
    case named_by::key_value:
        return tsdeli32(id.data_handle, id.index_handle, id.key_number, asked.key_value);
    case named_by::cursor: break;
    }
    return tsdelci32(id.data_handle, id.index_handle, id.key_number);
}

constexpr int32_t replaced_by_new_record = 1;

int32_t delete_and_add(const operation& op, const request& asked)
{
    int32_t code = delete_record(op, asked);
    if (code == op.deleted_already) return op.refused;
    if (code != TS_OK) return code;
    const char duplicates = asked.mode == 1 ? no : yes;
    code = tsadd32(asked.id.data_handle, asked.record, asked.length, duplicates);
    return code == TS_OK ? replaced_by_new_record : code;
}

int32_t rewrite(const operation& op, const request& asked, const stored_record& stored)
{
    const int32_t data_handle = asked.id.data_handle;
    if (asked.deleted == 1) return op.refused;
    if (!may_be_frame(data_handle, stored.offset)) return TS_RECORD_WRITE_POSITION;
    const int32_t code = write_record(data_handle, asked.record, asked.length, stored.offset);
    if (code != TS_OK) return code;
    if (op.how == named_by::number) {
        data_slots[data_handle].current_record = asked.record_number;
        data_slots[data_handle].current_offset = stored.offset;
    }
    return TS_OK;
}

// The bracket stays empty in all forms but the one at the cursor, which holds it through delete and
// add as well.
int32_t perform(const operation& op, request asked)
{
    index_bracket bracket;
    stored_record stored = {no_offset, 0};
    int32_t code = find_record(op, asked, bracket, stored);
    if (code != TS_OK) return code;
    code = compare_for_update(asked, stored);
    if (code == TS_UPDATE_KEY_CHANGED && asked.mode > 0) return delete_and_add(op, asked);
    if (code != TS_OK) return code;
    return rewrite(op, asked, stored);
}

} // namespace

int32_t tsupd32(int32_t data_handle, int32_t record_number, const void* record, int32_t length,
                int32_t* deleted, void* scratch, int32_t mode)
{
    return perform(
        update_by_number,
        {{data_handle, 0, 0}, record_number, nullptr, record, length, *deleted, scratch, mode});
}

int32_t tsupcd32(int32_t data_handle, const void* record, int32_t length, int32_t* deleted,
                 void* scratch, int32_t mode)
{
    return perform(update_current,
                   {{data_handle, 0, 0}, 0, nullptr, record, length, *deleted, scratch, mode});
}

int32_t tsupi32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                const void* key_value, const void* record, int32_t length, int32_t* deleted,
                void* scratch, int32_t mode)
{
    return perform(update_by_value, {{data_handle, index_handle, key_number},
                                     0,
                                     key_value,
                                     record,
                                     length,
                                     *deleted,
                                     scratch,
                                     mode});
}

int32_t tsupci32(int32_t data_handle, int32_t index_handle, int32_t key_number, const void* record,
                 int32_t length, int32_t* deleted, void* scratch, int32_t mode)
{
    return perform(update_at_cursor, {{data_handle, index_handle, key_number},
                                      0,
                                      nullptr,
                                      record,
                                      length,
                                      *deleted,
                                      scratch,
                                      mode});
}
