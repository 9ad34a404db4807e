// Which calls of the system the platform makes, and what it does when one of them fails: what no
// answer shows, but a program's speed, or a failure that is seen by chance. Rows name the calls by
// the letters of tests/files/system_calls.h, in their order.
#include "tests/files/mapped_files.h"
#include "tests/files/system_calls.h"
#include "tests/support/child_process.h"
#include "tests/support/refused_calls.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <utility>
#include <vector>

namespace tarsil::platform {
namespace {

using namespace support;

constexpr size_t page = 4096;
constexpr size_t large = 1 << 21; // a file that grows ahead, and ends where it has grown to
constexpr share alone = share::none;
constexpr share shared = share::read_write;

// Not where the program stands, so that a name without its folder would lead elsewhere.
class PlatformCalls : public mapped_files {
protected:
    static void SetUpTestSuite() { setenv("TMPDIR", "/dev/shm", 1); }
    ~PlatformCalls() override
    {
        planned = {};
        file_system_kind = 0;
    }
};

template <class Action> std::string calls_of(Action&& action)
{
    calls_made.clear();
    action();
    return calls_made;
}

file_handle file_of(const std::string& name, share mode, const std::string& content)
{
    const file_handle file = create_file(name, mode);
    for (size_t done = 0; done < content.size(); done += 50000)
        EXPECT_TRUE(put(file, content.substr(done, 50000)));
    return file;
}

enum class act { read, write, write_first_16, append, append_again, clear };

// A file of 'x' with some zeros, and one transfer.
struct transfer {
    share mode;
    size_t size, zeros, zeros_end;
    act what;
    size_t place, bytes;
    const char* mapped;
    const char* plain;
};

void transfer_once(file_handle file, const transfer& r, std::string& model)
{
    const std::string piece(r.bytes, 'p');
    const care wanted = r.what == act::write            ? care::from_back
                        : r.what == act::write_first_16 ? care::first_16_at_once
                                                        : care::not_counted_yet;
    if (r.what == act::read) {
        const size_t from = std::min(r.place, model.size());
        EXPECT_TRUE(get(file, r.place, r.bytes) == model.substr(from, r.bytes));
        return;
    }
    if (r.what == act::clear) {
        EXPECT_TRUE(
            ZeroFileRange(file, static_cast<int32_t>(r.place), static_cast<int32_t>(r.bytes)));
        return;
    }
    EXPECT_TRUE(put_at(file, r.place, piece, wanted));
    if (model.size() < r.place + r.bytes) model.resize(r.place + r.bytes);
    model.replace(r.place, r.bytes, piece);
}

TEST_F(PlatformCalls, ATransferMakesThoseThatItNeeds)
{
    const transfer rows[] = {
        {alone, 10000, 0, 0, act::read, 0, 0, "", ""},
        {alone, 10000, 0, 0, act::read, 0, 100, "", "r"},
        // Zeros that may be what a cut has left are a question, others are not.
        {alone, 10000, 500, 501, act::read, 400, 101, "", "r"},
        {alone, 10000, page - 1, page, act::read, page - 100, 100, "f", "r"},
        {alone, 10000, page - 20, page - 2, act::read, page - 113, 100, "", "r"},
        {alone, 10000, page - 4, page - 1, act::read, page - 103, 100, "", "r"},
        {alone, 10000, page - 20, page, act::read, page - 113, 100, "f", "r"},
        {alone, 10000, page - 16, page, act::read, page - 115, 100, "f", "r"},
        {alone, 10000, page, page + 256, act::read, page - 99, 100, "f", "r"},
        {alone, 10000, page, page + 255, act::read, page - 99, 100, "", "r"},
        {alone, 10000, page, page + 9, act::read, page - 99, 100, "", "r"},
        {alone, 1000, 0, 0, act::read, 950, 100, "f", "rr"},
        {alone, 1000, 900, 1000, act::read, 950, 100, "ff", "rr"},
        {alone, 1000, 0, 0, act::read, 1000, 100, "f", "r"},
        {alone, 10000, 0, 0, act::write, 0, 0, "", ""},
        {alone, 10000, 0, 0, act::write, page, 0, "", ""},
        {alone, 10000, 0, 0, act::write_first_16, 500, 10, "", "w"},
        {alone, 10000, 0, 0, act::write, 500, 100, "", "w"},
        {alone, 10000, page - 100, page, act::write, page - 50, 10, "f", "w"},
        // Small files have their exact length; room comes first where a kill could cut a call.
        {alone, 1000, 0, 0, act::write, 1000, 100, "w", "w"},
        {alone, 4000, 0, 0, act::write, 4000, 200, "a", "ftw"},
        {alone, 1000, 0, 0, act::write, 600'000, 10, "w", "w"},
        {alone, 1000, 0, 0, act::write, 150 * page - 5, 10, "ftw", "ftw"},
        // Large ones have room behind their end.
        {alone, large, 0, 0, act::write, large, 100, "Law", "w"},
        {alone, large + 100, 0, 0, act::write, large + 100, 100, "", "w"},
        {alone, large + 100, 0, 0, act::write, large + 100, 5, "", "w"},
        {alone, 10000, 0, 0, act::clear, 5, 0, "f", "f"},
        {shared, 10000, 0, 0, act::read, 9950, 100, "f", "rr"},
        {shared, 10000, 0, 0, act::write, 500, 100, "w", "w"},
        {shared, 10000, 0, 0, act::write, page - 50, 100, "", "w"},
        {shared, 10000, 0, 0, act::write_first_16, 0, 16, "", "w"},
        {shared, 4000, 0, 0, act::write, 4000, 200, "w", "w"},
        {shared, 10000, 0, 0, act::append, 10000, 100, "w", "w"},
        {shared, large, 0, 0, act::append, large, 100, "fLwf", "w"},
        {shared, large, 0, 0, act::append_again, large, 100, "", "w"},
        {shared, large, 0, 0, act::append_again, large, 5, "", "w"},
        {shared, large, 0, 0, act::append, large + 20000, 100, "fw", "w"},
    };
    for (const transfer& r : rows) {
        SCOPED_TRACE(&r - rows);
        const temp_folder folder;
        std::string model(r.size, 'x');
        model.replace(r.zeros, r.zeros_end - r.zeros, r.zeros_end - r.zeros, '\0');
        const file_handle file = file_of(folder.file("a"), r.mode, model);
        transfer next = r;
        if (r.what == act::append_again) {
            transfer_once(file, r, model);
            next.place += r.bytes;
        }
        const std::string made = calls_of([&] { transfer_once(file, next, model); });
        EXPECT_EQ(made, is_built_to_map ? r.mapped : r.plain);
        EXPECT_TRUE(get(file, 0, model.size()) == model);
        EXPECT_TRUE(CloseHandle(file));
    }
}

// All else that the platform does, one after the other.
TEST_F(PlatformCalls, OpeningLockingAndClosingMakeThoseThatTheyNeed)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    file_handle file = no_file;
    const char* const all_ranges = "llllllllllllllllllllllllllllllll"; // 16 placed and released
    const struct {
        const char* what;
        std::function<bool()> action;
        bool answer;
        const char* mapped;
        const char* plain;
    } rows[] = {
        {"create", [&] { return (file = create_file(name, alone)) != no_file; }, true, "Loflkdfm",
         "Loflk"},
        {"flush", [&] { return FlushFileBuffers(file); }, true, "s/osc", "s/osc"},
        {"flush again", [&] { return FlushFileBuffers(file); }, true, "s", "s"},
        {"lock up to the limit",
         [&] {
             int count = 0;
             while (count < 100 && LockFile(file, 10 * count, 5)) ++count;
             for (int i = 0; i < count; ++i) EXPECT_TRUE(UnlockFile(file, 10 * i, 5));
             return count >= 5 && count < 100;
         },
         true, all_ranges, all_ranges},
        {"lock nothing", [&] { return LockFile(file, 0, 0); }, false, "", ""},
        {"lock before the begin", [&] { return LockFile(file, -1, 5); }, false, "", ""},
        {"lock", [&] { return LockFile(file, 0, 5); }, true, "l", "l"},
        {"lock again", [&] { return LockFile(file, 4, 1); }, false, "", ""},
        {"release", [&] { return UnlockFile(file, 0, 5); }, true, "l", "l"},
        {"close", [&] { return CloseHandle(file); }, true, "lc", "lc"},
        {"open to ask",
         [&] { return (file = open_file(name, alone, access::read_only)) != no_file; }, true,
         "Lofqfn", "Lofqfn"},
        {"close", [&] { return CloseHandle(file); }, true, "lc", "lc"},
        {"create a folder", [&] { return create_file(name + "b/") != no_file; }, false, "L", "L"},
        {"create a long name", [&] { return create_file(std::string(5000, '/') + "a") != no_file; },
         false, "L", "L"},
        {"remove", [&] { return DeleteFileA(name.c_str()); }, true, "oflfnulc", "oflfnulc"},
        {"remove nothing", [&] { return DeleteFileA(nullptr); }, false, "", ""},
    };
    for (const auto& r : rows) {
        bool answer = false;
        const std::string made = calls_of([&] { answer = r.action(); });
        EXPECT_EQ(answer, r.answer) << r.what;
        EXPECT_EQ(made, is_built_to_map ? r.mapped : r.plain) << r.what;
    }
}

TEST_F(PlatformCalls, EachKindOfFileSystemIsMappedAsFarAsThatIsSound)
{
    const struct {
        uint32_t kind;
        bool is_mapped;
        const char* overwrite;
        const char* end;
    } rows[] = {
        {EXT4_SUPER_MAGIC, true, "", "f"},
        {XFS_SUPER_MAGIC, true, "", "f"},
        {TMPFS_MAGIC, true, "", "f"},
        {BTRFS_SUPER_MAGIC, true, "w", "f"},
        {OVERLAYFS_SUPER_MAGIC, true, "w", "f"},
        {NFS_SUPER_MAGIC, false, "w", "f"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.kind);
        const temp_folder folder;
        const std::string name = folder.file("a");
        file_system_kind = r.kind;
        const file_handle file = file_of(name, alone, std::string(9000, 'x'));
        EXPECT_EQ(calls_of([&] { put_at(file, 500, "y"); }), is_built_to_map ? r.overwrite : "w");
        EXPECT_EQ(calls_of([&] { EXPECT_EQ(end_of(file), 9000U); }), "f");
        EXPECT_EQ(calls_of([&] { EXPECT_EQ(get(file, 500, 1), "y"); }),
                  is_built_to_map && r.is_mapped ? "" : "r");
        EXPECT_TRUE(CloseHandle(file));
    }
}

// One call fails under one step on a file of 1000 'x'.
struct failed_call {
    const char* what;
    share mode;
    size_t size;
    std::function<int64_t(file_handle&, const std::string&)> action;
    system_call kind;
    uint64_t nth;
    bool for_good;
    int error;
    int64_t answer;
    const char* mapped; // the calls
    const char* plain;
};

TEST_F(PlatformCalls, AFailureIsToldOrDoneAnotherWay)
{
    using kind = system_call;
    const auto close = [](file_handle& file, const std::string&) {
        return CloseHandle(std::exchange(file, no_file));
    };
    const auto flush = [](file_handle& file, const std::string&) { return FlushFileBuffers(file); };
    const auto end = [](file_handle& file, const std::string&) {
        return SetFilePointer(file, 5, origin::end);
    };
    const auto across = [](file_handle& file, const std::string&) {
        return put_at(file, page - 5, std::string(10, 'p'));
    };
    const auto far_out = [](file_handle& file, const std::string&) {
        const bool done = put_at(file, 600'000, "p");
        EXPECT_EQ(get(file, 999, 9), "x") << "still mapped, and as long as before";
        return done;
    };
    const auto append = [](file_handle& file, const std::string&) {
        return put_at(file, large, std::string(100, 'p'), care::not_counted_yet);
    };
    const auto append_alone = [](file_handle& file, const std::string& name) {
        const bool done = put_at(file, large, std::string(100, 'p'));
        EXPECT_TRUE(CloseHandle(std::exchange(file, no_file)));
        return done && std::filesystem::file_size(name) == large + 100;
    };
    const auto clear = [](file_handle& file, const std::string&) {
        return ZeroFileRange(file, 0, 10);
    };
    const auto read_on = [](file_handle& file, const std::string&) {
        return get(file, 950, 100) == std::string(50, 'x');
    };
    const auto read_beyond = [](file_handle& file, const std::string&) {
        return get(file, page + 100, 100).empty();
    };
    const auto ask = [](file_handle& file, const std::string& name) {
        CloseHandle(std::exchange(file, no_file));
        calls_made.clear();
        return (file = open_file(name, alone, access::read_only)) != no_file;
    };
    const auto open_again = [](file_handle& file, const std::string& name) {
        CloseHandle(file);
        calls_made.clear();
        return (file = open_file(name, alone)) != no_file;
    };
    const auto remove = [](file_handle& file, const std::string& name) {
        CloseHandle(std::exchange(file, no_file));
        calls_made.clear();
        return DeleteFileA(name.c_str());
    };
    const failed_call rows[] = {
        {"close", alone, 1000, close, kind::close, 1, false, EIO, false, "lc", "lc"},
        {"close", alone, 1000, close, kind::close, 1, false, EINTR, true, "lc", "lc"},
        {"cut", alone, large + 100, close, kind::cut, 1, false, EINTR, true, "fttTlc", "lc"},
        {"cut", alone, large + 100, close, kind::cut, 1, false, EIO, !is_built_to_map, "ftTlc",
         "lc"},
        {"facts at close", alone, large + 100, close, kind::facts, 1, false, EIO, true, "fTlc",
         "lc"},
        {"flush of the folder", alone, 1000, flush, kind::flush, 2, false, EINVAL, true, "s/oscS",
         "s/oscS"},
        {"flush of the folder", alone, 1000, flush, kind::flush, 2, false, EIO, false, "s/osc",
         "s/osc"},
        {"name of the folder", alone, 1000, flush, kind::name_of, 1, false, EIO, true, "s/S",
         "s/S"},
        {"end", alone, 1000, end, kind::facts, 1, true, EIO, invalid_position, "ff", "f"},
        {"across", alone, page - 5, across, kind::facts, 1, true, EIO, true, "a", "fw"},
        {"across", alone, page - 5, across, kind::room, 1, true, ENOSPC, true, "afftw", "ftw"},
        {"far out", alone, 1000, far_out, kind::write, 1, true, ENOSPC, false, "wf", "wrr"},
        {"append", shared, large, append, kind::write, 1, false, ENOSPC, is_built_to_map, "fLww",
         "w"},
        {"append", shared, large, append, kind::facts, 1, false, EIO, true, "fw", "w"},
        {"append", shared, large, append, kind::facts, 2, false, EIO, true, "fLwfw", "w"},
        {"append", alone, large, append_alone, kind::room, 1, false, ENOSPC, true, "LafwTlc",
         "wlc"},
        {"half the room", alone, large, append_alone, kind::room, 1, false, 0, true, "LafftTlc",
         "wlc"},
        {"append", alone, large, append_alone, kind::limit, 1, true, EPERM, true, "LawftTlc",
         "wlc"},
        {"clear", shared, 1000, clear, kind::facts, 1, true, EIO, false, "ff", "f"},
        // The file is cut behind our back, after its size was asked for.
        {"read on", shared, 1000, read_on, kind::facts, 1, false, 0, true, "ffrr", "rr"},
        {"read beyond", shared, 1000, read_beyond, kind::facts, 1, false, 0, true, "fr", "r"},
        {"ask", alone, 1000, ask, kind::question, 1, false, ENOLCK, false, "Lofqc", "Lofqc"},
        {"facts at open", alone, 1000, open_again, kind::facts, 1, false, EIO, false, "Lofc",
         "Lofc"},
        {"facts at open", alone, 1000, open_again, kind::facts, 2, false, EIO, true,
         "Loflfcoflfndfm", "Loflfcoflfn"},
        {"facts at open", alone, 1000, open_again, kind::facts, 3, false, EIO, true, "Loflfndf",
         "Loflfn"},
        {"name at open", alone, 1000, open_again, kind::facts_of_name, 1, false, ENOENT, true,
         "Loflfncoflfndfm", "Loflfncoflfn"},
        {"name at open", alone, 1000, open_again, kind::facts_of_name, 1, true, EAGAIN, false,
         "Loflfncoflfnc", "Loflfncoflfnc"},
        {"limit at open", alone, 1000, open_again, kind::limit, 1, true, EPERM, true, "Loflfndfm",
         "Loflfn"},
        {"remove", alone, 1000, remove, kind::remove, 1, false, EACCES, false, "oflfnulc",
         "oflfnulc"},
    };
    for (const failed_call& r : rows) {
        SCOPED_TRACE(testing::Message()
                     << r.what << ", " << strerror(r.error) << ", call " << r.nth);
        const temp_folder folder;
        const std::string name = folder.file("a");
        file_handle file = file_of(name, r.mode, std::string(r.size, 'x'));
        planned = {r.kind, r.nth, r.for_good, r.error, 0};
        int64_t answer = 0;
        const std::string made = calls_of([&] { answer = r.action(file, name); });
        const uint32_t error = GetLastError();
        planned = {};
        EXPECT_EQ(answer, r.answer);
        if (answer == 0) { EXPECT_EQ(error, static_cast<uint32_t>(r.error)); }
        EXPECT_EQ(made, is_built_to_map ? r.mapped : r.plain);
        if (file == no_file) file = open_file(name);
        EXPECT_EQ(get(file, r.size - 1, 1), "x");
        CloseHandle(file);
    }
}

TEST_F(PlatformCalls, ALookIsHadWhereAFileIsMapped)
{
    const temp_folder folder;
    const file_handle file = file_of(folder.file("a"), alone, std::string(999, 'x') + '\0');
    EXPECT_EQ(LookAtFile(no_file, 1), nullptr);
    EXPECT_FALSE(EndLook(no_file));
    move(file, 900);
    EXPECT_EQ(LookAtFile(file, 0), nullptr);
    EXPECT_EQ(LookAtFile(file, 101), nullptr) << "beyond the end";
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(LookAtFile(file, 99) != nullptr, is_built_to_map); }), "");
    EXPECT_EQ(EndLook(file), is_built_to_map);
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(LookAtFile(file, 100) != nullptr, is_built_to_map); }),
              is_built_to_map ? "f" : "");
    EXPECT_EQ(EndLook(file), is_built_to_map);
    move(file, 100);
    put(file, std::string(1, '\0'));
    move(file, 1);
    EXPECT_EQ(calls_of([&] { EXPECT_EQ(LookAtFile(file, 100) != nullptr, is_built_to_map); }), "");
    EXPECT_EQ(EndLook(file), is_built_to_map);
    move(file, 900);
    planned = {system_call::facts, 1, false, EIO, 0};
    EXPECT_EQ(LookAtFile(file, 100), nullptr) << "zeros at the end, and no word of the length";
    planned = {};
    EXPECT_EQ(get(file, 990, 20), std::string(9, 'x') + '\0');
    EXPECT_TRUE(CloseHandle(file));

    const file_handle cut = open_file(folder.file("a"), alone);
    const uint8_t* const bytes = LookAtFile(cut, 50);
    EXPECT_EQ(truncate(folder.file("a").c_str(), 0), 0);
    if (bytes != nullptr) { EXPECT_EQ(*static_cast<const volatile uint8_t*>(bytes), 0); }
    EXPECT_FALSE(EndLook(cut));
    EXPECT_EQ(get(cut, 0, 50), "");
    EXPECT_TRUE(CloseHandle(cut));
}

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

TEST_F(PlatformCalls, AKillFindsTheStoresInTheirOrder)
{
    if (!is_built_to_map) GTEST_SKIP() << "only stores are cut anywhere";
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

// What the kernel refuses for good, the call that fails besides, and the ways that are then taken.
TEST_F(PlatformCalls, ACreationTakesTheNextWay)
{
    using kind = system_call;
    const refused_call no_nameless = {SYS_openat, EOPNOTSUPP, 2, O_TMPFILE};
    const refused_call no_new_names = {SYS_openat, EEXIST, 2, O_EXCL};
    const refused_call no_facts_of_names = {SYS_newfstatat, ENOENT};
    const std::string all_names_taken = "L" + std::string(66, 'o');
    const struct {
        std::vector<refused_call> lacks;
        planned_failure failure;
        int error; // or 0
        std::string calls;
        size_t left; // names in the folder
    } rows[] = {
        {{}, {kind::link, 1, false, EEXIST, 0}, EEXIST, "Loflkc", 0},
        {{}, {kind::link, 1, false, EIO, 0}, 0, "Loflkcofle", 1},
        {{no_nameless}, {}, 0, "Loofle", 1},
        {{no_nameless}, {kind::open, 2, false, EEXIST, 0}, 0, "Looofle", 1},
        {{no_nameless}, {kind::open, 2, false, EACCES, 0}, 0, "Looofl", 1},
        {{no_nameless}, {kind::open, 2, true, EACCES, 0}, EACCES, "Looo", 0},
        {{no_nameless}, {kind::rename, 1, false, EEXIST, 0}, EEXIST, "Loofleuc", 0},
        {{no_nameless}, {kind::rename, 1, false, EINVAL, 0}, 0, "Loofleucofl", 1},
        {{no_nameless},
         {kind::lock, 1, true, ENOLCK, 0},
         ENOLCK,
         "Loofluc"
         "oflfnuc",
         0},
        {{no_nameless, no_facts_of_names},
         {kind::lock, 1, true, ENOLCK, 0},
         ENOLCK,
         "Loofluc"
         "oflfnc",
         1},
        {{no_nameless, no_new_names}, {}, EEXIST, all_names_taken, 0},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.calls);
        const temp_folder folder;
        const std::string name = folder.file("a");
        file_handle file = no_file;
        const std::vector<child_step> steps = {
            {true,
             [&] {
                 planned = r.failure;
                 const std::string made = calls_of([&] { file = create_file(name); });
                 const bool mapped = is_built_to_map && r.error == 0;
                 return made == r.calls + (mapped ? "dfm" : "");
             },
             "calls"},
            {r.error == 0, [&] { return file != no_file; }},
            {r.error, [&] { return r.error == 0 ? 0 : GetLastError(); }},
        };
        if (!expect_in_child([&] { return refuse_calls(r.lacks); }, steps))
            GTEST_SKIP() << "this system doesn't let a process refuse calls to itself";
        EXPECT_EQ(names_in(folder.path()), r.left);
    }
}

TEST_F(PlatformCalls, WithoutHolesZerosAreWritten)
{
    const struct {
        planned_failure failure;
        bool answer;
        std::string calls;
    } rows[] = {
        {{}, true, "fhwww"},
        {{system_call::write, 1, false, EINTR, 0}, true, "fhwwww"},
        {{system_call::write, 1, false, 0, 0}, true, "fhwww"},
        {{system_call::write, 2, true, EIO, 0}, false, "fhww"},
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
