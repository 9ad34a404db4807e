// The library on real files while the system fails underneath: the n-th system call of a kind, for
// each n, once and for good, in all modes. What is interrupted or done in part must not show at
// all; every other failure ends in a code, with all that was acknowledged in the file, all closed,
// and nothing that couldn't be opened again.
//
// TARSIL32_FAULT_ROUNDS=1 lets every call fail, else one in so many.
#include "core/tables.h"
#include "core/validators.h"
#include "tarsil32_text.h"
#include "tests/files/system_calls.h"
#include "tests/support/checked.h"
#include "tests/support/platform_files.h"
#include "tests/support/settings.h"
#include "tests/support/temp_folder.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>

namespace tarsil {
namespace {

using namespace support;

int32_t record_bytes = 13; // many in one mode, so that the file is one that grows ahead

struct run {
    int32_t code = TS_OK;
    std::vector<std::string> stored; // acknowledged, in their order
    std::string data, index;         // the files at the end
};

std::string record_of(int32_t number)
{
    std::string record(static_cast<size_t>(record_bytes), '.');
    std::memcpy(record.data(), &number, sizeof number);
    return record;
}

int32_t add(run& done, int32_t number)
{
    const int32_t code = tsadd32(0, record_of(number).data(), record_bytes, 'n');
    if (code == TS_OK) done.stored.push_back(record_of(number));
    return code;
}

int32_t open_again(const temp_folder& folder)
{
    char cursors[] = "y";
    const int32_t code = tsopend32(folder.file("d").c_str());
    return code < 0 ? code : tsopeni32(code, folder.file("i").c_str(), cursors);
}

// Stops at the first failure, as a careful program does.
int32_t work(const temp_folder& folder, run& done)
{
    std::string body(static_cast<size_t>(record_bytes), ' ');
    int32_t deleted = 0;
    const int32_t wanted = 20;
    key_definition key = {'y', {}, 2, 1, 0, {'l'}, {}, {}};
    const std::function<int32_t()> steps[] = {
        [&] { return tscrdata32(folder.file("d").c_str(), record_bytes, 0, nullptr); },
        [&] { return tscrind32(0, folder.file("i").c_str(), 1, &key); },
        [&] { return add(done, 40); },
        [&] { return add(done, 10); },
        [&] { return add(done, 70); },
        [&] { return add(done, 20); },
        [&] { return add(done, 60); },
        [&] { return add(done, 30); },
        [] { return tsdeld32(0, 2); },
        [] { return tsclosed32(0); },
        [&] { return open_again(folder); },
        [] { return tsundeld32(0, 2); },
        [&] { return add(done, 50); },
        [&] { return tsgeti32(0, 0, 0, &wanted, body.data(), &deleted); },
        [&] { return tsupd32(0, 3, record_of(70).data(), record_bytes, &deleted, body.data(), 0); },
        [&] { return tsgetli32(0, 0, 0, body.data(), &deleted); },
        [] { return tsclosed32(0); },
    };
    for (const auto& step : steps) {
        const int32_t code = step();
        if (code < 0) return code;
    }
    return TS_OK;
}

void let_go()
{
    tsautoup32('n'); // a flush that has failed once fails for good
    if (check_data_slot(0) == TS_OK) {
        if (is_shared()) { EXPECT_GE(tsulalld32(0), 0); }
        if (is_shared() && data_slots[0].indexes[0] != nullptr) { EXPECT_GE(tsulalli32(0, 0), 0); }
        EXPECT_EQ(tsclosed32(0), TS_OK);
    }
    tsfree32();
}

run run_in(bool shared, bool through)
{
    const temp_folder folder;
    run done;
    std::memset(static_cast<void*>(data_slots), 0, sizeof data_slots);
    EXPECT_EQ(tsinit32(), TS_STARTED);
    if (shared) { EXPECT_EQ(tsmuser32('y'), TS_OK); }
    tsautoup32(through ? 'y' : 'n');
    done.code = work(folder, done);
    planned.left = 0;
    let_go();
    done.data = file_bytes(folder.file("d"));
    done.index = file_bytes(folder.file("i"));

    EXPECT_EQ(tsinit32(), TS_STARTED);
    if (!done.stored.empty()) { EXPECT_EQ(open_again(folder), 0); }
    let_go();
    return done;
}

// What has gone well in spite of the failure has left nothing out of step.
void judge(const run& done)
{
    if (done.code == TS_OK) {
        EXPECT_TRUE(check_data(done.data).findings.is_sound());
        EXPECT_TRUE(check_index(done.index, done.data).is_sound());
    }
    EXPECT_TRUE(done.code >= 0 || tarsil32_code_name(done.code) != std::string("unknown"));
    if (done.data.empty()) {
        EXPECT_TRUE(done.stored.empty());
        return;
    }
    const check::data_report data = check_data(done.data);
    EXPECT_EQ(data.findings.count(check::severity::damage), 0);
    EXPECT_GE(data.records + data.tail_records, static_cast<int64_t>(done.stored.size()));
    for (size_t n = 0; n < done.stored.size(); ++n)
        EXPECT_TRUE(done.data.substr(36 + n * (done.stored[n].size() + 8), done.stored[n].size()) ==
                    done.stored[n])
            << n;
    if (done.index.empty()) return;
    for (const check::key_report& key : check_index(done.index, done.data).keys)
        EXPECT_EQ(key.findings.count(check::severity::damage),
                  key.findings.count(check::invariant::I8));
}

TEST(SystemFaults, EveryCallInEveryModeFails)
{
    const struct {
        system_call kind;
        int error; // 0: half a transfer
        bool shows;
    } rows[] = {
        {system_call::read, EINTR, false}, {system_call::read, 0, false},
        {system_call::read, EIO, true},    {system_call::write, EINTR, false},
        {system_call::write, 0, false},    {system_call::write, ENOSPC, true},
        {system_call::lock, EINTR, false}, {system_call::lock, ENOLCK, true},
        {system_call::flush, EIO, true},   {system_call::flush, EINTR, false},
        {system_call::facts, EIO, true},   {system_call::open, EINTR, false},
        {system_call::open, EMFILE, true}, {system_call::link, EIO, true},
        {system_call::map, ENOMEM, false}, {system_call::room, ENOSPC, true},
        {system_call::cut, EIO, true},     {system_call::sync, EIO, true},
        {system_call::sync, EINTR, false},
    };
    const uint64_t every = setting("TARSIL32_FAULT_ROUNDS", 0) > 0 ? 1 : 23;
    std::array<long long, std::size(rows)> failures = {};
    uint64_t turn = 0;
    for (const int mode : {0, 1, 2, 3, 4}) {
        record_bytes = mode < 4 ? 13 : 300000;
        const bool shared = mode / 2 == 1;
        const bool through = mode % 2 == 1;
        const run whole = run_in(shared, through);
        ASSERT_EQ(whole.code, TS_OK);
        const size_t descriptors = names_in("/proc/self/fd");
        for (size_t i = 0; i < std::size(rows); ++i) {
            const auto& r = rows[i];
            for (const bool for_good : {false, true}) {
                if (for_good && !r.shows && r.error != 0 && r.kind != system_call::map) continue;
                for (uint64_t n = 1; !HasFailure(); n += n == 1 ? 1 + turn++ % every : every) {
                    SCOPED_TRACE(testing::Message()
                                 << "mode " << mode << ", kind " << static_cast<int>(r.kind) << ", "
                                 << strerror(r.error) << ", call " << n
                                 << (for_good ? " and all behind" : ""));
                    planned = {r.kind, n, for_good, r.error, 0};
                    const run done = run_in(shared, through);
                    if (planned.met == 0) break;
                    ++failures[i];
                    judge(done);
                    EXPECT_EQ(names_in("/proc/self/fd"), descriptors);
                    if (r.shows) continue;
                    EXPECT_EQ(done.code, TS_OK);
                    EXPECT_TRUE(done.data == whole.data && done.index == whole.index);
                }
            }
        }
    }
    long long all = 0;
    for (size_t i = 0; i < std::size(rows); ++i) {
        all += failures[i];
        const system_call kind = rows[i].kind;
        const bool is_by_call = kind == system_call::read;
        const bool is_for_maps = kind == system_call::map || kind == system_call::room;
        EXPECT_EQ(failures[i] > 0, is_built_to_map ? !is_by_call : !is_for_maps) << "row " << i;
    }
    tell_total("failures of system calls", all);
}

} // namespace
} // namespace tarsil
