// The life of a writer that is killed in the end: what it adds, updates, deletes and undeletes, and
// how it tells what it has been answered, in memory that outlives it.
//
// A record is made of who wrote it, its number and its version; every fourth version has other keys
// than the one before, so that the update that makes it deletes the record and adds another one.
// Where a body is longer than a row, the rest repeats the row's last byte.
#pragma once

#include "data/data_format.h"
#include "tarsil32.hpp"
#include "tests/support/platform_files.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <atomic>
#include <ostream>
#include <string>
#include <vector>

namespace tarsil::kills {

using support::is_built_to_map;
inline constexpr int32_t page = 4096;
inline constexpr int32_t long_bytes = 20000;
inline constexpr int32_t most_writers = 4;
inline constexpr int32_t new_numbers = 3000; // of a writer; then new files are begun
inline constexpr int32_t many = 6000; // that stand there before, as many as make more than 1 MiB
inline constexpr uint32_t order_of_keys = 4;
inline constexpr int32_t versions_of_key = 4; // one update in four changes a key

struct row {
    int32_t writer;
    int32_t number;
    int32_t epoch;
    int32_t version;
    char name[100];
    char text[124];
};

row make_row(int32_t writer, int32_t number, int32_t version);

inline char byte_of(const row& made, size_t at)
{
    return reinterpret_cast<const char*>(&made)[std::min(at, sizeof(row) - 1)];
}

// What a writer has been answered, in memory that it shares with the test. A version is below 0
// once its record is deleted, and 0 before it is added.
struct answered {
    std::atomic<int32_t> opened;  // 1 once it has, in this life
    std::atomic<int32_t> records; // numbered from 1 on
    std::atomic<int32_t> calls;   // that had returned, in this life
    std::atomic<int32_t> refusal; // the code of a call that should have gone well
    std::atomic<int32_t> number;  // of the record whose version is to become `target`, if that
    std::atomic<int32_t> target;  // isn't 0
    std::atomic<int32_t> versions[many + new_numbers + 1];

    int32_t version() const { return versions[number]; }
    bool has_a_new_key() const
    {
        const bool is_stored_anew = target > 0 && version() >= 0;
        return is_stored_anew && (version() == 0 || target % versions_of_key == 0);
    }
};

struct mode_of_work {
    const char* name;
    bool is_shared;
    int32_t writers;
    bool is_variable;
    int32_t begin; // records that are there before
    int32_t most_bytes = sizeof(row);
    bool is_through = false;

    // The shortest of six still has the fields of the keys.
    size_t length(int32_t number) const
    {
        const int32_t less = is_variable ? number % 6 * (most_bytes - 140) / 5 : 0;
        return static_cast<size_t>(most_bytes - less);
    }
    std::string body_of(const row& made) const
    {
        std::string body(length(made.number), byte_of(made, sizeof made));
        return body.replace(0, std::min(body.size(), sizeof made),
                            reinterpret_cast<const char*>(&made),
                            std::min(body.size(), sizeof made));
    }
    // In a file that is still short half a record shows; behind a long one there are zeros already.
    uint32_t most_microseconds() const
    {
        if (is_through) return 30000;
        return most_bytes == long_bytes && !is_shared ? 1000 : 3000;
    }
    bool is_counted_at_once() const { return is_shared || is_through; }
    bool is_in_two_writes(size_t bytes) const { return is_through || bytes > page - frame_bytes; }
    // Whether a kill can cut a write that lies within one page.
    bool is_stored_bytewise() const { return is_built_to_map && !is_shared; }
};

inline void PrintTo(const mode_of_work& of, std::ostream* out) { *out << of.name; }

std::vector<key_definition> definitions();

struct open_files {
    result<library> started;
    data_file file;
    class index index;
    key_cursor key;

    open_files(const support::temp_folder& folder, const mode_of_work& how)
        : started(library::start({.multi_user = how.is_shared,
                                  .write_through = how.is_through,
                                  .reuse_deleted = !how.is_variable,
                                  .wait = retry::up_to(std::chrono::seconds(20))})),
          file(*started->open(folder.file("kill.dat"))),
          index(*file.open_index(folder.file("kill.idx"))), key(*index.key(0))
    {
    }
};

// Begins when all writers have opened the files, which is hard beside others at work. Only a kill
// ends it.
[[noreturn]] void live(const support::temp_folder& folder, const mode_of_work& how, int32_t self,
                       answered* of_all, uint32_t seed);

} // namespace tarsil::kills
