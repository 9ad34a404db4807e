// An open data file: facts, records by number and in file order, adds, updates, deletes, locks, and
// the index files that belong to it.
//
// The object owns the file and closes it with its index files when it goes; close() does the same
// and tells how it went. Objects made from it (indexes, keys, walks, locks) then answer
// face::empty_handle. Made by library::open, create and rebuild.
//
// Waiting for other processes, call by call:
//   facts, fields, position, get, first, last, next, current   asked again: they name their place
//   previous, all calls on variable-length records             inside the file's lock
//   erase, undelete                                            inside the file's lock
//   add, update, purge, build_index                            inside the locks of all open files
//   create_index, open_index                                   asked again: they undo themselves
// Inside a lock nothing is refused (file_lock.hpp tells the exception), so nothing happens twice.
// The lock around an add also closes a gap of the library's own: two processes can't both find that
// a key value is new and then both store it.
#pragma once

#include "tarsil32/file_walk.hpp"

namespace tarsil {

class index;

enum class duplicates : char { refuse = 'n', allow = 'y' };

// What an update does when a field of an open key changes: refuse it; delete the old record and add
// the new one, whose key values must be new in all keys; the same with repeated values allowed.
enum class key_change : int32_t { refuse = 0, move_if_unique = 1, move = 2 };

enum class updated : int32_t { in_place = 0, moved = 1 };

struct file_facts {
    int32_t records;       // deleted ones included
    int32_t deleted;       // records marked deleted
    int32_t record_length; // TS_VARIABLE_LENGTH for variable
    int32_t current;       // number of the current record, 0 for none
    int32_t fields;
};

struct file_position {
    int32_t number;
    int32_t length;
    bool deleted;
};

struct format_version {
    int32_t high;
    int32_t low;
};

class data_file {
public:
    data_file() = default;
    data_file(data_file&&) noexcept = default;
    data_file& operator=(data_file&& other) noexcept
    {
        if (this != &other) {
            (void)close();
            file_ = std::move(other.file_);
        }
        return *this;
    }
    ~data_file() { (void)close(); }

    bool is_open() const { return detail::is_open(file_); }
    int32_t handle() const { return is_open() ? file_->handle : detail::no_handle; }
    std::string name() const { return file_ ? file_->name : std::string(); }
    int32_t record_length() const { return is_open() ? file_->record_length : 0; }

    // After a failure the file is still open and the call may be repeated.
    status close()
    {
        if (!is_open()) return {};
        const int32_t code = tsclosed32(file_->handle);
        if (code < 0) return file_->answer(code);
        file_->handle = detail::no_handle;
        file_->owner.reset();
        return {};
    }

    // --- Facts ---------------------------------------------------------------------------------

    result<file_facts> facts(const retry_choice& wait = {}) const;
    result<std::vector<field_entry>> fields(const retry_choice& wait = {}) const;
    result<format_version> version(const retry_choice& wait = {}) const;
    result<file_position> position(const retry_choice& wait = {}) const;

    // --- Reading -------------------------------------------------------------------------------

    result<record> get(int32_t number, const retry_choice& wait = {}) const
    {
        record got;
        status read = detail::read_number(file_, got, number, wait);
        if (!read) return read;
        return got;
    }
    result<record> next(const retry_choice& wait = {}) const { return read(tsgetnd32, 0, wait); }
    result<record> first(const retry_choice& wait = {}) const { return read(tsgetfd32, 1, wait); }
    result<record> last(const retry_choice& wait = {}) const { return read(tsgetld32, 0, wait); }
    result<record> current(const retry_choice& wait = {}) const { return read(tsgetcd32, 0, wait); }
    // Moves the current record even when its read fails, hence the lock.
    result<record> previous(const retry_choice& wait = {}) const
    {
        return read(tsgetpd32, 0, wait, detail::refused_read::may_move);
    }

    // All records in file order, from the first; see file_walk.hpp.
    file_walk records(const walk_options& options = {}) const { return file_walk(file_, options); }
    // How the last walk over records() ended.
    status walk_state() const { return file_ ? file_->walk : status(face::empty_handle); }

    // --- Changing ------------------------------------------------------------------------------

    // Stores a record and its keys; it becomes the current one. With half_done() the record is
    // stored and some keys lack it: repair the cause, then purge or build the index anew.
    status add(std::span<const std::byte> bytes, duplicates repeated = duplicates::refuse,
               const retry_choice& wait = {}) const;

    status erase(int32_t number, const retry_choice& wait = {}) const
    {
        return change(number, wait, [&] { return tsdeld32(handle(), number); });
    }
    status undelete(int32_t number, const retry_choice& wait = {}) const
    {
        return change(0, wait, [&] { return tsundeld32(handle(), number); });
    }
    status erase_current(const retry_choice& wait = {}) const
    {
        return change(0, wait, [&] { return tsdelcd32(handle()); });
    }
    status undelete_current(const retry_choice& wait = {}) const
    {
        return change(0, wait, [&] { return tsudelcd32(handle()); });
    }

    // Replaces a record. With half_done() after a move the old record may be deleted and the new
    // one not stored: undelete brings the old one back.
    result<updated> update(int32_t number, std::span<const std::byte> bytes,
                           key_change keys = key_change::refuse,
                           const retry_choice& wait = {}) const;
    result<updated> update_current(std::span<const std::byte> bytes,
                                   key_change keys = key_change::refuse,
                                   const retry_choice& wait = {}) const;

    // Takes the deleted records out and builds the open indexes anew; answers how many went.
    // Records get new numbers, and index files that aren't open are void.
    result<int32_t> purge(const retry_choice& wait = {}) const;

    // --- Index files ---------------------------------------------------------------------------

    // A new index file: empty, or filled from the records. The definitions stay as they are.
    result<index> create_index(const std::string& name, std::span<const key_definition> definitions,
                               const retry_choice& wait = {}) const;
    result<index> build_index(const std::string& name, std::span<const key_definition> definitions,
                              const retry_choice& wait = {}) const;
    // cursors: one per key of the file; keys beyond them have cursors.
    result<index> open_index(const std::string& name, const std::vector<cursor>& cursors = {},
                             const retry_choice& wait = {}) const;

    // --- Locks (multi-user mode) ---------------------------------------------------------------

    result<file_lock> lock(const retry_choice& wait = {}) const { return lock_files(0, wait); }
    // The file and all its open index files.
    result<file_lock> lock_all(const retry_choice& wait = {}) const
    {
        return lock_files(is_open() ? file_lock::all_indexes(*file_) : 0, wait);
    }
    // One record of a file of fixed length. It becomes the current one, also at the release.
    result<file_lock> lock_record(int32_t number, const retry_choice& wait = {}) const;

private:
    friend class library;
    explicit data_file(detail::file_ref file) : file_(std::move(file)) {}

    template <class Function>
    result<record> read(Function function, int32_t number, const retry_choice& wait,
                        detail::refused_read kind = detail::refused_read::stays) const
    {
        record got;
        status done = detail::read_record(
            file_, got, number, kind, wait,
            [&](void* room, int32_t* deleted) { return function(file_->handle, room, deleted); });
        if (!done) return done;
        return got;
    }

    template <class Call> status change(int32_t number, const retry_choice& wait, Call&& call) const
    {
        return detail::change(file_, number, 0, wait, call);
    }

    template <class Call>
    result<updated> replace(int32_t number, std::span<const std::byte> bytes, key_change keys,
                            const retry_choice& wait, Call&& call) const;
    result<file_lock> lock_files(uint32_t indexes, const retry_choice& wait) const;
    result<index> adopt_index(int32_t handle, const std::string& name,
                              const retry_choice& wait) const;
    status check_definitions(std::span<const key_definition> definitions) const;

    detail::file_ref file_;
};

inline result<file_facts> data_file::facts(const retry_choice& wait) const
{
    if (!is_open()) return status(face::empty_handle);
    detail::file_counts counts;
    const int32_t code = detail::read_counts(file_, wait, counts);
    if (code < 0) return file_->answer(code);
    return file_facts{counts.records, counts.deleted, counts.record_length, counts.current,
                      counts.fields};
}

// The number of fields is known only from a header that another program could change before the
// table is read: the reserve has room for any.
inline result<std::vector<field_entry>> data_file::fields(const retry_choice& wait) const
{
    if (!is_open()) return status(face::empty_handle);
    std::byte* const room = detail::reserve::room();
    if (room == nullptr) return status(face::no_room, file_->name);
    void* const table = room;
    const int32_t count = file_->persist(
        wait, [&] { return tsfields32(file_->handle, static_cast<field_entry*>(table)); });
    if (count < 0) return file_->answer(count);
    std::vector<field_entry> fields(static_cast<size_t>(count));
    if (count > 0) std::memcpy(fields.data(), room, fields.size() * sizeof(field_entry));
    return fields;
}

inline result<format_version> data_file::version(const retry_choice& wait) const
{
    if (!is_open()) return status(face::empty_handle);
    format_version found = {};
    const int32_t code = file_->persist(
        wait, [&] { return tsvernum32(1, &found.high, &found.low, file_->handle, 0); });
    if (code < 0) return file_->answer(code);
    return found;
}

inline result<file_position> data_file::position(const retry_choice& wait) const
{
    if (!is_open()) return status(face::empty_handle);
    file_position found = {};
    int32_t deleted = 0;
    const int32_t code = file_->persist(
        wait, [&] { return tsrecd32(file_->handle, &found.number, &deleted, &found.length); });
    if (code < 0) return file_->answer(code);
    found.deleted = deleted != 0;
    return found;
}

// The counts before and after tell whether a failed add stored its record: by one record more, or
// by one deleted record less where its place was reused.
inline status data_file::add(std::span<const std::byte> bytes, duplicates repeated,
                             const retry_choice& wait) const
{
    if (!is_open()) return status(face::empty_handle);
    status fits = detail::check_bytes(*file_, bytes);
    if (!fits) return fits;
    const result<file_lock> lock = file_lock::around(file_, file_lock::all_indexes(*file_), wait);
    if (!lock) return lock;
    detail::file_counts before;
    int32_t code = detail::read_counts(file_, wait, before);
    if (code < 0) return file_->answer(code);

    ++file_->moves;
    detail::move_all_cursors(*file_);
    code = tsadd32(file_->handle, bytes.data(), static_cast<int32_t>(bytes.size()),
                   static_cast<char>(repeated));
    if (code >= 0) return {};
    detail::file_counts after;
    const bool unknown = detail::read_counts(file_, wait, after) < 0;
    return status(code, file_->name,
                  unknown || after.records > before.records || after.deleted < before.deleted);
}

template <class Call>
result<updated> data_file::replace(int32_t number, std::span<const std::byte> bytes,
                                   key_change keys, const retry_choice& wait, Call&& call) const
{
    if (!is_open()) return status(face::empty_handle);
    status fits = detail::check_bytes(*file_, bytes);
    if (!fits) return fits;
    std::byte* const scratch = file_->room();
    if (scratch == nullptr) return status(face::no_room, file_->name);
    const int32_t lockable = keys == key_change::refuse ? number : 0;
    status done = detail::change(file_, lockable, file_lock::all_indexes(*file_), wait, [&] {
        return call(static_cast<int32_t>(bytes.size()), static_cast<void*>(scratch));
    });
    if (done.code() == static_cast<int32_t>(updated::moved) || done.half_done())
        detail::move_all_cursors(*file_);
    if (!done) return done;
    return static_cast<updated>(done.code());
}

inline result<updated> data_file::update(int32_t number, std::span<const std::byte> bytes,
                                         key_change keys, const retry_choice& wait) const
{
    int32_t deleted = 0;
    return replace(number, bytes, keys, wait, [&](int32_t length, void* scratch) {
        return tsupd32(handle(), number, bytes.data(), length, &deleted, scratch,
                       static_cast<int32_t>(keys));
    });
}

inline result<updated> data_file::update_current(std::span<const std::byte> bytes, key_change keys,
                                                 const retry_choice& wait) const
{
    int32_t deleted = 0;
    return replace(0, bytes, keys, wait, [&](int32_t length, void* scratch) {
        return tsupcd32(handle(), bytes.data(), length, &deleted, scratch,
                        static_cast<int32_t>(keys));
    });
}

inline result<int32_t> data_file::purge(const retry_choice& wait) const
{
    if (!is_open()) return status(face::empty_handle);
    std::byte* const room = file_->room();
    if (room == nullptr) return status(face::no_room, file_->name);
    detail::move_all_cursors(*file_);
    int32_t removed = 0;
    status done = detail::change(file_, 0, file_lock::all_indexes(*file_), wait,
                                 [&] { return tspurge32(file_->handle, room, &removed); });
    if (!done) return done;
    return removed;
}

inline result<file_lock> data_file::lock_files(uint32_t indexes, const retry_choice& wait) const
{
    if (!is_open()) return status(face::empty_handle);
    file_lock made(file_);
    status placed = made.place(true, indexes, wait);
    if (!placed) return placed;
    return made;
}

inline result<file_lock> data_file::lock_record(int32_t number, const retry_choice& wait) const
{
    if (!is_open()) return status(face::empty_handle);
    file_lock made(file_);
    status placed = made.place_record(number, wait);
    if (!placed) return placed;
    return made;
}

} // namespace tarsil
