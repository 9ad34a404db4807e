// The memory of open index files; see index/index_memory.h. All blocks come zero-filled.
#include "index/index_memory.h"

#include <algorithm>

#include "multiuser/range_lock.h"

namespace tarsil {

namespace {

constexpr int32_t scratch_slack = 4; // behind the largest node in node_scratch
constexpr int32_t shared_slack = 8;  // the same in shared_node

template <class block> block* allocate(int64_t count)
{
    return static_cast<block*>(platform::LocalAlloc(static_cast<size_t>(count) * sizeof(block)));
}

template <class block> void release(block*& buffer)
{
    platform::LocalFree(buffer);
    buffer = nullptr;
}

} // namespace

int32_t reserve_index_slot(int32_t data_handle)
{
    data_slot& slot = data_slots[data_handle];
    if (slot.open_index_count >= TS_MAX_INDEX_FILES) return TS_NO_FREE_INDEX_SLOT;
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (slot.indexes[index_handle] != nullptr) continue;
        ++slot.open_index_count;
        return index_handle;
    }
    return TS_NO_FREE_INDEX_SLOT;
}

namespace {

int32_t alloc_index_slot(int32_t data_handle, int32_t index_handle)
{
    index_slot* index = allocate<index_slot>(1);
    if (index == nullptr) {
        free_index_memory(data_handle, index_handle, free_stage::nothing);
        return TS_NO_MEMORY_INDEX_SLOT;
    }
    data_slots[data_handle].indexes[index_handle] = index;
    return TS_OK;
}

int32_t alloc_key_slots(int32_t data_handle, int32_t index_handle, int32_t key_count)
{
    for (int32_t number = 0; number < key_count; ++number) {
        key_slot*& key = index_of(data_handle, index_handle).keys[number];
        key = allocate<key_slot>(1);
        if (key == nullptr) {
            free_index_memory(data_handle, index_handle, free_stage::slots);
            return TS_NO_MEMORY_KEY_SLOT;
        }
        key->position = no_position;
    }
    return TS_OK;
}

enum class buffer_kind : uint8_t { root_node, work_node, saved_path };

// One buffer for every key, or for every key with a cursor; false at the first that can't be had.
bool alloc_buffers_of_kind(const index_slot& index, const index_shape& shape, buffer_kind kind)
{
    for (int32_t number = 0; number < shape.key_count; ++number) {
        key_slot& key = *index.keys[number];
        if (kind != buffer_kind::root_node && shape.cursors[number] != yes) continue;

        if (kind == buffer_kind::saved_path) {
            key.saved_path = allocate<int32_t>(path_words);
            if (key.saved_path == nullptr) return false;
            continue;
        }
        unsigned char*& node = kind == buffer_kind::root_node ? key.root_node : key.work_node;
        node = allocate<unsigned char>(shape.node_bytes[number]);
        if (node == nullptr) return false;
    }
    return true;
}

int32_t alloc_buffers(int32_t data_handle, int32_t index_handle, const index_shape& shape)
{
    struct step {
        buffer_kind kind;
        free_stage on_failure;
        int32_t code;
    };
    constexpr step steps[] = {
        {buffer_kind::root_node, free_stage::root_nodes, TS_NO_MEMORY_ROOT_NODE},
        {buffer_kind::work_node, free_stage::work_nodes, TS_NO_MEMORY_WORK_NODE},
        {buffer_kind::saved_path, free_stage::saved_paths, TS_NO_MEMORY_SAVED_PATH}};
    for (const step& current : steps) {
        if (alloc_buffers_of_kind(index_of(data_handle, index_handle), shape, current.kind))
            continue;
        free_index_memory(data_handle, index_handle, current.on_failure);
        return current.code;
    }

    if (shape.key_count < 1) return TS_OK;
    const int32_t code = grow_scratch(
        *std::max_element(shape.node_bytes, shape.node_bytes + shape.key_count));
    if (code != TS_OK) release_index_memory(data_handle, index_handle);
    return code;
}

} // namespace

int32_t alloc_index_memory(int32_t data_handle, int32_t index_handle, const index_shape& shape,
                           alloc_stage stage)
{
    const bool all = stage == alloc_stage::all;
    if (all || stage == alloc_stage::index_slot) {
        const int32_t code = alloc_index_slot(data_handle, index_handle);
        if (code != TS_OK) return code;
    }
    if (all || stage == alloc_stage::key_slots) {
        const int32_t code = alloc_key_slots(data_handle, index_handle, shape.key_count);
        if (code != TS_OK) return code;
    }
    if (all || stage == alloc_stage::buffers)
        return alloc_buffers(data_handle, index_handle, shape);
    return TS_OK;
}

void free_index_memory(int32_t data_handle, int32_t index_handle, free_stage stage)
{
    data_slot& slot = data_slots[data_handle];
    --slot.open_index_count;
    if (stage == free_stage::nothing) return;

    for (key_slot*& key : slot.indexes[index_handle]->keys) {
        if (key == nullptr) continue;
        if (stage >= free_stage::saved_paths) release(key->saved_path);
        if (stage >= free_stage::work_nodes) release(key->work_node);
        if (stage >= free_stage::root_nodes) release(key->root_node);
        release(key);
    }
    release(slot.indexes[index_handle]);
}

void release_index_memory(int32_t data_handle, int32_t index_handle)
{
    for (key_slot* key : index_of(data_handle, index_handle).keys) {
        // A borrowed node may also be a shared_node of earlier days, which is gone since.
        if (key != nullptr && !has_cursor(*key)) key->work_node = nullptr;
    }
    free_index_memory(data_handle, index_handle, free_stage::saved_paths);
}

namespace {

// Both buffers, of these sizes, or as far as it went.
void alloc_scratch(int32_t node_scratch_bytes, int32_t shared_node_bytes)
{
    node_scratch = allocate<unsigned char>(node_scratch_bytes);
    if (node_scratch != nullptr) shared_node = allocate<unsigned char>(shared_node_bytes);
}

} // namespace

int32_t grow_scratch(int32_t bytes)
{
    if (has_scratch() && bytes <= scratch_bytes) return TS_OK;
    release(node_scratch);
    release(shared_node);

    // Buffers that were lost come back in no smaller size than before: indexes with larger nodes
    // may still be open.
    const int32_t wanted = std::max(bytes, scratch_bytes);
    alloc_scratch(wanted + scratch_slack, wanted + shared_slack);
    if (has_scratch()) {
        scratch_bytes = wanted + scratch_slack;
        return TS_OK;
    }

    release(node_scratch);
    if (scratch_bytes == 0) return TS_NO_MEMORY_SCRATCH;
    alloc_scratch(scratch_bytes, scratch_bytes);
    if (node_scratch == nullptr) return TS_SCRATCH_LOST;
    if (shared_node == nullptr) return TS_SHARED_NODE_LOST;
    return TS_NO_MEMORY_SCRATCH;
}

void close_index_file(platform::file_handle file, int32_t data_handle, int32_t index_handle)
{
    if (file == platform::no_file) return;
    platform::CloseHandle(file);
    forget_ranges(data_handle, index_handle);
}

void discard_index(int32_t data_handle, int32_t index_handle, const char* name)
{
    close_index_file(index_of(data_handle, index_handle).file, data_handle, index_handle);
    platform::DeleteFileA(name);
    release_index_memory(data_handle, index_handle);
}

} // namespace tarsil
