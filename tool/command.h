// How a command is put together. A file of the command's name (tool/create.cpp) defines
//
//     run_command declare_create(option_set& options, common_options& common);
//
// It adds its options to `options` and gives back what runs when the command line has been read:
// a function without arguments that answers an exit status. The values of the options live in a
// shared record that the run holds on to. The command has a row in the table of commands.cpp, from
// which come the help, the manual page and the completion for bash, and a line of declaration here.
//
// Options that mean the same in several commands are added by the functions below, so that they
// have one name, one text and one place (common_options).
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tool/failure.h"
#include "tool/options.h"

namespace tarsil::tool {

// Whether other processes may have the files open meanwhile.
enum class sharing { chosen_by_command, alone, shared };

struct common_options {
    double wait_seconds = 1;
    sharing mode = sharing::chosen_by_command;
    bool json = false;
    bool dry_run = false;
    std::string fields_file; // empty: the data file's name and ".fields"
};

using run_command = std::function<int()>;
using declare_command = run_command (*)(option_set& options, common_options& common);

struct command {
    const char* name;
    const char* summary;  // one line
    const char* manual;   // paragraphs, separated by empty lines
    const char* examples; // lines as typed; a line that begins with # explains the next one
    declare_command declare;
};

std::span<const command> all_commands();

// Options of several commands. `common` is the one that the command was given.
void add_wait(option_set& options, common_options& common);    // --wait
void add_sharing(option_set& options, common_options& common); // --wait and the two modes
void add_fields_file(option_set& options, common_options& common);
void add_json(option_set& options, common_options& common);
void add_dry_run(option_set& options, common_options& common);
// All of these, for a command that changes files.
void add_for_changes(option_set& options, common_options& common);

// What each command declares.
struct declared_command {
    const command* about;
    option_set options;
    run_command run;
};
std::vector<declared_command> declare_all(common_options& common);

// The manual page and the completion, written to standard output.
void write_manual(const std::vector<declared_command>& commands);
void write_completion(const std::vector<declared_command>& commands);

// Reads the command line and runs the command; the answer is the program's exit status.
int run_command_line(int count, char** words);

run_command declare_create(option_set& options, common_options& common);
run_command declare_index(option_set& options, common_options& common);
run_command declare_import(option_set& options, common_options& common);
run_command declare_check(option_set& options, common_options& common);
run_command declare_repair(option_set& options, common_options& common);
run_command declare_reindex(option_set& options, common_options& common);
run_command declare_salvage(option_set& options, common_options& common);
run_command declare_compact(option_set& options, common_options& common);
run_command declare_locks(option_set& options, common_options& common);
run_command declare_export(option_set& options, common_options& common);
run_command declare_get(option_set& options, common_options& common);
run_command declare_find(option_set& options, common_options& common);
run_command declare_add(option_set& options, common_options& common);
run_command declare_update(option_set& options, common_options& common);
run_command declare_delete(option_set& options, common_options& common);
run_command declare_undelete(option_set& options, common_options& common);
run_command declare_info(option_set& options, common_options& common);
run_command declare_purge(option_set& options, common_options& common);
run_command declare_explain(option_set& options, common_options& common);

} // namespace tarsil::tool
