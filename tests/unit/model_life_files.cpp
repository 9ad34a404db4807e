// The operations on whole files, on options and locks, and the beginning and end of a life; see
// model_life.h.
#include "tests/unit/model_life.h"

#include "check/report_text.h"
#include "index/slots.h"
#include "tests/support/checked.h"
#include "tests/support/library_fixture.h"

#include <cstring>
#include <gtest/gtest.h>

namespace tarsil::model {

// --- Index files --------------------------------------------------------------------------------

namespace {

// What the library knows the length of itself is given a wrong one.
key_definition definition_of(const key& of, uint32_t order)
{
    std::vector<support::key_part> parts;
    for (const field& each : of.fields)
        parts.push_back({each.type, each.type == 's' ? each.length : -77, each.offset});
    return support::define_key(order, parts, of.has_cursor ? 'y' : 'n');
}

} // namespace

int32_t life::lowest_free_index() const
{
    const auto& open = file.open_indexes;
    return static_cast<int32_t>(std::find(open.begin(), open.end(), nullptr) - open.begin());
}

// Over a file that has no records yet, or through tscrindd32; or empty beside records, which then
// lack their entries.
void life::create_index()
{
    index_file index;
    index.name = "index" + std::to_string(names++);
    index.keys = std::make_shared<index_keys>();
    std::vector<key_definition> definitions;
    const int32_t key_count = make.happens(3) ? 0 : 1 + make.below(3);
    for (int32_t i = 0; i < key_count; ++i) {
        std::vector<field> fields = make.fields();
        std::shuffle(fields.begin(), fields.end(), random);
        fields.erase(fields.begin() + 1 + make.below(make.happens(70) ? 2 : 8), fields.end());
        index.keys->push_back(std::make_unique<key>(fields));
        index.keys->back()->has_cursor = make.happens(75);
        constexpr uint32_t orders[] = {2, 2, 3, 5, 10, 0};
        definitions.push_back(definition_of(*index.keys->back(), orders[make.below(6)]));
    }
    const int32_t lowest = lowest_free_index();
    const bool full = lowest == TS_MAX_INDEX_FILES;
    const bool build = make.happens(85);
    const int32_t code = build ? tscrindd32(d, index.name.c_str(), key_count, definitions.data(),
                                            buffer.data())
                               : tscrind32(d, index.name.c_str(), key_count, definitions.data());
    buffer.assign(longest_body, untouched);
    if (full) return same(TS_NO_FREE_INDEX_SLOT, code, "the code");
    same(build && file.records.empty() ? TS_FIRST_RECORD_NONE : lowest, code, "the handle");
    index.handle = lowest;
    index.complete = build || file.records.empty();
    if (build) file.build(*index.keys);
    file.open_indexes[static_cast<size_t>(lowest)] = index.keys;
    indexes.push_back(index);
}

void life::open_index(index_file& index)
{
    std::string cursors;
    for (const auto& key : *index.keys) {
        key->has_cursor = make.happens(75);
        key->state = cursor_state::none;
        cursors += yes_or_no(key->has_cursor);
    }
    const int32_t handle = tsopeni32(d, index.name.c_str(), cursors.data());
    const int32_t lowest = lowest_free_index();
    const bool full = lowest == TS_MAX_INDEX_FILES;
    same(full ? int32_t{TS_NO_FREE_INDEX_SLOT} : lowest, handle, "the handle");
    if (full || handle < 0) return;
    for (size_t i = 0; i < index.keys->size(); ++i)
        same((*index.keys)[i]->has_cursor ? 'y' : 'n', cursors[i], "the cursor letter");
    index.handle = handle;
    file.open_indexes[static_cast<size_t>(handle)] = index.keys;
}

void life::change_indexes()
{
    const int32_t total = static_cast<int32_t>(indexes.size());
    if (total == 0 || (total < 4 && make.happens(40))) return create_index();
    index_file& index = indexes[static_cast<size_t>(make.below(total))];
    if (index.handle < 0) return open_index(index);
    if (indexes_locked.contains(index.handle) || make.happens(60)) return;
    same(TS_OK, tsclosei32(d, index.handle), "the code");
    file.open_indexes[static_cast<size_t>(index.handle)] = nullptr;
    index.handle = -1;
}

// --- Facts, refusals, options, locks ------------------------------------------------------------

void life::tell_facts()
{
    int32_t told[5] = {};
    same(TS_OK, tsstatd32(d, &told[0], &told[1], &told[2], &told[3], &told[4]), "the code");
    const int32_t expected[] = {file.count(), file.deleted_count(), file.record_length,
                                file.current, (file.first_offset - 28) / 8};
    for (size_t i = 0; i < 5; ++i) same(expected[i], told[i], "a fact");

    chosen_key chosen;
    if (!choose_key(chosen)) return;
    int32_t order = 0;
    int32_t node_bytes = 0;
    char cursor = 0;
    key_report report = {};
    same(TS_OK,
         tsstati32(d, chosen.index_handle, chosen.number, &order, &node_bytes, &cursor, &report),
         "the code");
    const auto& fields = chosen.of->fields;
    int32_t unit = 4;
    for (const field& each : fields) unit += each.length + 4;
    same(2 * order * unit + 8, node_bytes, "the size of a node");
    same(chosen.of->has_cursor ? 'y' : 'n', cursor, "the cursor letter");
    same(static_cast<int64_t>(fields.size()), report.field_count, "the number of fields");
    for (size_t i = 0; i < fields.size(); ++i) {
        same(fields[i].type, report.types[i], "a letter");
        same(fields[i].length, report.lengths[i], "a length");
        same(fields[i].offset, report.offsets[i], "an offset");
    }
}

// Wrong handles and the like change nothing, whatever stands around them.
void life::refuse()
{
    int32_t x = 0;
    char* const to = buffer.data();
    const int32_t free_handle = d < 5 ? d + 2 : 0;
    same(TS_BAD_DATA_HANDLE, tsgetfd32(make.happens(50) ? -1 : 8, to, &x), "a bad handle");
    same(TS_DATA_NOT_OPEN, tsadd32(free_handle, to, 1, 'y'), "a handle that isn't open");
    same(TS_BAD_INDEX_HANDLE, tsgetni32(d, make.happens(50) ? -1 : 5, 0, to, &x),
         "a bad index handle");
    const int32_t free_slot = lowest_free_index();
    if (free_slot < TS_MAX_INDEX_FILES)
        same(TS_INDEX_NOT_OPEN, tsupci32(d, free_slot, 0, to, 1, &x, to, 1),
             "an index that isn't open");
    same(TS_OPEN_INDEX_NOT_THERE, tsopeni32(d, "none", to), "a missing index");
    same(TS_BAD_PRECISION, tsspdoub32(-1 - make.below(9)), "a negative precision");
    if (!file.is_fixed())
        same(TS_RECORD_TOO_SHORT, tsadd32(d, to, -make.below(2), 'y'), "a record without bytes");
    for (const index_file& index : indexes) {
        if (index.handle < 0 || free_slot == TS_MAX_INDEX_FILES) continue;
        const int32_t count = static_cast<int32_t>(index.keys->size());
        same(TS_BAD_KEY_NUMBER,
             tsgeti32(d, index.handle, make.happens(50) ? count : -1, to, to, &x),
             "a bad key number");
        key_definition unused = {};
        same(shared ? TS_CREATE_INDEX_FILE_EXISTS : TS_CREATE_INDEX_FAILED,
             tscrind32(d, index.name.c_str(), 0, &unused), "creating what exists");
        break;
    }
}

void life::set_options()
{
    file.reuse = make.happens(60);
    tsdelow32(file.reuse ? yes_or_no(true) : static_cast<char>(make.below('Y')));
    if (!file.reuse && file.noted > 0 && make.happens(30)) {
        // The noted slot comes to life unseen, and reuse must not take it.
        const name_of_record noted = {form::number, file.number_at(file.noted)};
        const int32_t code = tsundeld32(d, noted.number);
        same(file.mark(noted, false), code, "the code");
        file.reuse = true;
        tsdelow32('y');
    }
    through = make.happens(30);
    same(TS_OK, tsautoup32(yes_or_no(through)), "the code");
}

void life::lock()
{
    if (!shared) {
        const int32_t any = make.below(11) - 1; // the mode is told first
        same(TS_DATA_LOCK_SINGLE_USER, tslockd32(any), "the code");
        same(TS_RECORD_LOCK_SINGLE_USER, tslockdr32(any, 1), "the code");
        same(TS_INDEX_LOCK_SINGLE_USER, tslocki32(any, 0), "the code");
        same(any == d ? TS_UNLOCK_ALL_SINGLE_USER : TS_BAD_DATA_HANDLE,
             tsulalld32(any == d ? d : -1), "the code");
        return;
    }
    if (make.happens(40)) return release_all();
    chosen_key chosen;
    const int32_t number = make.below(file.count() + 2);
    switch (make.below(3)) {
    case 0:
        same(data_locked ? 0 : record_locked > 0 ? TS_LOCK_REFUSED : 1, tslockd32(d), "the code");
        data_locked = data_locked || record_locked == 0;
        break;
    case 1: {
        if (record_locked > 0) break;
        const int32_t code = tslockdr32(d, number);
        if (!file.is_fixed()) return same(TS_NEEDS_FIXED_LENGTH, code, "the code");
        if (number < 1 || number > file.count())
            return same(TS_RECORD_LOCK_BAD_NUMBER, code, "the code");
        same(TS_OK, code, "the code");
        file.current = number;
        if (!data_locked) record_locked = number;
        break;
    }
    default:
        if (!choose_key(chosen)) return;
        const bool held = !indexes_locked.insert(chosen.index_handle).second;
        same(held ? 0 : 1, tslocki32(d, chosen.index_handle), "the code");
    }
}

void life::release_all()
{
    if (!shared) return;
    if (make.happens(50)) {
        same(data_locked + (record_locked > 0), tsulalld32(d), "the number of ranges");
    } else {
        if (data_locked) same(TS_OK, tsulockd32(d), "the code");
        if (record_locked > 0) {
            same(TS_OK, tsulckdr32(d, record_locked), "the code");
            file.current = record_locked;
        }
        same(TS_UNLOCK_NOT_HELD, tsulockd32(d), "the code");
    }
    for (const int32_t handle : indexes_locked) same(TS_OK, tsulocki32(d, handle), "the code");
    data_locked = false;
    record_locked = 0;
    indexes_locked.clear();
}

// --- The files as they stand --------------------------------------------------------------------

namespace {

int32_t entries_of_leaf_with(const std::string& bytes, const key_record& of, int32_t node,
                             int32_t offset)
{
    const auto* image = reinterpret_cast<const unsigned char*>(bytes.data()) + node;
    const int32_t count = entry_count(of, image);
    const bool leaf = is_leaf(of, image);
    for (int32_t i = 0; i < count + (leaf ? 0 : 1); ++i) {
        const unsigned char* entry = entry_at(of, image, i);
        if (!leaf) {
            const int32_t found = entry_link(entry) < 0
                                      ? 0
                                      : entries_of_leaf_with(bytes, of, entry_link(entry), offset);
            if (found > 0) return found;
        } else if (entry_link(entry) == offset) {
            return count;
        }
    }
    return 0;
}

} // namespace

// A slot in all keys may be passed over only where an entry of it was alone in its leaf; the add
// that passed it over may have put one beside it.
void life::passed_over_rightly()
{
    for (const int32_t offset : file.passed_over) {
        bool is_thin = false;
        for (const index_file& index : indexes) {
            if (index.handle < 0) continue;
            const std::string bytes = sim::bytes(index.name);
            for (size_t i = 0; i < index.keys->size(); ++i) {
                const key_record& of = key_of(d, index.handle, static_cast<int32_t>(i)).key_record;
                is_thin = is_thin || entries_of_leaf_with(bytes, of, of.root_offset, offset) <= 2;
            }
        }
        same(true, is_thin, "a reason for passing over a slot");
    }
}

// The header of single-user mode may be in memory alone; the checkers get the file as its close
// would leave it. In multi-user mode the file has to be right as it is.
void life::check_files()
{
    std::string data = sim::bytes("data");
    if (!shared) std::memcpy(data.data() + 4, &data_slots[d].header, 24);
    const check::data_report report = support::check_data(data);
    same(0,
         report.findings.count(check::severity::damage) +
             report.findings.count(check::severity::out_of_step),
         "the number of findings in the data file");
    same(file.count(), report.records, "the number of records");
    if (!report.findings.is_sound()) ADD_FAILURE() << check::lines_of(report.findings);

    for (const index_file& index : indexes) {
        if (index.handle < 0) continue;
        std::string bytes = sim::bytes(index.name);
        for (size_t i = 0; !shared && i < index.keys->size(); ++i) {
            const key_record& of = key_of(d, index.handle, static_cast<int32_t>(i)).key_record;
            std::memcpy(bytes.data() + key_records_offset +
                            static_cast<ptrdiff_t>(i) * key_record_bytes,
                        &of, sizeof of);
        }
        const check::index_report found = support::check_index(bytes, data);
        if (!found.findings.is_sound()) ADD_FAILURE() << check::lines_of(found.findings);
        same(static_cast<int64_t>(index.keys->size()), static_cast<int64_t>(found.keys.size()),
             "the number of keys");
        for (size_t i = 0; i < found.keys.size(); ++i) {
            const check::finding_list& findings = found.keys[i].findings;
            const int64_t tolerated = index.complete ? 0 : findings.count(check::invariant::I11);
            same(tolerated, findings.total() - findings.count(check::severity::note),
                 "the number of findings in a key");
            if (tolerated == 0 && !findings.is_sound()) ADD_FAILURE() << check::lines_of(findings);
            same(static_cast<int64_t>((*index.keys)[i]->entries.size()), found.keys[i].entries,
                 "the number of entries");
        }
    }
}

// --- Closing and opening ------------------------------------------------------------------------

void life::enter_mode()
{
    same(TS_OK, tsmuser32('n'), "the code");
    shared = make.happens(50);
    if (shared) same(TS_OK, tsmuser32(yes_or_no(true)), "the code");
}

void life::close_all()
{
    release_all();
    check_files();
    same(TS_OK, tsclosed32(d), "the code");
    if (other >= 0) same(TS_OK, tsclosed32(other), "the code");
    same(0, static_cast<int64_t>(sim::open_handles()), "open handles");
    other = -1;
    file.noted = -1;
    for (index_file& index : indexes) index.handle = -1;
}

void life::reopen()
{
    close_all();
    if (make.happens(20)) {
        tsfree32();
        same(0, static_cast<int64_t>(sim::live_blocks()), "blocks left behind");
        same(TS_STARTED, tsinit32(), "the code");
    }
    enter_mode();
    set_options();
    d = tsopend32("data");
    same(0, d, "the handle");
    file.open();
    for (index_file& index : indexes)
        if (make.happens(90)) open_index(index);
}

// The header is lost; the records tell it anew.
void life::rebuild()
{
    close_all();
    enter_mode();
    std::string bytes = sim::bytes("data");
    for (const size_t at : {4U, 8U, 16U})
        bytes = support::with(bytes, at, static_cast<int32_t>(random()));
    if (file.is_fixed() && !file.records.empty())
        bytes = support::with(bytes, 12, static_cast<int32_t>(random() & INT32_MAX));
    sim::set_bytes("data", bytes);
    d = tsrbdbh32("data", buffer.data());
    buffer.assign(longest_body, untouched);
    same(0, d, "the handle");
    file.rebuild();
    for (index_file& index : indexes)
        if (make.happens(90)) open_index(index);
}

void life::begin()
{
    sim::reset();
    sim::offer_looks(make.happens(50)); // else nodes are read
    same(TS_STARTED, tsinit32(), "the code");
    enter_mode();
    set_options();
    if (make.happens(30)) other = tscrdata32("other", 1, 0, nullptr);
    std::vector<field_entry> fields(static_cast<size_t>(make.below(4)), field_entry{7, 'l'});
    const auto field_count = static_cast<int32_t>(fields.size());
    file.record_length = make.happens(65) ? make.bytes() + 1 + make.below(20) : TS_VARIABLE_LENGTH;
    file.first_offset = 28 + 8 * field_count;
    d = tscrdata32("data", file.record_length, field_count, fields.data());
    same(other + 1, d, "the handle");
    constexpr int32_t sizes[] = {3, 30, 200, 1200, 6000};
    most_records = sizes[make.below(5)];
    while (make.happens(65)) create_index();
}

void life::end()
{
    close_all();
    tsfree32();
    same(0, static_cast<int64_t>(sim::live_blocks()), "blocks left behind");
}

} // namespace tarsil::model
