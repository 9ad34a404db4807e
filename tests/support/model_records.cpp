// The model's records: storing, marking, replacing and removing them, and reading them in file
// order; see model.h.
#include "tests/support/model.h"

#include <algorithm>

namespace tarsil::model {

namespace {

constexpr int32_t frame_bytes = 8;

int32_t size_of(const std::string& body) { return static_cast<int32_t>(body.size()); }

} // namespace

template <class Deed> void data_file::for_each_key(Deed&& deed) const
{
    for (const auto& index : open_indexes) {
        if (!index) continue;
        for (const auto& each : *index) deed(*each);
    }
}

int32_t data_file::deleted_count() const
{
    return static_cast<int32_t>(std::count_if(records.begin(), records.end(),
                                              [](const record& each) { return each.deleted; }));
}

int32_t data_file::end_offset() const
{
    if (records.empty()) return first_offset;
    return records.back().offset + frame_bytes + size_of(records.back().body);
}

int32_t data_file::number_at(int32_t offset) const
{
    const auto found = std::lower_bound(
        records.begin(), records.end(), offset,
        [](const record& each, int32_t wanted) { return each.offset < wanted; });
    return static_cast<int32_t>(found - records.begin()) + 1;
}

// --- Opening ------------------------------------------------------------------------------------

// The opening scan leaves the current record on the first deleted one.
void data_file::open()
{
    current = 1;
    noted = -1;
    open_indexes = {};
    if (!reuse || !is_fixed() || deleted_count() == 0) return;
    current = next_deleted(0);
    noted = numbered(current).offset;
}

void data_file::rebuild()
{
    current = 1;
    noted = -1;
    open_indexes = {};
}

void data_file::build(index_keys& keys)
{
    for (const record& each : records)
        for (const auto& key : keys) key->insert({image_of(key->fields, each.body), each.offset});
    if (!records.empty()) current = count();
}

// --- Adding -------------------------------------------------------------------------------------

// Keys are searched in their order up to the first that holds the value, and their cursors are out
// of step if the add goes no further.
bool data_file::is_duplicate(const std::string& body)
{
    bool found = false;
    bool may_be_found = false;
    for_each_key([&](key& each) {
        if (found) return;
        each.lose();
        const std::string image = image_of(each.fields, body);
        const part value = each.whole(image);
        if (!each.entries.contains(value)) return;
        may_be_found = true;
        found = !may_have_been_missed(each, value);
    });
    return found || (may_be_found && given.code == TS_DUPLICATE_KEY);
}

int32_t data_file::next_deleted(int32_t behind) const
{
    const auto found = std::find_if(records.begin() + behind, records.end(),
                                    [](const record& each) { return each.deleted; });
    return found == records.end() ? 0 : static_cast<int32_t>(found - records.begin()) + 1;
}

// From the noted slot to the next deleted one, on which the current record comes to stand.
void data_file::next_reusable()
{
    const int32_t saved = current;
    current = number_at(noted);
    noted = -1;
    if (deleted_count() == 0) return;
    const int32_t found = next_deleted(current);
    current = found > 0 ? found : saved;
    if (found > 0) noted = numbered(found).offset;
}

bool data_file::is_in_all_keys(const record& candidate) const
{
    bool in_all = true;
    for_each_key([&](const key& each) {
        const entry own = {image_of(each.fields, candidate.body), candidate.offset};
        in_all = in_all && each.entries.contains(own);
    });
    return in_all;
}

void data_file::pass_over(int32_t number)
{
    const record& candidate = numbered(number);
    if (candidate.deleted && is_in_all_keys(candidate)) passed_over.push_back(candidate.offset);
}

// The slot that the library has taken, by what it notes next; 0 if it has appended.
int32_t data_file::choose_slot()
{
    if (!reuse || noted <= 0) return 0;
    const bool appended = given.record_count > count();
    for (int32_t number = number_at(noted); number > 0; number = next_deleted(number)) {
        const int32_t further = next_deleted(number);
        const int32_t noted_then = further > 0 ? numbered(further).offset : -1;
        const bool fits = !appended && noted_then == given.reuse_offset;
        if (fits && numbered(number).deleted) return number;
        pass_over(number);
    }
    noted = -1;
    return 0;
}

void data_file::store(const std::string& body, int32_t slot)
{
    record& place = records[static_cast<size_t>(slot - 1)];
    const record old = place;
    place = {old.offset, false, body};
    const bool reused = old.deleted;
    for_each_key([&](key& each) {
        if (reused) {
            const std::string image = image_of(each.fields, old.body);
            each.entries.erase({image, old.offset});
            each.taken_out.insert(image);
        }
        each.insert({image_of(each.fields, body), old.offset});
    });
    current = slot;
}

int32_t data_file::add(const std::string& body, bool duplicates)
{
    passed_over.clear();
    if (!duplicates && is_duplicate(body)) return TS_DUPLICATE_KEY;
    const int32_t slot = choose_slot();
    if (slot == 0) {
        records.push_back({end_offset(), false, body});
        store(body, count());
        return TS_OK;
    }
    store(body, slot);
    noted = numbered(slot).offset;
    if (deleted_count() < 1)
        noted = -1;
    else
        next_reusable();
    return TS_OK;
}

// --- Deleting, updating, purging ----------------------------------------------------------------

outcome data_file::look_up(const name_of_record& name, purpose why)
{
    switch (name.how) {
    case form::number:
        if (name.number < 1 || name.number > count()) return {TS_BAD_RECORD_NUMBER};
        return {TS_OK, name.number};
    case form::current:
        if (current < 1 || current > count())
            return {why == purpose::deletion ? TS_DELETE_NO_CURRENT : TS_UPDATE_NO_CURRENT};
        return {TS_OK, current};
    case form::value: return find(*name.of, name.of->whole(*name.value), TS_FIND_NO_ENTRY);
    case form::cursor: break;
    }
    return at_cursor(*name.of);
}

int32_t data_file::mark(const name_of_record& name, bool as_deleted)
{
    constexpr int32_t pointless[2][4] = {{TS_UNDELETE_RECORD_LIVE, TS_UNDELETE_CURRENT_LIVE,
                                          TS_UNDELETE_FOUND_LIVE, TS_UNDELETE_CURSOR_LIVE},
                                         {TS_DELETE_RECORD_DELETED, TS_DELETE_CURRENT_DELETED,
                                          TS_DELETE_FOUND_DELETED, TS_DELETE_CURSOR_DELETED}};
    const outcome found = look_up(name, purpose::deletion);
    if (found.code != TS_OK) return found.code;
    record& marked = records[static_cast<size_t>(found.number - 1)];
    if (marked.deleted == as_deleted) return pointless[as_deleted][static_cast<int>(name.how)];

    marked.deleted = as_deleted;
    if (name.how == form::number) current = found.number;
    if (!reuse || !is_fixed()) return TS_OK;
    if (as_deleted && (noted <= 0 || marked.offset < noted)) noted = marked.offset;
    if (!as_deleted && marked.offset == noted) next_reusable();
    return TS_OK;
}

// By bytes, and in a string up to a 0 byte that both have.
bool data_file::changes_a_key(const std::string& from, const std::string& to) const
{
    bool changes = false;
    for_each_key([&](const key& each) {
        for (const field& of : each.fields) {
            std::string old_bytes = image_of({of}, from);
            std::string new_bytes = image_of({of}, to);
            if (of.type == 's') {
                old_bytes = old_bytes.c_str();
                new_bytes = new_bytes.c_str();
            }
            changes = changes || old_bytes != new_bytes;
        }
    });
    return changes;
}

outcome data_file::update(const name_of_record& name, const std::string& body, int32_t mode)
{
    constexpr int32_t refused[] = {TS_UPDATE_RECORD_DELETED, TS_UPDATE_CURRENT_DELETED,
                                   TS_UPDATE_FOUND_DELETED, TS_UPDATE_CURSOR_DELETED};
    const outcome found = look_up(name, purpose::updating);
    if (found.code != TS_OK) return found;
    record& old = records[static_cast<size_t>(found.number - 1)];
    if (body.size() != old.body.size()) return {TS_UPDATE_LENGTH_DIFFERS, found.number};
    const bool key_changes = changes_a_key(old.body, body);
    if (key_changes && mode <= 0) return {TS_UPDATE_KEY_CHANGED, found.number};
    if (old.deleted) return {refused[static_cast<int>(name.how)], found.number};
    if (key_changes) {
        mark(name, true);
        const int32_t code = add(body, mode > 1);
        return {code == TS_OK ? 1 : code, found.number};
    }
    old.body = body;
    if (name.how == form::number) current = found.number;
    return {TS_OK, found.number};
}

int32_t data_file::purge(int32_t& removed)
{
    removed = deleted_count();
    if (removed == 0) return TS_PURGE_NOTHING_DELETED;
    std::vector<record> kept;
    kept.swap(records);
    std::erase_if(kept, [](const record& each) { return each.deleted; });
    for_each_key([](key& each) {
        each.entries.clear();
        each.taken_out.clear();
        each.lose();
    });
    for (record& each : kept) {
        records.push_back({end_offset(), false, {}});
        store(each.body, count());
    }
    current = 1;
    noted = -1;
    return TS_OK;
}

// --- Reading in file order ----------------------------------------------------------------------

outcome data_file::by_number(int32_t number)
{
    if (number < 1 || number > count()) return {TS_BAD_RECORD_NUMBER};
    current = number;
    return {TS_OK, number};
}

outcome data_file::first()
{
    if (records.empty()) return {TS_FIRST_RECORD_NONE};
    return by_number(1);
}

outcome data_file::last()
{
    if (current < 1) return {TS_NO_CURRENT_RECORD};
    if (!is_fixed()) return {TS_NEEDS_FIXED_LENGTH};
    if (records.empty()) return {TS_LAST_RECORD_NONE};
    return by_number(count());
}

outcome data_file::next()
{
    if (current < 1) return {TS_NO_CURRENT_RECORD};
    if (current == count()) return {TS_NEXT_RECORD_AT_END};
    return by_number(current + 1);
}

outcome data_file::previous()
{
    if (current < 1) return {TS_NO_CURRENT_RECORD};
    if (!is_fixed()) return {TS_NEEDS_FIXED_LENGTH};
    if (current == 1) return {TS_PREVIOUS_RECORD_AT_START};
    return by_number(current - 1);
}

outcome data_file::here() const
{
    if (current < 1) return {TS_NO_CURRENT_RECORD};
    return {TS_OK, current};
}

} // namespace tarsil::model
