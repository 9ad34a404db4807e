// Creating an index file from the caller's key definitions.
//
// The order of the tests is fixed: the definitions come first, key by key, then the name, then the
// place for the index. The tests write into the definitions as they go: `order` becomes the number
// of entries of a node and `lengths` the true lengths, also when a later test fails. A file that
// came into being and can't be finished is removed again.
#include <algorithm>

#include "core/validators.h"
#include "files/file_mark.h"
#include "files/files.h"
#include "index/index_memory.h"
#include "index/node_io.h"
#include "multiuser/held_range.h"

using namespace tarsil;

namespace {

constexpr int32_t automatic_node_bytes =
    8205; // what the entries of a node of automatic order may take

// The lengths of fixed types are written to the definition.
int32_t check_fields(key_definition& definition)
{
    for (int32_t i = 0; i < definition.field_count; ++i) {
        const int32_t fixed = fixed_field_length(definition.types[i]);
        int32_t& length = definition.lengths[i];
        if (fixed == unknown_letter) return TS_KEY_BAD_TYPE;
        if (fixed != 0) length = fixed;
        if (length < 1 || length > TS_MAX_STRING_FIELD) return TS_KEY_BAD_STRING_LENGTH;
    }
    return TS_OK;
}

int32_t sum_of_lengths(const key_definition& definition)
{
    int32_t sum = 0;
    for (int32_t i = 0; i < definition.field_count; ++i) sum += definition.lengths[i];
    return sum;
}

int64_t automatic_entries(int64_t charge)
{
    const int64_t even = automatic_node_bytes / charge / 2 * 2;
    return std::max(even, int64_t{min_entries});
}

// `end` is where the root of the key goes in the new file, and moves behind it. A key whose nodes,
// or whose root with those before it, would not fit in a file is refused as one of too large an
// order.
int32_t check_definition(key_definition& definition, char& cursor, int32_t& node_bytes,
                         int64_t& end)
{
    const int64_t order = definition.order;
    if (order == 1) return TS_KEY_BAD_ORDER;
    definition.order *= 2;
    if (definition.field_count < 1 || definition.field_count > TS_MAX_KEY_FIELDS)
        return TS_KEY_BAD_FIELD_COUNT;
    int32_t code = check_fields(definition);
    if (code != TS_OK) return code;
    cursor = definition.cursor;
    code = normalise_yes_no(cursor);
    if (code != TS_OK) return code;

    const int32_t sum = sum_of_lengths(definition);
    const int64_t entries = order == 0
                                ? automatic_entries(entry_charge(sum, definition.field_count))
                                : 2 * order;
    if (order == 0) definition.order = static_cast<uint32_t>(entries);
    const int64_t bytes = node_size(entries, sum, definition.field_count);
    end += bytes;
    if (end > platform::max_file_bytes) return TS_KEY_BAD_ORDER;
    node_bytes = static_cast<int32_t>(bytes);
    return TS_OK;
}

int32_t check_definitions(int32_t key_count, key_definition* definitions, index_shape& shape)
{
    if (key_count < 0 || key_count > TS_MAX_KEYS) return TS_BAD_KEY_COUNT;
    shape.key_count = key_count;
    int64_t end = first_node_offset;
    for (int32_t number = 0; number < key_count; ++number) {
        const int32_t code = check_definition(definitions[number], shape.cursors[number],
                                              shape.node_bytes[number], end);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

key_record describe_key(const key_definition& definition, int32_t node_bytes, int32_t root_offset)
{
    key_record key = {};
    key.max_entries = static_cast<int32_t>(definition.order);
    key.node_bytes = node_bytes;
    key.field_count = definition.field_count;
    key.entry_key_bytes = sum_of_lengths(definition) + 4;
    key.root_offset = root_offset;
    for (int32_t i = 0; i < key.field_count; ++i) {
        key.fields[i].type = definition.types[i];
        key.fields[i].length = definition.lengths[i];
        key.fields[i].offset = definition.offsets[i];
    }
    return key;
}

void describe_index(index_slot& index, const key_definition* definitions, const index_shape& shape)
{
    index.dirty = no;
    index.key_count = shape.key_count;
    index.end_offset = first_node_offset;
    index.node_area_is_new = no;
    for (int32_t number = 0; number < shape.key_count; ++number) {
        key_slot& key = *index.keys[number];
        key.key_record = describe_key(definitions[number], shape.node_bytes[number],
                                      index.end_offset);
        index.end_offset += key.key_record.node_bytes;
        init_node(key.key_record, node_leaf, key.root_node);
    }
}

int32_t write_new_index(held_range& bracket, int32_t data_handle, int32_t index_handle)
{
    const index_slot& index = index_of(data_handle, index_handle);
    int32_t code = lock_if_needed(bracket, whole_index_file(data_handle, index_handle));
    if (code < 0) return code;
    code = write_magic(index.file, index_magic, data_handle, index_handle);
    if (code != TS_OK) return code;
    const int32_t bytes = write_file(index.file, &index.key_count, sizeof index.key_count);
    if (bytes != sizeof index.key_count) return TS_KEY_COUNT_WRITE_SHORT;
    code = write_key_records(data_handle, index_handle);
    if (code != TS_OK) return code;
    for (int32_t number = 0; number < index.key_count; ++number) {
        const key_slot& key = *index.keys[number];
        code = write_node({data_handle, index_handle, number}, key.root_node,
                          key.key_record.root_offset);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

} // namespace

int32_t tscrind32(int32_t data_handle, const char* name, int32_t key_count,
                  key_definition* definitions)
{
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    index_shape shape = {};
    code = check_definitions(key_count, definitions, shape);
    if (code != TS_OK) return code;
    if (tsIsFileThere32(name) == 1) return TS_CREATE_INDEX_FILE_EXISTS;

    const int32_t index_handle = reserve_index_slot(data_handle);
    if (index_handle < 0) return index_handle;
    code = alloc_index_memory(data_handle, index_handle, shape, alloc_stage::all);
    if (code != TS_OK) return code;

    index_slot& index = index_of(data_handle, index_handle);
    index.file = create_shared_file(name);
    if (index.file == platform::no_file) {
        release_index_memory(data_handle, index_handle);
        return TS_CREATE_INDEX_FAILED;
    }
    describe_index(index, definitions, shape);

    held_range bracket;
    code = write_new_index(bracket, data_handle, index_handle);
    if (code != TS_OK) {
        static_cast<void>(release_if_placed(bracket));
        discard_index(data_handle, index_handle, name);
        return code;
    }
    code = release_if_placed(bracket);
    if (code < 0) return code; // the file is whole and stays open in its slot
    return index_handle;
}
