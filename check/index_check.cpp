#include "check/index_check.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "check/tree_check.h"

namespace tarsil::check {

namespace {

constexpr unsigned char expected_version = 0x2A;

// I1. key_count is what keys are read by, so it comes with the mark.
bool read_key_count(file_bytes& file, index_report& report)
{
    std::string wrong;
    int64_t offset = 0;
    const byte_span start = file.at(0, first_node_offset);
    if (start.empty()) {
        wrong = "The file is shorter than the key records of an index file.";
    } else if (std::memcmp(start.data() + 1, index_magic, sizeof index_magic) != 0) {
        wrong = "The file doesn't begin with the mark of an index file.";
    } else if (start[0] != expected_version) {
        wrong = "The version byte of the index file isn't 0x2A.";
    } else {
        report.key_count = load_i32(start.data() + key_count_offset);
        if (report.key_count >= 0 && report.key_count <= TS_MAX_KEYS) return true;
        wrong = "The file tells " + std::to_string(report.key_count) + " keys; 0 to 8 can be.";
        offset = key_count_offset;
    }
    report.findings.add({invariant::I1,
                         severity::damage,
                         offset == 0 ? remedy::none : remedy::reindex,
                         {.offset = offset},
                         std::move(wrong)});
    return false;
}

bool is_right_length(const key_field& field)
{
    if (field.type != 's') return field.length == fixed_field_length(field.type);
    return field.length >= 1 && field.length <= TS_MAX_STRING_FIELD;
}

// I2. What is wrong with a key record, or nothing.
std::string fault_of(const key_record& key)
{
    if (key.field_count < 1 || key.field_count > TS_MAX_KEY_FIELDS) {
        return "The key has " + std::to_string(key.field_count) + " fields; 1 to 16 can be.";
    }
    int32_t sum = 0;
    for (int32_t i = 0; i < key.field_count; ++i) {
        const std::string field = "Field " + std::to_string(i + 1) + " of the key ";
        if (fixed_field_length(key.fields[i].type) == unknown_letter) {
            return field + "has none of the ten letters.";
        }
        if (!is_right_length(key.fields[i])) {
            return field + "has the length " + std::to_string(key.fields[i].length) +
                   ", which doesn't go with its letter.";
        }
        sum += key.fields[i].length;
    }
    if (key.entry_key_bytes != sum + 4) {
        return "The packed key is told as " + std::to_string(key.entry_key_bytes) +
               " bytes; the fields make it " + std::to_string(sum + 4) + ".";
    }
    if (key.max_entries < min_entries || key.max_entries % 2 != 0) {
        return "Nodes are told to have room for " + std::to_string(key.max_entries) +
               " entries, which isn't an even number of 4 or more.";
    }
    const int64_t size = node_size(key.max_entries, sum, key.field_count);
    if (key.node_bytes != size) {
        return "Nodes are told to have " + std::to_string(key.node_bytes) +
               " bytes; the fields and the order make it " + std::to_string(size) + ".";
    }
    return {};
}

void check_key(file_bytes& file, taken_bytes& taken, const data_side* data, int32_t precision,
               int32_t key_number, key_report& report)
{
    const int64_t offset = key_records_offset + int64_t{key_number} * key_record_bytes;
    const byte_span stored = file.at(offset, key_record_bytes);
    if (stored.empty()) return;
    std::memcpy(&report.key, stored.data(), sizeof report.key);

    std::string fault = fault_of(report.key);
    if (!fault.empty()) {
        report.findings.add({invariant::I2,
                             severity::damage,
                             remedy::reindex,
                             {.offset = offset, .record = not_given, .key = key_number},
                             std::move(fault)});
        return;
    }
    report.is_walked = true;
    std::optional<entry_ledger> ledger;
    if (data != nullptr) ledger.emplace(*data, report.key, key_number, report);
    const tree_sides sides{file, taken, ledger ? &*ledger : nullptr, precision};
    check_tree(sides, key_number, report);
    if (ledger) ledger->close();
}

} // namespace

int32_t key_report::fill_percent() const
{
    const int64_t room = leaves * key.max_entries;
    return room > 0 ? static_cast<int32_t>(100 * entries / room) : 0;
}

bool index_report::is_sound() const
{
    return findings.is_sound() && std::all_of(keys.begin(), keys.end(), [](const key_report& key) {
               return key.findings.is_sound();
           });
}

index_report check_index_file(file_bytes& file, const data_side* data, int32_t precision)
{
    index_report report;
    report.file_size = file.size();
    report.has_data = data != nullptr;
    if (!read_key_count(file, report)) return report;
    report.is_index_file = true;

    taken_bytes taken(report.file_size);
    report.keys.resize(static_cast<size_t>(report.key_count));
    for (int32_t i = 0; i < report.key_count; ++i) {
        check_key(file, taken, data, precision, i, report.keys[static_cast<size_t>(i)]);
    }
    report.unreached_bytes = report.file_size - first_node_offset - taken.count();
    return report;
}

data_report check_data_image(byte_span data)
{
    file_bytes bytes(data);
    return check_data_file(bytes);
}

index_report check_index_image(byte_span index, byte_span data, int32_t precision)
{
    file_bytes index_bytes(index);
    if (data.empty()) return check_index_file(index_bytes, nullptr, precision);

    file_bytes data_bytes(data);
    frame_list frames;
    const bool is_walked = check_data_file(data_bytes, &frames).is_walked;
    const data_side side{data_bytes, frames};
    return check_index_file(index_bytes, is_walked ? &side : nullptr, precision);
}

} // namespace tarsil::check
