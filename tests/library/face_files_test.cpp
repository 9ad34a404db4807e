// The C++ face over files of one process: records and keys, lengths, walks, changes, misuse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tarsil32.hpp"
#include "tests/support/temp_folder.h"

namespace {

using namespace tarsil;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct town {
    int32_t id;
    char country[4];
    char name[12];
    double height;
};

town make_town(int32_t id, std::string_view country, std::string_view name, double height)
{
    town made = {};
    made.id = id;
    made.height = height;
    country.copy(made.country, sizeof made.country);
    name.copy(made.name, sizeof made.name);
    return made;
}

layout town_layout()
{
    return layout::of<town>({TARSIL_FIELD(town, id), TARSIL_FIELD(town, country),
                             TARSIL_FIELD(town, name), TARSIL_FIELD(town, height)});
}

// Three keys: 0 by country and name, 1 by height, 2 by id.
std::vector<key_definition> town_keys()
{
    const layout fields = town_layout();
    return {*fields.key({"country", "name"}, cursor::kept, 2), *fields.key({"height"}),
            *fields.key({"id"})};
}

class Face : public testing::Test {
protected:
    void SetUp() override
    {
        started = library::start();
        ASSERT_TRUE(started) << started.message();
    }

    data_file towns()
    {
        data_file file = *library_().create(path("towns.dat"), town_layout());
        names = *file.create_index(path("towns.idx"), town_keys());
        const town all[] = {make_town(1, "CH", "Zurich", 408), make_town(2, "AT", "Graz", 353),
                            make_town(3, "CH", "Bern", 542),   make_town(4, "CHX", "Zug", 430),
                            make_town(5, "CH", "Zug", 425),    make_town(6, "AT", "Linz", 266)};
        for (const town& one : all) EXPECT_TRUE(file.add(bytes_of(one)));
        return file;
    }

    static int32_t id_of(const record& one) { return one.as<town>()->id; }
    template <class Walk> static std::vector<int32_t> ids(Walk&& walk)
    {
        std::vector<int32_t> found;
        for (auto&& one : walk) found.push_back(id_of(one));
        EXPECT_TRUE(walk.state()) << walk.state().message();
        return found;
    }

    library& library_() { return *started; }
    std::string path(const char* name) const { return folder.file(name); }

    support::temp_folder folder;
    result<library> started = status(TS_NOT_STARTED);
    index_file names;
};

TEST_F(Face, FindsByWholeLeadingAndNearestValues)
{
    const data_file file = towns();
    const key_cursor by_name = *names.key(0);
    const key_cursor by_height = *names.key(1);
    EXPECT_EQ(id_of(*by_name.find(by_name.pack("CH", "Bern"))), 3);
    EXPECT_EQ(id_of(*by_name.find_leading(by_name.pack("CH"))), 3);
    EXPECT_EQ(id_of(*by_name.find_prefix(by_name.pack("CH", "Zu"))), 5);
    EXPECT_EQ(by_name.find(by_name.pack("CH", "Zu")).code(), TS_FIND_NO_ENTRY);
    EXPECT_EQ(by_name.find(by_name.pack("CH")).code(), face::wrong_length);
    EXPECT_EQ(by_name.find_leading(by_name.pack("C")).code(), TS_PARTIAL_NO_ENTRY);

    const struct {
        double value;
        nearness where;
        int32_t id;
    } cases[] = {{408, nearness::match, 1},
                 {500, nearness::before, 4},
                 {9999, nearness::before, 3},
                 {1, nearness::behind, 6}};
    for (const auto& one : cases) {
        const result<nearest_record> found = by_height.nearest(by_height.pack(one.value));
        ASSERT_TRUE(found) << found.message();
        EXPECT_EQ(found->where, one.where) << one.value;
        EXPECT_EQ(id_of(found->found), one.id);
    }
}

TEST_F(Face, WalksAKeyInBothDirectionsAndWithinBounds)
{
    const data_file file = towns();
    const key_cursor key = *names.key(0);
    EXPECT_THAT(ids(key.all()), ElementsAre(2, 6, 3, 5, 1, 4));
    EXPECT_THAT(ids(key.backwards()), ElementsAre(4, 1, 5, 3, 6, 2));
    EXPECT_THAT(ids(key.with(key.pack("CH"))), ElementsAre(3, 5, 1));
    EXPECT_THAT(ids(key.prefix(key.pack("CH"))), ElementsAre(3, 5, 1, 4));
    EXPECT_THAT(ids(key.prefix(key.pack("CH", "Zu"))), ElementsAre(5, 1));
    EXPECT_THAT(ids(key.prefix(key.pack("CH", ""))), ElementsAre(3, 5, 1));
    EXPECT_THAT(ids(key.with(key.pack("DE"))), IsEmpty());
    EXPECT_THAT(ids(key.from(key.pack("CH", "C"))), ElementsAre(5, 1, 4));
    EXPECT_THAT(ids(key.from(key.pack("CH", "Bern"))), ElementsAre(3, 5, 1, 4));
    EXPECT_THAT(ids(key.from(key.pack(""))), ElementsAre(2, 6, 3, 5, 1, 4));
    EXPECT_THAT(ids(key.from(key.pack("ZZ"))), IsEmpty());
    EXPECT_THAT(ids(key.from(key.pack("AT", "H")).until(key.pack("CH", "Zug"))),
                ElementsAre(6, 3, 5));
    EXPECT_THAT(ids(key.backwards().until(key.pack("CH", "Zug"))), ElementsAre(4, 1, 5));
    std::vector<int32_t> looped; // the walk has to live as long as the loop
    for (auto&& one : key.all().until(key.pack("AT"))) looped.push_back(id_of(one));
    EXPECT_THAT(looped, ElementsAre(2, 6));
    EXPECT_TRUE(key.walk_state());
}

TEST_F(Face, WalksTheFileWhateverTheLoopDoesToTheCurrentRecord)
{
    const data_file file = towns();
    ASSERT_TRUE(file.erase(2));
    std::vector<int32_t> seen;
    for (auto&& one : file.records()) {
        EXPECT_EQ(one.deleted, one.number == 2);
        seen.push_back(one.number);
        EXPECT_TRUE(file.get(6));
    }
    EXPECT_THAT(seen, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(ids(file.records({.skip_deleted = true})), ElementsAre(1, 3, 4, 5, 6));
    EXPECT_THAT(ids(names.key(2)->all({.skip_deleted = true})), ElementsAre(1, 3, 4, 5, 6));
    EXPECT_TRUE(file.walk_state());
}

TEST_F(Face, StepsThroughFileAndKeyAndExchangesPositions)
{
    const data_file file = towns();
    EXPECT_EQ(file.first()->number, 1);
    EXPECT_EQ(file.next()->number, 2);
    EXPECT_EQ(file.last()->number, 6);
    EXPECT_EQ(file.previous()->number, 5);
    EXPECT_EQ(file.current()->number, 5);
    EXPECT_EQ(file.position()->length, static_cast<int32_t>(sizeof(town)));
    const key_cursor key = *names.key(0);
    EXPECT_EQ(*key.seek_current(), true);
    EXPECT_EQ(id_of(*key.current()), 5);
    EXPECT_EQ(id_of(*key.next()), 1);
    EXPECT_EQ(*key.make_current(), 1);
    EXPECT_EQ(id_of(*key.previous()), 5);
    EXPECT_EQ(id_of(*key.last()), 4);
    EXPECT_EQ(key.next().code(), TS_NEXT_ENTRY_AT_END);
    EXPECT_EQ(id_of(*key.first()), 2);
    EXPECT_EQ(key.facts()->order, 2);
    EXPECT_EQ(names.key(2)->facts()->fields[0].letter, 'i');
}

TEST_F(Face, UpdatesInPlaceOrMovesAndSaysWhatHalfWasDone)
{
    const data_file file = towns();
    const key_cursor key = *names.key(0);
    town bern = *key.find(key.pack("CH", "Bern"))->as<town>();
    bern.height = 540;
    EXPECT_EQ(file.update(3, bytes_of(bern)).code(), TS_UPDATE_KEY_CHANGED);
    EXPECT_FALSE(file.update(3, bytes_of(bern)).half_done());

    // The old record's entries stay in the keys that don't change, and refuse the new one.
    const result<updated> refused = key.update_current(bytes_of(bern), key_change::move_if_unique);
    EXPECT_EQ(refused.code(), TS_DUPLICATE_KEY);
    EXPECT_TRUE(refused.half_done());
    EXPECT_TRUE(file.get(3)->deleted);
    EXPECT_TRUE(file.undelete(3));

    EXPECT_EQ(*file.update(3, bytes_of(bern), key_change::move), updated::moved);
    EXPECT_EQ(file.facts()->records, 7);
    EXPECT_EQ(*file.purge(), 1);
    EXPECT_THAT(ids(key.all()), ElementsAre(2, 6, 3, 5, 1, 4));

    EXPECT_EQ(*key.update(key.pack("CH", "Bern"), bytes_of(bern)), updated::in_place);
    EXPECT_TRUE(key.erase(key.pack("CH", "Bern")));
    EXPECT_EQ(key.erase(key.pack("CH", "Bern")).code(), TS_DELETE_FOUND_DELETED);
    EXPECT_TRUE(key.undelete_current());
    EXPECT_TRUE(key.erase_current());
    EXPECT_TRUE(key.undelete(key.pack("CH", "Bern")));

    EXPECT_EQ(*file.update_current(file.first()->bytes), updated::in_place);
    EXPECT_TRUE(file.erase_current());
    EXPECT_TRUE(file.undelete_current());

    const status again = file.add(bytes_of(bern));
    EXPECT_EQ(again.code(), TS_DUPLICATE_KEY);
    EXPECT_FALSE(again.half_done());
    EXPECT_EQ(file.facts()->records, 6);
    EXPECT_TRUE(file.add(bytes_of(bern), duplicates::allow));
}

// The record goes in before its keys: a damaged index is met when it is too late to refuse.
TEST_F(Face, TellsAStoredRecordWithoutKeysFromARefusedOne)
{
    const data_file file = towns();
    std::fstream nodes(path("towns.idx"), std::ios::in | std::ios::out | std::ios::binary);
    nodes.seekp(2216);
    for (int i = 0; i < 100'000; ++i) nodes.put('\xEE');
    nodes.close();
    const town more = make_town(7, "DE", "Ulm", 478);
    const status refused = file.add(bytes_of(more), duplicates::refuse);
    EXPECT_FALSE(refused);
    EXPECT_FALSE(refused.half_done()) << "the look for duplicates meets it first";
    EXPECT_EQ(file.facts()->records, 6);
    const status stored = file.add(bytes_of(more), duplicates::allow);
    EXPECT_EQ(stored.code(), refused.code());
    EXPECT_TRUE(stored.half_done());
    EXPECT_EQ(file.facts()->records, 7);
}

TEST_F(Face, BuildsAndReopensIndexesWithoutTouchingDefinitions)
{
    data_file file = towns();
    const std::vector<key_definition> keys = town_keys();
    index_file built = *file.build_index(path("second.idx"), keys);
    EXPECT_EQ(keys[0].order, 2U);
    EXPECT_THAT(ids(built.key(1)->all()), ElementsAre(6, 2, 1, 5, 4, 3));
    EXPECT_EQ(built.version()->high, 2);
    ASSERT_TRUE(built.close());
    ASSERT_TRUE(names.close());
    ASSERT_TRUE(file.close());

    EXPECT_TRUE(library::is_there(path("towns.dat")));
    file = *library_().open(path("towns.dat"));
    built = *file.open_index(path("second.idx"), {cursor::none});
    EXPECT_EQ(built.key_count(), 3);
    const key_cursor bare = *built.key(0);
    EXPECT_EQ(id_of(*bare.find(bare.pack("CH", "Zurich"))), 1);
    key_walk walk = bare.all();
    EXPECT_TRUE(walk.begin() == walk.end());
    EXPECT_EQ(walk.state().code(), TS_CURSOR_NONE);
    EXPECT_EQ(file.fields()->size(), 4U);

    const data_file empty = *library_().create(path("empty.dat"), town_layout());
    const index_file none = *empty.build_index(path("empty.idx"), keys);
    const key_cursor key = *none.key(0);
    EXPECT_THAT(ids(key.all()), IsEmpty());
    EXPECT_THAT(ids(key.from(key.pack("CH"))), IsEmpty());
    EXPECT_THAT(ids(empty.records()), IsEmpty());
}

// --- Records of variable length ----------------------------------------------------------------

// Bodies whose ends look like the background of the probe, and one beyond its first reach.
std::vector<std::string> bodies()
{
    using text = std::string;
    return {"a",
            text("b\0\0\0", 4),
            text("c\xFF\xFF", 3),
            "d" + text(5000, '\0'),
            "e" + text(300, '\xFF'),
            "f" + text(255, 'x'),
            "g" + text(256, 'y')};
}

std::string text_of(const record& one)
{
    return {reinterpret_cast<const char*>(one.bytes.data()), one.bytes.size()};
}

TEST_F(Face, DeliversVariableRecordsInTheirTrueLength)
{
    const layout fields = layout::packed({{"first", 'c'}});
    data_file file = *library_().create(path("v.dat"), TS_VARIABLE_LENGTH);
    const key_definition key = *fields.key({"first"});
    index_file keys = *file.create_index(path("v.idx"), {&key, 1});
    for (const std::string& body : bodies()) ASSERT_TRUE(file.add(bytes_of(body)));

    for (const cursor kept : {cursor::kept, cursor::none}) {
        ASSERT_TRUE(keys.close());
        keys = *file.open_index(path("v.idx"), {kept});
        const key_cursor by_first = *keys.key(0);
        for (const std::string& body : bodies()) {
            const result<record> found = by_first.find(by_first.pack(body[0] - '\0'));
            ASSERT_TRUE(found) << found.message();
            EXPECT_EQ(text_of(*found), body);
        }
        EXPECT_EQ(text_of(*by_first.last()), bodies().back());
        EXPECT_EQ(text_of(by_first.nearest(by_first.pack(255))->found), bodies().back());
    }
    ASSERT_TRUE(keys.close());
    keys = *file.open_index(path("v.idx"));

    std::vector<std::string> in_file;
    for (auto&& one : file.records()) {
        in_file.push_back(text_of(one));
        EXPECT_TRUE(one.number % 2 == 0 || file.first()) << "moves the current record";
    }
    EXPECT_EQ(in_file, bodies());
    std::vector<std::string> by_key;
    for (auto&& one : keys.key(0)->all()) by_key.push_back(text_of(one));
    EXPECT_EQ(by_key, bodies());
    EXPECT_EQ(text_of(*file.get(4)), bodies()[3]);
    EXPECT_EQ(file.add({}).code(), face::wrong_length);
    EXPECT_EQ(file.update(1, bytes_of("ab")).code(), TS_UPDATE_LENGTH_DIFFERS);

    ASSERT_TRUE(file.close());
    std::string bytes = support::file_bytes(path("v.dat"));
    support::set_file_bytes(path("v.dat"), bytes.replace(4, 4, 4, '\0')); // the count of records
    file = *library_().rebuild(path("v.dat"));
    EXPECT_EQ(file.facts()->records, static_cast<int32_t>(bodies().size()));
    ASSERT_TRUE(file.erase(1));
    EXPECT_EQ(*file.purge(), 1);
    EXPECT_EQ(text_of(*file.first()), bodies()[1]);
}

// --- Files of other programs -------------------------------------------------------------------

TEST_F(Face, DeliversNothingOfTheRecordBeforeForADamagedOne)
{
    data_file file = towns();
    ASSERT_TRUE(file.close());
    std::string bytes = support::file_bytes(path("towns.dat"));
    const size_t record_bytes = sizeof(town) + 8;
    const size_t second = bytes.size() - 5 * record_bytes;
    bytes.replace(second + 4, 4, std::string("\x04\0\0\0", 4)); // the length in its frame
    support::set_file_bytes(path("towns.dat"), bytes);
    file = *library_().open(path("towns.dat"));
    EXPECT_EQ(id_of(*file.get(1)), 1);
    const town cut = *file.get(2)->as<town>();
    EXPECT_EQ(cut.id, 2);
    EXPECT_EQ(cut.height, 0);
    EXPECT_STREQ(cut.name, "");
}

TEST_F(Face, TakesAKeyThatReachesBeyondTheRecord)
{
    data_file file = towns();
    key_definition key =
        *layout::packed({{"skipped", 's', sizeof(town) - 4}, {"far", 's', 8}}).key({"far"});
    ASSERT_GE(tscrind32(file.handle(), path("far.idx").c_str(), 1, &key), 0);
    ASSERT_EQ(tsclosei32(file.handle(), 1), TS_OK);
    const index_file far = *file.open_index(path("far.idx"));
    ASSERT_TRUE(file.add(bytes_of(make_town(7, "DE", "Ulm", 478)), duplicates::allow));
    EXPECT_THAT(ids(far.key(0)->from(far.key(0)->pack(""))), ElementsAre(7));
}

// --- Misuse ------------------------------------------------------------------------------------

TEST_F(Face, AnswersMisuseWithReadableErrors)
{
    data_file file = towns();
    key_cursor key = *names.key(0);
    EXPECT_EQ(library::start().code(), face::already_started);
    EXPECT_EQ(library_().open(path("none.dat")).code(), TS_OPEN_DATA_NOT_THERE);
    EXPECT_THAT(library_().open(path("none.dat")).message(), HasSubstr("none.dat"));
    for (const int32_t number : {-1, 3, INT32_MAX})
        EXPECT_THAT(names.key(number).message(), HasSubstr("towns.idx has 3 keys"));
    EXPECT_EQ(file.add(bytes_of("short")).code(), face::wrong_length);
    EXPECT_EQ(file.update(1, bytes_of("short")).code(), face::wrong_length);
    EXPECT_EQ(file.get(1)->as<int>().code(), face::wrong_length);
    EXPECT_EQ(key.find(key.pack("CH", 5)).code(), face::does_not_fit);
    EXPECT_EQ(key.find(key_value{{}, 2, 12}).code(), face::wrong_length);
    EXPECT_EQ(key.find(names.key(1)->pack(1.0)).code(), face::wrong_length);
    EXPECT_EQ(file.lock().code(), TS_DATA_LOCK_SINGLE_USER);

    const key_definition beyond = *layout::packed({{"far", 's', 200}}).key({"far"});
    EXPECT_EQ(file.create_index(path("far.idx"), {&beyond, 1}).code(), face::bad_layout);
    EXPECT_FALSE(library::is_there(path("far.idx")));
}

TEST_F(Face, StopsAWalkWhoseCursorTheLoopMoves)
{
    const data_file file = towns();
    const key_cursor key = *names.key(0);
    int seen = 0;
    for (auto&& one : key.all()) {
        ++seen;
        if (id_of(one) == 6) (void)key.find(key.pack("AT", "Graz"));
    }
    EXPECT_EQ(seen, 2);
    EXPECT_EQ(key.walk_state().code(), face::cursor_moved);
    for (auto&& one : key.all()) EXPECT_TRUE(file.update(id_of(one), one.bytes));
    EXPECT_TRUE(key.walk_state()) << "an update in place moves no cursor";
}

TEST_F(Face, LeavesEmptyObjectsBehindAMoveAndAClose)
{
    data_file file = towns();
    key_cursor key = *names.key(0);
    const file_walk walk = file.records();
    data_file owner = std::move(file);
    EXPECT_EQ(file.get(1).code(), face::empty_handle);
    EXPECT_EQ(file.facts().code(), face::empty_handle);
    EXPECT_EQ(file.add(bytes_of("x")).code(), face::empty_handle);
    EXPECT_TRUE(owner.get(1));
    ASSERT_TRUE(owner.close());
    EXPECT_EQ(owner.get(1).code(), face::empty_handle);
    EXPECT_EQ(names.key(0).code(), face::empty_handle);
    EXPECT_EQ(key.first().code(), face::empty_handle);
    EXPECT_EQ(key.pack("CH").code(), face::empty_handle);
    key_walk gone = key.all();
    EXPECT_TRUE(gone.begin() == gone.end());
    EXPECT_EQ(gone.state().code(), face::empty_handle);
    EXPECT_EQ(key_cursor().next().code(), face::empty_handle);
    EXPECT_EQ(data_file().purge().code(), face::empty_handle);
    EXPECT_EQ(index_file().key(0).code(), face::empty_handle);

    // A file outlives the library object, and the library the file.
    owner = *library_().open(path("towns.dat"));
    started = status(TS_NOT_STARTED);
    EXPECT_TRUE(owner.get(1));
    owner = data_file();
    EXPECT_TRUE(library::start());
}

} // namespace
