// The journal of a compaction, and the renames that it plans.
//
// It is text: a first line that names the format, then a line for each file with inode, size and
// time of the old and of the new file and its place, in which bytes that would end a word are
// written as %HH. A place is a bare name where the file stands in the journal's own folder, so that
// the folder can be moved. The journal is made under another name and renamed, so that it is whole
// wherever it exists; and it is held alone by the process that works on it, so that two don't.
#include "tool/compaction.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tool/output.h"
#include "tool/staged_file.h"

namespace tarsil::tool {

namespace {

namespace paths = std::filesystem;

constexpr const char* first_line = "tarsil compaction 1";
constexpr size_t most_files = 1 + TS_MAX_INDEX_FILES;

std::string journal_of(const std::string& data) { return real_place(data) + ".compacting"; }

bool is_there(const std::string& name)
{
    struct stat facts = {};
    return lstat(name.c_str(), &facts) == 0;
}

file_state state_of(const std::string& name)
{
    struct stat facts = {};
    if (stat(name.c_str(), &facts) != 0) return {};
    constexpr int64_t second = 1'000'000'000;
    return {facts.st_ino, facts.st_size, facts.st_mtim.tv_sec * second + facts.st_mtim.tv_nsec};
}

// --- The text ----------------------------------------------------------------------------------

std::string as_word(const std::string& text)
{
    std::string word;
    for (const char byte : text) {
        const bool is_plain = byte > ' ' && byte < 0x7F && byte != '%';
        word += is_plain ? std::string(1, byte)
                         : fmt::format("%{:02X}", static_cast<unsigned char>(byte));
    }
    return word;
}

std::string from_word(const std::string& word)
{
    std::string text;
    for (size_t i = 0; i < word.size(); ++i) {
        if (word[i] != '%' || i + 2 >= word.size()) {
            text += word[i];
            continue;
        }
        text += static_cast<char>(std::strtoul(word.substr(i + 1, 2).c_str(), nullptr, 16));
        i += 2;
    }
    return text;
}

std::string text_of(const exchange_plan& plan, const paths::path& folder)
{
    std::string text = std::string(first_line) + "\n";
    for (const exchange& one : plan) {
        const paths::path place = paths::absolute(one.place);
        const std::string name = place.parent_path() == folder ? place.filename() : place;
        text += fmt::format("{} {} {} {} {} {} {}\n", one.old_file.inode, one.old_file.bytes,
                            one.old_file.changed, one.new_file.inode, one.new_file.bytes,
                            one.new_file.changed, as_word(name));
    }
    return text + "end\n";
}

answer<exchange_plan> read_plan(const std::string& journal)
{
    const failure wrong{journal + ": is no journal of a compaction that this version can read",
                        "move it away if you know what it is"};
    const paths::path folder = paths::absolute(journal).parent_path();
    std::ifstream file(journal);
    std::string line;
    if (!std::getline(file, line) || line != first_line) return wrong;
    exchange_plan plan;
    while (std::getline(file, line) && line != "end") {
        std::istringstream words(line);
        exchange one;
        std::string name;
        words >> one.old_file.inode >> one.old_file.bytes >> one.old_file.changed >>
            one.new_file.inode >> one.new_file.bytes >> one.new_file.changed >> name;
        if (words.fail() || plan.size() == most_files) return wrong;
        one.place = (folder / from_word(name)).string();
        plan.push_back(std::move(one));
    }
    if (line != "end" || plan.empty()) return wrong;
    return plan;
}

answer<file_guard> write_journal(const std::string& journal, const exchange_plan& plan)
{
    const std::string working = journal + ".new";
    unlink(working.c_str());
    answer<byte_sink> file = byte_sink::create(working);
    if (!file) return file.why();
    file->put(text_of(plan, paths::absolute(journal).parent_path()));
    const outcome written = file->close();
    answer<file_guard> guard = file_guard::alone(working, 0);
    outcome done = written ? flush_file(working) : written;
    if (done && guard) done = rename_file(working, journal);
    if (done && guard) done = flush_folder_of(journal);
    if (done && guard) return guard;
    unlink(working.c_str());
    return done ? guard.why() : done.why();
}

// --- The renames -------------------------------------------------------------------------------

enum class way { finish, undo };

// Once the new data file has its place there is no way but forward. Before, both ways are open as
// long as nobody has changed the old one; if somebody has, only back.
way way_of(const exchange_plan& plan)
{
    const bool is_old = state_of(plan.front().place) == plan.front().old_file;
    if (!is_there(plan.front().made())) return is_old ? way::undo : way::finish;
    if (!is_old) return way::undo;
    const bool all_there = std::all_of(plan.begin(), plan.end(), [](const exchange& one) {
        return state_of(one.made()) == one.new_file;
    });
    return all_there ? way::finish : way::undo;
}

outcome flush_folders(const exchange_plan& plan)
{
    for (const exchange& one : plan) {
        const outcome flushed = flush_folder_of(one.place);
        if (!flushed) return flushed;
    }
    return {};
}

// Each step passes over what is done already, and is on stable storage before the next begins.
outcome finish(const exchange_plan& plan)
{
    const bool is_data_done = !is_there(plan.front().made());
    for (size_t i = 1; i < plan.size() && !is_data_done; ++i) {
        if (!is_there(plan[i].place)) continue;
        const outcome aside = rename_file(plan[i].place, plan[i].aside());
        if (!aside) return aside;
    }
    outcome flushed = flush_folders(plan);
    if (!flushed) return flushed;
    for (const exchange& one : plan) {
        if (!is_there(one.made())) continue;
        const outcome placed = rename_file(one.made(), one.place);
        if (!placed) return placed;
        flushed = flush_folder_of(one.place);
        if (!flushed) return flushed;
    }
    for (const exchange& one : plan) unlink(one.aside().c_str());
    return {};
}

outcome undo(const exchange_plan& plan)
{
    if (!is_there(plan.front().place))
        return failure{plan.front().place + ": isn't there, but " + plan.front().made() + " is",
                       "put the data file back, or rename the other one to its name"};
    for (size_t i = 1; i < plan.size(); ++i) {
        const bool is_back = is_there(plan[i].place) || !is_there(plan[i].aside());
        const outcome back = is_back ? outcome() : rename_file(plan[i].aside(), plan[i].place);
        if (!back) return back;
        unlink(plan[i].aside().c_str());
    }
    // The new data file goes last: without it the way is forward, with the index files that are
    // left.
    for (size_t i = 1; i < plan.size(); ++i) unlink(plan[i].made().c_str());
    const outcome flushed = flush_folders(plan);
    if (!flushed) return flushed;
    unlink(plan.front().made().c_str());
    return flush_folder_of(plan.front().place);
}

outcome remove_journal(const std::string& journal)
{
    if (unlink(journal.c_str()) != 0)
        return failure{journal + ": can't be removed: " + std::strerror(errno),
                       "check the folder and its permissions"};
    return flush_folder_of(journal);
}

} // namespace

outcome carry_out(exchange_plan plan, bool& is_planned)
{
    for (exchange& one : plan) {
        one.old_file = state_of(one.place);
        one.new_file = state_of(one.made());
    }
    const std::string journal = journal_of(plan.front().place);
    const answer<file_guard> guard = write_journal(journal, plan);
    if (!guard) return guard.why();
    is_planned = true;
    const outcome done = finish(plan);
    if (!done)
        return failure{done.why().text, done.why().advice + "; the next command that opens " +
                                            plan.front().place + " finishes it"};
    return remove_journal(journal);
}

std::string pending_exchange::current(const std::string& name) const
{
    const std::string place = real_place(name);
    const std::string full = paths::absolute(place).lexically_normal().string();
    for (const auto& [given, stand_in] : stand_ins)
        if (given == full) return stand_in;
    return name;
}

pending_exchange pending_compaction(const std::string& data)
{
    pending_exchange pending;
    const std::string journal = journal_of(data);
    if (!is_there(journal)) return pending;
    const answer<exchange_plan> plan = read_plan(journal);
    if (!plan) {
        pending.text = plan.why().text;
        return pending;
    }
    const bool goes_on = way_of(*plan) == way::finish;
    for (const exchange& one : *plan) {
        const std::string other = goes_on ? one.made() : one.aside();
        const bool is_other = is_there(other) && (goes_on || !is_there(one.place));
        pending.stand_ins.emplace_back(one.place, is_other ? other : one.place);
    }
    pending.text = fmt::format("a compaction of {} was interrupted at its last step; the next "
                               "command that opens it {}",
                               data,
                               goes_on ? "finishes it, and this is about its outcome"
                                       : "undoes it, since the file was changed meanwhile");
    return pending;
}

outcome settle_compaction(const std::string& data, double wait_seconds)
{
    const std::string journal = journal_of(data);
    if (!is_there(journal)) return {};
    const answer<file_guard> guard = file_guard::alone(journal, wait_seconds);
    if (!is_there(journal)) return {};
    if (!guard) return guard.why();
    const answer<exchange_plan> plan = read_plan(journal);
    if (!plan) return plan.why();
    const bool goes_on = way_of(*plan) == way::finish;
    const outcome done = goes_on ? finish(*plan) : undo(*plan);
    if (!done) return done;
    const outcome removed = remove_journal(journal);
    if (!removed) return removed;
    note(fmt::format("a compaction of {} had been interrupted at its last step and has been {}",
                     data, goes_on ? "finished" : "undone, since the file was changed meanwhile"));
    const bool is_changed = goes_on && state_of(plan->front().place) != plan->front().new_file;
    if (is_changed)
        warn(data + " was changed meanwhile; `tarsil check` with its index files tells whether "
                    "they have all of it");
    return {};
}

} // namespace tarsil::tool
