// What the checkers find in the files that a failure has left; see tests/unit/fault_sweep.h.
#include "check/report_text.h"
#include "index/slots.h"
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

void FaultSweep::go_on_adding(const failed_call& failed, std::string (*record_of)(int32_t number))
{
    if (failed.run.held_before.empty()) release_ranges();
    tsautoup32('n');
    const std::string& data = sim::bytes("d");
    // Others can't know of a record that the header in the file doesn't count.
    const int32_t end = is_shared() ? load_i32(data.data() + 16) : data_slots[0].header.end_offset;
    const auto before = frames_in(data, static_cast<size_t>(end));
    // A split that failed half way can leave a branch without a child for what is behind it.
    const bool may_be_damaged = !is_data(failed.site().call.file);
    std::vector<int32_t> numbers = {77, 15, 66, 64, 33, 65, 105, 46, 47, -2};
    // Further splits write what the failed one has left unwritten.
    if (failed.planned.how == sim::failure::error) numbers.resize(2);
    std::vector<std::string> stored;
    for (const int32_t number : numbers) {
        const std::string record = record_of(number);
        const int32_t code = tsadd32(0, record.data(), static_cast<int32_t>(record.size()), 'y');
        EXPECT_TRUE(code == TS_OK || (may_be_damaged && code == TS_NODE_DAMAGED)) << code;
        if (code == TS_OK) stored.push_back(record);
    }
    for (const auto& [place, whole] : before) {
        if (whole[0] == mark_deleted) continue;
        EXPECT_EQ(sim::bytes("d").substr(place, whole.size()), whole) << "at " << place;
    }

    release_ranges();
    EXPECT_EQ(tsclosed32(0), TS_OK);
    ASSERT_EQ(tsopend32("d"), 0);
    for (const auto& [name, image] : failed.run.before) {
        if (is_data(name)) continue;
        char cursors[] = "yyyyyyyy";
        const int32_t index = tsopeni32(0, name.c_str(), cursors);
        ASSERT_GE(index, 0);
        const auto first = static_cast<size_t>(key_of(0, index, 0).key_record.fields[0].offset);
        for (const std::string& record : stored) {
            char body[16];
            int32_t deleted = 0;
            EXPECT_EQ(tsgeti32(0, index, 0, record.data() + first, body, &deleted), TS_OK) << name;
            EXPECT_EQ(std::string(body, record.size()), record) << name;
        }
    }
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
