// Index files and their keys.
//
// An index belongs to the data file that made it and closes with it. key(n) gives the n-th key,
// counted from 0. The library keeps one cursor per key, however many objects stand for the key;
// key_cursor can only be moved, so that its use is seen in the code.
//
// Values of a key come from pack(): one C++ value per field, fewer for a leading part. Every search
// takes what pack() answers, with its error if there is one:
//     auto found = key.find(key.pack("CH", "Zurich Airport"));
//
// Waiting for other processes: find, find_leading, find_prefix, first, last, facts and make_current
// name their place and are asked again. next, previous, current, nearest and all walks stand inside
// the locks of data file and index; changing calls stand inside them too (updates: of all open
// files). TS_CURSOR_FILE_CHANGED comes from next, previous, current, make_current and the calls at
// the cursor after another process has added or purged records: the leaf that the library keeps for
// the cursor may be out of date. Call place_again() and then go on, or search anew; calling the
// same again goes on from the old leaf. Walks do what their options say.
#pragma once

#include "tarsil32/data_file.hpp"
#include "tarsil32/key_walk.hpp"

namespace tarsil {

// What a search for the nearest value found.
enum class nearness : int32_t {
    match = 0,
    before = 1, // the nearest record before the value
    behind = 2  // the first record of the key, which lies behind the value
};

struct nearest_record {
    record found;
    nearness where;
};

class key_cursor {
public:
    key_cursor() = default;
    key_cursor(key_cursor&&) noexcept = default;
    key_cursor& operator=(key_cursor&&) noexcept = default;

    bool is_open() const { return key_.is_open(); }
    int32_t number() const { return key_.number; }
    result<key_facts> facts(const retry_choice& wait = {}) const;

    template <class... Values> result<key_value> pack(const Values&... values) const
    {
        if (!is_open()) return status(face::empty_handle);
        return detail::pack(key_.state().shape, values...);
    }
    // The same where number and kinds of the values are known at run time only.
    result<key_value> pack_values(std::span<const field_value> values) const
    {
        if (!is_open()) return status(face::empty_handle);
        return detail::pack_values(key_.state().shape, values);
    }

    // --- Reading by value: the first record in key order that fits -----------------------------

    result<record> find(const result<key_value>& value, const retry_choice& wait = {}) const
    {
        return take([&](record& into) { return find_whole(key_, into, value, wait); });
    }
    // By the first fields of the key, each as a whole.
    result<record> find_leading(const result<key_value>& value, const retry_choice& wait = {}) const
    {
        return take(
            [&](record& into) { return find_part(key_, into, in_full(key_, value), wait); });
    }
    // The same, the last value being the beginning of a text.
    result<record> find_prefix(const result<key_value>& value, const retry_choice& wait = {}) const
    {
        return take([&](record& into) { return find_part(key_, into, value, wait); });
    }
    result<nearest_record> nearest(const result<key_value>& value,
                                   const retry_choice& wait = {}) const;

    // --- Reading in key order ------------------------------------------------------------------

    result<record> first(const retry_choice& wait = {}) const { return at_end(tsgetfi32, wait); }
    result<record> last(const retry_choice& wait = {}) const { return at_end(tsgetli32, wait); }
    result<record> next(const retry_choice& wait = {}) const { return step(tsgetni32, wait); }
    result<record> previous(const retry_choice& wait = {}) const { return step(tsgetpi32, wait); }
    result<record> current(const retry_choice& wait = {}) const { return step(tsgetci32, wait); }

    key_walk all(const walk_options& options = {}) const
    {
        return key_walk(key_, key_walk::start::first, no_value(), options);
    }
    key_walk backwards(const walk_options& options = {}) const
    {
        return key_walk(key_, key_walk::start::last, no_value(), options);
    }
    // From the first record at or behind the value to the end of the key.
    key_walk from(const result<key_value>& value, const walk_options& options = {}) const
    {
        return key_walk(key_, key_walk::start::from, value, options);
    }
    // All records whose first fields are these, each as a whole.
    key_walk with(const result<key_value>& value, const walk_options& options = {}) const
    {
        return key_walk(key_, key_walk::start::matching, in_full(key_, value), options);
    }
    // The same, the last value being the beginning of a text; an empty text begins them all.
    key_walk prefix(const result<key_value>& value, const walk_options& options = {}) const;

    // How the last walk over this key ended.
    status walk_state() const { return is_open() ? key_.state().walk : empty(); }

    // --- Changing ------------------------------------------------------------------------------

    // By value they take the first record in key order and no other; they move the cursor there.
    status erase(const result<key_value>& value, const retry_choice& wait = {}) const
    {
        return change_found(value, tsdeli32, wait);
    }
    status undelete(const result<key_value>& value, const retry_choice& wait = {}) const
    {
        return change_found(value, tsundeli32, wait);
    }
    status erase_current(const retry_choice& wait = {}) const
    {
        return change_current(tsdelci32, wait);
    }
    status undelete_current(const retry_choice& wait = {}) const
    {
        return change_current(tsudelci32, wait);
    }
    result<updated> update(const result<key_value>& value, std::span<const std::byte> bytes,
                           key_change keys = key_change::refuse,
                           const retry_choice& wait = {}) const;
    result<updated> update_current(std::span<const std::byte> bytes,
                                   key_change keys = key_change::refuse,
                                   const retry_choice& wait = {}) const;

    // --- Exchange with the file's position -----------------------------------------------------

    // Places the cursor anew on the record it stands on, after others have changed the tree; the
    // record becomes the file's current one.
    status place_again(const retry_choice& wait = {}) const;
    // Makes the record at the cursor the file's current one; answers its number.
    result<int32_t> make_current(const retry_choice& wait = {}) const;
    // Moves the cursor to the file's current record; false if the key has no entry for it, and then
    // the cursor has no position.
    result<bool> seek_current(const retry_choice& wait = {}) const;

private:
    friend class index;
    explicit key_cursor(detail::key_ref key) : key_(std::move(key)) {}

    static status empty() { return status(face::empty_handle); }
    static result<key_value> no_value() { return key_value{}; }

    template <class Read> static result<record> take(Read&& read)
    {
        record into;
        status done = read(into);
        if (!done) return done;
        return into;
    }
    result<record> at_end(detail::key_function function, const retry_choice& wait) const
    {
        return take([&](record& into) { return read_end(key_, into, function, wait); });
    }
    result<record> step(detail::key_function function, const retry_choice& wait) const
    {
        return take([&](record& into) { return read_step(key_, into, function, wait); });
    }

    template <class Function>
    status change_found(const result<key_value>& value, Function function,
                        const retry_choice& wait) const;
    template <class Function>
    status change_current(Function function, const retry_choice& wait) const
    {
        if (!is_open()) return empty();
        return detail::change(key_.file(), 0, key_.mask(), wait, [&] {
            return function(key_.data_handle(), key_.handle(), key_.number);
        });
    }
    template <class Call>
    result<updated> replace(std::span<const std::byte> bytes, const retry_choice& wait,
                            Call&& call) const;

    detail::key_ref key_;
};

class index {
public:
    index() = default;
    index(index&&) noexcept = default;
    index& operator=(index&& other) noexcept
    {
        if (this != &other) {
            (void)close();
            state_ = std::move(other.state_);
        }
        return *this;
    }
    ~index() { (void)close(); }

    bool is_open() const { return state_ && state_->is_open(); }
    int32_t handle() const { return is_open() ? state_->handle : detail::no_handle; }
    std::string name() const { return state_ ? state_->name : std::string(); }
    int32_t key_count() const { return is_open() ? static_cast<int32_t>(state_->keys.size()) : 0; }

    // After a failure the file is still open and the call may be repeated.
    status close()
    {
        if (!is_open()) return {};
        const int32_t code = tsclosei32(state_->file->handle, state_->handle);
        if (code < 0) return status(code, state_->name);
        state_->detach();
        return {};
    }

    result<key_cursor> key(int32_t number) const
    {
        if (!is_open()) return status(face::empty_handle);
        if (number < 0 || number >= key_count()) {
            return status(TS_BAD_KEY_NUMBER, state_->name + " has " + std::to_string(key_count()) +
                                                 " keys, counted from 0; asked for " +
                                                 std::to_string(number));
        }
        return key_cursor(detail::key_ref{state_, number});
    }

    result<format_version> version(const retry_choice& wait = {}) const
    {
        if (!is_open()) return status(face::empty_handle);
        format_version found = {};
        const int32_t code = state_->file->persist(wait, [&] {
            return tsvernum32(2, &found.high, &found.low, state_->file->handle, state_->handle);
        });
        if (code < 0) return status(code, state_->name);
        return found;
    }

    // The index file alone; data_file::lock_all takes it with its data file, in the right order.
    result<file_lock> lock(const retry_choice& wait = {}) const
    {
        if (!is_open()) return status(face::empty_handle);
        file_lock made(state_->file);
        status placed = made.place(false, 1U << state_->handle, wait);
        if (!placed) return placed;
        return made;
    }

private:
    friend class data_file;
    explicit index(std::shared_ptr<detail::index_state> state) : state_(std::move(state)) {}

    std::shared_ptr<detail::index_state> state_;
};

// Where `using namespace tarsil` stands, plain `index` can also mean a function of <strings.h>.
using index_file = index;

} // namespace tarsil
