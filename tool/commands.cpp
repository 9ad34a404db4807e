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
    {"import", "Add rows of CSV, JSON Lines or raw bytes as records",
     "Name the data file, then its index files, so that their keys are kept up to date, and last "
     "the file with the rows, or - for standard input.\n\n"
     "The header line of CSV names the fields, in any order. Where the fields have no names, the "
     "columns are taken in the order of the fields. JSON Lines have an object a line with the "
     "names as keys. A column _deleted marks records as deleted, a column _number is passed "
     "over.\n\n"
     "A row that doesn't fit (wrong columns, broken quotes, a number out of range, a text that is "
     "too long, with --duplicates no a value of a key that is there already) is told with its line "
     "and the reason, and goes to the file of --rejects; all others go in. Nothing is ever cut to "
     "fit. The status is 1 if rows were refused.\n\n"
     "Nobody else can open the files meanwhile, unless somebody has them open already or "
     "--multi-user is given: then the import works beside the others, and takes longer. If it is "
     "killed while it has the files alone, `tarsil repair` counts the records that are in, and "
     "`tarsil reindex` brings the keys back.",
     "  tarsil import airports.dat airports.idx airports.csv\n"
     "  tarsil import airports.dat airports.idx new.csv --duplicates no --rejects refused.csv\n"
     "  # From another program:\n"
     "  jq -c .[] list.json | tarsil import airports.dat airports.idx - --format jsonl\n",
     declare_import},
    {"export", "Write records as CSV, JSON Lines or raw bytes",
     "What is exported and imported again is the same to the last byte. Raw bytes are the records "
     "back to back; in a file of variable length each stands behind its length, 4 bytes with the "
     "lowest first.\n\n"
     "Without --by the records come in the order of the file, and --from and --to are numbers of "
     "records. With --by they come in the order of a key, and --from and --to are its values. A "
     "file of --output stands under its name when it is whole, and not before.",
     "  tarsil export airports.dat --output airports.csv\n"
     "  tarsil export airports.dat --by airports.idx:country --from CH --to CH --json\n"
     "  tarsil export airports.dat --by airports.idx:1 --from CH --from M --to CH | head\n",
     declare_export},
    {"get", "Show records by number",
     "One record is shown as a list of its fields, several as a table. The status is 1 if one "
     "isn't there.",
     "  tarsil get airports.dat 17\n"
     "  tarsil get airports.dat 1 2 3 --json\n",
     declare_get},
    {"find", "Show records by a value of a key",
     "KEY is the number of a key, from 0, or the names of its first fields. As many values as the "
     "key has fields are the whole value; fewer are its leading fields; with --prefix the last "
     "one is the beginning of a text. All records that fit are shown, in the order of the key. "
     "With --nearest the record nearest before the value is shown where none matches.\n\n"
     "A value that begins with - goes behind --, as with all commands. The status is 1 if nothing "
     "is found.",
     "  tarsil find airports.dat airports.idx ident LSZH\n"
     "  tarsil find airports.dat airports.idx country,name CH Ber --prefix\n"
     "  tarsil find airports.dat airports.idx latitude 46.5 --nearest --limit 3\n"
     "  tarsil find airports.dat airports.idx latitude --nearest -- -33.9\n",
     declare_find},
    {"add", "Add one record",
     "Every field is set, or --partial is given. Name all index files: one that isn't learns "
     "nothing of the record.",
     "  tarsil add cities.dat cities.idx --set \"name=New York\" --set population=8804190\n",
     declare_add},
    {"update", "Change fields of one record",
     "The other fields stay. A record stays in its place unless a field of a key in one of the "
     "named index files changes, which --move allows: it is deleted then and added anew under "
     "another number. Name all index files.",
     "  tarsil update cities.dat 7 cities.idx --set population=8804190\n"
     "  tarsil update cities.dat 7 cities.idx --set name=York --move\n",
     declare_update},
    {"delete", "Mark records as deleted",
     "They keep their places and their numbers until `tarsil purge` or `tarsil compact` takes them "
     "out. The status is 1 if one was deleted already.",
     "  tarsil delete cities.dat 7 8\n", declare_delete},
    {"undelete", "Bring deleted records back", "The status is 1 if one was not deleted.",
     "  tarsil undelete cities.dat 7\n", declare_undelete},
    {"info", "Tell what files say of themselves",
     "Kind, version, counts, lengths and fields of data files; keys with their fields, order, "
     "depth and fill of index files; the bytes left up to the 2 GiB that a file can hold. The "
     "files are read as they stand, also if others have them open or they can't be opened. "
     "Name a data file in front of its index files, and the keys are shown by name.",
     "  tarsil info airports.dat airports.idx\n"
     "  tarsil info --json airports.dat | jq .[0].records\n",
     declare_info},
    {"check", "Verify a data file and its index files, changing nothing",
     "The header is compared with the records, every tree with the rules of its format, and the "
     "entries with the records, both ways. What is wrong is told with its place, the rule of "
     "docs/FILE_FORMATS.md that is broken, and the command that mends it.\n\n"
     "The files are held against changes meanwhile, if the programs that have them open allow it; "
     "if not, a warning says so. The status is 0 for sound files, 1 for damaged ones, 2 if they "
     "could not be looked at.",
     "  tarsil check airports.dat airports.idx\n"
     "  tarsil check --json airports.dat airports.idx | jq .mended_by\n",
     declare_check},
    {"repair", "Make the header of a data file anew from its records",
     "What a killed program leaves: records that the header doesn't count, and perhaps half a "
     "record at the end of the file, which is cut off. A file with more wrong than that is left "
     "as it is; `tarsil salvage` is for it. Index files that are given are looked at afterwards, "
     "and those that have to be built anew are told.",
     "  tarsil repair --dry-run airports.dat\n"
     "  tarsil repair airports.dat airports.idx\n",
     declare_repair},
    {"reindex", "Build index files anew from the records",
     "What the keys are is read from the old index file, whose trees may be damaged, or told with "
     "--key. The new file is made as INDEX.reindexing and takes the old one's place when it is "
     "whole; until then the old one stays as it is, whatever happens. Nobody else can have the "
     "files open meanwhile.",
     "  tarsil reindex airports.dat airports.idx\n"
     "  # An index file that tells nothing any more:\n"
     "  tarsil reindex airports.dat airports.idx --key ident --key country,name\n",
     declare_reindex},
    {"salvage", "Save what can be read of a damaged data file into a new one",
     "Works on files that can't be opened: with a wrong mark, a damaged header, damaged frames. "
     "Where records stop making sense, the next ones that do are looked for, and what lies in "
     "between is told with its place. What the header can't tell is taken from the records, or "
     "from --record-length, --start and --field. The damaged file is not changed.\n\n"
     "The status is 0 if all was saved, 1 if something was not, 2 if nothing was.",
     "  tarsil salvage --dry-run airports.dat saved.dat\n"
     "  tarsil salvage airports.dat saved.dat --record-length 192\n",
     declare_salvage},
    {"compact", "Take the deleted records out and give their space back",
     "New files are made beside the old ones as DATA.compacted and INDEX.compacted, and take "
     "their places together when all are whole. An interruption before that leaves the old files "
     "as they were. An interruption in the middle of it leaves the journal DATA.compacting, with "
     "which the next command that opens DATA finishes. Nobody else can have the files open "
     "meanwhile.\n\n"
     "Give all index files of the data file: records get new places, and an index file that isn't "
     "compacted with them has to be built anew by `tarsil reindex`.",
     "  tarsil compact airports.dat airports.idx\n", declare_compact},
    {"purge", "Take the deleted records out in place",
     "Records get new numbers, the named indexes are built anew, and index files that aren't named "
     "are void. The file keeps its length, but the end of it, no longer needed, is given back to "
     "the disk. An interruption leaves files that can't be trusted: `tarsil compact` needs room "
     "for a second copy but is safe.",
     "  tarsil purge --dry-run airports.dat\n"
     "  tarsil purge airports.dat airports.idx\n",
     declare_purge},
    {"locks", "Tell which processes hold which ranges of files",
     "Shows every process that has one of the files open, in which way, and what each range that "
     "it holds means. Processes of other users are seen by the administrator only. No lock is "
     "taken for it.",
     "  tarsil locks airports.dat airports.idx\n", declare_locks},
    {"explain", "Name, cause and remedy of a result code",
     "CODE is a number, with or without its sign, or a name, with or without TS_.",
     "  tarsil explain -1004\n"
     "  tarsil explain LOCK_REFUSED\n",
     declare_explain},
};

} // namespace

std::span<const command> all_commands() { return table; }

std::vector<declared_command> declare_all(common_options& common)
{
    std::vector<declared_command> all;
    for (const command& one : table) {
        declared_command& made = all.emplace_back(declared_command{&one, {}, {}});
        made.run = one.declare(made.options, common);
    }
    return all;
}

void add_wait(option_set& options, common_options& common)
{
    options
        .add("--wait", common.wait_seconds,
             "Seconds to wait for files or ranges that another process holds")
        .between(0.0, 86400.0)
        .value_name("SECONDS")
        .shows_default();
}

void add_sharing(option_set& options, common_options& common)
{
    add_wait(options, common);
    const auto choose = [&](sharing mode) { return [&common, mode] { common.mode = mode; }; };
    options.add_call("--multi-user", choose(sharing::shared),
                     "Work beside other processes on the same files");
    options.add_call("--single-user", choose(sharing::alone), "Have the files alone meanwhile")
        .excludes("--multi-user");
}

void add_fields_file(option_set& options, common_options& common)
{
    options
        .add("--fields", common.fields_file,
             "File with the names of the fields, instead of DATA.fields")
        .value_name("FILE");
}

void add_json(option_set& options, common_options& common)
{
    options.add("--json", common.json, "Write JSON");
}

void add_dry_run(option_set& options, common_options& common)
{
    options.add("--dry-run", common.dry_run, "Tell what would be done, and change nothing");
}

void add_for_changes(option_set& options, common_options& common)
{
    add_fields_file(options, common);
    add_sharing(options, common);
    add_json(options, common);
    add_dry_run(options, common);
}

} // namespace tarsil::tool
