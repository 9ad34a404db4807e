// The operations on records and keys, and the comparison; see model_life.h.
#include "tests/unit/model_life.h"

#include "index/slots.h"
#include "tests/sim/sim.h"

#include <gtest/gtest.h>

namespace tarsil::model {

void life::same(int64_t expected, int64_t found, const char* what)
{
    if (expected == found || testing::Test::HasFailure()) return;
    ADD_FAILURE() << "seed " << seed << ", operation " << done << " (" << doing << "): " << what
                  << " is " << found << ", not " << expected;
}

int32_t life::given(int32_t code)
{
    const data_slot& slot = data_slots[d];
    file.given = {code, slot.header.record_count, slot.reuse_offset};
    return code;
}

void life::delivered(const outcome& told, int32_t deleted)
{
    if (told.number == 0) return;
    const record& wanted = file.numbered(told.number);
    same(wanted.deleted, deleted, "the deleted flag");
    same(0, buffer.compare(0, wanted.body.size(), wanted.body), "the body");
    const auto is_other = [](char byte) { return byte != untouched; };
    const auto behind = buffer.begin() + static_cast<ptrdiff_t>(wanted.body.size());
    same(0, std::count_if(behind, buffer.end(), is_other), "bytes written behind the body");
    buffer.assign(longest_body, untouched);
}

void life::same_state()
{
    const data_slot& slot = data_slots[d];
    same(file.count(), slot.header.record_count, "record_count");
    same(file.deleted_count(), slot.header.deleted_count, "deleted_count");
    same(file.end_offset(), slot.header.end_offset, "end_offset");
    same(file.current, slot.current_record, "the current record");
    same(file.noted, slot.reuse_offset, "the noted slot");
    if (file.current >= 1 && file.current <= file.count())
        same(file.numbered(file.current).offset, slot.current_offset, "the current offset");
    same(static_cast<int64_t>(own_ranges()), static_cast<int64_t>(sim::held_ranges()),
         "ranges held");
    for (const index_file& index : indexes) {
        if (index.handle < 0) continue;
        for (size_t i = 0; i < index.keys->size(); ++i) {
            const key& of = *(*index.keys)[i];
            const key_slot& key_slot = key_of(d, index.handle, static_cast<int32_t>(i));
            if (!of.has_cursor) continue;
            same(of.state != cursor_state::none, key_slot.position >= 0, "having a position");
        }
    }
}

size_t life::own_ranges() const
{
    return static_cast<size_t>(data_locked) + static_cast<size_t>(record_locked > 0) +
           indexes_locked.size();
}

bool life::choose_key(chosen_key& chosen)
{
    std::vector<const index_file*> open;
    for (const index_file& index : indexes)
        if (index.handle >= 0 && !index.keys->empty()) open.push_back(&index);
    if (open.empty()) return false;
    const index_file& index =
        *open[static_cast<size_t>(make.below(static_cast<int32_t>(open.size())))];
    chosen.index_handle = index.handle;
    chosen.number = make.below(static_cast<int32_t>(index.keys->size()));
    chosen.of = (*index.keys)[static_cast<size_t>(chosen.number)].get();
    return true;
}

// A value of a record as a rule, in a block of just that size.
std::string life::some_value(const key& of)
{
    const bool known = !file.records.empty() && make.happens(75);
    const std::string body = known ? file.numbered(1 + make.below(file.count())).body : some_body();
    std::string image = image_of(of.fields, body);
    image.shrink_to_fit();
    return image;
}

std::string life::some_body()
{
    if (file.is_fixed()) return make.body(file.record_length);
    return make.body(1 + make.below(static_cast<int32_t>(longest_body) - 20));
}

// --- Operations on records ----------------------------------------------------------------------

void life::add()
{
    if (file.count() >= most_records && make.happens(90))
        return make.happens(20) ? purge() : mark();
    const std::string body = some_body();
    const bool duplicates = make.happens(60);
    const int32_t length = file.is_fixed() ? make.below(3) - 1 : static_cast<int32_t>(body.size());
    for (index_file& index : indexes)
        if (index.handle < 0) index.complete = false;
    const int32_t code = given(tsadd32(d, body.data(), length, yes_or_no(duplicates)));
    same(file.add(body, duplicates), code, "the code");
    if (code == TS_OK) passed_over_rightly();
}

bool life::choose_name(chosen_key& chosen, name_of_record& name)
{
    name.how = static_cast<form>(make.below(4));
    name.number = make.below(file.count() + 2);
    if (name.how == form::number || name.how == form::current) return true;
    if (!choose_key(chosen)) return false;
    name.of = chosen.of;
    return name.how == form::value || chosen.of->state != cursor_state::lost;
}

void life::mark()
{
    chosen_key chosen;
    name_of_record name = {};
    if (!choose_name(chosen, name)) return;
    const std::string value = name.of == nullptr ? "" : some_value(*name.of);
    name.value = &value;
    const bool as_deleted = make.happens(60);
    const auto call = [&](auto by_number, auto at_current, auto by_value, auto at_cursor) {
        switch (name.how) {
        case form::number: return by_number(d, name.number);
        case form::current: return at_current(d);
        case form::value: return by_value(d, chosen.index_handle, chosen.number, value.data());
        default: return at_cursor(d, chosen.index_handle, chosen.number);
        }
    };
    const int32_t code = given(as_deleted ? call(tsdeld32, tsdelcd32, tsdeli32, tsdelci32)
                                          : call(tsundeld32, tsudelcd32, tsundeli32, tsudelci32));
    same(file.mark(name, as_deleted), code, "the code");
}

void life::update()
{
    chosen_key chosen;
    name_of_record name = {};
    if (!choose_name(chosen, name)) return;
    const std::string value = name.of == nullptr ? "" : some_value(*name.of);
    name.value = &value;
    const std::string base = file.records.empty()
                                 ? some_body()
                                 : file.numbered(1 + make.below(file.count())).body;
    std::string body = make.changed(base);
    if (!file.is_fixed() && make.happens(80)) {
        // Of the length of the record itself, where that can be known.
        if (name.how == form::number && name.number >= 1 && name.number <= file.count())
            body = make.changed(file.numbered(name.number).body);
        if (name.how == form::current && file.current >= 1 && file.current <= file.count())
            body = make.changed(file.numbered(file.current).body);
    }
    const auto length = static_cast<int32_t>(body.size());
    const int32_t mode = make.below(5) - 1;
    for (index_file& index : indexes)
        if (index.handle < 0) index.complete = false;
    int32_t deleted = -1;
    char* const scratch = buffer.data();
    const int32_t index = chosen.index_handle;
    const int32_t number = chosen.number;
    const void* bytes = body.data();
    const auto call = [&] {
        switch (name.how) {
        case form::number: return tsupd32(d, name.number, bytes, length, &deleted, scratch, mode);
        case form::current: return tsupcd32(d, bytes, length, &deleted, scratch, mode);
        case form::value:
            return tsupi32(d, index, number, value.data(), bytes, length, &deleted, scratch, mode);
        default: return tsupci32(d, index, number, bytes, length, &deleted, scratch, mode);
        }
    };
    const int32_t code = given(call());
    const int32_t count_before = file.count();
    std::vector<bool> marks;
    for (const record& each : file.records) marks.push_back(each.deleted);
    const outcome told = file.update(name, body, mode);
    same(told.code, code, "the code");
    if (told.number > 0 && told.number <= count_before)
        same(marks[static_cast<size_t>(told.number - 1)], deleted, "the deleted flag");
    if (code == 1) passed_over_rightly();
    buffer.assign(longest_body, untouched);
}

void life::purge()
{
    int32_t removed = -1;
    for (int32_t number = make.happens(15) ? file.count() : 0; number > 0; --number)
        same(file.mark({form::number, number}, true), tsdeld32(d, number), "the code of a delete");
    const int32_t code = given(tspurge32(d, buffer.data(), &removed));
    buffer.assign(longest_body, untouched);
    if (record_locked > 0) return same(TS_LOCK_REFUSED, code, "the code of a purge");
    int32_t gone = 0;
    same(file.purge(gone), code, "the code of a purge");
    if (code != TS_OK) return;
    same(gone, removed, "the number of records removed");
    std::erase_if(indexes, [](const index_file& index) { return index.handle < 0; });
    for (index_file& index : indexes) index.complete = true;
}

// --- Reading ------------------------------------------------------------------------------------

void life::navigate()
{
    static constexpr struct {
        int32_t (*call)(int32_t, void*, int32_t*);
        outcome (*expected)(data_file&);
        bool from_current;
    } reads[] = {
        {tsgetfd32, [](data_file& of) { return of.first(); }, false},
        {tsgetld32, [](data_file& of) { return of.last(); }, false},
        {tsgetpd32, [](data_file& of) { return of.previous(); }, false},
        {tsgetnd32, [](data_file& of) { return of.next(); }, true},
        {tsgetcd32, [](data_file& of) { return of.here(); }, true},
    };
    int32_t deleted = -1;
    int32_t number = make.below(file.count() + 3) - 1;
    const auto what = static_cast<size_t>(make.below(7));
    outcome told = {};
    int32_t code = 0;
    if (what < std::size(reads)) {
        if (is_current_astray() && reads[what].from_current) return;
        code = reads[what].call(d, buffer.data(), &deleted);
        told = reads[what].expected(file);
    } else if (what == std::size(reads)) {
        code = tsgetd32(d, number, buffer.data(), &deleted);
        told = file.by_number(number);
    } else {
        if (is_current_astray()) return;
        int32_t length = -1;
        code = tsrecd32(d, &number, &deleted, &length);
        told = file.here();
        if (told.number > 0) {
            const std::string& body = file.numbered(told.number).body;
            same(told.number, number, "the number");
            same(static_cast<int64_t>(body.size()), length, "the length");
            buffer.replace(0, body.size(), body);
        }
    }
    same(told.code, code, "the code");
    delivered(told, deleted);
}

void life::find()
{
    chosen_key chosen;
    if (!choose_key(chosen)) return;
    const std::string value = some_value(*chosen.of);
    int32_t deleted = -1;
    const int32_t code = given(
        tsgeti32(d, chosen.index_handle, chosen.number, value.data(), buffer.data(), &deleted));
    const outcome told = file.find(*chosen.of, chosen.of->whole(value), TS_FIND_NO_ENTRY);
    same(told.code, code, "the code");
    delivered(told, deleted);
}

void life::find_part()
{
    chosen_key chosen;
    if (!choose_key(chosen)) return;
    key& of = *chosen.of;
    const bool nearest = make.happens(60);
    if (nearest && of.entries.empty() && of.state == cursor_state::lost) return;
    const auto fields = static_cast<int32_t>(of.fields.size());
    const int32_t count = make.happens(3) ? make.below(2) * (fields + 1) : 1 + make.below(fields);
    const bool counts = count >= 1 && count <= fields;
    const field last = of.fields[counts ? static_cast<size_t>(count - 1) : 0];
    int32_t length = 1 + make.below(last.length);
    if (make.happens(3)) length = make.below(2) * (last.length + 1);
    const bool long_enough = last.type != 's' || (length >= 1 && length <= last.length);

    // No byte of the value but those that count.
    std::string value = some_value(of);
    if (counts && long_enough) {
        size_t needed = static_cast<size_t>(last.type == 's' ? length : last.length);
        for (int32_t i = 0; i + 1 < count; ++i)
            needed += static_cast<size_t>(of.fields[static_cast<size_t>(i)].length);
        value.resize(needed);
        value.shrink_to_fit();
    }
    int32_t deleted = -1;
    const int32_t i = chosen.index_handle;
    const int32_t k = chosen.number;
    const auto last_length = static_cast<uint32_t>(length);
    const int32_t code = given(
        nearest ? tsgetipp32(d, i, k, value.data(), count, last_length, buffer.data(), &deleted)
                : tsgetip32(d, i, k, value.data(), count, last_length, buffer.data(), &deleted));
    if (!counts)
        return same(nearest ? TS_NEAREST_BAD_FIELD_COUNT : TS_PARTIAL_BAD_FIELD_COUNT, code,
                    "the code");
    if (!long_enough)
        return same(nearest ? TS_NEAREST_BAD_LENGTH : TS_PARTIAL_BAD_LENGTH, code, "the code");
    const part wanted = {value, static_cast<size_t>(count), length};
    const outcome told = nearest ? file.nearest(of, wanted)
                                 : file.find(of, wanted, TS_PARTIAL_NO_ENTRY);
    same(told.code, code, "the code");
    delivered(told, deleted);
}

namespace {

// A step of a cursor, by the library and by the model.
struct key_step {
    int32_t (*call)(int32_t, int32_t, int32_t, void*, int32_t*);
    outcome (*expected)(data_file&, key&);
};
constexpr key_step to_first = {tsgetfi32, [](data_file& f, key& k) { return f.to_end(k, false); }};
constexpr key_step to_last = {tsgetli32, [](data_file& f, key& k) { return f.to_end(k, true); }};
constexpr key_step stay = {tsgetci32, [](data_file& f, key& k) { return f.at_cursor(k); }};
constexpr key_step forth = {tsgetni32, [](data_file& f, key& k) { return f.step(k, true); }};
constexpr key_step back = {tsgetpi32, [](data_file& f, key& k) { return f.step(k, false); }};

} // namespace

void life::step()
{
    static constexpr key_step steps[] = {to_first, to_last, stay, forth, forth,
                                         forth,    forth,   back, back,  back};
    chosen_key chosen;
    if (!choose_key(chosen)) return;
    key& of = *chosen.of;
    auto what = static_cast<size_t>(make.below(10));
    if (of.state == cursor_state::lost) {
        if (of.entries.empty()) return;
        what %= 2;
    }
    int32_t deleted = -1;
    const int32_t code = steps[what].call(d, chosen.index_handle, chosen.number, buffer.data(),
                                          &deleted);
    const outcome told = steps[what].expected(file, of);
    same(told.code, code, "the code");
    delivered(told, deleted);
}

// All entries of a key, there or back.
void life::walk_all()
{
    chosen_key chosen;
    if (!choose_key(chosen) || !chosen.of->has_cursor || chosen.of->entries.empty()) return;
    const auto [i, k, of] = chosen;
    const bool forward = make.happens(50);
    const key_step onward = forward ? forth : back;
    int32_t deleted = -1;
    int32_t code = (forward ? to_first : to_last).call(d, i, k, buffer.data(), &deleted);
    outcome told = file.to_end(*of, !forward);
    size_t steps = 0;
    while (code == TS_OK && code == told.code && ++steps <= of->entries.size()) {
        delivered(told, deleted);
        code = onward.call(d, i, k, buffer.data(), &deleted);
        told = onward.expected(file, *of);
    }
    same(forward ? TS_NEXT_ENTRY_AT_END : TS_PREVIOUS_ENTRY_AT_START, code, "the code");
    same(static_cast<int64_t>(of->entries.size()), static_cast<int64_t>(steps),
         "the number of entries");
    delivered(told, deleted);
}

void life::exchange()
{
    chosen_key chosen;
    if (!choose_key(chosen)) return;
    key& of = *chosen.of;
    int32_t number = -1;
    if (make.happens(50)) {
        if (of.state == cursor_state::lost) return;
        const outcome told = file.cursor_to_record(of);
        same(told.code, tssetd2i32(d, chosen.index_handle, chosen.number, &number), "the code");
        if (told.number > 0) same(told.number, number, "the number");
        return;
    }
    if (is_current_astray()) return;
    std::string packed(TS_MAX_PACKED_KEY, untouched);
    const outcome told = file.record_to_cursor(of);
    same(told.code,
         tsseti2d32(d, chosen.index_handle, chosen.number, buffer.data(), packed.data(), &number),
         "the code");
    if (told.number == 0) return;
    const record& wanted = file.numbered(told.number);
    std::string expected = image_of(of.fields, wanted.body);
    expected.append(reinterpret_cast<const char*>(&wanted.offset), sizeof wanted.offset);
    expected.resize(packed.size(), untouched);
    same(told.number, number, "the number");
    same(true, packed == expected, "the packed key");
    delivered(told, wanted.deleted);
}

} // namespace tarsil::model
