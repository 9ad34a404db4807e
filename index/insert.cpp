// Insertion where there is room, which is the rule; index/split.cpp makes room where there is none.
//
// The record is packed once: the packed key is what the search compares, and with the record's
// offset in front of it, it is the new entry as it stands. Of a leaf with room only the entries
// from the new one on are in work_node where no cursor asks for more, and only they are written.
#include "index/insert.h"

#include <cstring>

#include "index/node_io.h"
#include "index/search.h"
#include "index/split.h"

namespace tarsil {

void put_entry(const key_record& record, const leaf_place& place, const unsigned char* packed)
{
    const auto stride = static_cast<size_t>(entry_stride(record));
    unsigned char* entry = entry_at(record, place.node, place.position);
    // What the last step displaces is an unused entry, so that the cleared ones stay cleared.
    std::memmove(entry + stride, entry, static_cast<size_t>(place.count - place.position) * stride);

    set_entry_link(entry, record_of_packed_key(record, packed));
    std::memcpy(packed_key(entry), packed, static_cast<size_t>(record.entry_key_bytes));
    set_entry_count(record, place.node, place.count + 1);
}

namespace {

int32_t insert_into_leaf(const key_id& id, const search_end& place, const unsigned char* packed)
{
    key_slot& key = key_of(id);
    put_entry(key.key_record, {key.work_node, place.node_offset, place.position, place.count},
              packed);
    const bool is_root = key.key_record.root_offset == place.node_offset;
    // What the file holds of the root isn't looked at, so nothing of it is relied on.
    const int32_t code = write_node_from(id, key.work_node, place.node_offset,
                                         is_root ? 0 : place.position);
    if (code != TS_OK) return code;

    key.position = place.position;
    if (is_root)
        std::memcpy(key.root_node, key.work_node, static_cast<size_t>(key.key_record.node_bytes));
    save_path(key);
    return TS_OK;
}

} // namespace

int32_t tree_insert(const key_id& id, const record_image& record, int32_t record_offset)
{
    known_way unknown;
    unknown.end.node_offset = no_offset;
    return tree_insert_along(id, record, record_offset, unknown);
}

int32_t tree_insert_along(const key_id& id, const record_image& record, int32_t record_offset,
                          const known_way& way)
{
    const key_record& key = key_of(id).key_record;
    unsigned char packed[max_packed_key_bytes];
    pack_key(key, record, record_offset, packed);

    search_end place;
    const int32_t result = take_known_way(id, way, packed, place);
    if (result < 0) return result;
    // In a sound tree no way ends at a missing child; there is no leaf to put the entry in.
    if (place.node_offset == no_offset) return TS_NODE_DAMAGED;
    index_of(id).dirty = yes;

    if (place.count < key.max_entries) return insert_into_leaf(id, place, packed);
    return insert_by_split(id, place, packed);
}

} // namespace tarsil
