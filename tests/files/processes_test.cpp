// Several processes on the same files, in earnest: side by side without any order but that of the
// locks. Numbers of records and operations grow by TARSIL32_PROCESS_SCALE (1), for long rounds.
#include "check/report_text.h"
#include "tests/support/checked.h"
#include "tests/support/child_process.h"
#include "tests/support/file_parts.h"
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
};

// --- Mixed work ---------------------------------------------------------------------------------

// Whether every record in the file is whole and, under locks, what the ledger says, and there once.
void expect_records(const std::string& data, const agreement& terms)
{
    int64_t live = 0;
    std::set<std::pair<int32_t, int32_t>> met;
    for (const stored_record& one : records_in(data)) {
        shared_record record = {};
        std::memcpy(&record, one.body.data(), std::min(one.body.size(), sizeof record));
        ASSERT_TRUE(is_whole(record) && static_cast<size_t>(record.length) == one.body.size());
        if (terms.how == manner::bare) continue;
        const bool deleted = one.mark == 'd';
        live += !deleted;
        ASSERT_TRUE(met.insert({record.owner, record.serial}).second) << record.serial;
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
    const check::data_report report = check_data(data);
    EXPECT_EQ(report.findings.total() - report.findings.count(check::severity::note),
              bare ? report.findings.count(check::invariant::D7) : 0)
        << check::lines_of(report.findings);
    for (int32_t index = 0; index < party::index_files; ++index) {
        const std::string bytes = file_bytes(terms.folder + "/" + std::to_string(index));
        const check::index_report found = check_index(bytes, data);
        EXPECT_TRUE(found.findings.is_sound()) << check::lines_of(found.findings);
        EXPECT_EQ(found.keys.size(), index == 0 ? 2U : 1U);
        for (const check::key_report& key : found.keys) {
            EXPECT_EQ(key.findings.total() - key.findings.count(check::severity::note),
                      bare ? key.findings.count(check::invariant::I11) : 0)
                << check::lines_of(key.findings);
            EXPECT_TRUE(bare || key.entries == report.records);
        }
    }
    ASSERT_LE(static_cast<size_t>(report.header.end_offset), data.size());
    expect_records(data, terms);
    // Where nobody reuses a record, each add is a record more.
    EXPECT_LE(report.records, done.adds - done.purged);
    EXPECT_TRUE(terms.fixed || report.records == done.adds - done.purged) << report.records;
}

work_done four_at_work(const agreement& terms, int64_t operations)
{
    party first(terms, 0);
    first.create();
    first.close();
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
                const agreement agreed = {folder.path(), how, fixed,
                                          static_cast<uint32_t>(seed() * 1000 + round), book};
                expect_sound(agreed, four_at_work(agreed, operations));
                for (const auto& file : std::filesystem::directory_iterator(folder.path()))
                    std::filesystem::remove(file);
                if (HasFailure()) return;
            }
}

// --- One name, built by several at once ---------------------------------------------------------

// Each has its data file open when they all begin. Alone they have one each, with the same records.
// Who opens the name while it is built can get the build refused, and keep what there is of the
// file from being removed: then the name stays taken.
struct build_case {
    const char* what;
    bool is_shared;
    bool is_opened; // by one more, over and over, meanwhile
};
constexpr build_case build_cases[] = {
    {"alone", false, false}, {"shared", true, false}, {"shared, and opened", true, true}};
constexpr int32_t builders = 4;
constexpr int32_t records_to_build = 300;

class NameForAll : public Processes {
protected:
    std::atomic<int32_t>& ready = book->numbered[0];
    std::atomic<int32_t>* const answers = book->numbered + 1; // of each builder; not 0 once it has

    std::string data_of(const build_case& in, int32_t own) const
    {
        return folder.file(in.is_shared ? "d0" : "d" + std::to_string(own));
    }

    void open_and_wait(const build_case& in, int32_t own)
    {
        must(tsinit32(), "start");
        must(tsmuser32(in.is_shared ? 'y' : 'n'), "mode");
        open_shared(data_of(in, own));
        ++ready;
        while (ready < builders + in.is_opened) {}
    }

    void build(const build_case& in, int32_t own)
    {
        open_and_wait(in, own);
        key_definition key = define_key(4, {{'l'}}, 'n');
        int32_t record = 0;
        const int32_t code = tscrindd32(0, folder.file("i").c_str(), 1, &key, &record);
        answers[own] = code + (code >= 0);
        must(tsclosed32(0), "close");
    }

    // Until all have answered. A new file is empty at first; one being removed can't be opened.
    void open_meanwhile(const build_case& in)
    {
        open_and_wait(in, builders);
        const auto has_answered = [](const auto& answer) { return answer != 0; };
        while (!std::all_of(answers, answers + builders, has_answered)) {
            char cursor = 'n';
            const int32_t code = tsopeni32(0, folder.file("i").c_str(), &cursor);
            must(code, "open",
                 {TS_OPEN_INDEX_NOT_THERE, TS_OPEN_INDEX_FAILED, TS_LOCK_REFUSED,
                  TS_VERSION_READ_SHORT});
            if (code >= 0) must(tsclosei32(0, code), "close");
        }
        must(tsclosed32(0), "close");
    }
};

TEST_F(NameForAll, OneWhoBuildsItWinsAndTheOthersAreTold)
{
    start_shared();
    must(tscrdata32(folder.file("d0").c_str(), 4, 0, nullptr), "create");
    for (int32_t i = 0; i < records_to_build; ++i) {
        const int32_t number = i * 7919 % 1009;
        must(tsadd32(0, &number, 0, 'y'), "add");
    }
    must(tsclosed32(0), "close");
    tsfree32();
    const std::string data = file_bytes(folder.file("d0"));
    for (int32_t own = 1; own < builders; ++own)
        set_file_bytes(folder.file("d" + std::to_string(own)), data);

    for (int64_t round = 0; round < 8 * scale() && !HasFailure(); ++round)
        for (const build_case& in : build_cases) {
            SCOPED_TRACE(in.what);
            std::filesystem::remove(folder.file("i"));
            std::memset(static_cast<void*>(book), 0, sizeof *book);
            crew all;
            for (int32_t own = 0; own < builders; ++own)
                all.begin([&, own] { return build(in, own), work_done{}; });
            if (in.is_opened) all.begin([&] { return open_meanwhile(in), work_done{}; });
            all.finish();
            int32_t won = 0;
            for (int32_t own = 0; own < builders; ++own) {
                won += answers[own] > 0;
                EXPECT_TRUE(answers[own] > 0 ||
                            is_one_of(answers[own],
                                      {TS_CREATE_INDEX_FILE_EXISTS, TS_CREATE_INDEX_FAILED}) ||
                            (in.is_opened && answers[own] == TS_LOCK_REFUSED))
                    << answers[own];
            }
            EXPECT_TRUE(won == 1 || (in.is_opened && won == 0)) << won;
            if (won == 0) continue;
            const check::index_report report = check_index(file_bytes(folder.file("i")), data);
            EXPECT_TRUE(report.is_sound());
            ASSERT_EQ(report.keys.size(), 1U);
            EXPECT_EQ(report.keys[0].entries, records_to_build);
        }
}

} // namespace
} // namespace tarsil::support
