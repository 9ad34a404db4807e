// What the checkers find in the files that a failure has left; see tests/unit/fault_sweep.h.
#include "check/report_text.h"
#include "tests/support/checked.h"
#include "tests/unit/fault_sweep.h"

namespace tarsil::support {
namespace {

found_files check_all(const file_images& files)
{
    found_files found;
    if (files.count("d") == 0) return found;
    const std::string& data = files.at("d");
    found.data = check_data(data);
    for (const auto& [name, bytes] : files) {
        if (!is_data(name)) found.indexes.emplace(name, check_index(bytes, data));
    }
    return found;
}

int64_t damage_in(const found_files& found)
{
    int64_t count = found.data.findings.count(check::severity::damage);
    for (const auto& [name, report] : found.indexes) {
        for (const check::key_report& key : report.keys)
            count += key.findings.count(check::severity::damage);
    }
    return count;
}

} // namespace

// What is left can be opened and added to, and gets no worse by it.
void FaultSweep::work_on(const file_images& files, int64_t damage)
{
    if (files.count("d") == 0) return;
    start_with(files, mode::single);
    EXPECT_EQ(tsopend32("d"), 0);
    char cursors[] = "yyyyyyyy";
    for (const auto& [name, bytes] : files) {
        if (!is_data(name)) { EXPECT_GE(tsopeni32(0, name.c_str(), cursors), 0); }
    }
    const std::string record(16, 'q');
    // A branch whose right half has found no parent has no child for values behind it.
    const int32_t code = tsadd32(0, record.data(), 13, 'y');
    EXPECT_TRUE(code == TS_OK || (damage > 0 && code == TS_NODE_DAMAGED)) << code;
    finish();
    EXPECT_LE(damage_in(check_all(sim::files())), damage);
}

const found_files& FaultSweep::find_in(const file_images& files, leaves allowed)
{
    const auto known = checked_.find(files);
    if (known != checked_.end()) return known->second;
    const found_files& found = checked_[files] = check_all(files);
    if (allowed != leaves::half_purged) work_on(files, damage_in(found));
    return found;
}

void FaultSweep::judge_findings(leaves allowed, const found_files& found)
{
    const check::finding_list& data = found.data.findings;
    if (allowed == leaves::half_purged) return;
    if (allowed == leaves::sound_files) { EXPECT_TRUE(data.is_sound()) << lines_of(data); }
    EXPECT_EQ(data.count(check::severity::damage), 0) << lines_of(data);
    EXPECT_EQ(data.total() - data.count(check::severity::note),
              data.count(check::severity::out_of_step))
        << lines_of(data);
    for (const auto& [name, report] : found.indexes) {
        EXPECT_TRUE(report.is_index_file && report.findings.is_sound()) << name;
        for (const check::key_report& key : report.keys) {
            const check::finding_list& of_key = key.findings;
            if (allowed != leaves::keys_behind) {
                EXPECT_TRUE(of_key.is_sound()) << lines_of(of_key);
            }
            // A branch whose right half has found no parent; entries that lack or lead elsewhere.
            EXPECT_EQ(of_key.count(check::severity::damage), of_key.count(check::invariant::I8))
                << lines_of(of_key);
        }
    }
}

} // namespace tarsil::support
