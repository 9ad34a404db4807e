// The steps of a key that cursors and walks share: reading through a key, and searches by a value.
// Nothing here is for callers.
//
// Which reads are asked again and which stand inside locks: a search and a walk to an end name
// their place, so that a refused one is simply asked again. They hold the index file meanwhile, and
// give it up before they wait: else a node that another process splits between two of their steps
// would hide the record. A step may have moved the cursor when the read of its record is refused,
// and a nearest-value search steps too; both stand inside the locks of the data file and the index
// file, and so does every read of a variable-length record.
#pragma once

#include "tarsil32/file_walk.hpp"

namespace tarsil {

struct key_facts {
    int32_t order;
    int32_t node_bytes;
    bool has_cursor;
    std::vector<field> fields; // without names, which no file holds
};

namespace detail {

struct key_ref {
    std::shared_ptr<index_state> index;
    int32_t number = 0;

    bool is_open() const { return index && index->is_open(); }
    key_state& state() const { return index->keys[static_cast<size_t>(number)]; }
    const file_ref& file() const { return index->file; }
    int32_t data_handle() const { return index->file->handle; }
    int32_t handle() const { return index->handle; }
    uint32_t mask() const { return 1U << index->handle; }
};

inline status key_answer(const key_ref& key, int32_t code)
{
    if (code >= 0) return status(code);
    return status(code, key.index->name + ", key " + std::to_string(key.number));
}

// The record that a key has just read over the background of the probe, with its true length.
template <class Call>
int32_t measure(const key_ref& key, int32_t& deleted, size_t& length, Call& call)
{
    std::byte* const room = reserve::room();
    return key.file()->probe.measure(
        [&] {
            if (!key.state().has_cursor) return call(room, &deleted);
            const auto here = [&] {
                return tsgetci32(key.data_handle(), key.handle(), key.number, room, &deleted);
            };
            // The cursor has just been placed under this lock, so a change told now is an old one.
            const int32_t code = here();
            return code == TS_CURSOR_FILE_CHANGED ? here() : code;
        },
        length);
}

enum class key_read { asked_again, locked };

// The code of a successful call stays in the status: a nearest-value search has three of them.
template <class Call>
status read_key(const key_ref& key, record& into, key_read kind, const retry_choice& wait,
                Call&& call)
{
    if (!key.is_open()) return status(face::empty_handle);
    file_state& file = *key.file();
    std::byte* const room = file.room_to_read();
    if (room == nullptr) return status(face::no_room, file.name);
    result<file_lock> lock = file_lock();
    if (file.is_variable() || kind == key_read::locked) {
        lock = file_lock::around(key.file(), key.mask(), wait);
        if (!lock) return lock;
    }

    int32_t deleted = 0;
    size_t length = static_cast<size_t>(std::max(file.record_length, 0));
    if (file.is_variable()) file.probe.start();
    const int32_t found = file.persist(wait, [&] {
        const bool with_index = file.is_shared() && !lock->placed();
        const int32_t placed = with_index ? tslocki32(file.handle, key.handle()) : 0;
        if (placed < 0) return placed;
        const int32_t code = call(room, &deleted);
        if (placed == 1) (void)tsulocki32(file.handle, key.handle());
        return code;
    });
    if (found < 0) return key_answer(key, found);
    if (file.is_variable()) {
        const int32_t code = measure(key, deleted, length, call);
        if (code < 0) return key_answer(key, code);
    }
    into.number = 0;
    take_record(room, length, deleted, into);
    return key_answer(key, found);
}

inline int32_t read_key_facts(const file_ref& file, int32_t index_handle, int32_t key_number,
                              const retry_choice& wait, key_facts& facts)
{
    key_report report = {};
    char letter = 'n';
    const int32_t code = file->persist(wait, [&] {
        return tsstati32(file->handle, index_handle, key_number, &facts.order, &facts.node_bytes,
                         &letter, &report);
    });
    if (code < 0) return code;
    facts.has_cursor = letter == 'y';
    facts.fields = fields_of(report);
    return TS_OK;
}

// --- Searches ----------------------------------------------------------------------------------

enum class value_kind { whole, leading };

// A value of another key, or one made by hand, is refused before the library reads past its end.
inline status check_value(const key_ref& key, const result<key_value>& value, value_kind kind)
{
    if (!key.is_open()) return status(face::empty_handle);
    if (!value) return value;
    const std::vector<field>& shape = key.state().shape;
    const auto count = static_cast<size_t>(std::max(value->field_count, 0));
    if (count < 1 || count > shape.size())
        return status(face::wrong_length, "a key value of " + std::to_string(count) + " fields");
    if (kind == value_kind::whole && count != shape.size())
        return status(face::wrong_length, "a leading part of the key; find_leading takes it");
    size_t bytes = 0;
    for (size_t i = 0; i < count; ++i) bytes += static_cast<size_t>(shape[i].length);
    const auto last = static_cast<uint32_t>(shape[count - 1].length);
    if (value->bytes.size() != bytes || value->last_length > last)
        return status(face::wrong_length,
                      "a key value of " + std::to_string(value->bytes.size()) + " bytes");
    return {};
}

// The last field counts in full, or only as far as its text goes.
inline result<key_value> in_full(const key_ref& key, const result<key_value>& value)
{
    status fits = check_value(key, value, value_kind::leading);
    if (!fits) return fits;
    key_value full = *value;
    full.last_length = static_cast<uint32_t>(
        key.state().shape[static_cast<size_t>(full.field_count - 1)].length);
    return full;
}

inline status find_whole(const key_ref& key, record& into, const result<key_value>& value,
                         const retry_choice& wait)
{
    status fits = check_value(key, value, value_kind::whole);
    if (!fits) return fits;
    ++key.state().moves;
    return read_key(key, into, key_read::asked_again, wait, [&](void* room, int32_t* deleted) {
        return tsgeti32(key.data_handle(), key.handle(), key.number, value->bytes.data(), room,
                        deleted);
    });
}

inline status find_part(const key_ref& key, record& into, const result<key_value>& value,
                        const retry_choice& wait)
{
    status fits = check_value(key, value, value_kind::leading);
    if (!fits) return fits;
    ++key.state().moves;
    return read_key(key, into, key_read::asked_again, wait, [&](void* room, int32_t* deleted) {
        return tsgetip32(key.data_handle(), key.handle(), key.number, value->bytes.data(),
                         value->field_count, value->last_length, room, deleted);
    });
}

// A change by another process concerns the step back inside the search, which starts anew.
inline status find_nearest(const key_ref& key, record& into, const result<key_value>& value,
                           const retry_choice& wait)
{
    const result<key_value> full = in_full(key, value);
    if (!full) return full;
    ++key.state().moves;
    const auto search = [&](void* room, int32_t* deleted) {
        return tsgetipp32(key.data_handle(), key.handle(), key.number, full->bytes.data(),
                          full->field_count, full->last_length, room, deleted);
    };
    return read_key(key, into, key_read::locked, wait, [&](void* room, int32_t* deleted) {
        const int32_t code = search(room, deleted);
        return code == TS_CURSOR_FILE_CHANGED ? search(room, deleted) : code;
    });
}

// --- Ends and steps ----------------------------------------------------------------------------

using key_function = int32_t (*)(int32_t, int32_t, int32_t, void*, int32_t*);

// tsgetfi32 or tsgetli32. They test the count of records as this process knows it: in a shared file
// that says none the header is read first.
inline status read_end(const key_ref& key, record& into, key_function function,
                       const retry_choice& wait)
{
    if (!key.is_open()) return status(face::empty_handle);
    ++key.state().moves;
    return read_key(key, into, key_read::asked_again, wait, [&](void* room, int32_t* deleted) {
        const auto read = [&] {
            return function(key.data_handle(), key.handle(), key.number, room, deleted);
        };
        const int32_t code = read();
        if (code != TS_WALK_NO_RECORDS || !key.file()->is_shared()) return code;
        file_counts counts;
        const int32_t counted = read_counts(key.file(), wait, counts);
        if (counted < 0) return counted;
        return counts.records > 0 ? read() : code;
    });
}

// tsgetni32 or tsgetpi32, or tsgetci32, which moves nothing.
inline status read_step(const key_ref& key, record& into, key_function function,
                        const retry_choice& wait)
{
    if (!key.is_open()) return status(face::empty_handle);
    if (function != tsgetci32) ++key.state().moves;
    return read_key(key, into, key_read::locked, wait, [&](void* room, int32_t* deleted) {
        return function(key.data_handle(), key.handle(), key.number, room, deleted);
    });
}

// Places the cursor anew on the entry of the record it stands on, when the tree may have changed:
// by the record's place in the file. The library searches from its copy of the root; asking for the
// key's facts brings that up to date. `packed` gets the key of the record that is there now.
inline int32_t place_again(const key_ref& key, const retry_choice& wait,
                           std::array<std::byte, TS_MAX_PACKED_KEY>& packed)
{
    std::byte* const room = key.file()->room();
    if (room == nullptr) return face::no_room;
    ++key.file()->moves;
    ++key.state().moves;
    int32_t number = 0;
    int32_t code = tssetd2i32(key.data_handle(), key.handle(), key.number, &number);
    if (code < 0) return code;
    key_facts facts = {};
    code = read_key_facts(key.file(), key.handle(), key.number, wait, facts);
    if (code < 0) return code;
    code = tsseti2d32(key.data_handle(), key.handle(), key.number, room, packed.data(), &number);
    return code == 1 ? int32_t{TS_CURSOR_FILE_CHANGED} : code;
}

} // namespace detail

} // namespace tarsil
