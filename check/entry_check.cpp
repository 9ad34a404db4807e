#include "check/entry_check.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tarsil::check {

namespace {

constexpr int32_t none_differs = -1;
constexpr size_t batch_bytes = 16 * 1024 * 1024; // entries and their images

// Keys hold zeros where their definition reaches beyond the record.
unsigned char byte_or_zero(byte_span body, int64_t at)
{
    return at >= 0 && at < std::ssize(body) ? body[static_cast<size_t>(at)] : 0;
}

// An update in place keeps the entry when only bytes behind the end of a string have changed. A
// field that begins in front of the record holds nothing of it.
bool is_field_of(const key_field& field, const unsigned char* image, byte_span body)
{
    if (field.offset < 0) body = {};
    for (int32_t i = 0; i < field.length; ++i) {
        if (image[i] != byte_or_zero(body, int64_t{field.offset} + i)) return false;
        if (field.type == 's' && image[i] == 0) return true;
    }
    return true;
}

} // namespace

entry_ledger::entry_ledger(const data_side& data_file, const key_record& checked_key,
                           int32_t number, key_report& key_findings)
    : data(data_file), key(checked_key), key_number(number), report(key_findings),
      met(static_cast<size_t>(data_file.frames.count()))
{
    for (int32_t i = 0; i < key.field_count; ++i) {
        needed = std::max(needed, int64_t{key.fields[i].offset} + key.fields[i].length);
    }
    needed = std::min(needed, data.frames.longest_body);
}

void entry_ledger::add(const place& where, std::string text, remedy mended_by)
{
    report.findings.add({invariant::I11, severity::out_of_step, mended_by, where, std::move(text)});
}

// The first field, from 1, in which a key image and the record at `frame_offset` differ.
int32_t entry_ledger::differing_field(const unsigned char* image, int64_t frame_offset)
{
    const byte_span frame = data.bytes.up_to(frame_offset, frame_bytes + needed);
    if (frame.size() < frame_bytes) return none_differs;
    const int64_t length = load_i32(frame.data() + offsetof(record_frame, length));
    byte_span body = frame.subspan(frame_bytes);
    body = body.first(std::min(body.size(), static_cast<size_t>(length)));

    for (int32_t i = 0; i < key.field_count; ++i) {
        if (!is_field_of(key.fields[i], image, body)) return i + 1;
        image += key.fields[i].length;
    }
    return none_differs;
}

void entry_ledger::enter(const unsigned char* entry, int64_t entry_offset)
{
    const int32_t link = entry_link(entry);
    const int64_t index = data.frames.index_at(link);
    place where{.offset = entry_offset, .record = not_given, .key = key_number};
    if (index < 0) {
        add(where, "The entry leads to " + std::to_string(link) + ", where no record begins.");
        return;
    }
    where.record = index + 1;
    if (index >= data.frames.listed) ++tail_entries;
    if (met[static_cast<size_t>(index)]) {
        add(where, "The record has a second entry here.");
        return;
    }
    met[static_cast<size_t>(index)] = true;

    const unsigned char* image = packed_key(entry);
    const size_t image_bytes = static_cast<size_t>(key.entry_key_bytes) - sizeof(int32_t);
    batch.push_back({link, static_cast<int32_t>(entry_offset), images.size()});
    images.insert(images.end(), image, image + image_bytes);
    if (images.size() + batch.size() * sizeof(waiting) > batch_bytes) compare_batch();
}

void entry_ledger::compare_batch()
{
    std::sort(batch.begin(), batch.end(),
              [](const waiting& a, const waiting& b) { return a.frame < b.frame; });
    for (const waiting& one : batch) {
        const int32_t field = differing_field(images.data() + one.image, one.frame);
        if (field == none_differs) continue;
        add({.offset = one.entry, .record = data.frames.index_at(one.frame) + 1, .key = key_number},
            "Key field " + std::to_string(field) + " of the entry isn't that of the record.");
    }
    batch.clear();
    images.clear();
}

void entry_ledger::close()
{
    compare_batch();
    for (int64_t i = 0; i < data.frames.listed; ++i) {
        if (met[static_cast<size_t>(i)]) continue;
        ++report.missing_entries;
        add({.offset = not_given, .record = i + 1, .key = key_number},
            "The record at " + std::to_string(data.frames.offset_of(i)) + " has no entry.");
    }
    if (tail_entries == 0) return;
    add({.offset = not_given, .record = not_given, .key = key_number},
        std::to_string(tail_entries) +
            " entries lead to records behind the end that the data file's header tells.",
        remedy::repair_header);
}

} // namespace tarsil::check
