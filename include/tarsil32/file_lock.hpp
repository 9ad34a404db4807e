// Locks that go with their scope, and the locks that the face itself places around a call.
//
// A file_lock holds a data file, index files or one record of this process against all others until
// it goes or release() is called. Inside it every call finds its ranges held and can't be refused.
// Lock the data file before its index files, as the library does; lock_all() takes them as one step
// and gives everything back before it waits, so that two processes can't wait for each other.
//
// The face takes the same locks around each call that would leave something done when it is refused
// half way: adds, updates, deletes, purges, steps of a cursor, reads of variable-length records.
// So a refusal always comes before the call, and waiting and asking again is sound. With
// write-through a flush gives all locks up for its duration, and another process can get in
// between: then TS_LOCK_REFUSED comes with half_done(), and nothing is repeated.
#pragma once

#include "tarsil32/session.hpp"

namespace tarsil {

class file_lock {
public:
    file_lock() = default;
    file_lock(file_lock&& other) noexcept { take(other); }
    file_lock& operator=(file_lock&& other) noexcept
    {
        if (this != &other) {
            (void)release();
            take(other);
        }
        return *this;
    }
    ~file_lock() { (void)release(); }

    // What a call needs that may touch the data file and these index files (a bit per handle): held
    // for as long as the object stands, and nothing at all in single-user mode.
    static result<file_lock> around(const std::shared_ptr<detail::file_state>& file,
                                    uint32_t indexes, const retry_choice& wait)
    {
        if (!file->is_shared()) return file_lock();
        file_lock made(file);
        status placed = made.place(true, indexes, wait);
        if (!placed) return placed;
        return made;
    }

    static uint32_t all_indexes(const detail::file_state& file)
    {
        uint32_t mask = 0;
        for (size_t i = 0; i < file.indexes.size(); ++i)
            if (file.indexes[i] != nullptr) mask |= 1U << i;
        return mask;
    }

    // Whether this object placed anything: an enclosing lock may have held it all already.
    bool placed() const { return has_data_ || index_mask_ != 0 || record_ != 0; }

    status release()
    {
        if (!file_ || file_->handle == detail::no_handle) return {};
        status first;
        const auto keep = [&](int32_t code) {
            if (code < 0 && first) first = file_->answer(code);
        };
        for (int32_t i = 0; i < TS_MAX_INDEX_FILES; ++i)
            if ((index_mask_ & open_indexes() & 1U << i) != 0) keep(tsulocki32(file_->handle, i));
        if (has_data_) {
            keep(tsulockd32(file_->handle));
            --file_->whole_locks;
        }
        if (record_ != 0) keep(release_record());
        clear();
        return first;
    }

private:
    friend class data_file;
    friend class index;

    explicit file_lock(std::shared_ptr<detail::file_state> file) : file_(std::move(file)) {}

    // An index file that was closed under the lock has taken its range with it.
    uint32_t open_indexes() const { return all_indexes(*file_); }

    // Places all or nothing.
    int32_t try_to_place(bool with_data, uint32_t indexes)
    {
        if (with_data) {
            const int32_t code = tslockd32(file_->handle);
            if (code < 0) return code;
            has_data_ = code == 1;
            if (has_data_) ++file_->whole_locks;
        }
        for (int32_t i = 0; i < TS_MAX_INDEX_FILES; ++i) {
            if ((indexes >> i & 1U) == 0) continue;
            const int32_t code = tslocki32(file_->handle, i);
            if (code < 0) {
                (void)release();
                return code;
            }
            if (code == 1) index_mask_ |= 1U << i;
        }
        return TS_OK;
    }

    status place(bool with_data, uint32_t indexes, const retry_choice& wait)
    {
        if (with_data && !file_->locked_records.empty())
            return status(face::record_lock_held, file_->name);
        return file_->answer(
            file_->persist(wait, [&] { return try_to_place(with_data, indexes); }));
    }

    status place_record(int32_t number, const retry_choice& wait)
    {
        ++file_->moves;
        const int32_t code = file_->persist(wait,
                                            [&] { return tslockdr32(file_->handle, number); });
        if (code < 0) return file_->answer(code);
        // Held already, by a lock of the whole file or of this record: nothing was placed.
        const auto& locked = file_->locked_records;
        const bool held = std::find(locked.begin(), locked.end(), number) != locked.end();
        if (held || file_->whole_locks > 0) return {};
        record_ = number;
        file_->locked_records.push_back(number);
        return {};
    }

    // Reads the header, so that it can be refused like any read.
    int32_t release_record()
    {
        ++file_->moves;
        std::erase(file_->locked_records, record_);
        return file_->persist({}, [&] { return tsulckdr32(file_->handle, record_); });
    }

    void take(file_lock& other)
    {
        file_ = std::move(other.file_);
        has_data_ = other.has_data_;
        index_mask_ = other.index_mask_;
        record_ = other.record_;
        other.clear();
    }

    void clear()
    {
        has_data_ = false;
        index_mask_ = 0;
        record_ = 0;
    }

    std::shared_ptr<detail::file_state> file_;
    bool has_data_ = false;
    uint32_t index_mask_ = 0;
    int32_t record_ = 0;
};

} // namespace tarsil
