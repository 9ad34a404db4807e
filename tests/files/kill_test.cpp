// Writers killed at any moment, over and over on growing files. What they had been answered is kept
// in memory that outlives them, and after each kill it has to be there: in multi-user mode for
// anybody at once, in single-user mode after the header was rebuilt. What else is out of step is
// found by the checkers, and gone when the index has been built anew.
//
// TARSIL32_KILL_ROUNDS (6) kills are made in each case; TARSIL32_KILL_SEED decides when.
#include "check/index_check.h"
#include "data/data_format.h"
#include "tarsil32.hpp"
#include "tests/support/settings.h"
#include "tests/support/stored_records.h"
#include "tests/support/temp_folder.h"

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
constexpr int32_t none = -1;

struct row {
    int32_t writer;
    int32_t number;
    int32_t version;
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

row make_row(int32_t writer, int32_t number, int32_t version)
{
    row made = {writer, number, version, 0, {}, {}};
    std::snprintf(made.name, sizeof made.name, "%d", number * 7919 % 1009);
    std::memset(made.text, 'a' + (number + version) % 26, sizeof made.text);
    made.sum = sum_of(made);
    return made;
}

// What a writer has been answered, in memory that it shares with the test.
struct answered {
    struct record {
        int32_t version;
        bool is_deleted;
    };
    std::atomic<int32_t> records;   // added by it
    std::atomic<int32_t> doing;     // the record it is adding or changing, or none
    std::atomic<int64_t> calls;     // that had returned
    std::atomic<int32_t> refusal;   // the code of a call that should have gone well
    record known[most_records + 1]; // by number, from 1; version none: not to be relied on
};

struct mode_of_work {
    const char* name;
    bool is_shared;
    int32_t writers;
    bool is_variable;
};

void PrintTo(const mode_of_work& of, std::ostream* out) { *out << of.name; }

layout fields()
{
    return layout::of<row>({TARSIL_FIELD(row, writer), TARSIL_FIELD(row, number),
                            TARSIL_FIELD(row, version), TARSIL_FIELD(row, name)});
}

std::vector<key_definition> definitions()
{
    return {*fields().key({"writer", "number"}, cursor::kept, 4),
            *fields().key({"name"}, cursor::none, 4)};
}

// The life of a writer, which only a kill ends.
class writer {
public:
    writer(const support::temp_folder& folder, const mode_of_work& how, int32_t self, uint64_t seed,
           answered& notes)
        : self_(self), random_(seed), notes_(notes),
          started_(library::start({.multi_user = how.is_shared, .wait = retry::up_to(wait_limit)})),
          file_(*started_->open(folder.file("kill.dat"))),
          index_(*file_.open_index(folder.file("kill.idx"))), by_number_(*index_.key(0))
    {
    }

    [[noreturn]] void work()
    {
        for (;;) {
            const int32_t records = notes_.records;
            if (records == most_records) pause();
            const int32_t number = 1 + static_cast<int32_t>(random_() %
                                                            (static_cast<uint64_t>(records) + 1));
            const bool is_known = number <= records && notes_.known[number].version != none;
            const uint64_t deed = is_known ? random_() % 10 : 9;
            notes_.doing = deed < 2 ? number : records + 1;
            if (deed == 0)
                update(number);
            else if (deed == 1)
                mark(number);
            else
                add(records + 1);
            notes_.doing = none;
            ++notes_.calls;
        }
    }

private:
    static constexpr auto wait_limit = std::chrono::seconds(20);

    void add(int32_t number)
    {
        const row made = make_row(self_, number, 0);
        expect(file_.add(bytes_of(made), duplicates::allow));
        notes_.known[number] = {0, false};
        notes_.records = number;
    }

    void update(int32_t number)
    {
        answered::record& known = notes_.known[number];
        if (known.is_deleted) return; // It would be refused.
        const row made = make_row(self_, number, known.version + 1);
        expect(by_number_.update(by_number_.pack(self_, number), bytes_of(made)));
        ++known.version;
    }

    void mark(int32_t number)
    {
        answered::record& known = notes_.known[number];
        const auto value = by_number_.pack(self_, number);
        expect(known.is_deleted ? by_number_.undelete(value) : by_number_.erase(value));
        known.is_deleted = !known.is_deleted;
    }

    // With its tree out of step after another's death a writer has nothing more to do.
    void expect(const status& done)
    {
        if (done) return;
        notes_.refusal = done.code();
        pause();
    }

    [[noreturn]] static void pause()
    {
        for (;;) ::pause();
    }

    int32_t self_;
    std::mt19937_64 random_;
    answered& notes_;
    result<library> started_;
    data_file file_;
    class index index_;
    key_cursor by_number_;
};

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
        std::filesystem::remove(data_name());
        std::filesystem::remove(index_name());
        const result<library> started = library::start();
        const int32_t length = GetParam().is_variable ? TS_VARIABLE_LENGTH
                                                      : static_cast<int32_t>(sizeof(row));
        const result<data_file> file = started->create(data_name(), length);
        ASSERT_TRUE(file) << file.text();
        ASSERT_TRUE(file->create_index(index_name(), definitions()));
    }

    bool is_full() const
    {
        int64_t records = 0;
        for (int32_t i = 0; i < GetParam().writers; ++i) records += notes[i].records;
        return records >= most_records;
    }

    // Starts the writers and kills them one after the other.
    void work_and_kill()
    {
        std::vector<pid_t> children;
        for (int32_t i = 0; i < GetParam().writers; ++i) {
            notes[i].doing = none;
            notes[i].refusal = TS_OK;
            notes[i].calls = 0;
            const uint64_t own_seed = random();
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) writer(folder, GetParam(), i + 1, own_seed, notes[i]).work();
            children.push_back(child);
        }
        for (const pid_t child : children) {
            wait_until_at_work();
            usleep(static_cast<useconds_t>(random() % 3000));
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        for (int32_t i = 0; i < GetParam().writers; ++i) {
            calls += notes[i].calls;
            if (GetParam().writers == 1) { EXPECT_EQ(notes[i].refusal, TS_OK); }
        }
    }

    // Opening takes longer than the work of a round.
    void wait_until_at_work() const
    {
        const auto at_work = [this](int32_t i) {
            return notes[i].calls > 0 || notes[i].refusal != TS_OK ||
                   notes[i].records == most_records;
        };
        for (int32_t tries = 0; tries < 20000; ++tries) {
            bool all = true;
            for (int32_t i = 0; i < GetParam().writers; ++i) all = all && at_work(i);
            if (all) return;
            usleep(100);
        }
        FAIL() << "the writers don't begin";
    }

    // In single-user mode the header is behind its records until it is rebuilt.
    void rebuild_header()
    {
        const result<library> started = library::start();
        const result<data_file> file = started->rebuild(data_name());
        ASSERT_TRUE(file) << file.text();
    }

    struct found_row {
        row made;
        bool is_deleted;
    };

    // The whole rows of a writer, by number. What a kill has torn is whole no more.
    std::vector<std::vector<found_row>> rows_of(int32_t self) const
    {
        std::vector<std::vector<found_row>> rows(most_records + 1);
        for (const support::stored_record& one :
             support::records_in(support::file_bytes(data_name()))) {
            row made;
            if (one.body.size() != sizeof made) continue;
            std::memcpy(&made, one.body.data(), sizeof made);
            const bool is_whole = made.sum == sum_of(made) && made.number <= most_records;
            if (is_whole && made.writer == self && made.number >= 1)
                rows[static_cast<size_t>(made.number)].push_back({made, one.mark == mark_deleted});
        }
        return rows;
    }

    void expect_what_was_answered(int32_t self)
    {
        answered& told = notes[self - 1];
        const std::vector<std::vector<found_row>> rows = rows_of(self);
        for (int32_t number = 1; number <= told.records; ++number) {
            const answered::record known = told.known[number];
            if (number == told.doing || known.version == none) continue;
            SCOPED_TRACE(testing::Message() << "record " << number << " of writer " << self);
            const std::vector<found_row>& found = rows[static_cast<size_t>(number)];
            ASSERT_EQ(found.size(), 1U);
            EXPECT_EQ(found[0].made.version, known.version);
            EXPECT_EQ(found[0].is_deleted, known.is_deleted);
        }
        take_up(told, rows);
    }

    // The record that was in work may be as before or as after, or torn: then it is left alone.
    static void take_up(answered& told, const std::vector<std::vector<found_row>>& rows)
    {
        if (told.doing == none) return;
        const auto& found = rows[static_cast<size_t>(told.doing)];
        answered::record& known = told.known[told.doing];
        known = found.size() == 1 ? answered::record{found[0].made.version, found[0].is_deleted}
                                  : answered::record{none, false};
        told.records = std::max<int32_t>(told.records, told.doing);
    }

    bool is_index_sound() const
    {
        check::file_bytes data;
        check::file_bytes index;
        EXPECT_EQ(data.open(data_name().c_str()), check::open_result::opened);
        EXPECT_EQ(index.open(index_name().c_str()), check::open_result::opened);
        check::frame_list frames;
        check::check_data_file(data, &frames);
        const check::data_side side = {data, frames};
        return check::check_index_file(index, &side).is_sound();
    }

    void mend_index()
    {
        if (is_index_sound()) return;
        ++rebuilt;
        std::filesystem::remove(index_name());
        const result<library> started = library::start();
        {
            const result<data_file> file = started->open(data_name());
            ASSERT_TRUE(file) << file.text();
            ASSERT_TRUE(file->build_index(index_name(), definitions()));
        }
        EXPECT_TRUE(is_index_sound());
    }

    std::string data_name() const { return folder.file("kill.dat"); }
    std::string index_name() const { return folder.file("kill.idx"); }

    const long long rounds = setting("TARSIL32_KILL_ROUNDS", 6);
    const long long seed = setting("TARSIL32_KILL_SEED", 5);
    std::mt19937_64 random{static_cast<uint64_t>(seed)};
    support::temp_folder folder;
    answered* notes = nullptr;
    long long done = 0;
    long long calls = 0;
    long long rebuilt = 0;
};

TEST_P(Kill, LeavesWhatWasAnswered)
{
    for (; done < rounds && !HasFailure(); ++done) {
        SCOPED_TRACE(testing::Message() << "round " << done << ", seed " << seed);
        if (is_full()) begin_files();
        work_and_kill();
        if (HasFailure()) return;
        if (!GetParam().is_shared) rebuild_header();
        for (int32_t self = 1; self <= GetParam().writers; ++self) expect_what_was_answered(self);
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
