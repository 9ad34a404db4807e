// Opening data files and their index files for a command, with all that can be said when it fails:
// that there is no such file, that it is none of ours, that it may not be written, or who has it.
//
// The library opens files for reading and writing always, so a file without permission to write
// can't be opened even by a command that only reads. Nothing is ever written to a file whose mark
// the library hasn't accepted. In shared mode a call waits for other processes as --wait says; a
// file that somebody has alone is waited for in the same way.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarsil32.hpp"
#include "tool/command.h"
#include "tool/fields.h"

namespace tarsil::tool {

enum class file_kind { not_there, no_file, empty, data, index, other };

// By the mark at its front, which is all that is looked at.
file_kind kind_of(const std::string& name);

// The library, open files and the fields of their records. Closing is a step of its own, since the
// header of a file that this process had alone is written then.
struct open_files {
    std::optional<library> started;
    data_file data;
    std::vector<index> indexes;
    field_list fields;
    bool is_shared = false;

    outcome close();
};

// What the command wants where the user doesn't say. either: alone if nobody else has the files
// open, for speed, and shared otherwise.
enum class usual_mode { shared, alone, either };

answer<open_files> open(const std::string& data, const std::vector<std::string>& indexes,
                        const common_options& common, usual_mode usual = usual_mode::shared);

// The library alone, for commands that create files.
answer<library> start_library(const common_options& common, bool is_shared);

// A failure where one index file is given under two names, whose opens would be in each other's
// way, or where there are too many.
outcome check_given_once(const std::vector<std::string>& indexes);

// What a failed call on an open file comes to, in words: who holds the range, whether the disk is
// full, what to do about a change that was left half done.
failure failure_on(const status& why, const std::string& file);

// A failure where whole records stand behind the end that the header tells: what is added next
// would go over them, and an index would lack them.
outcome check_all_counted(const open_files& files);

// A warning on standard error when the file has passed nine tenths of its 2 GiB.
void warn_of_size(const std::string& name);

// A note where files beside `data` look like index files of it and were not given: a change that
// they don't learn of leaves them behind.
void note_other_indexes(const std::string& data, const std::vector<std::string>& given);

} // namespace tarsil::tool
