// Opens files and finds the words for what keeps them from being opened.
#include "tool/opening.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <thread>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <fmt/format.h>

#include "check/file_bytes.h"
#include "data/data_format.h"
#include "index/index_format.h"
#include "tool/compaction.h"
#include "tool/folders.h"
#include "tool/holders.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

namespace fs = std::filesystem;
using clock = std::chrono::steady_clock;

constexpr int64_t most_file_bytes = 0x7fffffff;

retry patience(const common_options& common)
{
    const auto wait = std::chrono::duration<double>(common.wait_seconds);
    return retry::up_to(std::chrono::duration_cast<std::chrono::microseconds>(wait));
}

outcome check_permission(const std::string& name)
{
    if (access(name.c_str(), R_OK | W_OK) == 0) return {};
    const int error = errno;
    if (error == EACCES || error == EROFS || error == EPERM)
        return failure{fmt::format("{}: may not be {}: {}", name,
                                   access(name.c_str(), R_OK) == 0 ? "written" : "read",
                                   std::strerror(error)),
                       "files are always opened for both; change the permissions, or work on a "
                       "copy"};
    return failure{name + ": " + std::strerror(error), "check the name"};
}

// Before the library is asked: its answer to all of this would be that the file isn't there.
outcome check_kind(const std::string& name, file_kind wanted)
{
    const bool wants_data = wanted == file_kind::data;
    const char* const wanted_name = wants_data ? "data file" : "index file";
    switch (kind_of(name)) {
    case file_kind::not_there:
        return failure{name + ": there is no such file",
                       fmt::format("check the name; `tarsil {}` makes a new one",
                                   wants_data ? "create" : "index")};
    case file_kind::no_file: return failure{name + ": is not a regular file", "check the name"};
    case file_kind::empty:
        return failure{fmt::format("{}: is empty, so it is no {}", name, wanted_name),
                       "restore it from a copy, or remove it and make it anew"};
    case file_kind::other: {
        const outcome may = check_permission(name);
        if (!may) return may;
        return failure{
            fmt::format("{}: is no {}: it doesn't begin with the mark of one", name, wanted_name),
            "check the name; nothing was changed"};
    }
    case file_kind::data:
        if (wants_data) break;
        return failure{name + ": is a data file where an index file should stand",
                       "give the data file once, in front of the index files"};
    case file_kind::index:
        if (!wants_data) break;
        return failure{name + ": is an index file where the data file should stand",
                       "give the data file first"};
    }
    return check_permission(name);
}

bool is_not_there(int32_t code)
{
    return code == TS_OPEN_DATA_NOT_THERE || code == TS_OPEN_INDEX_NOT_THERE;
}

// The file has been looked at: if the library can't open it now, somebody has it.
template <class Open> auto open_patiently(const common_options& common, bool may_wait, Open&& open)
{
    const auto deadline = clock::now() + patience(common).total;
    auto opened = open();
    while (!opened && is_not_there(opened.code()) && may_wait && clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        opened = open();
    }
    return opened;
}

failure opening_failure(const status& why, const std::string& name, bool is_shared)
{
    if (!is_not_there(why.code())) return failure_on(why, name);
    const holders found = holders_of(name);
    if (found.known.empty() && !found.is_hidden_lock)
        return {name + ": can't be opened", "check its permissions and whether it is still there"};
    const char* const advice = is_shared ? "wait until it has ended, or give --wait more seconds"
                                         : "give --multi-user if it shares its files, or wait";
    return {fmt::format("{}: {} has it open", name, names_of(found)), advice};
}

answer<open_files> open_in_mode(const std::string& data, const std::vector<std::string>& indexes,
                                const common_options& common, bool is_shared, bool may_wait)
{
    open_files files;
    files.is_shared = is_shared;
    answer<library> started = start_library(common, is_shared);
    if (!started) return started.why();
    files.started = std::move(*started);
    result<data_file> opened = open_patiently(common, may_wait,
                                              [&] { return files.started->open(data); });
    if (!opened) return opening_failure(opened, data, is_shared);
    files.data = std::move(opened).value();
    for (const std::string& name : indexes) {
        result<index> one = open_patiently(common, may_wait,
                                           [&] { return files.data.open_index(name); });
        if (!one) return opening_failure(one, name, is_shared);
        files.indexes.push_back(std::move(one).value());
    }
    return files;
}

bool is_full(const std::string& name)
{
    fs::path folder = fs::path(name).parent_path();
    if (folder.empty()) folder = ".";
    struct statvfs about = {};
    return statvfs(folder.c_str(), &about) == 0 && about.f_bavail == 0;
}

bool is_at_limit(const std::string& name)
{
    struct rlimit limit = {};
    struct stat about = {};
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return false;
    constexpr rlim_t nearly = 1 << 20;
    return stat(name.c_str(), &about) == 0 &&
           static_cast<rlim_t>(about.st_size) + nearly >= limit.rlim_cur;
}

int64_t size_of(const std::string& name)
{
    struct stat about = {};
    return stat(name.c_str(), &about) == 0 ? about.st_size : 0;
}

// Where a write failed, the reason that can be seen from outside; empty if there is none.
failure reason_of_write(const std::string& name)
{
    constexpr int64_t nearly_all = most_file_bytes - (1 << 20);
    if (is_full(name)) return {name + ": the disk is full", "make room, and try again"};
    if (is_at_limit(name))
        return {name + ": has reached the limit for the size of files (ulimit -f)",
                "raise the limit, and try again"};
    if (size_of(name) > nearly_all)
        return {name + ": has reached the 2 GiB that a file can hold",
                "`tarsil purge` gives back the room of deleted records; else begin a second file"};
    return {};
}

// Does a whole record stand behind the end that the header tells?
bool has_uncounted_record(const std::string& name)
{
    check::file_bytes bytes;
    if (bytes.open(name.c_str()) != check::open_result::opened) return false;
    data_header header = {};
    const check::byte_span told = bytes.at(data_header_offset, sizeof header);
    if (told.empty()) return false;
    std::memcpy(&header, told.data(), sizeof header);
    if (header.end_offset < field_table_offset) return false;
    record_frame frame = {};
    const check::byte_span stored = bytes.at(header.end_offset, frame_bytes);
    if (stored.empty()) return false;
    std::memcpy(&frame, stored.data(), sizeof frame);
    const bool is_length = header.record_length >= 1 ? frame.length == header.record_length
                                                     : frame.length >= 1;
    return is_length && frame.length <= bytes.size() - header.end_offset - frame_bytes;
}

std::string half_done_advice(const std::string& advice)
{
    return advice + ". What was begun is done in part: `tarsil check` with all index files tells "
                    "whether something is missing, and `tarsil reindex` puts keys right";
}

} // namespace

file_kind kind_of(const std::string& name)
{
    struct stat about = {};
    if (stat(name.c_str(), &about) != 0)
        return errno == ENOENT || errno == ENOTDIR ? file_kind::not_there : file_kind::other;
    if (!S_ISREG(about.st_mode)) return file_kind::no_file;
    if (about.st_size == 0) return file_kind::empty;
    std::array<char, 4> mark{};
    std::ifstream(name, std::ios::binary).read(mark.data(), mark.size());
    if (mark[0] != 0x2A) return file_kind::other;
    if (std::memcmp(mark.data() + 1, data_magic, sizeof data_magic) == 0) return file_kind::data;
    if (std::memcmp(mark.data() + 1, index_magic, sizeof index_magic) == 0) return file_kind::index;
    return file_kind::other;
}

outcome open_files::close()
{
    const std::string name = data.name();
    const status closed = data.close();
    if (!closed) return failure_on(closed, name);
    return {};
}

answer<library> start_library(const common_options& common, bool is_shared)
{
    result<library> started = library::start({.multi_user = is_shared, .wait = patience(common)});
    if (!started) return failure_of(started, "the library");
    return std::move(started).value();
}

answer<open_files> open(const std::string& data, const std::vector<std::string>& indexes,
                        const common_options& common, usual_mode usual)
{
    const outcome settled = common.dry_run ? outcome()
                                           : settle_compaction(data, common.wait_seconds);
    if (!settled) return settled.why();
    const outcome is_data = check_kind(data, file_kind::data);
    if (!is_data) return is_data.why();
    for (const std::string& name : indexes) {
        const outcome is_index = check_kind(name, file_kind::index);
        if (!is_index) return is_index.why();
    }
    const outcome are_several = check_given_once(indexes);
    if (!are_several) return are_several.why();

    const bool is_free = common.mode == sharing::chosen_by_command;
    const bool is_alone = is_free ? usual != usual_mode::shared : common.mode == sharing::alone;
    const bool may_share = is_free && usual == usual_mode::either;
    auto files = answer<open_files>(failure{});
    if (is_alone) files = open_in_mode(data, indexes, common, false, !may_share);
    if (!files && (!is_alone || may_share)) files = open_in_mode(data, indexes, common, true, true);
    if (!files) return files;

    const result<std::vector<field_entry>> table = files->data.fields();
    if (!table) return failure_on(table, data);
    const bool is_asked_for = !common.fields_file.empty();
    answer<field_list> fields = fields_of_file(
        data, is_asked_for ? common.fields_file : fields_file_of(data), is_asked_for, *table,
        files->data.record_length());
    if (!fields) return fields.why();
    files->fields = std::move(*fields);
    return files;
}

outcome check_given_once(const std::vector<std::string>& indexes)
{
    if (indexes.size() > TS_MAX_INDEX_FILES)
        return failure{fmt::format("{} index files", indexes.size()),
                       fmt::format("a data file has {} at most", int{TS_MAX_INDEX_FILES})};
    for (size_t i = 1; i < indexes.size(); ++i) {
        for (size_t earlier = 0; earlier < i; ++earlier) {
            std::error_code failed;
            if (fs::equivalent(indexes[i], indexes[earlier], failed))
                return failure{indexes[i] + ": is given twice", "give each index file once"};
        }
    }
    return {};
}

failure failure_on(const status& why, const std::string& file)
{
    failure told = failure_of(why, file);
    if (why.code() == TS_LOCK_REFUSED || why.code() == TS_OPEN_DATA_LOCK_FAILED) {
        told = {fmt::format("{}: {} holds what is needed of it", file, names_of(holders_of(file))),
                "try again, or give --wait more seconds"};
    } else if (why.name().find("WRITE") != std::string_view::npos) {
        const failure reason = reason_of_write(file);
        if (!reason.text.empty()) told = reason;
    }
    if (why.half_done()) told.advice = half_done_advice(told.advice);
    return told;
}

outcome check_all_counted(const open_files& files)
{
    const std::string name = files.data.name();
    if (!has_uncounted_record(name)) return {};
    if (files.is_shared) {
        // It may be that of an add elsewhere, whose header comes next.
        const result<file_lock> lock = files.data.lock();
        if (!lock || !has_uncounted_record(name)) return {};
    }
    return failure{name + ": has records that its header doesn't count, as a killed program "
                          "leaves them",
                   fmt::format("`tarsil repair {}` counts them; nothing was changed", name)};
}

void warn_of_size(const std::string& name)
{
    const int64_t size = size_of(name);
    if (size < most_file_bytes / 10 * 9) return;
    warn(fmt::format("{} has {} of the {} bytes that a file can hold", name, grouped(size),
                     grouped(most_file_bytes)));
}

void note_other_indexes(const std::string& data, const std::vector<std::string>& given)
{
    const fs::path folder = fs::path(data).parent_path();
    const std::string front = fs::path(data).stem().string() + ".";
    each_entry(folder.empty() ? fs::path(".") : folder, [&](const fs::path& beside) {
        if (!beside.filename().string().starts_with(front)) return;
        if (kind_of(beside.string()) != file_kind::index) return;
        std::error_code failed;
        const bool is_given = std::any_of(given.begin(), given.end(), [&](const auto& other) {
            return fs::equivalent(beside, other, failed);
        });
        if (is_given) return;
        note(fmt::format("{} was not given; if it belongs to {}, it doesn't learn of this: "
                         "`tarsil reindex` brings it up to date",
                         (folder / beside.filename()).string(), data));
    });
}

} // namespace tarsil::tool
