// The lines on standard error, and the words for what the library answers.
//
// The texts of the codes begin with the functions that answer them ("tsopend32: ..."), which says
// nothing to somebody who types commands; the code's name stands behind the text instead.
#include "tool/failure.h"

#include <fmt/format.h>

#include <cctype>

namespace tarsil::tool {

namespace {

std::string command_name;

void write_line(std::string_view kind, std::string_view text)
{
    const std::string where = command_name.empty() ? "tarsil" : "tarsil: " + command_name;
    fmt::print(stderr, "{}: {}{}\n", where, kind, text);
}

// "tsopeni32, tscrind32: the file" becomes "the file".
std::string_view without_functions(std::string_view text)
{
    const size_t colon = text.find(": ");
    const bool names_one = text.starts_with("ts") && colon != text.npos;
    return names_one ? text.substr(colon + 2) : text;
}

std::string begun_small(std::string_view text)
{
    std::string line(text);
    const bool is_word = line.starts_with("A ") ||
                         (line.size() > 1 && std::islower(static_cast<unsigned char>(line[1])));
    if (is_word) line[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(line[0])));
    return line;
}

// The remedies are written for programs that call the library. Where they name functions, or work
// that a command of the tool does, that command is named instead.
std::string advice_of(const status& why)
{
    const std::string_view remedy = why.remedy();
    for (const std::string_view word : {"32", "damaged", "salvage"})
        if (remedy.find(word) != remedy.npos)
            return "`tarsil check` with its data file tells what is wrong and what mends it";
    return begun_small(remedy);
}

} // namespace

void set_command(std::string_view name) { command_name = name; }
std::string_view current_command() { return command_name; }

int fail(const failure& why)
{
    write_line("", why.advice.empty() ? why.text : why.text + ": " + why.advice);
    return exit_failed;
}

void warn(std::string_view text) { write_line("warning: ", text); }
void note(std::string_view text) { write_line("note: ", text); }

failure failure_of(const status& why, std::string_view what)
{
    std::string text = fmt::format("{}: {} ({}, {})", what,
                                   begun_small(without_functions(why.text())), why.name(),
                                   why.code());
    if (!why.detail().empty() && why.detail() != what) text += " [" + why.detail() + "]";
    return {std::move(text), advice_of(why)};
}

} // namespace tarsil::tool
