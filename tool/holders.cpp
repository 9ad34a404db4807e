// Looks through /proc for the processes that have a file open.
#include "tool/holders.h"

#include <charconv>
#include <fstream>
#include <limits>

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tool/folders.h"

namespace tarsil::tool {

namespace {

namespace fs = std::filesystem;

// Where a process that has a file for itself, or shares it, keeps a lock to say so
// (docs/LOCKING.md).
constexpr int64_t share_byte = int64_t{1} << 40;

std::vector<std::string> words_of(const std::string& line)
{
    std::vector<std::string> words;
    for (size_t at = line.find_first_not_of(" \t"); at != line.npos;) {
        const size_t end = std::min(line.find_first_of(" \t", at), line.size());
        words.push_back(line.substr(at, end - at));
        at = line.find_first_not_of(" \t", end);
    }
    return words;
}

// "1: OFDLCK ADVISORY WRITE -1 fe:00:10952839 4 27", the first word being a number with a colon.
bool read_lock(const std::vector<std::string>& words, held_bytes& held)
{
    if (words.size() < 8) return false;
    held.is_exclusive = words[3] == "WRITE";
    held.first = std::strtoll(words[6].c_str(), nullptr, 10);
    held.last = words[7] == "EOF" ? std::numeric_limits<int64_t>::max()
                                  : std::strtoll(words[7].c_str(), nullptr, 10);
    return true;
}

int read_locks_of(const fs::path& fdinfo, holder& into)
{
    int count = 0;
    std::ifstream file(fdinfo);
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with("lock:")) continue;
        held_bytes held;
        if (!read_lock(words_of(line.substr(5)), held)) continue;
        ++count;
        if (held.first != share_byte)
            into.ranges.push_back(held);
        else if (held.is_exclusive)
            into.is_alone = true;
        else
            into.is_sharing = true;
    }
    return count;
}

int count_locks(ino_t inode)
{
    const std::string ending = fmt::format(":{}", inode);
    int count = 0;
    std::ifstream file("/proc/locks");
    for (std::string line; std::getline(file, line);) {
        const std::vector<std::string> words = words_of(line);
        if (words.size() >= 8 && words[1] != "->" && words[5].ends_with(ending)) ++count;
    }
    return count;
}

std::string program_of(const fs::path& process)
{
    std::string name;
    std::ifstream file(process / "comm");
    std::getline(file, name);
    return name;
}

// Whether the process has the file open; counts its locks on it.
bool look_at(const fs::path& process, const struct stat& wanted, holder& found, int& locks)
{
    bool has_it = false;
    each_entry(process / "fd", [&](const fs::path& descriptor) {
        struct stat there = {};
        if (stat(descriptor.c_str(), &there) != 0) return;
        if (there.st_dev != wanted.st_dev || there.st_ino != wanted.st_ino) return;
        has_it = true;
        locks += read_locks_of(process / "fdinfo" / descriptor.filename(), found);
    });
    return has_it;
}

holders look_for_holders(const struct stat& wanted)
{
    holders result;
    int locks = 0;
    each_entry("/proc", [&](const fs::path& process) {
        const std::string number = process.filename();
        holder found;
        const char* const end = number.data() + number.size();
        const auto read = std::from_chars(number.data(), end, found.pid);
        if (read.ec != std::errc() || read.ptr != end) return;
        if (access((process / "fd").c_str(), R_OK | X_OK) != 0) {
            result.are_some_hidden = true;
            return;
        }
        if (!look_at(process, wanted, found, locks) || found.pid == getpid()) return;
        found.program = program_of(process);
        result.known.push_back(std::move(found));
    });
    result.is_hidden_lock = count_locks(wanted.st_ino) > locks;
    return result;
}

} // namespace

// Locks come and go between the look at the processes and the count, so one that seems to be hidden
// is looked for again, unless there are processes where it may well be.
holders holders_of(const std::string& name)
{
    constexpr int most_looks = 3;
    holders result;
    struct stat wanted = {};
    if (stat(name.c_str(), &wanted) != 0) return result;
    for (int looks = 0; looks < most_looks; ++looks) {
        result = look_for_holders(wanted);
        if (!result.is_hidden_lock || result.are_some_hidden) break;
    }
    return result;
}

std::string names_of(const holders& found)
{
    std::string names;
    for (const holder& one : found.known)
        names += fmt::format("{}process {} ({})", names.empty() ? "" : ", ", one.pid, one.program);
    if (!names.empty()) return names;
    if (found.are_some_hidden || found.is_hidden_lock)
        return "a process of another user or machine";
    return "a process that has ended since";
}

} // namespace tarsil::tool
