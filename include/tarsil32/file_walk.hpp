// A walk over the records of a data file in file order: for (auto&& one : file.records()) ...
//
// Deleted records are part of it, with their flag, unless skip_deleted is set; each record has its
// number. The loop's body may do with the file what it likes, also move its current record. The
// walk ends at the last record, or at a failure: state() of the walk, or walk_state() of the file,
// tells which. A walk is gone through once.
#pragma once

#include <iterator>

#include "tarsil32/file_access.hpp"

namespace tarsil {

// Another process changed the counts of records while a key is walked: place the cursor anew on the
// record last delivered and go on from there, or end with TS_CURSOR_FILE_CHANGED. Where that record
// is no longer found, as after a purge, the walk ends so in any case.
enum class on_change { go_on, stop };

struct walk_options {
    bool skip_deleted = false;
    on_change changed = on_change::go_on;
    retry_choice wait = {};
};

namespace detail {

// The iterator of both kinds of walk: the walk holds the record and does the stepping.
template <class Walk> class walk_iterator {
public:
    using value_type = record;
    using difference_type = std::ptrdiff_t;

    walk_iterator() = default;
    explicit walk_iterator(Walk* walk) : walk_(walk) {}

    record& operator*() const { return walk_->here_; }
    record* operator->() const { return &walk_->here_; }
    walk_iterator& operator++()
    {
        walk_->advance();
        return *this;
    }
    void operator++(int) { ++*this; }
    bool operator==(std::default_sentinel_t) const { return walk_ == nullptr || walk_->at_end_; }

private:
    Walk* walk_ = nullptr;
};

} // namespace detail

class file_walk {
public:
    using iterator = detail::walk_iterator<file_walk>;

    file_walk(detail::file_ref file, const walk_options& options)
        : file_(std::move(file)), options_(options)
    {
    }

    iterator begin()
    {
        advance();
        return iterator(this);
    }
    std::default_sentinel_t end() const { return {}; }

    const status& state() const { return state_; }

private:
    friend iterator;

    void advance()
    {
        do step();
        while (!at_end_ && options_.skip_deleted && here_.deleted);
    }

    // By number where that costs nothing, or where somebody has moved the current record.
    void step()
    {
        const bool by_number = number_ == 0 || !detail::is_open(file_) || !file_->is_variable() ||
                               file_->moves != moves_;
        const status read = by_number
                                ? detail::read_number(file_, here_, number_ + 1, options_.wait)
                                : detail::read_next(file_, here_, options_.wait);
        if (!read) return finish(read);
        ++number_;
        moves_ = file_->moves;
    }

    void finish(const status& read)
    {
        at_end_ = true;
        const bool complete = read.code() == TS_BAD_RECORD_NUMBER ||
                              read.code() == TS_NEXT_RECORD_AT_END;
        state_ = complete ? status() : read;
        if (file_) file_->walk = state_;
    }

    detail::file_ref file_;
    walk_options options_;
    record here_;
    int32_t number_ = 0;
    uint64_t moves_ = 0;
    bool at_end_ = false;
    status state_;
};

} // namespace tarsil
