// Tables, laid out by libsmartcols.
//
// libsmartcols would cut columns to fit a narrow terminal. A table that is wider than the terminal
// is therefore written as blocks: one line for each value of a row, an empty line between rows.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include <sys/ioctl.h>
#include <unistd.h>

#include <libsmartcols/libsmartcols.h>

#include "tool/output.h"

namespace tarsil::tool {

namespace {

// What libsmartcols would write as \xHH: a value that has been made fit for people has such texts,
// and line ends, on purpose.
constexpr const char* shown_already = "\\\n";

struct table_release {
    void operator()(libscols_table* table) const { scols_unref_table(table); }
};
using table_owner = std::unique_ptr<libscols_table, table_release>;

struct text_release {
    void operator()(char* text) const { std::free(text); }
};

table_owner new_table()
{
    scols_init_debug(0);
    return table_owner(scols_new_table());
}

void add_line(libscols_table* table, const std::vector<std::string>& cells)
{
    libscols_line* const line = scols_table_new_line(table, nullptr);
    for (size_t i = 0; line != nullptr && i < cells.size(); ++i)
        scols_line_set_data(line, i, cells[i].c_str());
}

std::string text_of(libscols_table* table)
{
    char* text = nullptr;
    if (scols_print_table_to_string(table, &text) != 0) return {};
    const std::unique_ptr<char, text_release> owner(text);
    return std::string(text) + "\n";
}

size_t display_width(std::string_view text)
{
    size_t width = 0;
    for (const char byte : text) width += (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    return width;
}

// Lines of so many characters, broken at blanks where there are any; 0: as it is.
std::string wrapped(std::string_view text, size_t width)
{
    std::string lines;
    while (width > 0 && display_width(text) > width) {
        size_t end = 0; // in bytes, behind so many characters
        for (size_t seen = 0; end < text.size(); ++end) {
            const bool begins = (static_cast<unsigned char>(text[end]) & 0xC0) != 0x80;
            if (begins && seen++ == width) break;
        }
        const size_t blank = text.rfind(' ', end);
        const bool has_blank = blank != text.npos && blank > 0;
        lines += text.substr(0, has_blank ? blank : end);
        lines += '\n';
        text.remove_prefix(has_blank ? blank + 1 : end);
    }
    return lines.append(text);
}

bool fits(const std::vector<column>& columns, const rows& lines, size_t width)
{
    size_t needed = 0;
    for (size_t i = 0; i < columns.size(); ++i) {
        size_t widest = display_width(columns[i].name);
        for (const auto& line : lines) widest = std::max(widest, display_width(line[i]));
        needed += widest + 1;
    }
    return needed <= width + 1;
}

} // namespace

int terminal_width()
{
    const char* const told = std::getenv("COLUMNS");
    const int columns = told != nullptr ? std::atoi(told) : 0;
    if (columns > 0) return columns;
    winsize size = {};
    if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) return size.ws_col;
    return 0;
}

void put_table(const std::vector<column>& columns, const rows& lines)
{
    const int width = terminal_width();
    if (width > 0 && !fits(columns, lines, static_cast<size_t>(width))) {
        bool first = true;
        for (const auto& line : lines) {
            if (!first) standard_output().put("\n");
            first = false;
            std::vector<std::pair<std::string, std::string>> facts;
            for (size_t i = 0; i < columns.size(); ++i)
                facts.emplace_back(columns[i].name, line[i]);
            put_facts(facts);
        }
        return;
    }
    const table_owner table = new_table();
    if (table == nullptr) return;
    scols_table_set_termforce(table.get(), SCOLS_TERMFORCE_NEVER);
    for (const column& one : columns)
        scols_column_set_safechars(scols_table_new_column(table.get(), one.name.c_str(), 0,
                                                          one.is_number ? SCOLS_FL_RIGHT : 0),
                                   shown_already);
    for (const auto& line : lines) add_line(table.get(), line);
    standard_output().put(text_of(table.get()));
}

void put_facts(const std::vector<std::pair<std::string, std::string>>& facts)
{
    const table_owner table = new_table();
    if (table == nullptr) return;
    size_t names = 0;
    for (const auto& [name, value] : facts) names = std::max(names, display_width(name));
    const auto width = static_cast<size_t>(terminal_width());
    const size_t room = width > names + 1 ? width - names - 1 : 0;
    scols_table_enable_noheadings(table.get(), 1);
    scols_table_set_termforce(table.get(), SCOLS_TERMFORCE_NEVER);
    scols_table_new_column(table.get(), "name", 0, 0);
    libscols_column* const values = scols_table_new_column(table.get(), "value", 0, SCOLS_FL_WRAP);
    scols_column_set_wrapfunc(values, scols_wrapnl_chunksize, scols_wrapnl_nextchunk, nullptr);
    scols_column_set_safechars(values, shown_already);
    for (const auto& [name, value] : facts) add_line(table.get(), {name, wrapped(value, room)});
    standard_output().put(text_of(table.get()));
}

} // namespace tarsil::tool
