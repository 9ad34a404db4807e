// Several processes on the same files, in earnest: side by side without any order but that of the
// locks. Numbers of records and operations grow by TARSIL32_PROCESS_SCALE (1), for long rounds.
#include "check/index_check.h"
#include "check/report_text.h"
#include "tests/support/child_process.h"
#include "tests/support/party.h"
#include "tests/support/settings.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <sys/mman.h>

namespace tarsil::support {
namespace {

int64_t scale() { return setting("TARSIL32_PROCESS_SCALE", 1); }
int64_t seed() { return setting("TARSIL32_PROCESS_SEED", 1); }

check::byte_span span_of(const std::string& bytes)
{
    return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

// Lets children work side by side and gathers what they tell. A child that fails tells nothing.
class crew {
public:
    using task = std::function<work_done()>;

    void begin(const task& work)
    {
        children.push_back(std::make_unique<child_process>([work](const child_line& line) {
            line.receive();
            const work_done done = work();
            for (const auto& each : work_counts) line.send(done.*each.number);
        }));
    }

    work_done finish()
    {
        work_done all;
        for (const auto& child : children) child->line().send(0);
        for (const auto& child : children) {
            const child_line line = child->line();
            EXPECT_TRUE(
                line.is_waiting(static_cast<int>(60000 * std::min<int64_t>(scale(), 1000))));
            for (const auto& each : work_counts) all.*each.number += line.receive();
            EXPECT_EQ(child->wait_for_end(), 0);
        }
        for (const auto& each : work_counts)
            if (all.*each.number != 0) tell_total(each.what, all.*each.number, seed());
        return all;
    }

private:
    std::vector<std::unique_ptr<child_process>> children;
};

struct Processes : testing::Test {
    temp_folder folder;
    ledger* book = static_cast<ledger*>(
        mmap(nullptr, sizeof(ledger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ~Processes() override { munmap(book, sizeof(ledger)); }

    agreement terms(manner how = manner::locking, bool fixed = true, int64_t round = 0) const
    {
        return {folder.path(), how, fixed, static_cast<uint32_t>(seed() * 1000 + round), book};
    }
};

void create_files(const agreement& terms)
{
    party first(terms, 0);
    first.create();
    first.close();
}

// --- Building indexes ---------------------------------------------------------------------------

// Each builds an index that both want under the same name. Who comes too late opens it: once it is
// whole, or in every second round at once. Such an open can find the file without its first bytes,
// and can have the build refused half way; what is there of the index then stays.
struct builder {
    const temp_folder& folder;
    work_done done{};
    int32_t d = -1;

    int32_t build(const std::string& name) const
    {
        int32_t record[2];
        key_definition keys[2] = {};
        for (int32_t key = 0; key < 2; ++key) {
            keys[key].cursor = 'y';
            keys[key].order = 3;
            keys[key].field_count = 1;
            keys[key].types[0] = 'l';
            keys[key].offsets[0] = 4 * key;
        }
        return tscrindd32(d, name.c_str(), 2, keys, record);
    }

    // A refused step may have moved the cursor all the same, so that repeating it skips an entry.
    void count(int32_t index) const
    {
        int32_t record[2];
        int32_t deleted = 0;
        int32_t entries = 0;
        must(repeat([&] { return tslockd32(d); }), "lock");
        int32_t code = repeat([&] { return tsgetfi32(d, index, 0, record, &deleted); });
        for (; code == TS_OK; ++entries)
            code = repeat([&] { return tsgetni32(d, index, 0, record, &deleted); });
        must(tsulockd32(d), "release");
        ensure(entries == built_records, "an index that misses some");
    }

    void one_round(int32_t round)
    {
        const bool wait = round % 2 == 0;
        const std::string name = folder.file(std::to_string(round));
        const std::string marker = name + " is whole";
        int32_t index = wait ? repeat([&] { return build(name); }, &done) : build(name);
        const bool won = index >= 0;
        done.adds += won;
        if (won) set_file_bytes(marker, "");
        must(index, "build",
             {TS_CREATE_INDEX_FILE_EXISTS, TS_CREATE_INDEX_FAILED,
              wait ? TS_CREATE_INDEX_FAILED : TS_LOCK_REFUSED});
        while (!won && wait && !std::filesystem::exists(marker)) usleep(100);
        char cursors[] = "yn";
        const auto open = [&] { return tsopeni32(d, name.c_str(), cursors); };
        if (!won)
            index = must(repeat(open, &done), "open",
                         {TS_OPEN_INDEX_NOT_THERE, TS_VERSION_READ_SHORT});
        if (index >= 0 && (won || wait)) count(index);
        if (index >= 0) must(tsclosei32(d, index), "close");
    }

    static constexpr int32_t built_records = 300;
};

TEST_F(Processes, BuildAndOpenOneIndex)
{
    const auto rounds = static_cast<int32_t>(10 * scale());
    std::mt19937 random(5);
    tsinit32();
    ASSERT_EQ(tscrdata32(folder.file("d").c_str(), 8, 0, nullptr), 0);
    for (int32_t i = 0; i < builder::built_records; ++i) {
        const int32_t record[] = {static_cast<int32_t>(random()), i % 9};
        ASSERT_EQ(tsadd32(0, record, 0, 'y'), TS_OK);
    }
    ASSERT_EQ(tsclosed32(0), TS_OK);
    tsfree32();

    crew both;
    for (int32_t i = 0; i < 2; ++i)
        both.begin([&] {
            builder self{folder};
            start_shared();
            self.d = open_shared(folder.file("d"));
            for (int32_t round = 0; round < rounds; ++round) self.one_round(round);
            must(tsclosed32(self.d), "close");
            return self.done;
        });
    EXPECT_LE(both.finish().adds, rounds) << "an index that both want is made once";

    const std::string data = file_bytes(folder.file("d"));
    for (int32_t round = 0; round < rounds; ++round) {
        const std::string name = folder.file(std::to_string(round));
        // A build that was refused may leave a part of its file, if it was open elsewhere.
        if (!std::filesystem::exists(name + " is whole")) continue;
        const std::string bytes = file_bytes(name);
        const check::index_report report = check::check_index_image(span_of(bytes), span_of(data));
        ASSERT_EQ(report.keys.size(), 2U);
        EXPECT_TRUE(report.is_sound()) << check::lines_of(report.keys[0].findings);
    }
}

// --- Mixed work ---------------------------------------------------------------------------------

// Whether every record in the file is whole and, under locks, what the ledger says, and there once.
// `frames` are the records with their frames, to the end.
void expect_records(const std::string& frames, const agreement& terms)
{
    int64_t live = 0;
    std::set<std::pair<int32_t, int32_t>> met;
    for (size_t at = 0; at < frames.size();) {
        shared_record record = {};
        int32_t length = 0;
        std::memcpy(&length, frames.data() + at + 4, sizeof length);
        std::memcpy(&record, frames.data() + at + 8, static_cast<size_t>(length));
        ASSERT_TRUE(is_whole(record) && record.length == length) << "at " << at;
        const bool deleted = frames[at] == 'd';
        live += !deleted;
        at += 8 + static_cast<size_t>(length);
        if (terms.how == manner::bare) continue;
        ASSERT_TRUE(met.insert({record.owner, record.serial}).second) << "at " << at;
        ASSERT_EQ(terms.book->of(record), deleted ? -record.version : record.version);
    }
    if (terms.how == manner::bare) return;
    for (const auto& serials : terms.book->versions)
        live -= std::count_if(std::begin(serials), std::end(serials),
                              [](const auto& version) { return version > 0; });
    EXPECT_EQ(live, 0) << "records that were added and not deleted are lost";
}

// Without locks a record may lack keys, and the count of deleted records may be off.
void expect_sound(const agreement& terms, const work_done& done)
{
    const bool bare = terms.how == manner::bare;
    const std::string data = file_bytes(terms.folder + "/d");
    const check::data_report report = check::check_data_image(span_of(data));
    EXPECT_EQ(report.findings.total() - report.findings.count(check::severity::note),
              bare ? report.findings.count(check::invariant::D7) : 0)
        << check::lines_of(report.findings);
    for (int32_t index = 0; index < party::index_files; ++index) {
        const std::string bytes = file_bytes(terms.folder + "/" + std::to_string(index));
        const check::index_report found = check::check_index_image(span_of(bytes), span_of(data));
        EXPECT_TRUE(found.findings.is_sound()) << check::lines_of(found.findings);
        EXPECT_EQ(found.keys.size(), index == 0 ? 2U : 1U);
        for (const check::key_report& key : found.keys) {
            EXPECT_EQ(key.findings.total() - key.findings.count(check::severity::note),
                      bare ? key.findings.count(check::invariant::I11) : 0)
                << check::lines_of(key.findings);
            EXPECT_TRUE(bare || key.entries == report.records);
        }
    }
    const auto end = static_cast<size_t>(report.header.end_offset);
    ASSERT_TRUE(end >= 28 && end <= data.size());
    expect_records(data.substr(28, end - 28), terms);
    // Where nobody reuses a record, each add is a record more.
    EXPECT_LE(report.records, done.adds - done.purged);
    EXPECT_TRUE(terms.fixed || report.records == done.adds - done.purged) << report.records;
}

work_done four_at_work(const agreement& terms, int64_t operations)
{
    create_files(terms);
    crew all;
    for (int32_t own = 1; own <= 4; ++own)
        all.begin([&, own] {
            party self(terms, own);
            self.open();
            self.work(operations);
            self.close();
            return self.done();
        });
    return all.finish();
}

// Long rounds begin with new files again and again, as an index only grows.
TEST_F(Processes, FourAtMixedWorkLoseNothing)
{
    const int64_t operations = 1000 * std::min<int64_t>(scale(), 25);
    for (int64_t round = 0; round < std::max<int64_t>(scale() / 25, 1); ++round)
        for (const bool fixed : {true, false})
            for (const manner how : {manner::locking, manner::bare}) {
                SCOPED_TRACE(std::string(fixed ? "fixed" : "variable") + " length, round " +
                             std::to_string(round) + (how == manner::bare ? " without locks" : ""));
                std::memset(static_cast<void*>(book), 0, sizeof *book);
                const agreement agreed = terms(how, fixed, round);
                expect_sound(agreed, four_at_work(agreed, operations));
                for (const auto& file : std::filesystem::directory_iterator(folder.path()))
                    std::filesystem::remove(file);
                if (HasFailure()) return;
            }
}

// --- What one process sees of another -----------------------------------------------------------

// The other one adds a record before each call. A call that reads the header takes notice by
// itself.
TEST_F(Processes, AChangeElsewhereIsToldOnce)
{
    create_files(terms());
    child_process other([&](const child_line& line) {
        party they(terms(), 2);
        they.open();
        for (int i = 0; i < 4; ++i) line.step([&] { return they.add(); });
        line.receive();
    });
    party self(terms(), 1);
    self.open();
    for (int i = 0; i < 3; ++i) ASSERT_EQ(self.add(), TS_OK);
    shared_record record;
    int32_t deleted = 0;
    int32_t number = 0;
    const int32_t d = self.data();
    ASSERT_EQ(tsgetfi32(d, 0, 0, &record, &deleted), TS_OK);
    const std::function<int32_t()> calls[] = {
        [&] { return tsgetni32(d, 0, 0, &record, &deleted); },
        [&] { return tssetd2i32(d, 0, 0, &number); },
        [&] { return tsdelci32(d, 0, 0); },
    };
    for (const auto& call : calls) {
        ASSERT_EQ(other.next(), TS_OK);
        EXPECT_EQ(call(), TS_CURSOR_FILE_CHANGED);
        EXPECT_EQ(call(), TS_OK);
    }
    EXPECT_EQ(record.serial, 2);
    EXPECT_EQ(number, 2);
    ASSERT_EQ(other.next(), TS_OK);
    EXPECT_EQ(tsgetcd32(d, &record, &deleted), TS_OK);
    EXPECT_EQ(tsgetpi32(d, 0, 0, &record, &deleted), TS_OK);
    EXPECT_EQ(record.serial, 1);
    self.close();
}

struct lock_case {
    const char* what;
    int32_t (*lock)(int32_t d);
    int32_t (*unlock)(int32_t d);
    int32_t locked;
    int32_t expected[4]; // of the other's calls, below
};
constexpr int32_t no = TS_LOCK_REFUSED;
const lock_case lock_cases[] = {
    {"data file", tslockd32, tsulockd32, 1, {no, no, no, no}},
    {"index file",
     [](int32_t d) { return tslocki32(d, 0); },
     [](int32_t d) { return tsulocki32(d, 0); },
     1,
     {0, 0, no, no}},
    {"record 2",
     [](int32_t d) { return tslockdr32(d, 2); },
     [](int32_t d) { return tsulckdr32(d, 2); },
     0,
     {no, 0, no, 0}},
    {"nothing", [](int32_t) { return int32_t{TS_OK}; }, nullptr, 0, {0, 0, 0, 0}},
};

TEST_F(Processes, LocksOfACallerStandOverCallsAndKeepOthersOut)
{
    create_files(terms());
    child_process other([&](const child_line& line) {
        party they(terms(), 2);
        line.step([&] { return they.open(), 0; });
        const int32_t theirs = they.data();
        shared_record record;
        int32_t deleted = 0;
        const int32_t key[] = {1, 2};
        for (size_t i = 0; i < std::size(lock_cases); ++i) {
            line.step([&] { return tsgetd32(theirs, 2, &record, &deleted); });
            line.step([&] { return tsgetd32(theirs, 1, &record, &deleted); });
            line.step([&] { return tsgeti32(theirs, 0, 0, key, &record, &deleted); });
            line.step([&] { return tsgetfi32(theirs, 0, 0, &record, &deleted); });
        }
    });
    party self(terms(), 1);
    self.open();
    for (int i = 0; i < 3; ++i) self.add();
    const int32_t d = self.data();
    ASSERT_EQ(other.next(), 0);
    for (const lock_case& each : lock_cases) {
        SCOPED_TRACE(each.what);
        ASSERT_EQ(each.lock(d), each.locked);
        shared_record record;
        shared_record scratch;
        int32_t deleted = 0;
        EXPECT_EQ(tsgetd32(d, 2, &record, &deleted), TS_OK);
        EXPECT_EQ(tsupd32(d, 2, &record, 0, &deleted, &scratch, 0), TS_OK);
        EXPECT_EQ(tsdeld32(d, 2), TS_OK);
        EXPECT_EQ(tsundeld32(d, 2), TS_OK);
        EXPECT_EQ(tsgetfi32(d, 0, 0, &record, &deleted), TS_OK);
        EXPECT_EQ(tsgetni32(d, 0, 0, &record, &deleted), TS_OK);
        for (const int32_t expected : each.expected) EXPECT_EQ(other.next(), expected);
        if (each.unlock == nullptr) continue;
        EXPECT_EQ(each.unlock(d), TS_OK);
        EXPECT_EQ(each.unlock(d), TS_UNLOCK_NOT_HELD);
    }
    self.close();
}

} // namespace
} // namespace tarsil::support
