// tsadd32: the only way a new record enters a data file, and the place where the data file and all
// open keys move in step.
//
// The order of effects: duplicate check over every key of every open index; choice between a
// deleted slot and the end of the file; the record; the header; the keys. The header bracket is
// held from before the header is read until after it is written, which is what keeps two processes
// from taking one place; each index bracket is taken for itself. A failure before the record is
// written changes no file; one after it undoes nothing, and the record then lacks the keys that
// were not reached.
//
// On the reuse path the body of the deleted record is kept to the end: its old key values, which
// are to leave the keys, are made from it.
#include <cstring>

#include "core/validators.h"
#include "data/frames.h"
#include "data/header.h"
#include "data/places.h"
#include "data/reuse.h"
#include "index/insert.h"
#include "index/node_io.h"
#include "index/search.h"
#include "multiuser/held_range.h"
#include "multiuser/index_read.h"

using namespace tarsil;

namespace {

// The record to be stored, and the deleted record in whose slot it goes: no bytes when it is
// appended.
struct add_work {
    int32_t data_handle;
    record_image record;
    record_image old_record;
    int32_t slot; // frame offset at which the record is written

    // Where the duplicate check came to in each key; good as long as nobody can change the trees.
    bool has_ways;
    known_way ways[TS_MAX_INDEX_FILES][TS_MAX_KEYS];
};

// TS_OK, TS_DUPLICATE_KEY, or a failure. The bracket of the index is given back before a duplicate
// is told.
int32_t check_duplicate_in_index(add_work& work, int32_t index_handle)
{
    held_range bracket;
    int32_t code = lock_if_needed(bracket, whole_index_file(work.data_handle, index_handle));
    if (code < 0) return code;
    code = refresh_all_roots(work.data_handle, index_handle);
    if (code != TS_OK) return code;

    bool duplicate = false;
    const int32_t key_count = index_of(work.data_handle, index_handle).key_count;
    for (int32_t key_number = 0; !duplicate && key_number < key_count; ++key_number) {
        search_end end;
        const key_id id = {work.data_handle, index_handle, key_number};
        const int32_t result = tree_search_record(id, work.record, 0, fields_of_record, end);
        if (result < 0) return result;
        duplicate = result == 0;
        note_way(end, work.ways[index_handle][key_number]);
    }

    code = release_if_placed(bracket);
    if (code < 0) return code;
    return duplicate ? int32_t{TS_DUPLICATE_KEY} : int32_t{TS_OK};
}

int32_t check_duplicate(add_work& work)
{
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (!has_index(work.data_handle, index_handle)) continue;
        const int32_t code = check_duplicate_in_index(work, index_handle);
        if (code != TS_OK) return code;
    }
    work.has_ways = true;
    return TS_OK;
}

constexpr int32_t candidate_taken = 0;
constexpr int32_t candidate_passed_over = 1;

// A slot can be taken when every key of the index holds its own entry, in a leaf with at least one
// more: no operation may leave a leaf without entries, since stepping through a key needs a key
// value from each leaf.
int32_t examine_candidate_in_index(const add_work& work, int32_t index_handle)
{
    held_range bracket;
    int32_t code = lock_if_needed(bracket, whole_index_file(work.data_handle, index_handle));
    if (code < 0) return code;
    code = refresh_all_roots(work.data_handle, index_handle);
    if (code != TS_OK) return code;

    bool taken = true;
    const int32_t key_count = index_of(work.data_handle, index_handle).key_count;
    for (int32_t key_number = 0; taken && key_number < key_count; ++key_number) {
        search_end end;
        const key_id id = {work.data_handle, index_handle, key_number};
        const int32_t result = tree_search_record(id, work.old_record, work.slot, exact_record,
                                                  end);
        if (result < 0) return result;
        taken = result != not_in_leaf && end.count != 1;
    }

    code = release_if_placed(bracket);
    if (code < 0) return code;
    return taken ? candidate_taken : candidate_passed_over;
}

// The noted slot can be out of date: another process may have used it, or undone its delete, or
// taken the very place out of the file by a purge. So it must be a place where a record of this
// file stands, and the record's own mark decides: a live record is never overwritten.
bool is_place_of_record(int32_t data_handle, int32_t offset)
{
    const int32_t number = record_number_at(data_handle, offset);
    return number >= 1 && number <= data_slots[data_handle].header.record_count &&
           may_be_frame(data_handle, offset);
}

// Reads the old record into `old_image` and looks at all its entries.
int32_t examine_candidate(const add_work& work, unsigned char* old_image)
{
    if (!is_place_of_record(work.data_handle, work.slot)) return candidate_passed_over;
    int32_t deleted = 0;
    const int32_t code = read_body(work.data_handle, old_image, work.slot, deleted);
    if (code != TS_OK) return code;
    if (deleted == 0) return candidate_passed_over;
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (!has_index(work.data_handle, index_handle)) continue;
        const int32_t result = examine_candidate_in_index(work, index_handle);
        if (result != candidate_taken) return result;
    }
    return candidate_taken;
}

void give_back_old_image(add_work& work, unsigned char*& old_image)
{
    platform::LocalFree(old_image);
    old_image = nullptr;
    work.old_record = {nullptr, 0};
}

// Leaves old_image and work.slot for a slot that is to be overwritten, and no old_image when the
// record is to be appended.
int32_t choose_place(add_work& work, unsigned char*& old_image)
{
    data_slot& data = data_slots[work.data_handle];
    if (reuse_deleted != yes || data.reuse_offset <= 0) return TS_OK;
    old_image = allocate_record_image(work.data_handle);
    if (old_image == nullptr) {
        data.reuse_offset = no_offset;
        return TS_OK;
    }

    const int32_t room = data.header.record_length;
    for (;;) {
        // Looking for the next slot reads the header anew; the buffer keeps the size that it had.
        if (data.header.record_length != room) return TS_BODY_READ_SHORT;
        work.slot = data.reuse_offset;
        work.old_record = {old_image, room};
        int32_t code = examine_candidate(work, old_image);
        if (code < 0) return code;
        if (code == candidate_taken) return TS_OK;

        code = next_reusable(work.data_handle);
        if (code < 0) return code;
        if (code == no_slot_left) {
            give_back_old_image(work, old_image);
            return TS_OK;
        }
    }
}

void count_reuse(const add_work& work)
{
    data_slot& data = data_slots[work.data_handle];
    if (data.header.deleted_count > 0) data.header.deleted_count -= 1;
    data.current_offset = work.slot;
    data.current_record = record_number_at(work.data_handle, work.slot);
}

// A header from a damaged file may name an end in front of records that it counts, or between two
// frames, or numbers with no successor; nothing is written by such a header.
bool is_sound_end(int32_t data_handle)
{
    const data_header& header = data_slots[data_handle].header;
    if (header.record_count < 0 || header.record_count == INT32_MAX) return false;
    const bool fixed_length = header.record_length != variable_length;
    const int32_t least = record_offset(data_handle, fixed_length ? header.record_count + 1 : 1);
    return least != no_offset && header.end_offset >= least &&
           may_be_frame(data_handle, header.end_offset);
}

int32_t count_append(add_work& work)
{
    data_slot& data = data_slots[work.data_handle];
    if (work.record.length < 1) return TS_RECORD_TOO_SHORT;
    const int32_t end = data.header.end_offset;
    const int32_t new_end = next_frame(end, work.record.length);
    if (new_end == no_offset || !is_sound_end(work.data_handle)) return TS_RECORD_WRITE_POSITION;

    work.slot = end;
    data.header.record_count += 1;
    data.current_record = data.header.record_count;
    data.current_offset = work.slot;
    data.header.end_offset = new_end;
    return TS_OK;
}

// Counts and writes the record. A record that was not written whole must never count in a header
// that reaches the file, so the copy in memory is put back on a failure.
int32_t store_record(add_work& work)
{
    data_slot& data = data_slots[work.data_handle];
    const data_slot before = data;

    const bool reuses = work.old_record.bytes != nullptr;
    const platform::care care = reuses ? platform::care::from_back
                                       : platform::care::not_counted_yet;
    int32_t code = TS_OK;
    if (reuses)
        count_reuse(work);
    else
        code = count_append(work);
    if (code == TS_OK)
        code = write_record(work.data_handle, work.record.bytes, work.record.length, work.slot,
                            care);
    if (code != TS_OK) data = before;
    return code;
}

// Takes the old record's entry out of a key. Where it is not there any more nothing is removed, nor
// where it is the last of its leaf by now, as another process can bring about between the
// examination and this step. The parent's separator stays: it bounds the leaf as before.
int32_t remove_old_entry(const key_id& id, const add_work& work)
{
    search_end end;
    const int32_t result = tree_search_record(id, work.old_record, work.slot, exact_record, end,
                                              leaf_part::whole);
    if (result < 0) return result;
    if (result == not_in_leaf || end.count <= 1) return TS_OK;

    key_slot& key = key_of(id);
    const int32_t stride = entry_stride(key.key_record);
    unsigned char* gone = entry_at(key.key_record, key.work_node, end.position);
    std::memmove(gone, gone + stride,
                 static_cast<size_t>(end.count - end.position - 1) * static_cast<size_t>(stride));
    clear_entries(entry_at(key.key_record, key.work_node, end.count - 1), stride, 1);
    set_entry_count(key.key_record, key.work_node, end.count - 1);

    const int32_t code = write_node_from(id, key.work_node, end.node_offset, end.position,
                                         platform::care::from_front);
    if (code != TS_OK) return code;
    if (end.node_offset == key.key_record.root_offset)
        std::memcpy(key.root_node, key.work_node, static_cast<size_t>(key.key_record.node_bytes));
    return TS_OK;
}

// In single-user mode the copy of the root counts, and nobody knows how far the file has got when a
// write fails: with another root in the file, the next record would go to a leaf where no search by
// the file's separators finds it.
void take_root_as_it_is_in_file(const key_id& id)
{
    key_slot& key = key_of(id);
    if (is_shared() || node_scratch == nullptr) return;
    if (read_node(id, key.key_record.root_offset, node_scratch) != TS_OK) return;
    std::memcpy(key.root_node, node_scratch, static_cast<size_t>(key.key_record.node_bytes));
}

int32_t update_key(const key_id& id, const add_work& work)
{
    key_slot& key = key_of(id);
    const bool reuses = work.old_record.bytes != nullptr;
    const bool is_unchanged = !is_shared() || copies_are_fresh(id.data_handle, id.index_handle);
    int32_t code = TS_OK;
    if (!is_unchanged) code = read_node(id, key.key_record.root_offset, key.root_node);
    if (code == TS_OK && reuses) code = remove_old_entry(id, work);
    if (code == TS_OK && work.has_ways && is_unchanged && !reuses)
        code = tree_insert_along(id, work.record, work.slot,
                                 work.ways[id.index_handle][id.key_number]);
    else if (code == TS_OK)
        code = tree_insert(id, work.record, work.slot);
    if (code != TS_OK) {
        take_root_as_it_is_in_file(id);
        note_copies(id.data_handle, id.index_handle, false);
    }
    return code;
}

// With fresh copies the file has the same key records already: a split has written them.
int32_t store_key_records(int32_t data_handle, int32_t index_handle)
{
    if (!is_shared() || copies_are_fresh(data_handle, index_handle)) return TS_OK;
    return write_key_records(data_handle, index_handle);
}

int32_t update_index(const add_work& work, int32_t index_handle)
{
    held_range bracket;
    int32_t code = lock_if_needed(bracket, whole_index_file(work.data_handle, index_handle));
    if (code < 0) return code;
    if (is_shared()) code = refresh_key_records(work.data_handle, index_handle);
    if (code < 0) return code;

    const int32_t key_count = index_of(work.data_handle, index_handle).key_count;
    for (int32_t key_number = 0; key_number < key_count; ++key_number) {
        code = update_key({work.data_handle, index_handle, key_number}, work);
        if (code != TS_OK) return code;
    }

    const int32_t stored = store_key_records(work.data_handle, index_handle);
    code = release_if_placed(bracket);
    if (code < 0) return code;
    return stored;
}

int32_t update_all_keys(const add_work& work)
{
    if (data_slots[work.data_handle].open_index_count == 0) return TS_OK;
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (!has_index(work.data_handle, index_handle)) continue;
        const int32_t code = update_index(work, index_handle);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

// The slot just written holds a live record, so the noted slot moves on, also after a failure
// behind the write.
int32_t move_noted_slot_on(int32_t data_handle)
{
    data_slot& data = data_slots[data_handle];
    const int32_t taken = data.reuse_offset;
    if (data.header.deleted_count < 1) {
        data.reuse_offset = no_offset;
        return TS_OK;
    }
    const int32_t code = next_reusable(data_handle);
    if (code < 0 && data.reuse_offset == taken) data.reuse_offset = no_offset;
    return code < 0 ? code : int32_t{TS_OK};
}

int32_t add_record(add_work& work, char duplicates, unsigned char*& old_image)
{
    held_range header;
    int32_t code = lock_if_needed(header, header_bracket(work.data_handle));
    if (code < 0) return code;
    code = refresh_if_shared(work.data_handle);
    if (code != TS_OK) return code;

    const int32_t record_length = data_slots[work.data_handle].header.record_length;
    if (record_length != variable_length) work.record.length = record_length;

    if (duplicates != 'y' && duplicates != 'Y') code = check_duplicate(work);
    if (code != TS_OK) return code;
    code = choose_place(work, old_image);
    if (code != TS_OK) return code;
    code = store_record(work);
    if (code != TS_OK) return code;

    code = store_header_change(work.data_handle);
    release_insistently(header);
    if (code == TS_OK) code = update_all_keys(work);

    if (old_image == nullptr) return code;
    const int32_t moved = move_noted_slot_on(work.data_handle);
    return code != TS_OK ? code : moved;
}

} // namespace

int32_t tsadd32(int32_t data_handle, const void* record, int32_t length, char duplicates)
{
    const int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;

    add_work work;
    work.data_handle = data_handle;
    work.record = {static_cast<const unsigned char*>(record), length};
    work.old_record = {nullptr, 0};
    work.slot = no_offset;
    work.has_ways = false;
    unsigned char* old_image = nullptr;
    const int32_t result = add_record(work, duplicates, old_image);
    platform::LocalFree(old_image);
    return result;
}
