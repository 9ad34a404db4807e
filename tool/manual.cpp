// The manual page tarsil.1, made from the table of commands and their options: what the program
// does and what its manual says can't drift apart.
#include "tool/command.h"
#include "tool/fields.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

// As it stands, in the eyes of the formatter.
std::string plain(std::string_view text)
{
    std::string made;
    for (const char byte : text) {
        if (byte == '\\')
            made += "\\e";
        else if (byte == '-')
            made += "\\-";
        else if (byte == '`')
            made += "\\(ga";
        else if (byte == '\'')
            made += "\\(aq";
        else
            made += byte;
    }
    return made.starts_with('.') ? "\\&" + made : made;
}

// Paragraphs, with what stands between ` and ` in bold.
void put_paragraphs(std::string_view text)
{
    while (!text.empty()) {
        const size_t end = std::min(text.find("\n\n"), text.size());
        std::string_view rest = text.substr(0, end);
        std::string made;
        for (bool is_bold = false;; is_bold = !is_bold) {
            const size_t mark = std::min(rest.find('`'), rest.size());
            made += plain(rest.substr(0, mark));
            if (mark == rest.size()) break;
            made += is_bold ? "\\fR" : "\\fB";
            rest.remove_prefix(mark + 1);
        }
        print(".PP\n{}\n", made);
        text.remove_prefix(std::min(end + 2, text.size()));
    }
}

std::string synopsis_of(const declared_command& command)
{
    std::string line = fmt::format(".B tarsil {}\n", command.about->name);
    for (const option& one : command.options.all()) {
        if (!one.is_operand()) continue;
        const std::string name = "\\fI" + one.name + "\\fR" + (one.is_list() ? "..." : "");
        line += one.is_required ? name + "\n" : "[" + name + "]\n";
    }
    for (const option& one : command.options.all())
        if (one.is_required && !one.is_operand())
            line += fmt::format("\\fB{}\\fR \\fI{}\\fR...\n", plain(one.name),
                                plain(one.value_text));
    return line + "[\\fIoptions\\fR]\n";
}

void put_options(const option_set& options)
{
    for (const option& one : options.all()) {
        const std::string value = " \\fI" + plain(one.value_text) + "\\fR";
        if (one.is_operand())
            print(".TP\n\\fI{}\\fR\n", one.name);
        else
            print(".TP\n\\fB{}\\fR{}\n", plain(one.name), one.is_flag() ? "" : value);
        print("{}{}\n", plain(one.about),
              one.default_text.empty() ? "" : " (" + one.default_text + ")");
    }
}

void put_examples(std::string_view examples)
{
    print(".PP\nExamples:\n.PP\n.nf\n");
    while (!examples.empty()) {
        const size_t end = std::min(examples.find('\n'), examples.size());
        print("{}\n", plain(examples.substr(0, end)));
        examples.remove_prefix(std::min(end + 1, examples.size()));
    }
    print(".fi\n");
}

void put_types()
{
    print(".SS Types of fields\n");
    for (const field_type& one : field_types())
        print(".TP\n\\fB{}\\fR ({})\n{}\n", one.name, one.letter, plain(one.range));
}

constexpr const char* about_files =
    "Beside a data file DATA that it makes, the program writes the text file `DATA.fields` with "
    "the names of the fields, which the data file itself has no place for. It is read wherever it "
    "is there, and can be written by hand for other data files: a line has a name, which may hold "
    "blanks, a letter and a length; a line that begins with # is a comment. Without it fields are "
    "called f1, f2 and so on.";

constexpr const char* about_values =
    "Numbers are written in the shortest form that reads back as the same number; the floats and "
    "doubles that are no numbers as inf, -inf and nan, or nan(0x...) with their bits.\n\n"
    "A text is written as it is, without the zero bytes that fill its field. Where that would not "
    "give the same bytes back (a zero byte inside, bytes that are no UTF-8, control characters) it "
    "begins with the mark `\\:`, behind which \\xHH stands for a byte and \\\\ for a backslash. A "
    "text without the mark in front is never changed, whatever backslashes it has. \\N, in JSON "
    "null, stands for a field that a record of variable length ends before.";

constexpr const char* about_processes =
    "Most commands work beside other programs that share the files, and wait up to `--wait` "
    "seconds for what these hold; then they name the process. With `--single-user` they have the "
    "files alone instead, which only succeeds if nobody has them open, and is faster. A program "
    "that has a file alone keeps all others out.";

constexpr const char* about_status =
    "0: done. 1: done, but there is something to be told: rows were refused, nothing was found, a "
    "file is damaged. 2: not done; one line on standard error says why and what to do.";

void put_section(const char* title, const char* text)
{
    print(".SH {}\n", title);
    put_paragraphs(text);
}

} // namespace

void write_manual(const std::vector<declared_command>& commands)
{
    print(".TH TARSIL 1 \"\" \"TARSIL32 " TARSIL_VERSION "\" \"User Commands\"\n");
    print(".SH NAME\ntarsil \\- work on TARSIL32 data files and index files\n.SH SYNOPSIS\n");
    for (const declared_command& one : commands) print("{}.br\n", synopsis_of(one));
    put_section("DESCRIPTION", "Makes data files and index files, brings records in and out, looks "
                               "at them, changes them, and keeps the files sound.");
    print(".SH COMMANDS\n");
    for (const declared_command& one : commands) {
        print(".SS tarsil {}\n{}.\n", one.about->name, plain(one.about->summary));
        put_paragraphs(one.about->manual);
        put_options(one.options);
        put_examples(one.about->examples);
    }
    put_section("FIELDS", about_files);
    put_types();
    put_section("VALUES AS TEXT", about_values);
    put_section("OTHER PROCESSES", about_processes);
    put_section("EXIT STATUS", about_status);
    put_section("ENVIRONMENT", "`COLUMNS` is the width for tables, where the terminal doesn't tell "
                               "it.\n\n`TARSIL_PROGRESS` is the number of seconds between lines of "
                               "progress, on a terminal or not. Without it work that takes longer "
                               "than a second has a line on a terminal, and adds one every ten "
                               "seconds elsewhere.");
    print(".SH SEE ALSO\n.BR tarsil32 (3)\n");
}

} // namespace tarsil::tool
