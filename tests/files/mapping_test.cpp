// Files that one open has alone, which are served from mappings where the platform is built so:
// what shows outside of the answers, and what must not show. The cases are the same for a platform
// built without mappings, which has to give the same answers.
#include "platform/platform.h"
#include "tests/files/mapped_files.h"
#include "tests/support/child_process.h"
#include "tests/support/platform_files.h"
#include "tests/support/temp_folder.h"

#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <vector>

namespace tarsil::platform {
namespace {

using namespace support;

constexpr size_t mib = 1 << 20;
constexpr size_t step = mib / 4; // at most so much lies behind the end of an open file

using Mapping = mapped_files;

TEST_F(Mapping, AFileThatMayBeWrittenIsMappedWhileItIsOpen)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    const file_handle created = create_file(name, share::none);
    EXPECT_EQ(is_mapped(name), is_built_to_map);
    child_process child([&](const child_line& line) {
        line.step([&] { return is_mapped(name); });
        line.step([&] { return put(created, "x"); });
    });
    EXPECT_FALSE(child.next()) << "in a forked child";
    EXPECT_FALSE(child.next());
    EXPECT_TRUE(put(created, "abc")) << "in its parent, meanwhile";
    EXPECT_TRUE(CloseHandle(created));
    EXPECT_FALSE(is_mapped(name));

    const file_handle first = open_file(name);
    const file_handle other = open_file(name);
    EXPECT_EQ(is_mapped(name), is_built_to_map);
    EXPECT_TRUE(CloseHandle(other));
    EXPECT_TRUE(CloseHandle(first));
    EXPECT_FALSE(is_mapped(name));
    const file_handle reader = open_file(name, share::none, access::read_only);
    EXPECT_FALSE(is_mapped(name));
    EXPECT_TRUE(CloseHandle(reader));
    const file_handle opened = open_file(name, share::none);
    EXPECT_EQ(is_mapped(name), is_built_to_map);
    EXPECT_EQ(get(opened, 0, 9), "abc");
    EXPECT_TRUE(CloseHandle(opened));
}

// Random appends, overwrites, gaps and cleared ranges beside a string that does the same; in each
// life of the file the real length is looked at, too.
TEST_F(Mapping, FilesHoldWhatWasWrittenAndHaveTheirExactLength)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    ASSERT_TRUE(CloseHandle(create_file(name)));
    std::mt19937 random(5);
    const auto below = [&](size_t limit) { return random() % limit; };
    std::string model;
    for (int life = 0; life < 12; ++life) {
        SCOPED_TRACE(life);
        const file_handle file = open_file(name, share::none);
        for (int i = 0; i < 60; ++i) {
            const std::string piece(1 + below(below(8) == 0 ? 300000 : 9000),
                                    static_cast<char>('a' + below(26)));
            const size_t kind = below(8);
            const size_t gap = kind == 0 ? below(20000) : 0;
            const size_t place = kind < 5 ? model.size() + gap : below(model.size() + 1);
            ASSERT_TRUE(put_at(file, place, piece));
            overwrite(model, place, piece);
            if (kind == 7) {
                const size_t bytes = below(model.size() - place);
                ASSERT_TRUE(
                    ZeroFileRange(file, static_cast<int32_t>(place), static_cast<int32_t>(bytes)));
                model.replace(place, bytes, bytes, '\0');
            }
            ASSERT_EQ(end_of(file), model.size());
            const size_t real = std::filesystem::file_size(name);
            ASSERT_GE(real, model.size());
            ASSERT_LT(real - model.size(), model.size() <= mib || !is_built_to_map ? 1 : step);
            const size_t from = below(model.size());
            ASSERT_TRUE(get(file, from, 20000) == model.substr(from, 20000));
        }
        EXPECT_TRUE(CloseHandle(file));
        ASSERT_TRUE(file_bytes(name) == model);
    }
    EXPECT_GT(model.size(), 4 * mib);
}

// A foreign program cuts a file, or lengthens it: the size, the size that it gets, and where 5000
// bytes are then asked for.
struct cut_file {
    size_t size;
    size_t changed;
    size_t place;
};
enum class act { read_little, read_much, write, append };

void meet_cut_file(const cut_file& r, act first, share mode)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    std::string model(r.size, 'x');
    const file_handle file = file_of(name, mode, model);

    if (first == act::append) { // so that a large file has been grown ahead
        ASSERT_TRUE(put_at(file, r.size, "more", care::not_counted_yet));
        model += "more";
    }
    ASSERT_EQ(truncate(name.c_str(), static_cast<off_t>(r.changed)), 0);
    model.resize(r.changed);
    if (first >= act::write) {
        const care wanted = first == act::write ? care::from_back : care::not_counted_yet;
        ASSERT_TRUE(put_at(file, r.place, "changed", wanted));
        overwrite(model, r.place, "changed");
    }
    const size_t bytes = first == act::read_little ? 200 : 5000;
    EXPECT_EQ(get(file, r.place, bytes),
              r.place < model.size() ? model.substr(r.place, bytes) : "");
    EXPECT_EQ(end_of(file), model.size());
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_TRUE(file_bytes(name) == model);
}

TEST_F(Mapping, AFileOfAnotherSizeGivesShortReadsAndTakesWrites)
{
    constexpr size_t grown = 3 * mib + 77, last = grown - 7;
    const cut_file rows[] = {{500, 100, 0},       {500, 100, 99},      {500, 100, 100},
                             {500, 100, 300},     {500, 700, 600},     {500, 0, 0},
                             {10000, 9000, 8000}, {10000, 9000, 9500}, {20000, 8192, 8191},
                             {20000, 8193, 9000}, {grown, 9000, 8999}, {grown, 9000, mib},
                             {grown, mib, mib},   {500, 2 * mib, mib}, {grown, 4 * mib, last}};
    for (const cut_file& r : rows) {
        for (const share mode : {share::none, share::read_write}) {
            for (const act first : {act::read_little, act::read_much, act::write, act::append}) {
                // An append notices a cut where the page that it goes to has gone.
                if (first == act::append && r.changed % page != 0) continue;
                SCOPED_TRACE(testing::Message()
                             << r.size << ", " << r.changed << ", " << r.place << ", act "
                             << static_cast<int>(first) << (mode == share::none ? " alone" : ""));
                meet_cut_file(r, first, mode);
            }
        }
    }
    const temp_folder folder;
    const file_handle other = create_file(folder.file("a"), share::none);
    EXPECT_TRUE(put(other, "abc") && put_at(other, 0, "x"));
    EXPECT_EQ(get(other, 0, 3), "xbc");
    EXPECT_EQ(is_mapped(folder.file("a")), is_built_to_map) << "no other file has to suffer";
    EXPECT_TRUE(CloseHandle(other));
}

// Somebody else takes the room of a hole: writing there is what fails, not a signal. Where others
// have the file open too, only what crosses the edge of a page is stored.
TEST_F(Mapping, AFullDiskIsAFailureAlsoInAHole)
{
    constexpr size_t within = 500000;
    constexpr size_t across = 4096 * 125 - 500;
    const std::string piece(1000, 'p');
    for (const share mode : {share::none, share::read_write}) {
        SCOPED_TRACE(mode == share::none ? "alone" : "shared");
        const temp_folder folder;
        const std::string name = folder.file("a");
        file_handle file = no_file;
        size_t pieces = 0;
        const auto is_kept = [&] {
            bool kept = true;
            for (size_t i = 0; i < pieces; ++i) kept = kept && get(file, i * 1000, 1000) == piece;
            return kept;
        };
        const auto error_of_write = [&](size_t place) {
            return put_at(file, place, piece) ? 0 : GetLastError();
        };
        const auto fill = [&] {
            return put(create_file(folder.file("b")), std::string(4 * mib, 'b'));
        };
        const std::vector<child_step> steps = {
            {ENOSPC,
             [&] {
                 file = create_file(name, mode);
                 while (put(file, piece)) ++pieces;
                 return GetLastError();
             }},
            {true, [&] { return pieces > 3000 && end_of(file) - pieces * 1000 < 1000; }, "full"},
            {true, [&] { return is_kept() && ZeroFileRange(file, 0, mib); }, "a hole"},
            {false, fill},
            {is_built_to_map, [&] { return is_mapped(name); }},
            {ENOSPC, [&] { return error_of_write(mode == share::none ? across : within); }},
            {is_built_to_map && mode != share::none, [&] { return is_mapped(name); }},
            {ENOSPC, [&] { return error_of_write(mode == share::none ? within : across); }},
            {false, [&] { return is_mapped(name); }, "given up"},
            {true, [&] { return get(file, within, 1000) == std::string(1000, '\0'); }},
            {true, [&] { return get(file, 2 * mib, 1) == "p" && CloseHandle(file); }},
        };
        if (!expect_in_child([&] { return mount_small_disk(folder.path()); }, steps))
            GTEST_SKIP() << "this process may not mount a small disk";
    }
}

// Bus errors of others, who stood there before us or came after.

sigjmp_buf way_out;
volatile sig_atomic_t answered = 0;
void answer_plainly(int) { answered = answered + 1; }
void answer_and_leave(int, siginfo_t* facts, void*)
{
    answered = facts->si_code > 0 ? 100 : 1;
    siglongjmp(way_out, 1);
}

void stand(void (*full)(int, siginfo_t*, void*))
{
    struct sigaction action = {};
    action.sa_sigaction = full;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
}

// A mapping of the test's own, with nothing behind it; at a low address or wherever there's room.
char* bad_page(const temp_folder& folder, uintptr_t address = 0)
{
    const int descriptor = ::open(folder.file("foreign").c_str(), O_RDWR | O_CREAT, 0600);
    void* const place = reinterpret_cast<void*>(address);
    return static_cast<char*>(mmap(place, 4096, PROT_READ, MAP_SHARED, descriptor, 0));
}

void meet_bus_error(const temp_folder& folder)
{
    static_cast<void>(*static_cast<volatile char*>(bad_page(folder)));
}

bool stands_there(void (*full)(int, siginfo_t*, void*))
{
    struct sigaction present = {};
    return sigaction(SIGBUS, nullptr, &present) == 0 && present.sa_sigaction == full;
}

TEST_F(Mapping, BusErrorsOfOthersGoToWhomTheyWentBefore)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    ASSERT_TRUE(CloseHandle(create_file(name)));
    expect_in_child({
        {100,
         [&] {
             stand(answer_and_leave);
             open_file(name, share::none);
             if (sigsetjmp(way_out, 1) == 0) meet_bus_error(folder);
             return answered;
         },
         "a fault, with its facts, to a handler that jumps out"},
        {true,
         [&] {
             child_process grandchild([](const child_line& to_child) {
                 to_child.step([] { return stands_there(answer_and_leave); });
             });
             return grandchild.next();
         },
         "who stood there before stands there in a forked child"},
        {true, [&] { return CloseHandle(0) && stands_there(answer_and_leave); }, "after the close"},
        {is_built_to_map ? 200 : 0,
         [&] {
             open_file(name, share::none);
             uint32_t moved = 0;
             int64_t both = 0;
             put(0, std::string(4096, 'x'));
             for (const uintptr_t address : {uintptr_t{0}, uintptr_t{1} << 28}) {
                 answered = 0;
                 move(0, 0);
                 if (sigsetjmp(way_out, 1) == 0)
                     WriteFile(0, bad_page(folder, address), 4096, moved);
                 both += answered;
             }
             return both;
         },
         "faults in the caller's own bytes, in the midst of our copy"},
        {1,
         [&] {
             CloseHandle(0);
             answered = 0;
             signal(SIGBUS, answer_plainly);
             open_file(name, share::none);
             raise(SIGBUS);
             return answered;
         },
         "a signal that was sent, to a plain handler"},
        {0,
         [&] {
             CloseHandle(0);
             signal(SIGBUS, SIG_IGN);
             open_file(name, share::none);
             return raise(SIGBUS);
         },
         "ignored"},
        {true,
         [&] {
             stand(answer_and_leave);
             return CloseHandle(0) && stands_there(answer_and_leave);
         },
         "somebody who came later stands after the close, too"},
    });
}

TEST_F(Mapping, ABusErrorThatNobodyAnswersEndsTheProcess)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    ASSERT_TRUE(CloseHandle(create_file(name)));
    struct end {
        void (*handler)(int);
        bool sent;
    };
    for (const end& each : {end{SIG_IGN, false}, end{SIG_DFL, false}, end{SIG_DFL, true}}) {
        child_process doomed([&](const child_line& line) {
            signal(SIGBUS, each.handler);
            open_file(name, share::none);
            line.receive();
            if (each.sent)
                raise(SIGBUS);
            else
                meet_bus_error(folder); // which can't be ignored
        });
        doomed.line().send(0);
        EXPECT_EQ(WTERMSIG(doomed.wait_for_end()), SIGBUS);
    }
}

// Each row prepares a process in which a view can't be had, or a bus error under it not be
// answered.
TEST_F(Mapping, WhereItCannotBeReliedOnTheFileIsServedWithoutIt)
{
    const temp_folder folder;
    const std::string name = folder.file("a");
    const std::string second = folder.file("b");
    ASSERT_TRUE(CloseHandle(create_file(second)));
    const auto block_bus_errors = [] {
        sigset_t all;
        sigfillset(&all);
        return sigprocmask(SIG_BLOCK, &all, nullptr) == 0;
    };
    const auto stand_above = [&] {
        open_file(second, share::none);
        signal(SIGBUS, answer_plainly);
        return true;
    };
    const auto refuse_views = [] { return refuse_calls({{SYS_mmap, ENOMEM, 3, MAP_SHARED}}); };
    const auto hide_file_system = [] { return refuse_calls({{SYS_fstatfs, EACCES}}); };
    const std::function<bool()> rows[] = {block_bus_errors, stand_above, refuse_views,
                                          hide_file_system};
    for (const std::function<bool()>& prepare : rows) {
        SCOPED_TRACE(&prepare - rows);
        file_handle file = no_file;
        const std::vector<child_step> steps = {
            {false, [&] { return file = create_file(name, share::none), is_mapped(name); }},
            {true, [&] { return put(file, std::string(2 * mib, 'x')); }},
            {50, [&] { return truncate(name.c_str(), 100) == 0 ? get(file, 50, 100).size() : 0; }},
            {true, [&] { return CloseHandle(file); }},
        };
        if (!expect_in_child(prepare, steps))
            GTEST_SKIP() << "this system doesn't let a process refuse calls";
        EXPECT_TRUE(DeleteFileA(name.c_str()));
    }
}

} // namespace
} // namespace tarsil::platform
