// Deleting and undeleting: eight operations over one mechanism.
//
// A delete changes one byte of the frame and one count of the header, an undelete is the exact
// reverse. Nothing else of the record, and no index, learns of it. The operations differ in how
// they name the record, in the direction and in their codes: a row of constants each. The test of
// the mark and the header that goes out stand under one header bracket, so that two processes can't
// both count one delete, nor lose an add in between.
#include <algorithm>

#include "core/tables.h"
#include "core/validators.h"
#include "data/frames.h"
#include "data/header.h"
#include "data/places.h"
#include "data/reuse.h"
#include "files/files.h"
#include "index/node_io.h"
#include "index/search.h"
#include "multiuser/index_read.h"

using namespace tarsil;

namespace {

enum class named_by : uint8_t { number, current, key_value, cursor };

struct operation {
    named_by how;
    char mark;           // written to the frame
    int32_t pointless;   // code when the record carries it already
    int32_t unreachable; // code when the frame can't be reached for writing
};

constexpr operation delete_by_number = {named_by::number, mark_deleted, TS_DELETE_RECORD_DELETED,
                                        TS_DELETE_RECORD_POSITION};
constexpr operation delete_current = {named_by::current, mark_deleted, TS_DELETE_CURRENT_DELETED,
                                      TS_DELETE_CURRENT_POSITION};
constexpr operation delete_by_value = {named_by::key_value, mark_deleted, TS_DELETE_FOUND_DELETED,
                                       TS_DELETE_FOUND_POSITION};
constexpr operation delete_at_cursor = {named_by::cursor, mark_deleted, TS_DELETE_CURSOR_DELETED,
                                        TS_DELETE_CURSOR_POSITION};
constexpr operation undelete_by_number = {named_by::number, mark_live, TS_UNDELETE_RECORD_LIVE,
                                          TS_UNDELETE_RECORD_POSITION};
constexpr operation undelete_current = {named_by::current, mark_live, TS_UNDELETE_CURRENT_LIVE,
                                        TS_UNDELETE_CURRENT_POSITION};
constexpr operation undelete_by_value = {named_by::key_value, mark_live, TS_UNDELETE_FOUND_LIVE,
                                         TS_UNDELETE_FOUND_POSITION};
constexpr operation undelete_at_cursor = {named_by::cursor, mark_live, TS_UNDELETE_CURSOR_LIVE,
                                          TS_UNDELETE_CURSOR_POSITION};

bool is_delete(const operation& op) { return op.mark == mark_deleted; }

// What the caller names the record with; each form uses its own part.
struct record_name {
    key_id id; // its data_handle counts in every form
    int32_t record_number;
    const void* key_value;
};

record_name numbered(int32_t data_handle, int32_t record_number)
{
    return {{data_handle, 0, 0}, record_number, nullptr};
}

record_name keyed(int32_t data_handle, int32_t index_handle, int32_t key_number,
                  const void* key_value)
{
    return {{data_handle, index_handle, key_number}, 0, key_value};
}

struct found_record {
    int32_t offset;
    int32_t deleted;
};

int32_t take_header(held_range& bracket, int32_t data_handle)
{
    const int32_t code = lock_if_needed(bracket, header_bracket(data_handle));
    return code < 0 ? code : refresh_if_shared(data_handle);
}

int32_t read_mark(int32_t data_handle, found_record& found)
{
    int32_t length = 0;
    return read_frame(data_handle, found.offset, length, found.deleted);
}

int32_t find_by_number(const record_name& name, index_bracket& bracket, found_record& found)
{
    const int32_t data_handle = name.id.data_handle;
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    code = lock_if_needed(bracket.header, header_bracket(data_handle));
    if (code < 0) return code;
    int32_t length = 0;
    return locate_record(data_handle, name.record_number, found.offset, found.deleted, length);
}

int32_t find_current(const record_name& name, index_bracket& bracket, found_record& found)
{
    const int32_t data_handle = name.id.data_handle;
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    code = take_header(bracket.header, data_handle);
    if (code != TS_OK) return code;
    const data_slot& slot = data_slots[data_handle];
    if (slot.current_record < 1 || slot.current_record > slot.header.record_count)
        return TS_DELETE_NO_CURRENT;
    found.offset = slot.current_offset;
    return read_mark(data_handle, found);
}

// The search for a delete stands under no bracket, like that of tsgeti32.
int32_t find_by_value_to_delete(const record_name& name, index_bracket& bracket,
                                found_record& found)
{
    int32_t code = find_key(name.id, name.key_value, found.offset);
    if (code != TS_OK) return code;
    code = take_header(bracket.header, name.id.data_handle);
    if (code != TS_OK) return code;
    return read_mark(name.id.data_handle, found);
}

int32_t find_by_value_to_undelete(const record_name& name, index_bracket& bracket,
                                  found_record& found)
{
    int32_t code = check_key(name.id.data_handle, name.id.index_handle, name.id.key_number,
                             test_key::on);
    if (code != TS_OK) return code;
    code = begin_index_read(bracket, name.id);
    if (code != TS_OK) return code;
    code = find_key(name.id, name.key_value, found.offset);
    if (code != TS_OK) return code;
    return read_mark(name.id.data_handle, found);
}

int32_t find_at_cursor(const record_name& name, index_bracket& bracket, found_record& found)
{
    int32_t code = check_cursor(name.id);
    if (code != TS_OK) return code;
    code = begin_index_read(bracket, name.id);
    if (code != TS_OK) return code;
    const key_slot& key = key_of(name.id);
    found.offset = entry_record_offset(key, key.position);
    return read_mark(name.id.data_handle, found);
}

// Ends with what this form holds in multi-user mode in `bracket`, and the record's frame and flag
// in `found`.
int32_t find_record(const operation& op, const record_name& name, index_bracket& bracket,
                    found_record& found)
{
    switch (op.how) {
    case named_by::number: return find_by_number(name, bracket, found);
    case named_by::current: return find_current(name, bracket, found);
    case named_by::cursor: return find_at_cursor(name, bracket, found);
    case named_by::key_value: break;
    }
    return is_delete(op) ? find_by_value_to_delete(name, bracket, found)
                         : find_by_value_to_undelete(name, bracket, found);
}

// A count from a damaged header may stand at the edge of its range already.
int32_t changed_count(int32_t count, int32_t step)
{
    return static_cast<int32_t>(std::clamp<int64_t>(int64_t{count} + step, INT32_MIN, INT32_MAX));
}

// `mark_code` is what writing the mark answers. It doesn't stop the operation: whether the byte
// reached the file or not, the count goes with it, and the caller is told.
int32_t change_record(const operation& op, const record_name& name, const found_record& found,
                      int32_t& mark_code)
{
    data_slot& slot = data_slots[name.id.data_handle];
    if (!may_be_frame(name.id.data_handle, found.offset)) return op.unreachable;
    if (!move_to(slot.file, found.offset)) return op.unreachable;
    mark_code = write_locked(name.id.data_handle, &op.mark, sizeof op.mark);
    if (op.how == named_by::number) {
        slot.current_record = name.record_number;
        slot.current_offset = found.offset;
    }
    slot.header.deleted_count = changed_count(slot.header.deleted_count, is_delete(op) ? 1 : -1);
    return store_header_change(name.id.data_handle);
}

// The bracket over data file and index reports nothing when it ends; the header bracket alone does.
int32_t end_bracket(index_bracket& bracket, bool over_index)
{
    if (!over_index) return release_if_placed(bracket.header);
    end_index_read(bracket);
    return TS_OK;
}

bool holds_index(const operation& op)
{
    return op.how == named_by::cursor || (op.how == named_by::key_value && !is_delete(op));
}

// A noted slot that has come to life again must not stay noted.
int32_t renounce_slot(int32_t data_handle, int32_t offset)
{
    if (reuse_deleted != yes || data_slots[data_handle].reuse_offset != offset) return TS_OK;
    const int32_t code = next_reusable(data_handle);
    return code == no_slot_left ? int32_t{TS_OK} : code;
}

int32_t perform(const operation& op, const record_name& name)
{
    index_bracket bracket;
    found_record found = {no_offset, 0};
    int32_t code = find_record(op, name, bracket, found);
    if (code != TS_OK) return code;
    if (is_delete(op) == (found.deleted == 1)) return op.pointless;

    int32_t mark_code = TS_OK;
    code = change_record(op, name, found, mark_code);
    if (code != TS_OK) return code;
    code = end_bracket(bracket, holds_index(op));
    if (code < 0) return code;

    if (is_delete(op)) {
        note_reusable(name.id.data_handle, found.offset);
        return mark_code;
    }
    code = renounce_slot(name.id.data_handle, found.offset);
    return code != TS_OK ? code : mark_code;
}

} // namespace

int32_t tsdeld32(int32_t data_handle, int32_t record_number)
{
    return perform(delete_by_number, numbered(data_handle, record_number));
}

int32_t tsundeld32(int32_t data_handle, int32_t record_number)
{
    return perform(undelete_by_number, numbered(data_handle, record_number));
}

int32_t tsdelcd32(int32_t data_handle) { return perform(delete_current, numbered(data_handle, 0)); }

int32_t tsudelcd32(int32_t data_handle)
{
    return perform(undelete_current, numbered(data_handle, 0));
}

int32_t tsdeli32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                 const void* key_value)
{
    return perform(delete_by_value, keyed(data_handle, index_handle, key_number, key_value));
}

int32_t tsundeli32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                   const void* key_value)
{
    return perform(undelete_by_value, keyed(data_handle, index_handle, key_number, key_value));
}

int32_t tsdelci32(int32_t data_handle, int32_t index_handle, int32_t key_number)
{
    return perform(delete_at_cursor, keyed(data_handle, index_handle, key_number, nullptr));
}

int32_t tsudelci32(int32_t data_handle, int32_t index_handle, int32_t key_number)
{
    return perform(undelete_at_cursor, keyed(data_handle, index_handle, key_number, nullptr));
}
