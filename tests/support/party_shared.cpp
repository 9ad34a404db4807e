// What parties share: records and their sums, the ledger, and repeating what is refused. What must
// hold is asked by ensure and must, whose text goes to the error output of the child before it
// ends, as the test that waits for the child sees no more than that it has failed. The pauses of
// repeat are drawn anew in each process, so that two that refuse each other fall out of step; they
// begin short, since most ranges are held for a few system calls only.
#include "tests/support/party.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <thread>

namespace tarsil::support {

uint32_t sum_of(const shared_record& record)
{
    uint32_t sum = 2166136261U;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
    for (int32_t i = 0; i < record.length; ++i) {
        const bool is_sum = i >= static_cast<int32_t>(offsetof(shared_record, sum)) &&
                            i < shortest_record;
        if (!is_sum) sum = (sum ^ bytes[i]) * 16777619U;
    }
    return sum;
}

bool is_one_of(int32_t code, std::initializer_list<int32_t> codes)
{
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

bool is_whole(const shared_record& record)
{
    return record.length >= shortest_record &&
           record.length <= static_cast<int32_t>(sizeof record) && record.sum == sum_of(record);
}

std::atomic<int32_t>& ledger::of(const shared_record& record)
{
    ensure(record.owner >= 0 && record.owner < most_owners && record.serial > 0 &&
               record.serial < most_serials,
           "a record of nobody");
    return versions[record.owner][record.serial];
}

void ensure(bool holds, const char* what)
{
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    throw std::runtime_error(what);
}

int32_t must(int32_t code, const char* what, std::initializer_list<int32_t> others)
{
    if (code >= 0 || is_one_of(code, others)) return code;
    std::fprintf(stderr, "%d from ", static_cast<int>(code));
    ensure(false, what);
    return code;
}

int32_t repeat(const std::function<int32_t()>& call, work_done* done)
{
    int32_t code = call();
    if (code != TS_LOCK_REFUSED) return code;
    thread_local std::minstd_rand pauses(std::random_device{}());
    const auto begin = std::chrono::steady_clock::now();
    for (unsigned longest = 20; code == TS_LOCK_REFUSED; longest = std::min(2 * longest, 2000U)) {
        if (done != nullptr) ++done->refused;
        std::this_thread::sleep_for(std::chrono::microseconds(pauses() % longest));
        if (std::chrono::steady_clock::now() - begin > std::chrono::seconds(60))
            must(code, "a call, for a minute");
        code = call();
    }
    return code;
}

void start_shared()
{
    must(tsinit32(), "start");
    must(tsmuser32('y'), "multi-user mode");
}

int32_t open_shared(const std::string& name)
{
    const auto open = [&] {
        const int32_t code = tsopend32(name.c_str());
        return code == TS_OPEN_DATA_LOCK_FAILED ? int32_t{TS_LOCK_REFUSED} : code;
    };
    return must(repeat(open), "open");
}

} // namespace tarsil::support
