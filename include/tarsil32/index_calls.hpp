// The longer bodies of index.hpp: facts of keys, changes through a key, and the making of index
// files by a data file.
#pragma once

#include "tarsil32/index.hpp"

namespace tarsil {

inline result<key_facts> key_cursor::facts(const retry_choice& wait) const
{
    if (!is_open()) return empty();
    key_facts found = {};
    const int32_t code = detail::read_key_facts(key_.file(), key_.handle(), key_.number, wait,
                                                found);
    if (code < 0) return key_answer(key_, code);
    return found;
}

inline result<nearest_record> key_cursor::nearest(const result<key_value>& value,
                                                  const retry_choice& wait) const
{
    nearest_record nearest = {};
    status done = find_nearest(key_, nearest.found, value, wait);
    if (!done) return done;
    nearest.where = static_cast<nearness>(done.code());
    return nearest;
}

inline key_walk key_cursor::prefix(const result<key_value>& value,
                                   const walk_options& options) const
{
    const status fits = check_value(key_, value, detail::value_kind::leading);
    if (!fits || value->last_length > 0)
        return key_walk(key_, key_walk::start::matching, value, options);
    key_value shorter = *value;
    if (--shorter.field_count == 0) return all(options);
    const auto& shape = key_.state().shape;
    shorter.bytes.resize(
        shorter.bytes.size() -
        static_cast<size_t>(shape[static_cast<size_t>(shorter.field_count)].length));
    return with(shorter, options);
}

// A change by another process is told once, and the search by value starts anew anyway.
template <class Function>
status key_cursor::change_found(const result<key_value>& value, Function function,
                                const retry_choice& wait) const
{
    status fits = check_value(key_, value, detail::value_kind::whole);
    if (!fits) return fits;
    ++key_.state().moves;
    return detail::change(key_.file(), 0, key_.mask(), wait, [&] {
        const auto call = [&] {
            return function(key_.data_handle(), key_.handle(), key_.number, value->bytes.data());
        };
        const int32_t code = call();
        return code == TS_CURSOR_FILE_CHANGED ? call() : code;
    });
}

template <class Call>
result<updated> key_cursor::replace(std::span<const std::byte> bytes, const retry_choice& wait,
                                    Call&& call) const
{
    if (!is_open()) return empty();
    const detail::file_ref& file = key_.file();
    status fits = detail::check_bytes(*file, bytes);
    if (!fits) return fits;
    std::byte* const scratch = file->room();
    if (scratch == nullptr) return status(face::no_room, file->name);
    status done = detail::change(file, 0, file_lock::all_indexes(*file), wait, [&] {
        return call(static_cast<int32_t>(bytes.size()), static_cast<void*>(scratch));
    });
    if (done.code() == static_cast<int32_t>(updated::moved) || done.half_done())
        detail::move_all_cursors(*file);
    if (!done) return done;
    return static_cast<updated>(done.code());
}

inline result<updated> key_cursor::update(const result<key_value>& value,
                                          std::span<const std::byte> bytes, key_change keys,
                                          const retry_choice& wait) const
{
    status fits = check_value(key_, value, detail::value_kind::whole);
    if (!fits) return fits;
    ++key_.state().moves;
    int32_t deleted = 0;
    return replace(bytes, wait, [&](int32_t length, void* scratch) {
        return tsupi32(key_.data_handle(), key_.handle(), key_.number, value->bytes.data(),
                       bytes.data(), length, &deleted, scratch, static_cast<int32_t>(keys));
    });
}

inline result<updated> key_cursor::update_current(std::span<const std::byte> bytes, key_change keys,
                                                  const retry_choice& wait) const
{
    int32_t deleted = 0;
    return replace(bytes, wait, [&](int32_t length, void* scratch) {
        return tsupci32(key_.data_handle(), key_.handle(), key_.number, bytes.data(), length,
                        &deleted, scratch, static_cast<int32_t>(keys));
    });
}

inline result<int32_t> key_cursor::make_current(const retry_choice& wait) const
{
    if (!is_open()) return empty();
    ++key_.file()->moves;
    int32_t number = 0;
    const int32_t code = key_.file()->persist(
        wait, [&] { return tssetd2i32(key_.data_handle(), key_.handle(), key_.number, &number); });
    if (code < 0) return key_answer(key_, code);
    return number;
}

// The header is read first: else the change that this is for would be told once more.
inline status key_cursor::place_again(const retry_choice& wait) const
{
    if (!is_open()) return empty();
    const result<file_lock> lock = file_lock::around(key_.file(), key_.mask(), wait);
    if (!lock) return lock;
    detail::file_counts counts;
    int32_t code = read_counts(key_.file(), wait, counts);
    if (code < 0) return key_answer(key_, code);
    std::array<std::byte, TS_MAX_PACKED_KEY> packed;
    code = detail::place_again(key_, wait, packed);
    return key_answer(key_, code);
}

// The library searches from its copy of the root; asking for the key's facts brings that up to
// date.
inline result<bool> key_cursor::seek_current(const retry_choice& wait) const
{
    if (!is_open()) return empty();
    detail::file_state& file = *key_.file();
    std::byte* const room = file.room();
    if (room == nullptr) return status(face::no_room, file.name);
    const result<file_lock> lock = file_lock::around(key_.file(), key_.mask(), wait);
    if (!lock) return lock;
    if (file.is_shared()) {
        const result<key_facts> fresh = facts(wait);
        if (!fresh) return fresh;
    }
    ++key_.state().moves;
    std::array<std::byte, TS_MAX_PACKED_KEY> packed;
    int32_t number = 0;
    const int32_t code = tsseti2d32(key_.data_handle(), key_.handle(), key_.number, room,
                                    packed.data(), &number);
    if (code < 0) return key_answer(key_, code);
    return code == 0;
}

// --- Index files of a data file ----------------------------------------------------------------

// A new key over bytes that a record doesn't have is a mistake: all its values would be zeros.
inline status data_file::check_definitions(std::span<const key_definition> definitions) const
{
    if (!is_open()) return status(face::empty_handle);
    const size_t bytes = file_->is_variable() ? detail::reserve::size
                                              : static_cast<size_t>(file_->record_length);
    for (size_t i = 0; i < definitions.size(); ++i) {
        for (const field& one : detail::fields_of(definitions[i])) {
            if (detail::lies_within(one, bytes)) continue;
            return status(face::bad_layout,
                          "key " + std::to_string(i) + ", " + one.name + ": outside the record");
        }
    }
    return {};
}

// The object for an index file that the library has just opened: it closes it if its keys can't be
// read. Keys that reach beyond a record are taken as they are; zeros stand for what isn't there.
inline result<index> data_file::adopt_index(int32_t handle, const std::string& name,
                                            const retry_choice& wait) const
{
    if (handle < 0) return status(handle, name);
    auto state = std::make_shared<detail::index_state>();
    state->file = file_;
    state->handle = handle;
    state->name = name;
    file_->indexes[static_cast<size_t>(handle)] = state.get();
    index made(state);
    for (int32_t number = 0; number < TS_MAX_KEYS; ++number) {
        key_facts facts = {};
        const int32_t code = detail::read_key_facts(file_, handle, number, wait, facts);
        if (code == TS_BAD_KEY_NUMBER) break;
        if (code < 0) return status(code, name);
        detail::key_state key;
        key.shape = std::move(facts.fields);
        key.has_cursor = facts.has_cursor;
        state->keys.push_back(std::move(key));
    }
    return made;
}

// The library writes into the definitions: each try gets fresh ones.
inline result<index> data_file::create_index(const std::string& name,
                                             std::span<const key_definition> definitions,
                                             const retry_choice& wait) const
{
    status fits = check_definitions(definitions);
    if (!fits) return fits;
    const int32_t handle = file_->persist(wait, [&] {
        std::vector<key_definition> fresh(definitions.begin(), definitions.end());
        return tscrind32(file_->handle, name.c_str(), static_cast<int32_t>(fresh.size()),
                         fresh.data());
    });
    return adopt_index(handle, name, wait);
}

// In a file without records the library would open the index and give no handle for it.
inline result<index> data_file::build_index(const std::string& name,
                                            std::span<const key_definition> definitions,
                                            const retry_choice& wait) const
{
    status fits = check_definitions(definitions);
    if (!fits) return fits;
    const result<file_lock> lock = file_lock::around(file_, 0, wait);
    if (!lock) return lock;
    const result<file_facts> now = facts(wait);
    if (!now) return now;
    if (now->records == 0) return create_index(name, definitions, wait);
    std::byte* const room = file_->room();
    if (room == nullptr) return status(face::no_room, file_->name);
    ++file_->moves;
    const int32_t handle = file_->persist(wait, [&] {
        std::vector<key_definition> fresh(definitions.begin(), definitions.end());
        return tscrindd32(file_->handle, name.c_str(), static_cast<int32_t>(fresh.size()),
                          fresh.data(), room);
    });
    return adopt_index(handle, name, wait);
}

inline result<index> data_file::open_index(const std::string& name,
                                           const std::vector<cursor>& cursors,
                                           const retry_choice& wait) const
{
    if (!is_open()) return status(face::empty_handle);
    const int32_t handle = file_->persist(wait, [&] {
        std::array<char, TS_MAX_KEYS> letters;
        letters.fill(static_cast<char>(cursor::kept));
        for (size_t i = 0; i < std::min(cursors.size(), letters.size()); ++i)
            letters[i] = static_cast<char>(cursors[i]);
        return tsopeni32(file_->handle, name.c_str(), letters.data());
    });
    return adopt_index(handle, name, wait);
}

} // namespace tarsil
