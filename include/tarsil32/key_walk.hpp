// A walk over the records of a key in key order, forwards or backwards:
//
//     for (auto&& one : key.with(key.pack("CH"))) ...
//
// In multi-user mode each step looks whether others have added or purged records: the leaf and the
// path that the library keeps for a cursor may then be out of date, and a step from there could end
// too early. The walk places the cursor anew first. The file's current record moves by that.
//
// Deleted records are part of it, with their flag, unless skip_deleted is set. The walk uses the
// key's one cursor. A loop's body that moves it (a search through the same key, an add) ends the
// walk with face::cursor_moved; updates in place, deletes and undeletes by number do no harm. The
// walk ends at its last record, or at a failure: state() of the walk, or walk_state() of the key,
// tells which. A walk is gone through once.
#pragma once

#include "tarsil32/key_access.hpp"

namespace tarsil {

class key_walk {
public:
    using iterator = detail::walk_iterator<key_walk>;

    // Where it starts: at an end of the key, at the first record not before a value, or at the
    // first of the records that match a value, which then are all that it delivers.
    enum class start { first, last, from, matching };

    key_walk(detail::key_ref key, start where, result<key_value> value, const walk_options& options)
        : key_(std::move(key)), where_(where), value_(std::move(value)), options_(options)
    {
    }

    // Ends the walk behind the last record that isn't behind the value. A leading part, or the
    // beginning of a text, takes in all that begins with it.
    // Of a walk that has no name yet it gives the walk itself, as a loop over it needs.
    key_walk& until(result<key_value> last) &
    {
        until_ = std::move(last);
        return *this;
    }
    key_walk until(result<key_value> last) && { return std::move(until(std::move(last))); }

    iterator begin()
    {
        if (!key_.is_open()) {
            finish(status(face::empty_handle));
        } else {
            start_at(place());
            while (!at_end_ && options_.skip_deleted && here_.deleted) step();
        }
        return iterator(this);
    }
    std::default_sentinel_t end() const { return {}; }

    const status& state() const { return state_; }

private:
    friend iterator;

    status place()
    {
        if (!key_.state().has_cursor) return key_answer(key_, TS_CURSOR_NONE);
        if (until_) {
            status fits = check_value(key_, *until_, detail::value_kind::leading);
            if (!fits) return fits;
        }
        if (key_.file()->is_shared()) {
            const int32_t code = read_counts(key_.file(), options_.wait, counts_);
            if (code < 0) return key_answer(key_, code);
        }
        switch (where_) {
        case start::first: return read_end(key_, here_, tsgetfi32, options_.wait);
        case start::last: return read_end(key_, here_, tsgetli32, options_.wait);
        case start::matching: return find_part(key_, here_, value_, options_.wait);
        case start::from: break;
        }
        // 1 is the nearest record before the value; 0 and 2 stand where the walk begins.
        status found = find_nearest(key_, here_, value_, options_.wait);
        return found.code() == 1 ? next() : found;
    }

    void start_at(const status& placed)
    {
        moves_ = key_.state().moves;
        if (placed) {
            check_bounds();
        } else if (placed.code() == TS_CURSOR_NONE && key_.state().has_cursor) {
            finish(status()); // A key without entries: the search had nowhere to put the cursor.
        } else {
            finish(placed);
        }
    }

    void advance()
    {
        do step();
        while (!at_end_ && options_.skip_deleted && here_.deleted);
    }

    void step()
    {
        if (!key_.is_open()) return finish(status(face::empty_handle));
        if (key_.state().moves != moves_) return finish(key_answer(key_, face::cursor_moved));
        const status read = next();
        moves_ = key_.state().moves;
        if (!read) return finish(read);
        check_bounds();
    }

    // The lock spans the look at the counts, the placing anew and the step.
    status next()
    {
        const auto function = where_ == start::last ? tsgetpi32 : tsgetni32;
        const result<file_lock> lock = file_lock::around(key_.file(), key_.mask(), options_.wait);
        if (!lock) return lock;
        if (key_.file()->is_shared()) {
            const int32_t code = look_for_changes();
            if (code < 0) return key_answer(key_, code);
        }
        return read_step(key_, here_, function, options_.wait);
    }

    // A new record, or a deleted one fewer because its place was reused, means changed trees.
    int32_t look_for_changes()
    {
        const detail::file_counts before = counts_;
        int32_t code = read_counts(key_.file(), options_.wait, counts_);
        if (code < 0) return code;
        const bool changed = counts_.records != before.records;
        if (changed && options_.changed == on_change::stop) return TS_CURSOR_FILE_CHANGED;
        if (!changed && counts_.deleted >= before.deleted) return TS_OK;
        std::array<std::byte, TS_MAX_PACKED_KEY> packed;
        code = place_again(key_, options_.wait, packed);
        if (code < 0) return code;
        const bool same = std::equal(last_key_.begin(), last_key_.end(), packed.begin());
        return same ? TS_OK : TS_CURSOR_FILE_CHANGED;
    }

    // Values are compared as the tree does it.
    void check_bounds()
    {
        if (key_.file()->is_shared())
            last_key_ = detail::packed_fields(key_.state().shape, here_.bytes);
        const int32_t precision = key_.file()->owner->options.precision;
        const auto order = [&](const result<key_value>& value) {
            return detail::order_of(key_.state().shape, *value, here_.bytes, precision);
        };
        if (where_ == start::matching && order(value_) != 0) return finish(status());
        if (until_ && (where_ == start::last ? order(*until_) > 0 : order(*until_) < 0))
            return finish(status());
    }

    void finish(const status& read)
    {
        at_end_ = true;
        switch (read.code()) {
        case TS_NEXT_ENTRY_AT_END:
        case TS_PREVIOUS_ENTRY_AT_START:
        case TS_WALK_NO_RECORDS:
        case TS_PARTIAL_NO_ENTRY: state_ = status(); break;
        default: state_ = read; break;
        }
        if (key_.index) key_.state().walk = state_;
    }

    detail::key_ref key_;
    start where_;
    result<key_value> value_;
    walk_options options_;
    std::optional<result<key_value>> until_;
    detail::file_counts counts_;
    record here_;
    std::vector<std::byte> last_key_; // of the record last delivered, whatever the loop did to it
    uint64_t moves_ = 0;
    bool at_end_ = false;
    status state_;
};

} // namespace tarsil
