// Which calls of the system the platform makes: what no answer shows, but a program's speed does.
// Rows name the calls by the letters of tests/files/system_calls.h, in their order.
#include "tests/files/mapped_files.h"

#include <algorithm>
#include <functional>
#include <linux/magic.h>
#include <unistd.h>

namespace tarsil::platform {
namespace {

using namespace support;

using PlatformCalls = counted_calls;

enum class act { read, write, write_first_16, append, append_again, append_behind_another, clear };

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
    overwrite(model, r.place, piece);
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
        {shared, large, 0, 0, act::append_behind_another, large, 100, "f", "w"},
        {shared, large, 0, 0, act::append, large + 20000, 100, "fw", "w"},
    };
    for (const transfer& r : rows) {
        SCOPED_TRACE(&r - rows);
        const temp_folder folder;
        std::string model(r.size, 'x');
        model.replace(r.zeros, r.zeros_end - r.zeros, r.zeros_end - r.zeros, '\0');
        const file_handle file = file_of(folder.file("a"), r.mode, model);
        transfer next = r;
        if (r.what == act::append_again || r.what == act::append_behind_another) {
            const bool by_another = r.what == act::append_behind_another;
            const file_handle first = by_another ? open_file(folder.file("a")) : file;
            transfer_once(first, r, model);
            if (by_another) CloseHandle(first);
            next.place += r.bytes;
        }
        const std::string made = calls_of([&] { transfer_once(file, next, model); });
        EXPECT_EQ(made, is_built_to_map ? r.mapped : r.plain);
        EXPECT_TRUE(get(file, 0, model.size()) == model);
        const size_t room = std::filesystem::file_size(folder.file("a")) - model.size();
        EXPECT_LE(room, !is_built_to_map ? 0U : r.mode == alone ? 1U << 18 : 1U << 14);
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
        {"flush again", [&] { return FlushFileBuffers(file); }, true, "y", "y"},
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

} // namespace
} // namespace tarsil::platform
