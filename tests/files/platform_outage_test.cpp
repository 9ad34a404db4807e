// What the platform does when one call of the system fails: it tells, or goes another way; and what
// a kill finds where stores have been cut. Rows name the calls that are made by the letters of
// tests/files/system_calls.h, in their order.
#include "tests/files/mapped_files.h"
#include "tests/support/child_process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <utility>
#include <vector>

namespace tarsil::platform {
namespace {

using namespace support;

using PlatformOutage = counted_calls;
using kind = system_call;

// One call fails under one step on a file of 'x'.
struct failed_call {
    int64_t (*action)(file_handle&, const std::string&);
    share mode;
    size_t size;
    planned_failure failure;
    int64_t answer;
    const char* mapped; // the calls
    const char* plain;
};

int64_t close_it(file_handle& file, const std::string&)
{
    return CloseHandle(std::exchange(file, no_file));
}

int64_t flush(file_handle& file, const std::string&) { return FlushFileBuffers(file); }

// One that has failed is enough: what the system has lost it doesn't tell of again.
int64_t flush_thrice(file_handle& file, const std::string&)
{
    int64_t done = 0;
    for (int turn = 0; turn < 3; ++turn) done += FlushFileBuffers(file);
    return done;
}

// The folder can't be had to be flushed, and so all of the disk is.
int64_t flush_all(file_handle& file, const std::string& name)
{
    std::filesystem::remove_all(std::filesystem::path(name).parent_path());
    return FlushFileBuffers(file);
}

int64_t go_behind_end(file_handle& file, const std::string&)
{
    return SetFilePointer(file, 5, origin::end);
}

int64_t across(file_handle& file, const std::string&)
{
    return put_at(file, page - 5, std::string(10, 'p'));
}

int64_t far_out(file_handle& file, const std::string&)
{
    const bool done = put_at(file, 600'000, "p");
    EXPECT_EQ(get(file, 999, 9), "x") << "still mapped, and as long as before";
    return done;
}

int64_t append(file_handle& file, const std::string&)
{
    return put_at(file, large, std::string(100, 'p'), care::not_counted_yet);
}

// Within the page that the file ends in.
int64_t append_on(file_handle& file, const std::string& name)
{
    const bool done = put_at(file, large + 100, std::string(100, 'p'), care::not_counted_yet);
    return done && file_bytes(name).substr(large + 100) == std::string(100, 'p');
}

int64_t append_alone(file_handle& file, const std::string& name)
{
    const bool done = put_at(file, large, std::string(100, 'p'));
    EXPECT_TRUE(CloseHandle(std::exchange(file, no_file)));
    return done && std::filesystem::file_size(name) == large + 100;
}

// Far behind what has been made ready; and then what fits into that.
int64_t append_much(file_handle& file, const std::string& name)
{
    const bool done = put_at(file, large + 100, std::string(600'000, 'p'));
    EXPECT_TRUE(put_at(file, large + 100, std::string(100, 'q')));
    EXPECT_TRUE(CloseHandle(std::exchange(file, no_file)));
    EXPECT_EQ(file_bytes(name).substr(large + 100), std::string(100, 'q'));
    return done;
}

int64_t clear_front(file_handle& file, const std::string&) { return ZeroFileRange(file, 0, 10); }

int64_t read_on(file_handle& file, const std::string&)
{
    return get(file, 950, 100) == std::string(50, 'x');
}

int64_t read_beyond(file_handle& file, const std::string&)
{
    return get(file, page + 100, 100).empty();
}

int64_t ask(file_handle& file, const std::string& name)
{
    CloseHandle(std::exchange(file, no_file));
    calls_made.clear();
    return (file = open_file(name, alone, access::read_only)) != no_file;
}

int64_t reopen(file_handle& file, const std::string& name)
{
    CloseHandle(file);
    calls_made.clear();
    return (file = open_file(name, alone)) != no_file;
}

int64_t remove_it(file_handle& file, const std::string& name)
{
    CloseHandle(std::exchange(file, no_file));
    calls_made.clear();
    return DeleteFileA(name.c_str());
}

const failed_call failed_calls[] = {
    {close_it, alone, 1000, {kind::close, 1, false, EIO}, false, "lc", "lc"},
    {close_it, alone, 1000, {kind::close, 1, false, EINTR}, true, "lc", "lc"},
    {close_it, alone, large + 100, {kind::cut, 1, false, EINTR}, true, "fttTlc", "lc"},
    {close_it, alone, large + 100, {kind::cut, 1, false, EIO}, !is_built_to_map, "ftTlc", "lc"},
    {close_it, alone, large + 100, {kind::facts, 1, false, EIO}, true, "fTlc", "lc"},
    {close_it, alone, large + 100, {kind::time, 1, false, EPERM}, true, "ftTTlc", "lc"},
    {flush_thrice, alone, 1000, {kind::flush, 1, false, EIO}, 0, "s", "s"},
    {flush_thrice, alone, 1000, {kind::sync, 1, false, EIO}, 1, "s/oscy", "s/oscy"},
    {flush, alone, 1000, {kind::flush, 2, false, EINVAL}, true, "s/oscS", "s/oscS"},
    {flush, alone, 1000, {kind::flush, 2, false, EIO}, false, "s/osc", "s/osc"},
    {flush, alone, 1000, {kind::open, 1, false, EACCES}, true, "s/oS", "s/oS"},
    {flush, alone, 1000, {kind::name_of, 1, false, EIO}, true, "s/S", "s/S"},
    {flush_all, alone, 1000, {}, true, "s/oS", "s/oS"},
    {flush_all, alone, 1000, {kind::flush_all, 1, false, EIO}, false, "s/oS", "s/oS"},
    {go_behind_end, alone, 1000, {kind::facts, 1, true, EIO}, invalid_position, "ff", "f"},
    {across, alone, page - 5, {kind::facts, 1, true, EIO}, true, "a", "fw"},
    {across, alone, page - 5, {kind::room, 1, true, ENOSPC}, true, "afftw", "ftw"},
    {far_out, alone, 1000, {kind::write, 1, true, ENOSPC}, false, "wf", "wrr"},
    {append, shared, large, {kind::write, 1, false, ENOSPC}, is_built_to_map, "fLww", "w"},
    {append_on, shared, large + 100, {kind::write, 1, false, ENOSPC}, is_built_to_map, "fLww", "w"},
    {append, shared, large, {kind::facts, 1, false, EIO}, true, "fw", "w"},
    {append, shared, large, {kind::facts, 2, false, EIO}, true, "fLwfw", "w"},
    {append_alone, alone, large, {kind::room, 1, false, ENOSPC}, true, "LafwTlc", "wlc"},
    {append_alone, alone, large, {kind::room, 1, false, 0}, true, "LafftTlc", "wlc"},
    {append_alone, alone, large, {kind::limit, 1, true, EPERM}, true, "LawftTlc", "wlc"},
    {append_much, alone, large + 100, {kind::write, 1, false, EIO}, false, "ftwtftTlc", "ftwtwlc"},
    {clear_front, shared, 1000, {kind::facts, 1, true, EIO}, false, "ff", "f"},
    // The file is cut behind our back, after its size was asked for.
    {read_on, shared, 1000, {kind::facts, 1, false, 0}, true, "ffrr", "rr"},
    {read_beyond, shared, 1000, {kind::facts, 1, false, 0}, true, "fr", "r"},
    {ask, alone, 1000, {kind::question, 1, false, ENOLCK}, false, "Lofqc", "Lofqc"},
    {reopen, alone, 1000, {kind::facts, 1, false, EIO}, false, "Lofc", "Lofc"},
    {reopen, alone, 1000, {kind::facts, 2, false, EIO}, true, "Loflfcoflfndfm", "Loflfcoflfn"},
    {reopen, alone, 1000, {kind::facts, 3, false, EIO}, true, "Loflfndf", "Loflfn"},
    {reopen, alone, 99, {kind::by_name, 1, false, ENOENT}, true, "Loflfncoflfndfm", "Loflfncoflfn"},
    {reopen, alone, 99, {kind::by_name, 1, true, EAGAIN}, false, "Loflfncoflfnc", "Loflfncoflfnc"},
    {reopen, alone, 1000, {kind::limit, 1, true, EPERM}, true, "Loflfndfm", "Loflfn"},
    {remove_it, alone, 1000, {kind::remove, 1, false, EACCES}, false, "oflfnulc", "oflfnulc"},
};

TEST_F(PlatformOutage, AFailureIsToldOrDoneAnotherWay)
{
    for (const failed_call& r : failed_calls) {
        SCOPED_TRACE(testing::Message() << "row " << &r - failed_calls);
        const temp_folder folder;
        const std::string name = folder.file("a");
        file_handle file = file_of(name, r.mode, std::string(r.size, 'x'));
        planned = r.failure;
        int64_t answer = 0;
        const std::string made = calls_of([&] { answer = r.action(file, name); });
        const uint32_t error = GetLastError();
        planned = {};
        EXPECT_EQ(answer, r.answer);
        if (answer == 0) { EXPECT_EQ(error, static_cast<uint32_t>(r.failure.error)); }
        EXPECT_EQ(made, is_built_to_map ? r.mapped : r.plain);
        if (file == no_file) file = open_file(name);
        EXPECT_EQ(get(file, r.size - 1, 1), "x");
        CloseHandle(file);
    }
}

#if defined(TARSIL32_MAPPING)
// A copy ends at the edge of what can be read of the bytes to write, as if a kill had come there.
struct cut_store {
    share mode;
    care wanted;
    bool is_appended;
    char there;        // what lies there
    size_t edge;       // of the bytes that are written
    bool front_is_bad; // or what lies behind the edge
    const char* begin; // what is there afterwards at least, "-" for an old byte
    const char* end;
};

TEST_F(PlatformOutage, AKillFindsTheStoresInTheirOrder)
{
    constexpr size_t bytes = 2 * page;
    const cut_store rows[] = {
        {alone, care::from_back, false, 'x', page, true, "----", "nnnn"},
        {alone, care::from_back, false, 'x', page, false, "----", "----"},
        {alone, care::from_front, false, 'x', page, false, "nnnn", "----"},
        {alone, care::from_front, false, 'x', page, true, "----", "----"},
        // Into zeros, that may be what a kill has left: the frame first.
        {alone, care::from_back, false, '\0', 8, false, "nnnnnnnn", "----"},
        {alone, care::from_back, true, '\0', 8, false, "nnnnnnnn", "----"},
        {alone, care::not_counted_yet, true, '\0', 8, false, "nnnnnnnn", "----"},
        // But a header's chunk at once.
        {alone, care::first_16_at_once, false, '\0', 8, false, "--------", "----"},
        {shared, care::first_16_at_once, false, 'x', 8, false, "--------", "----"},
        // Of what nobody counts yet, the frame comes last.
        {shared, care::not_counted_yet, true, '\0', page, false, "--------", "----"},
    };
    for (const cut_store& r : rows) {
        SCOPED_TRACE(&r - rows);
        const temp_folder folder;
        const std::string name = folder.file("a");
        const size_t place = r.is_appended ? large + 100 : page;
        std::string content(large + 100, 'x');
        content.replace(page, bytes, bytes, r.there);
        ASSERT_TRUE(CloseHandle(file_of(name, alone, content)));
        child_process killed([&](const child_line& line) {
            const auto end_here = [](int) { _exit(7); };
            signal(SIGSEGV, end_here);
            const int protection = PROT_READ | PROT_WRITE;
            char* const both = static_cast<char*>(
                mmap(nullptr, 4 * page, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            std::memset(both, 'n', 4 * page);
            mprotect(both + (r.front_is_bad ? 0 : 2 * page), 2 * page, PROT_NONE);
            const file_handle file = open_file(name, r.mode);
            if (r.is_appended) put_at(file, large + 100 - 16, std::string(16, 'x'), r.wanted);
            move(file, place);
            line.receive();
            uint32_t moved = 0;
            const size_t wanted = r.wanted == care::first_16_at_once ? 16 : bytes;
            WriteFile(file, both + 2 * page - r.edge, static_cast<uint32_t>(wanted), moved,
                      r.wanted);
        });
        killed.line().send(0);
        EXPECT_EQ(WEXITSTATUS(killed.wait_for_end()), 7);
        const std::string left = file_bytes(name).substr(place, bytes);
        const auto looks = [&](size_t from, const char* wanted) {
            for (size_t i = 0; wanted[i] != '\0'; ++i) {
                const char there = from + i < left.size() ? left[from + i] : '\0';
                EXPECT_EQ(there, wanted[i] == '-' ? r.there : 'n') << from + i;
            }
        };
        looks(0, r.begin);
        looks(bytes - 4, r.end);
    }
}
#endif

// What the kernel refuses for good, the call that fails besides, and the ways that are then taken.
TEST_F(PlatformOutage, ACreationTakesTheNextWay)
{
    const refused_call no_nameless = {SYS_openat, EOPNOTSUPP, 2, O_TMPFILE};
    const refused_call no_careful_rename = {SYS_renameat2, EINVAL};
    const refused_call no_new_names = {SYS_openat, EEXIST, 2, O_EXCL};
    const refused_call no_facts_of_names = {SYS_newfstatat, ENOENT};
    const planned_failure no_locks = {kind::lock, 1, true, ENOLCK, 0};
    const std::string all_names_taken = "L" + std::string(66, 'o');
    const struct {
        std::vector<refused_call> lacks;
        planned_failure failure;
        bool is_taken; // the name, by a file of somebody else
        int error;     // or 0
        std::string calls;
        size_t left; // names in the folder
    } rows[] = {
        {{}, {}, true, EEXIST, "Loflkc", 1},
        {{}, {kind::link, 1, false, EIO, 0}, false, 0, "Loflkcofle", 1},
        {{no_nameless}, {}, false, 0, "Loofle", 1},
        {{no_nameless}, {}, true, EEXIST, "Loofleuc", 1},
        {{no_nameless}, {kind::open, 2, false, EEXIST, 0}, false, 0, "Looofle", 1},
        {{no_nameless}, {kind::open, 2, false, EACCES, 0}, false, 0, "Looofl", 1},
        {{no_nameless}, {kind::open, 2, true, EACCES, 0}, false, EACCES, "Looo", 0},
        {{no_nameless, no_careful_rename}, {}, false, 0, "Loofleucofl", 1},
        {{no_nameless, no_careful_rename}, {}, true, EEXIST, "Loofleuco", 1},
        {{}, no_locks, false, ENOLCK, "Loflcoflucoflfnuc", 0},
        {{no_nameless}, no_locks, false, ENOLCK, "Looflucoflfnuc", 0},
        {{no_nameless, no_facts_of_names}, no_locks, false, ENOLCK, "Looflucoflfnc", 1},
        {{no_nameless, no_new_names}, {}, false, EEXIST, all_names_taken, 0},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.calls);
        const temp_folder folder;
        const std::string name = folder.file("a");
        if (r.is_taken) set_file_bytes(name, "kept");
        const auto create = [&] {
            planned = r.failure;
            file_handle file = no_file;
            const std::string made = calls_of([&] { file = create_file(name, alone); });
            const uint32_t error = GetLastError();
            const bool mapped = is_built_to_map && r.error == 0;
            if (made != r.calls + (mapped ? "dfm" : "")) return -1;
            return file == no_file ? static_cast<int>(error) : 0;
        };
        if (!expect_in_child([&] { return refuse_calls(r.lacks); }, {{r.error, create}}))
            GTEST_SKIP() << "this system doesn't let a process refuse calls to itself";
        EXPECT_EQ(names_in(folder.path()), r.left);
        if (r.is_taken) { EXPECT_EQ(file_bytes(name), "kept"); }
    }
}

TEST_F(PlatformOutage, WithoutHolesZerosAreWritten)
{
    const struct {
        planned_failure failure;
        bool answer;
        std::string calls;
    } rows[] = {
        {{}, true, "fhwww"},
        {{kind::write, 1, false, EINTR, 0}, true, "fhwwww"},
        {{kind::write, 1, false, 0, 0}, true, "fhwww"},
        {{kind::write, 2, true, EIO, 0}, false, "fhww"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.calls);
        const temp_folder folder;
        file_handle file = no_file;
        const auto begin = [&] {
            file = file_of(folder.file("a"), shared, std::string(60000, 'x'));
            return refuse_calls({{SYS_fallocate, EOPNOTSUPP}});
        };
        const auto clear = [&] {
            planned = r.failure;
            bool answer = false;
            const std::string made = calls_of([&] { answer = ZeroFileRange(file, 9, 40000); });
            planned = {};
            const std::string zeros(answer ? 40000 : 16384, '\0');
            return answer == r.answer && made == r.calls &&
                   get(file, 0, 60000) ==
                       std::string(9, 'x') + zeros + std::string(60000 - 9 - zeros.size(), 'x');
        };
        if (!expect_in_child(begin, {{true, clear}}))
            GTEST_SKIP() << "this system doesn't let a process refuse calls to itself";
    }
}

} // namespace
} // namespace tarsil::platform
