// Adds, updates, deletes and undeletes until it is killed; see tests/files/kill_writer.h. What is
// under way is noted before the call and what was answered behind it, each by single stores, so
// that a kill between any two of them leaves notes that are true.
#include "tests/files/kill_writer.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <unistd.h>

namespace tarsil::kills {

row make_row(int32_t writer, int32_t number, int32_t version)
{
    row made = {writer, number, version / versions_of_key, version, {}, {}};
    std::snprintf(made.name, sizeof made.name, "%d", (number * 7919 + made.epoch * 31) % 1009);
    std::memset(made.text, 'a' + (number + version) % 26, sizeof made.text);
    return made;
}

std::vector<key_definition> definitions()
{
    const layout fields = layout::of<row>({TARSIL_FIELD(row, writer), TARSIL_FIELD(row, number),
                                           TARSIL_FIELD(row, epoch), TARSIL_FIELD(row, name)});
    return {*fields.key({"writer", "number", "epoch"}, cursor::kept, order_of_keys),
            *fields.key({"name"}, cursor::none, order_of_keys)};
}

namespace {

// A new record, or one of its own, which may be deleted.
int32_t choose_number(const answered& notes, std::minstd_rand& random)
{
    const int32_t fresh = notes.records + 1;
    if (random() % 2 == 0) return fresh;
    const auto old = static_cast<int32_t>(1 + random() % static_cast<uint32_t>(fresh));
    return notes.versions[old] != 0 ? old : fresh;
}

int32_t call(const open_files& on, const mode_of_work& how, const row& made, int32_t version,
             int32_t target)
{
    const std::string body = how.body_of(made);
    const auto bytes = std::as_bytes(std::span(body));
    if (version == 0) return on.file.add(bytes, duplicates::allow).code();
    const auto value = on.key.pack(made.writer, made.number, std::abs(version) / versions_of_key);
    if (target < 0) return on.key.erase(value).code();
    if (version < 0) return on.key.undelete(value).code();
    const auto done = on.key.update(value, bytes, key_change::move);
    if (!done) return done.code();
    const bool is_moved = *done == updated::moved;
    return is_moved == (target % versions_of_key == 0) ? TS_OK : TS_UPDATE_KEY_CHANGED;
}

} // namespace

void live(const support::temp_folder& folder, const mode_of_work& how, int32_t self,
          answered* of_all, uint32_t seed)
{
    answered& notes = of_all[self - 1];
    const open_files on(folder, how);
    notes.opened = 1;
    const auto has_opened = [](const answered& one) { return one.opened == 1; };
    while (!std::all_of(of_all, of_all + how.writers, has_opened)) usleep(50);
    std::minstd_rand random(seed);
    while (notes.refusal == TS_OK && notes.records < how.begin + new_numbers) {
        const int32_t number = choose_number(notes, random);
        const int32_t version = notes.versions[number];
        const bool is_mark_alone = version < 0 || (version > 0 && random() % 3 == 0);
        notes.number = number;
        notes.target = is_mark_alone ? -version : version + 1;
        const row made = make_row(self, number, version + 1);
        const int32_t code = call(on, how, made, version, notes.target);
        // Another record has taken the place of the one that was to come back.
        const bool is_gone = code == TS_FIND_NO_ENTRY && version < 0 && !how.is_variable;
        if (is_gone) notes.target = version;
        notes.refusal = is_gone ? TS_OK : code;
        if (notes.refusal == TS_OK) {
            notes.versions[number] = notes.target.load();
            notes.records = std::max<int32_t>(notes.records, number);
            notes.target = 0;
        }
        ++notes.calls;
        // Others want to get in, too (docs/LOCKING.md).
        if (how.writers > 1) usleep(static_cast<useconds_t>(random() % 40));
    }
    for (;;) pause();
}

} // namespace tarsil::kills
