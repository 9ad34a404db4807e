// The one driver of failures on the simulated platform: a workload is one call of one function on
// prepared files, and every platform call that it makes fails in turn, in every way that a call of
// its kind can fail: once, until the caller has given up trying, and with all that come after it.
//
// What has to follow is told by tests/unit/fault_sites.h and by the log of the run without
// failures: the code; the ranges that stay; that the table of ranges is that of the platform; that
// every open handle has an owner; that the files hold exactly what was written before the failure;
// that everything can be released and closed afterwards, and no block of memory is left; and that
// the checkers then find nothing but what the workload allows.
//
// TARSIL32_FAULT_ROUNDS says how often all that is done, each time with other records, and
// TARSIL32_FAULT_SEED with which.
#pragma once

#include "check/index_check.h"
#include "tests/support/library_fixture.h"
#include "tests/unit/fault_sites.h"

#include <map>

namespace tarsil::support {

using file_images = std::map<std::string, std::string>;

// What a failed call may leave for the checkers to find.
enum class leaves : uint8_t {
    sound_files,
    counts_behind, // of the header: D5, D7
    keys_behind,   // and entries of keys
    half_purged    // anything, but no live record is lost
};

struct workload {
    const char* function; // the one called
    std::string title;
    std::function<void()> build; // makes the files, through the library, and closes them
    std::function<void()> open;  // what stands before the call, each time
    std::function<int32_t()> call;
    int32_t success = TS_OK;
    leaves allowed = leaves::sound_files;
};

// The run without failures.
struct reference {
    const workload& work;
    mode in_mode;
    file_images built, before, at_end; // before: right before the call
    std::vector<sim::range> held_before, held_at_end;
    size_t open_before = 0, open_at_end = 0;
    size_t blocks_before = 0, blocks_at_end = 0;
    std::vector<fault_site> sites;

    reference(const workload& the_work, mode the_mode) : work(the_work), in_mode(the_mode) {}
};

struct failed_call {
    const reference& run;
    size_t at; // of run.sites, the first to fail
    sim::fault planned;
    int32_t code = 0;

    const fault_site& site() const { return run.sites[at]; }
    bool lasts() const { return planned.times == sim::for_good; }
    bool is_retried() const; // as often as it takes
    // The call that failed ends the function, with its code.
    bool ends_call() const { return !site().passed_over && !site().goes_on && !is_retried(); }
};

struct found_files {
    check::data_report data;
    std::map<std::string, check::index_report> indexes;
};

class FaultSweep : public Library {
protected:
    void sweep_workload(const workload& work, mode in_mode);

    // What a test looks at beside, right behind the call and in the files that it left.
    virtual void look_at_reference(const reference&) {}
    virtual void look_at_state(const failed_call&) {}
    virtual void look_at_files(const failed_call&, const found_files&) {}

    // Work goes on in the same session, under the ranges that the caller holds, and then in another
    // one: nothing goes over a live record, and what is answered with 0 is found in the first key
    // of every index.
    static void go_on_adding(const failed_call& failed, std::string (*record_of)(int32_t number));

    uint64_t failures_made = 0;
    uint64_t failures_every_ = 1; // of the calls, beginning with another one in each workload

private:
    uint64_t turn_ = 0;   // of workloads; in every other one nodes are read, not looked at
    file_images written_; // by the calls in front of the one that fails
    std::map<file_images, found_files> checked_;

    void start_with(const file_images& files, mode in_mode);
    static void let_go(); // of ranges, files and memory, as a caller does
    void run_without_failure(reference& run);
    void fail(const failed_call& planned);
    void judge_files(const failed_call& failed, const file_images& files);
    static void judge_findings(leaves allowed, const found_files& found);
    void work_on(const file_images& files, int64_t damage);
    const found_files& find_in(const file_images& files, leaves allowed);
};

} // namespace tarsil::support
