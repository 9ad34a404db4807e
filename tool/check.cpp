// tarsil check: read-only verification of a data file and its index files.
//
// All files are held together by read locks while they are looked at, so that no program changes
// one of them in between; where that isn't to be had, it is said. The verification itself is that
// of check/.

#include "check/data_check.h"
#include "check/index_check.h"
#include "check/report_text.h"
#include "tool/command.h"
#include "tool/compaction.h"
#include "tool/file_guard.h"
#include "tool/opening.h"
#include "tool/output.h"
#include "tool/repair_plan.h"

namespace tarsil::tool {

namespace {

struct check_options {
    std::string data;
    std::vector<std::string> indexes;
    int32_t precision = default_precision;
    bool all = false;
};

// A file under the name that was given and, after a compaction that was interrupted, the one that
// it is about to become.
struct looked_at {
    std::string name;
    file_guard guard;
    check::file_bytes bytes;
};

struct checked_index {
    looked_at file;
    check::index_report report;
};

struct checked_files {
    looked_at data;
    check::data_report report;
    bool is_for_salvage = false; // no other command mends it
    std::vector<checked_index> indexes;
    bool is_steady = true;
};

// --- Looking -----------------------------------------------------------------------------------

outcome look_at(looked_at& file, const std::string& place, double wait, bool& is_steady)
{
    answer<file_guard> guard = file_guard::look(place, wait);
    if (!guard) return guard.why();
    file.guard = std::move(*guard);
    if (!file.guard.is_steady()) {
        is_steady = false;
        warn(unsteady_text(file.name));
    }
    return file.guard.read(file.bytes);
}

// What is no file of ours can't be looked at; a wrong mark on what has the looks of one is damage.
outcome is_ours(const looked_at& file, bool is_marked, bool is_data)
{
    if (is_marked) return {};
    const char* const kind = is_data ? "a data file" : "an index file";
    const std::string place = file.guard.name();
    switch (kind_of(place)) {
    case file_kind::empty: return failure{file.name + ": is empty", "restore it from a copy"};
    case file_kind::data:
        if (is_data) return {};
        return failure{file.name + ": is a data file where an index file should stand",
                       "give the data file first, then its index files"};
    case file_kind::index:
        if (!is_data) return {};
        return failure{file.name + ": is an index file where the data file should stand",
                       "give the data file first, then its index files"};
    default: break;
    }
    return failure{fmt::format("{}: doesn't begin with the mark of {}", file.name, kind),
                   is_data ? "if it is a damaged one, `tarsil salvage` saves what can be read"
                           : "if it is a damaged one, make it anew with `tarsil index`"};
}

outcome open_all(const check_options& options, const common_options& common, checked_files& files)
{
    const pending_exchange pending = pending_compaction(options.data);
    files.data.name = options.data;
    outcome done = look_at(files.data, pending.current(options.data), common.wait_seconds,
                           files.is_steady);
    if (!done) return done;
    if (!pending.text.empty()) note(pending.text);
    files.indexes.resize(options.indexes.size());
    for (size_t i = 0; i < options.indexes.size(); ++i) {
        looked_at& file = files.indexes[i].file;
        file.name = options.indexes[i];
        done = look_at(file, pending.current(file.name), common.wait_seconds, files.is_steady);
        if (!done) return done;
    }
    return {};
}

// Half a record behind the last one is all that the checker sees as a matter for salvage and
// `tarsil repair` can mend.
void choose_remedy(checked_files& files)
{
    repair_plan plan;
    plan.before = files.report;
    const outcome planned = plan_repair(files.data.name, files.data.bytes, plan);
    files.is_for_salvage = !planned || plan.becomes_variable;
    for (check::finding& one : files.report.findings.kept) {
        if (one.how_bad == check::severity::note) continue;
        one.mended_by = files.is_for_salvage ? check::remedy::salvage
                                             : check::remedy::repair_header;
    }
}

outcome check_all(const check_options& options, checked_files& files)
{
    check::frame_list frames;
    const bool needs_frames = !files.indexes.empty();
    files.report = check::check_data_file(files.data.bytes, needs_frames ? &frames : nullptr);
    outcome ours = is_ours(files.data, files.report.is_data_file, true);
    if (!ours) return ours;
    choose_remedy(files);
    const bool is_comparable = files.report.is_walked && !files.is_for_salvage;
    const check::data_side side{files.data.bytes, frames};
    for (checked_index& one : files.indexes) {
        one.report = check::check_index_file(one.file.bytes, is_comparable ? &side : nullptr,
                                             options.precision);
        ours = is_ours(one.file, one.report.is_index_file || one.report.key_count != 0, false);
        if (!ours) return ours;
        if (one.file.bytes.failed())
            return failure{one.file.name + ": can't be read to its end", "check the disk"};
    }
    if (files.data.bytes.failed())
        return failure{files.data.name + ": can't be read to its end",
                       "check the disk; `tarsil salvage` saves what can be read"};
    return {};
}

// --- Telling -----------------------------------------------------------------------------------

struct verdict {
    int64_t damage = 0;
    int64_t out_of_step = 0;

    void add(const check::finding_list& list)
    {
        damage += list.count(check::severity::damage);
        out_of_step += list.count(check::severity::out_of_step);
    }
    bool is_sound() const { return damage + out_of_step == 0; }
};

verdict of_data(const checked_files& files)
{
    verdict total;
    total.add(files.report.findings);
    return total;
}

verdict of_index(const checked_index& one)
{
    verdict total;
    total.add(one.report.findings);
    for (const check::key_report& key : one.report.keys) total.add(key.findings);
    return total;
}

// The command that comes next; a data file comes before its indexes.
std::string command_for(const checked_files& files)
{
    if (!of_data(files).is_sound() && files.is_for_salvage)
        return fmt::format("tarsil salvage {} NEW", files.data.name);
    std::string command = "tarsil reindex " + files.data.name;
    bool is_any = false;
    for (const checked_index& one : files.indexes) {
        if (of_index(one).is_sound()) continue;
        command += " " + one.file.name;
        is_any = true;
    }
    if (of_data(files).is_sound()) return is_any ? command : std::string();
    command = "tarsil repair " + files.data.name;
    for (const checked_index& one : files.indexes) command += " " + one.file.name;
    return command;
}

// Of each kind the first few, unless all that were kept are asked for.
void tell_findings(const check::finding_list& list, bool all)
{
    constexpr int64_t few = 3;
    std::array<int64_t, check::invariant_count> told{};
    for (const check::finding& one : list.kept) {
        int64_t& count = told[static_cast<size_t>(one.broken)];
        if (!all && count == few) continue;
        ++count;
        print("  {}\n", check::line_of(one));
    }
    for (size_t i = 0; i < told.size(); ++i)
        if (list.of_invariant[i] > told[i])
            print("  {}: {} more of this kind\n", check::name_of(check::invariant(i)),
                  grouped(list.of_invariant[i] - told[i]));
}

const char* state_of(const verdict& found)
{
    if (found.damage > 0) return "damaged";
    return found.out_of_step > 0 ? "out of step" : "sound";
}

void tell_data(const checked_files& files, bool all)
{
    const check::data_report& report = files.report;
    print("{}: {}", files.data.name, state_of(of_data(files)));
    if (report.is_walked)
        print("; {}, {} of them deleted, {} bytes", counted(report.records, "record"),
              grouped(report.deleted), grouped(report.file_size));
    print("\n");
    tell_findings(report.findings, all);
}

std::string entries_of(int64_t count)
{
    return count == 1 ? "1 entry" : grouped(count) + " entries";
}

void tell_index(const checked_index& one, bool all)
{
    print("{}: {}", one.file.name, state_of(of_index(one)));
    if (one.report.is_index_file)
        print("; {} {}, {} bytes", one.report.keys.size(),
              one.report.keys.size() == 1 ? "key" : "keys", grouped(one.report.file_size));
    print("\n");
    for (size_t i = 0; i < one.report.keys.size(); ++i) {
        const check::key_report& key = one.report.keys[i];
        if (!key.is_walked) continue;
        print("  key {}: {} in {}, depth {}, leaves {} % full\n", i, entries_of(key.entries),
              counted(key.nodes(), "node"), key.depth, key.fill_percent());
    }
    if (!one.report.has_data) print("  not compared with the records of the data file\n");
    tell_findings(one.report.findings, all);
    for (const check::key_report& key : one.report.keys) tell_findings(key.findings, all);
}

json findings_json(const check::finding_list& list)
{
    json all = json::array();
    for (const check::finding& one : list.kept) {
        json facts = {{"invariant", check::name_of(one.broken)},
                      {"severity", check::name_of(one.how_bad)},
                      {"text", one.text}};
        if (one.where.key != check::not_given) facts["key"] = one.where.key;
        if (one.where.record != check::not_given) facts["record"] = one.where.record;
        if (one.where.offset != check::not_given) facts["offset"] = one.where.offset;
        if (one.mended_by != check::remedy::none) facts["remedy"] = check::name_of(one.mended_by);
        all.push_back(std::move(facts));
    }
    return all;
}

json data_json(const checked_files& files)
{
    const check::data_report& report = files.report;
    return {{"file", files.data.name},
            {"state", state_of(of_data(files))},
            {"bytes", report.file_size},
            {"records", report.records},
            {"deleted", report.deleted},
            {"bytes_behind_end", report.tail_bytes},
            {"records_behind_end", report.tail_records},
            {"findings", findings_json(report.findings)},
            {"findings_counted", report.findings.total()}};
}

json index_json(const checked_index& one)
{
    json keys = json::array();
    for (const check::key_report& key : one.report.keys) {
        keys.push_back({{"entries", key.entries},
                        {"missing_entries", key.missing_entries},
                        {"nodes", key.nodes()},
                        {"depth", key.depth},
                        {"fill_percent", key.fill_percent()},
                        {"findings", findings_json(key.findings)},
                        {"findings_counted", key.findings.total()}});
    }
    return {{"file", one.file.name},
            {"state", state_of(of_index(one))},
            {"bytes", one.report.file_size},
            {"bytes_unreached", one.report.unreached_bytes},
            {"compared_with_records", one.report.has_data},
            {"keys", keys},
            {"findings", findings_json(one.report.findings)}};
}

void tell(const checked_files& files, const check_options& options, const common_options& common)
{
    const std::string command = command_for(files);
    if (!common.json) {
        tell_data(files, options.all);
        for (const checked_index& one : files.indexes) tell_index(one, options.all);
        if (!command.empty()) print("To mend it: {}\n", command);
        return;
    }
    json indexes = json::array();
    for (const checked_index& one : files.indexes) indexes.push_back(index_json(one));
    put_json({{"data", data_json(files)},
              {"indexes", indexes},
              {"may_be_in_change", !files.is_steady},
              {"mended_by", command.empty() ? json() : json(command)}});
}

int run(const check_options& options, const common_options& common)
{
    checked_files files;
    const outcome opened = open_all(options, common, files);
    if (!opened) return fail(opened.why());
    const outcome looked = check_all(options, files);
    if (!looked) return fail(looked.why());

    bool is_sound = of_data(files).is_sound();
    for (const checked_index& one : files.indexes) is_sound = is_sound && of_index(one).is_sound();
    tell(files, options, common);
    return is_sound ? exit_done : exit_partly;
}

} // namespace

run_command declare_check(option_set& options, common_options& common)
{
    auto given = std::make_shared<check_options>();
    options.add("DATA", given->data, "The data file").required();
    options.add("INDEX", given->indexes, "Its index files");
    options
        .add("--precision", given->precision,
             "Digits in which float and double keys were told apart when they were built")
        .between(0, 100)
        .shows_default();
    options.add("--all", given->all, "Tell more than three findings of a kind, up to ten");
    add_wait(options, common);
    add_json(options, common);
    return [given, &common] { return run(*given, common); };
}

} // namespace tarsil::tool
