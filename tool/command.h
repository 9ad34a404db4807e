// How a command is put together. A file of the command's name (tool/create.cpp) defines
//
//     run_command declare_create(CLI::App& options, common_options& common);
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

#include <CLI/CLI.hpp>

#include "tool/failure.h"

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
using declare_command = run_command (*)(CLI::App& options, common_options& common);

struct command {
    const char* name;
    const char* summary;  // one line
    const char* manual;   // paragraphs, separated by empty lines
    const char* examples; // lines as typed; a line that begins with # explains the next one
    declare_command declare;
};

std::span<const command> all_commands();

// Options of several commands. `common` is the one that the command was given.
void add_wait(CLI::App& options, common_options& common);    // --wait
void add_sharing(CLI::App& options, common_options& common); // --wait and the two modes
void add_fields_file(CLI::App& options, common_options& common);
void add_json(CLI::App& options, common_options& common);
void add_dry_run(CLI::App& options, common_options& common);

// A test of a value that stays out of the help, where its description would be noise.
CLI::Validator quiet(CLI::Validator test);

// The manual page and the completion, written to standard output.
void write_manual(const CLI::App& program);
void write_completion(const CLI::App& program);

run_command declare_create(CLI::App& options, common_options& common);
run_command declare_index(CLI::App& options, common_options& common);
run_command declare_import(CLI::App& options, common_options& common);
run_command declare_check(CLI::App& options, common_options& common);
run_command declare_repair(CLI::App& options, common_options& common);
run_command declare_reindex(CLI::App& options, common_options& common);
run_command declare_salvage(CLI::App& options, common_options& common);
run_command declare_compact(CLI::App& options, common_options& common);
run_command declare_locks(CLI::App& options, common_options& common);
run_command declare_export(CLI::App& options, common_options& common);
run_command declare_get(CLI::App& options, common_options& common);
run_command declare_find(CLI::App& options, common_options& common);
run_command declare_add(CLI::App& options, common_options& common);
run_command declare_update(CLI::App& options, common_options& common);
run_command declare_delete(CLI::App& options, common_options& common);
run_command declare_undelete(CLI::App& options, common_options& common);
run_command declare_info(CLI::App& options, common_options& common);
run_command declare_purge(CLI::App& options, common_options& common);
run_command declare_explain(CLI::App& options, common_options& common);

} // namespace tarsil::tool
