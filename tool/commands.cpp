// The table of commands, in the order in which the help shows them, and the options that several of
// them have.
#include "tool/command.h"

namespace tarsil::tool {

namespace {

constexpr command table[] = {
    {"create", "Make a new data file with its fields",
     "The fields stand in a record in the order given, one behind the other. Types are i32, u32, "
     "i16, u16, u8, f32, f64 and text with its length in bytes. With --variable a record ends "
     "where the text of its last field ends.\n\n"
     "The names, which a data file has no place for, go to the text file DATA.fields beside it.",
     "  tarsil create airports.dat --field ident:text:8 --field name:text:80 "
     "--field latitude:f64\n"
     "  tarsil create notes.dat --field day:i32 --field note:text:2000 --variable\n",
     declare_create},
    {"index", "Make a new index file with keys over the records",
     "A key is over one to sixteen fields, an index file has up to eight keys. The file stands "
     "under its name when it is whole, and not before. With :cursor the key is built with a "
     "cursor, which programs choose anew each time they open the file.",
     "  tarsil index airports.dat airports.idx --key ident --key country,name:cursor\n",
     declare_index},
    {"explain", "Name, cause and remedy of a result code",
     "CODE is a number, with or without its sign, or a name, with or without TS_.",
     "  tarsil explain -1004\n"
     "  tarsil explain LOCK_REFUSED\n",
     declare_explain},
};

} // namespace

std::span<const command> all_commands() { return table; }

void add_wait(CLI::App& options, common_options& common)
{
    options
        .add_option("--wait", common.wait_seconds,
                    "Seconds to wait for files or ranges that another process holds")
        ->check(CLI::Range(0.0, 86400.0))
        ->type_name("SECONDS")
        ->capture_default_str();
}

void add_sharing(CLI::App& options, common_options& common)
{
    add_wait(options, common);
    const auto choose = [&](sharing mode) { return [&common, mode] { common.mode = mode; }; };
    auto* const shared = options.add_flag_callback("--multi-user", choose(sharing::shared),
                                                   "Work beside other processes on the same files");
    options
        .add_flag_callback("--single-user", choose(sharing::alone),
                           "Have the files alone meanwhile")
        ->excludes(shared);
}

void add_fields_file(CLI::App& options, common_options& common)
{
    options
        .add_option("--fields", common.fields_file,
                    "File with the names of the fields, instead of DATA.fields")
        ->type_name("FILE");
}

void add_json(CLI::App& options, common_options& common)
{
    options.add_flag("--json", common.json, "Write JSON");
}

void add_dry_run(CLI::App& options, common_options& common)
{
    options.add_flag("--dry-run", common.dry_run, "Tell what would be done, and change nothing");
}

} // namespace tarsil::tool
