// Writers killed at any moment, over and over on growing files. What they had been answered is kept
// in memory that outlives them, and after each kill it has to be there: in multi-user mode for
// anybody at once, in single-user mode after the header was rebuilt. What else is out of step is
// found by the checkers, and gone when the index has been built anew.
//
// TARSIL32_KILL_ROUNDS (6) kills are made in each case; TARSIL32_KILL_SEED decides when.
#include "tarsil32.hpp"
#include "tests/support/checked.h"
#include "tests/support/settings.h"
#include "tests/support/stored_records.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarsil {
namespace {

using support::setting;

constexpr int32_t most_writers = 4;
constexpr int32_t most_records = 3000; // of a writer; then new files are begun

struct row {
    int32_t writer;
    int32_t number;
    uint32_t sum; // of all the rest
    char name[20];
    char text[180];
};

uint32_t sum_of(row made)
{
    made.sum = 0;
    unsigned char bytes[sizeof made];
    std::memcpy(bytes, &made, sizeof made);
    uint32_t sum = 2166136261U;
    for (const unsigned char byte : bytes) sum = (sum ^ byte) * 16777619U;
    return sum;
}

row make_row(int32_t writer, int32_t number)
{
    row made = {writer, number, 0, {}, {}};
    std::snprintf(made.name, sizeof made.name, "%d", number * 7919 % 1009);
    std::memset(made.text, 'a' + number % 26, sizeof made.text);
    made.sum = sum_of(made);
    return made;
}

// What a writer has been answered, in memory that it shares with the test.
struct answered {
    std::atomic<int32_t> records; // from 1 on without a gap, in all of its lives
    std::atomic<int32_t> calls;   // that had returned, in this life
    std::atomic<int32_t> refusal; // the code of an add that should have gone well
};

struct mode_of_work {
    const char* name;
    bool is_shared;
    int32_t writers;
    bool is_variable;
};

void PrintTo(const mode_of_work& of, std::ostream* out) { *out << of.name; }

std::vector<key_definition> definitions()
{
    const layout fields = layout::of<row>(
        {TARSIL_FIELD(row, writer), TARSIL_FIELD(row, number), TARSIL_FIELD(row, name)});
    return {*fields.key({"writer", "number"}, cursor::kept, 4),
            *fields.key({"name"}, cursor::none, 4)};
}

// The life of a writer, which only a kill ends. With its tree out of step after another's death it
// has nothing more to do.
[[noreturn]] void write(const support::temp_folder& folder, const mode_of_work& how, int32_t self,
                        answered& notes)
{
    const auto wait = retry::up_to(std::chrono::seconds(20));
    const auto started = library::start({.multi_user = how.is_shared, .wait = wait});
    const data_file file = *started->open(folder.file("kill.dat"));
    const class index index = *file.open_index(folder.file("kill.idx"));
    while (notes.refusal == TS_OK && notes.records < most_records) {
        const row made = make_row(self, notes.records + 1);
        const status done = file.add(bytes_of(made), duplicates::allow);
        if (done) ++notes.records;
        notes.refusal = done.code();
        ++notes.calls;
    }
    for (;;) pause();
}

class Kill : public testing::TestWithParam<mode_of_work> {
protected:
    void SetUp() override
    {
        void* const shared = mmap(nullptr, sizeof(answered) * most_writers, PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(shared, MAP_FAILED);
        notes = static_cast<answered*>(shared);
        begin_files();
    }

    void TearDown() override
    {
        support::tell_total("kill rounds", done, seed);
        support::tell_total("calls answered before a kill", calls, seed);
        support::tell_total("indexes built anew after a kill", rebuilt, seed);
        munmap(notes, sizeof(answered) * most_writers);
    }

    void begin_files()
    {
        std::memset(static_cast<void*>(notes), 0, sizeof(answered) * most_writers);
        std::filesystem::remove(data_name);
        std::filesystem::remove(index_name);
        const result<library> started = library::start();
        const result<data_file> file = started->create(
            data_name, GetParam().is_variable ? TS_VARIABLE_LENGTH : int32_t{sizeof(row)});
        ASSERT_TRUE(file) << file.text();
        ASSERT_TRUE(file->create_index(index_name, definitions()));
    }

    template <class Holds> bool all_writers(Holds&& holds) const
    {
        return std::all_of(notes, notes + GetParam().writers, holds);
    }

    // Starts the writers and kills them one after the other. Opening takes longer than the work.
    void work_and_kill()
    {
        const int32_t writers = GetParam().writers;
        std::vector<pid_t> children;
        for (int32_t i = 0; i < writers; ++i) {
            notes[i].calls = 0;
            notes[i].refusal = TS_OK;
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) write(folder, GetParam(), i + 1, notes[i]);
            children.push_back(child);
        }
        const auto at_work = [](const answered& one) { return one.calls > 0; };
        for (int32_t tries = 0; tries < 20000 && !all_writers(at_work); ++tries) usleep(100);
        EXPECT_TRUE(all_writers(at_work)) << "the writers don't begin";
        for (const pid_t child : children) {
            usleep(static_cast<useconds_t>(random() % 3000));
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        for (int32_t i = 0; i < writers; ++i) {
            calls += notes[i].calls;
            if (writers == 1) { EXPECT_EQ(notes[i].refusal, TS_OK); }
        }
    }

    // In single-user mode the header is behind its records until it is rebuilt.
    void rebuild_header() const
    {
        const result<library> started = library::start();
        const result<data_file> file = started->rebuild(data_name);
        ASSERT_TRUE(file) << file.text();
    }

    // What a kill has torn is whole no more; the record that was in work may be there or not.
    void expect_what_was_answered()
    {
        std::vector<int32_t> found[most_writers];
        for (const support::stored_record& one :
             support::records_in(support::file_bytes(data_name))) {
            row made;
            if (one.body.size() != sizeof made) continue;
            std::memcpy(&made, one.body.data(), sizeof made);
            if (made.sum == sum_of(made)) found[made.writer - 1].push_back(made.number);
        }
        for (int32_t i = 0; i < GetParam().writers; ++i) {
            SCOPED_TRACE(testing::Message() << "writer " << i + 1);
            const auto count = static_cast<int32_t>(found[i].size());
            EXPECT_TRUE(count == notes[i].records || count == notes[i].records + 1) << count;
            for (int32_t n = 0; n < count; ++n) ASSERT_EQ(found[i][static_cast<size_t>(n)], n + 1);
            notes[i].records = count;
        }
    }

    bool is_index_sound() const
    {
        return support::check_index(support::file_bytes(index_name), support::file_bytes(data_name))
            .is_sound();
    }

    void mend_index()
    {
        if (is_index_sound()) return;
        ++rebuilt;
        std::filesystem::remove(index_name);
        {
            const result<library> started = library::start();
            const result<data_file> file = started->open(data_name);
            ASSERT_TRUE(file) << file.text();
            ASSERT_TRUE(file->build_index(index_name, definitions()));
        }
        EXPECT_TRUE(is_index_sound());
    }

    const long long rounds = setting("TARSIL32_KILL_ROUNDS", 6);
    const long long seed = setting("TARSIL32_KILL_SEED", 5);
    std::mt19937_64 random{static_cast<uint64_t>(seed)};
    const support::temp_folder folder;
    const std::string data_name = folder.file("kill.dat");
    const std::string index_name = folder.file("kill.idx");
    answered* notes = nullptr;
    long long done = 0;
    long long calls = 0;
    long long rebuilt = 0;
};

TEST_P(Kill, LeavesWhatWasAnswered)
{
    const auto has_room = [](const answered& one) { return one.records < most_records; };
    for (; done < rounds && !HasFailure(); ++done) {
        SCOPED_TRACE(testing::Message() << "round " << done << ", seed " << seed);
        if (!all_writers(has_room)) begin_files();
        work_and_kill();
        if (HasFailure()) return;
        if (!GetParam().is_shared) rebuild_header();
        expect_what_was_answered();
        mend_index();
    }
}

constexpr mode_of_work modes[] = {{"single_fixed", false, 1, false},
                                  {"single_variable", false, 1, true},
                                  {"shared_one", true, 1, false},
                                  {"shared_four", true, most_writers, false},
                                  {"shared_four_variable", true, most_writers, true}};
INSTANTIATE_TEST_SUITE_P(Writers, Kill, testing::ValuesIn(modes),
                         [](const auto& of) { return of.param.name; });

} // namespace
} // namespace tarsil
