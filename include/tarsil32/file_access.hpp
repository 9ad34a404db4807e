// The steps of a data file that objects and walks share: reading a record with its true length, and
// changing calls inside their locks. Nothing here is for callers.
#pragma once

#include "tarsil32/file_lock.hpp"

namespace tarsil::detail {

using file_ref = std::shared_ptr<file_state>;

inline bool is_open(const file_ref& file) { return file && file->handle != no_handle; }

struct file_counts {
    int32_t records = 0;
    int32_t deleted = 0;
    int32_t record_length = 0;
    int32_t current = 0;
    int32_t fields = 0;
};

inline int32_t read_counts(const file_ref& file, const retry_choice& wait, file_counts& counts)
{
    return file->persist(wait, [&] {
        return tsstatd32(file->handle, &counts.records, &counts.deleted, &counts.record_length,
                         &counts.current, &counts.fields);
    });
}

// Number and length of the current record, which has just been read into the room.
inline int32_t read_position(const file_ref& file, const retry_choice& wait, int32_t& number,
                             int32_t& length)
{
    if (file->is_variable()) {
        int32_t deleted = 0;
        return file->persist(wait,
                             [&] { return tsrecd32(file->handle, &number, &deleted, &length); });
    }
    length = file->record_length;
    if (number != 0) return TS_OK;
    file_counts counts;
    const int32_t code = read_counts(file, wait, counts);
    number = counts.current;
    return code;
}

inline void take_record(std::byte* room, size_t length, int32_t deleted, record& into)
{
    into.bytes.assign(room, room + length);
    into.deleted = deleted != 0;
    reserve::trim(length);
}

enum class refused_read { stays, may_move };

// Reads a record by its place in the file. In a shared file of variable length the lock keeps the
// record the same until its length is known; a read that moves the current record even when it is
// refused needs it in any file.
template <class Call>
status read_record(const file_ref& file, record& into, int32_t number, refused_read kind,
                   const retry_choice& wait, Call&& call)
{
    if (!is_open(file)) return status(face::empty_handle);
    std::byte* const room = file->room_to_read();
    if (room == nullptr) return status(face::no_room, file->name);
    result<file_lock> lock = file_lock();
    if (file->is_variable() || kind == refused_read::may_move) {
        lock = file_lock::around(file, 0, wait);
        if (!lock) return lock;
    }

    ++file->moves;
    int32_t deleted = 0;
    int32_t code = file->persist(wait, [&] { return call(room, &deleted); });
    if (code < 0) return file->answer(code);
    int32_t length = 0;
    code = read_position(file, wait, number, length);
    if (code < 0) return file->answer(code);
    into.number = number;
    take_record(room, static_cast<size_t>(length), deleted, into);
    return {};
}

inline status read_number(const file_ref& file, record& into, int32_t number,
                          const retry_choice& wait)
{
    return read_record(file, into, number, refused_read::stays, wait,
                       [&](void* room, int32_t* deleted) {
                           return tsgetd32(file->handle, number, room, deleted);
                       });
}

inline status read_next(const file_ref& file, record& into, const retry_choice& wait)
{
    return read_record(file, into, 0, refused_read::stays, wait, [&](void* room, int32_t* deleted) {
        return tsgetnd32(file->handle, room, deleted);
    });
}

// May these bytes be stored? The library would read record_length bytes, whatever is there. In a
// file of variable length a record may end before a field of a key: zeros stand for the rest.
inline status check_bytes(const file_state& file, std::span<const std::byte> bytes)
{
    const std::string given = file.name + ": " + std::to_string(bytes.size()) + " bytes";
    if (bytes.empty() || bytes.size() > INT32_MAX) return status(face::wrong_length, given);
    if (!file.is_variable() && bytes.size() != static_cast<size_t>(file.record_length))
        return status(face::wrong_length, given + " for " + std::to_string(file.record_length));
    return {};
}

// A changing call inside its locks. The lock on a record by the caller takes the place of the
// file's: such a call is refused before it does anything, unless a flush gives the record up.
template <class Call>
status change(const file_ref& file, int32_t number, uint32_t indexes, const retry_choice& wait,
              Call&& call)
{
    if (!is_open(file)) return status(face::empty_handle);
    ++file->moves;
    const auto& locked = file->locked_records;
    if (number != 0 && std::find(locked.begin(), locked.end(), number) != locked.end()) {
        const bool may_wait = !file->owner->options.write_through;
        return answer_of_change(*file, file->persist(may_wait ? wait : retry::never(), call));
    }
    const result<file_lock> lock = file_lock::around(file, indexes, wait);
    if (!lock) return lock;
    return answer_of_change(*file, call());
}

} // namespace tarsil::detail
