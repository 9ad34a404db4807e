// What the objects of the face share behind their handles: the started library, an open data file,
// an open index file. Nothing here is for callers.
//
// A file's state is shared by all objects made from it and holds on to the session, so that the
// library is freed after the last open file, whatever the order in which objects go. Closing sets
// the handle to -1 and lets go of the session, and every call through an object that is left behind
// answers face::empty_handle.
//
// Nothing here is safe against several threads at once, since the library isn't.
#pragma once

#include <array>
#include <memory>

#include "tarsil32/layout.hpp"
#include "tarsil32/retry.hpp"

namespace tarsil {

struct library_options {
    bool multi_user = false;    // several processes share the files
    bool write_through = false; // every write reaches stable storage
    bool reuse_deleted = false; // adds overwrite deleted records
    int32_t precision = 3;      // digits in which float and double keys are told apart
    retry wait = {};            // how long calls wait for other processes
};

namespace detail {

inline constexpr int32_t no_handle = -1;
inline constexpr int32_t largest_own_room = 1 << 20;

struct session {
    explicit session(const library_options& chosen) : options(chosen) {}
    ~session() { tsfree32(); }
    session(const session&) = delete;
    session& operator=(const session&) = delete;

    const retry& wait_of(const retry_choice& wait) const { return wait ? *wait : options.wait; }

    library_options options;
    uint64_t waits = 0; // pauses made because another process held a range
};

struct key_state {
    std::vector<field> shape;
    bool has_cursor = false;
    uint64_t moves = 0; // calls that may have moved the cursor
    status walk;        // how the last walk ended
};

struct index_state;

struct file_state {
    std::shared_ptr<session> owner;
    int32_t handle = no_handle;
    int32_t record_length = 0;
    std::string name;
    std::array<index_state*, TS_MAX_INDEX_FILES> indexes{}; // those that are open
    int32_t whole_locks = 0; // file_locks that hold the whole data file
    std::vector<int32_t> locked_records;
    uint64_t moves = 0; // calls that may have moved the current record
    status walk;
    length_probe probe;
    std::vector<std::byte> own_room;

    bool is_shared() const { return owner->options.multi_user; }
    bool is_variable() const { return record_length == TS_VARIABLE_LENGTH; }

    // Room for any record that the library may read here, or null. A header can tell any length,
    // so that nothing large is allocated by it.
    std::byte* room()
    {
        if (is_variable() || is_shared() || record_length > largest_own_room)
            return reserve::room();
        own_room.resize(static_cast<size_t>(record_length));
        return own_room.data();
    }

    // The same for a read of one record. A damaged frame can deliver less than record_length: then
    // zeros follow, not what is left of the record before.
    std::byte* room_to_read()
    {
        std::byte* const place = room();
        if (place != nullptr && !is_variable())
            std::memset(place, 0, static_cast<size_t>(record_length));
        return place;
    }

    status answer(int32_t code) const { return code < 0 ? status(code, name) : status(code); }

    // Repeats a step that has no effect when it is refused.
    template <class Step> int32_t persist(const retry_choice& wait, Step&& step)
    {
        return detail::persist(owner->wait_of(wait), owner->waits, step);
    }
};

struct index_state {
    std::shared_ptr<file_state> file;
    int32_t handle = no_handle;
    std::string name;
    std::vector<key_state> keys;

    ~index_state() { detach(); }
    bool is_open() const { return handle != no_handle && file->handle != no_handle; }
    void detach()
    {
        if (is_open()) file->indexes[static_cast<size_t>(handle)] = nullptr;
        handle = no_handle;
    }
};

// An add, an update or a purge moves the cursors of all open keys.
inline void move_all_cursors(const file_state& file)
{
    for (index_state* const one : file.indexes)
        if (one != nullptr)
            for (key_state& key : one->keys) ++key.moves;
}

// Codes with which a changing call says that it changed nothing. A refused range is none of its
// business here: the face has placed all locks before the call, and only a write that goes through
// to the disk gives them up half way.
inline bool changed_nothing(const file_state& file, int32_t code)
{
    switch (code) {
    case TS_LOCK_REFUSED: return !file.owner->options.write_through;
    case TS_NOT_STARTED:
    case TS_BAD_DATA_HANDLE:
    case TS_DATA_NOT_OPEN:
    case TS_BAD_INDEX_HANDLE:
    case TS_INDEX_NOT_OPEN:
    case TS_BAD_KEY_NUMBER:
    case TS_CURSOR_NONE:
    case TS_CURSOR_FILE_CHANGED:
    case TS_FIND_NO_ENTRY:
    case TS_BAD_RECORD_NUMBER:
    case TS_UPDATE_NO_CURRENT:
    case TS_DELETE_NO_CURRENT:
    case TS_UPDATE_LENGTH_DIFFERS:
    case TS_UPDATE_KEY_CHANGED:
    case TS_UPDATE_RECORD_DELETED:
    case TS_UPDATE_CURRENT_DELETED:
    case TS_UPDATE_FOUND_DELETED:
    case TS_UPDATE_CURSOR_DELETED:
    case TS_DELETE_RECORD_DELETED:
    case TS_DELETE_CURRENT_DELETED:
    case TS_DELETE_FOUND_DELETED:
    case TS_DELETE_CURSOR_DELETED:
    case TS_UNDELETE_RECORD_LIVE:
    case TS_UNDELETE_CURRENT_LIVE:
    case TS_UNDELETE_FOUND_LIVE:
    case TS_UNDELETE_CURSOR_LIVE:
    case TS_PURGE_NOTHING_DELETED: return true;
    default: return code >= 0;
    }
}

inline status answer_of_change(const file_state& file, int32_t code)
{
    if (code >= 0) return status(code);
    return status(code, file.name, !changed_nothing(file, code));
}

} // namespace detail

} // namespace tarsil
