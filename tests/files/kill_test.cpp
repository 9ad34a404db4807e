// Writers killed at any moment of their adds, updates, deletes, undeletes and reuse of deleted
// places, over and over on growing files. What they had been answered is kept in memory that
// outlives them, and after each kill it has to be there: in multi-user mode for anybody at once, in
// single-user mode after the header was rebuilt. What else a kill leaves has to be what
// docs/BEHAVIOUR.md tells of the one call that was under way: a record in work is old, new or made
// of both byte by byte; keys lack that record alone, but for one stretch of them that a split was
// moving.
//
// When one of several writers is killed, the others are held where they are for as long as the
// files are looked at. They too are in the midst of one call each.
//
// TARSIL32_KILL_ROUNDS (5) rounds are made in each case; TARSIL32_KILL_SEED decides when.
#include "tests/files/kill_onlooker.h"
#include "tests/support/checked.h"
#include "tests/support/settings.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarsil::kills {
namespace {

using support::setting;

class Kill : public testing::TestWithParam<mode_of_work> {
protected:
    void SetUp() override
    {
        ASSERT_NE(static_cast<void*>(notes), MAP_FAILED);
        begin_files();
    }

    void TearDown() override
    {
        for (const auto& [what, count] : on.totals) support::tell_total(what, count, seed);
        munmap(notes, sizeof(answered) * most_writers);
    }

    void begin_files()
    {
        std::memset(static_cast<void*>(notes), 0, sizeof(answered) * most_writers);
        std::filesystem::remove(data_name);
        std::filesystem::remove(index_name);
        const result<library> started = library::start();
        const result<data_file> file = started->create(
            data_name, how.is_variable ? TS_VARIABLE_LENGTH : how.most_bytes);
        ASSERT_TRUE(file) << file.text();
        const auto index = file->create_index(index_name, definitions());
        ASSERT_TRUE(index) << index.text();
        for (int32_t n = 1; n <= how.begin; ++n) {
            const std::string made = how.body_of(make_row(1, n, 1));
            ASSERT_TRUE(file->add(std::as_bytes(std::span(made)), duplicates::allow));
            notes[0].versions[n] = 1;
            notes[0].records = n;
        }
    }

    template <class Holds> bool all_writers(Holds&& holds) const
    {
        return std::all_of(notes, notes + how.writers, holds);
    }

    // Opening takes longer than the work.
    void start_writers()
    {
        for (int32_t i = 0; i < how.writers; ++i) {
            notes[i].opened = 0;
            notes[i].calls = 0;
            notes[i].refusal = TS_OK;
        }
        for (int32_t i = 0; i < how.writers; ++i) {
            const auto own_seed = static_cast<uint32_t>(random());
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) live(folder, how, i + 1, notes, own_seed);
            children.push_back(child);
        }
        const auto at_work = [](const answered& one) { return one.calls > 0; };
        for (int32_t tries = 0; tries < 100000 && !all_writers(at_work); ++tries) usleep(100);
        EXPECT_TRUE(all_writers(at_work)) << "the writers don't begin";
    }

    int32_t calls_of_others(size_t victim) const
    {
        int32_t calls = 0;
        for (size_t i = victim + 1; i < children.size(); ++i) calls += notes[i].calls;
        return calls;
    }

    // The others are held at what they are doing, unless they are held already.
    void kill_one(size_t victim)
    {
        kill(children[victim], SIGKILL);
        for (size_t i = victim + 1; i < children.size() && !on.is_out_of_step; ++i)
            kill(children[i], SIGSTOP);
        waitpid(children[victim], nullptr, 0);
        for (size_t i = victim + 1; i < children.size() && !on.is_out_of_step; ++i)
            waitpid(children[i], nullptr, WUNTRACED);
        ++on.totals[on.is_out_of_step ? "kills whose files weren't looked at" : "kills"];
    }

    void kill_in_turn()
    {
        for (size_t i = 0; i < children.size(); ++i) {
            if (on.is_out_of_step || on.has_torn || HasFailure()) {
                on.is_out_of_step = true;
                kill_one(i);
                continue;
            }
            usleep(static_cast<useconds_t>(random() % how.most_microseconds()));
            const int32_t before = calls_of_others(i);
            kill_one(i);
            if (!how.is_counted_at_once()) rebuild_header();
            const auto others = static_cast<int32_t>(children.size() - i) - 1;
            on.look(calls_of_others(i) - before + (others > 0 ? 4 : 2));
            EXPECT_EQ(notes[i].refusal, TS_OK) << "before the kill";
            if (on.is_out_of_step || HasFailure() || (on.has_torn && others > 0)) continue;
            for (size_t k = i + 1; k < children.size(); ++k) kill(children[k], SIGCONT);
            look_up_records_of(static_cast<int32_t>(i) + 1);
        }
        for (int32_t i = 0; i < how.writers; ++i)
            on.totals["calls before a kill"] += notes[i].calls;
        children.clear();
    }

    // Somebody else, at once.
    void look_up_records_of(int32_t writer)
    {
        const answered& told = notes[writer - 1];
        const open_files at(folder, how);
        const result<file_lock> lock = how.is_shared ? at.file.lock_all() : file_lock();
        ASSERT_TRUE(lock) << lock.text();
        for (int32_t k = 0; k < 20; ++k) {
            const auto back = static_cast<int32_t>(random() % 200) * (k > 0);
            const int32_t number = std::max(told.records - back, 1);
            const int32_t version = told.versions[number];
            if (version <= 0 || (told.target != 0 && told.number == number)) continue;
            const row wanted = make_row(writer, number, version);
            const auto found = at.key.find(at.key.pack(writer, number, wanted.epoch));
            ASSERT_TRUE(found) << number << ": " << found.text();
            const std::string body = how.body_of(wanted);
            ASSERT_EQ(found->bytes.size(), body.size());
            ASSERT_EQ(std::memcmp(found->bytes.data(), body.data(), body.size()), 0) << number;
            ++on.totals["records looked up at once"];
        }
    }

    // A frame without its body, or one that the edge of a page has divided where nothing is mapped.
    bool is_half_record(const std::string& data, size_t from) const
    {
        const size_t length = how.length(notes[0].number);
        const size_t body = from + frame_bytes;
        if (!is_built_to_map && from % page > page - frame_bytes) return true;
        return how.is_in_two_writes(length) && data.size() >= body &&
               load_i32(data.data() + body - sizeof(int32_t)) == static_cast<int32_t>(length) &&
               data.find_first_not_of('\0', body) == std::string::npos;
    }

    // Cuts off what nobody counts, and what the next add would overwrite. Where the header is
    // behind, as `tarsil repair` does, that is half a record at most.
    void rebuild_header()
    {
        const std::string data = support::file_bytes(data_name);
        const check::data_report report = support::check_data(data);
        auto end = static_cast<uintmax_t>(report.header.end_offset);
        if (!how.is_counted_at_once()) {
            end = report.is_whole ? data.size() : static_cast<uintmax_t>(report.walk_end);
            EXPECT_TRUE(report.is_whole || is_half_record(data, end));
            on.totals["half records cut off"] += !report.is_whole;
        }
        std::filesystem::resize_file(data_name, end);
        const result<library> started = library::start();
        const result<data_file> file = started->rebuild(data_name);
        ASSERT_TRUE(file) << file.text();
    }

    bool is_index_sound() const
    {
        return support::check_index(support::file_bytes(index_name), support::file_bytes(data_name))
            .is_sound();
    }

    // What was under way is done or not; from now on it counts as found.
    void mend()
    {
        const std::string data = support::file_bytes(data_name);
        if (!support::check_data(data).findings.is_sound()) {
            ++on.totals["headers rebuilt"];
            rebuild_header();
        }
        if (!is_index_sound()) {
            ++on.totals["indexes built anew"];
            std::filesystem::remove(index_name);
            const result<library> started = library::start();
            const result<data_file> file = started->open(data_name);
            ASSERT_TRUE(file) << file.text();
            ASSERT_TRUE(file->build_index(index_name, definitions()));
        }
        EXPECT_TRUE(is_index_sound());
        if (!on.has_torn) on.settle();
    }

    const mode_of_work how = GetParam();
    const long long rounds = setting("TARSIL32_KILL_ROUNDS", 5);
    const long long seed = setting("TARSIL32_KILL_SEED", 5);
    std::mt19937_64 random{static_cast<uint64_t>(seed)};
    const support::temp_folder folder;
    const std::string data_name = folder.file("kill.dat");
    const std::string index_name = folder.file("kill.idx");
    answered* const notes = static_cast<answered*>(mmap(nullptr, sizeof(answered) * most_writers,
                                                        PROT_READ | PROT_WRITE,
                                                        MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    onlooker on{how, notes, data_name, index_name};
    std::vector<pid_t> children;
};

TEST_P(Kill, LeavesWhatWasAnswered)
{
    const auto has_room = [&](const answered& one) {
        return one.records < how.begin + new_numbers;
    };
    for (long long round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round << ", seed " << seed);
        if (on.has_torn || !all_writers(has_room)) begin_files();
        on.is_out_of_step = on.has_torn = false;
        start_writers();
        kill_in_turn();
        ++on.totals["kill rounds"];
        if (!HasFailure()) mend();
    }
}

constexpr mode_of_work modes[] = {{"single_fixed", false, 1, false, 0},
                                  {"single_variable", false, 1, true, 0},
                                  {"single_large", false, 1, false, many},
                                  {"shared_one", true, 1, false, 0},
                                  {"shared_large", true, 1, false, many},
                                  {"shared_four", true, most_writers, false, 0},
                                  {"shared_four_variable", true, most_writers, true, 0},
                                  {"single_long", false, 1, false, 0, long_bytes},
                                  {"single_long_variable", false, 1, true, 0, long_bytes},
                                  {"shared_two_long", true, 2, true, 0, long_bytes},
                                  {"single_through", false, 1, false, 100, sizeof(row), true},
                                  {"single_through_long", false, 1, true, 100, long_bytes, true},
                                  {"shared_through", true, 1, false, 100, sizeof(row), true},
                                  {"shared_through_long", true, 1, false, 0, long_bytes, true}};
INSTANTIATE_TEST_SUITE_P(Writers, Kill, testing::ValuesIn(modes),
                         [](const auto& of) { return of.param.name; });

} // namespace
} // namespace tarsil::kills
