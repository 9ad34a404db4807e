// Power cuts, at every write of random operations with write-through on. The disk keeps what was
// flushed; of what was written since, it keeps any part: nothing, pieces of sectors, in any order.
// What was acknowledged has to be there again:
//   - between two operations both files are sound as they are, with every record and every key; but
//     where a key's root has a new place, that is flushed with the next node;
//   - within one, the records that it doesn't concern are there after the file's end has been cut
//     to whole records and tsrbdbh32 has counted them, and an index built anew is sound.
//
// TARSIL32_CUT_ROUNDS (1) says how many times as many cuts are made, TARSIL32_CUT_SEED from which
// seed all is drawn.
#include "data/data_format.h"
#include "index/index_format.h"
#include "tests/support/checked.h"
#include "tests/support/library_fixture.h"
#include "tests/support/settings.h"

#include <map>
#include <random>

namespace tarsil {
namespace {

using namespace support;

constexpr const char* data_name = "cut.dat";
constexpr const char* index_name = "cut.idx";
constexpr size_t sector_bytes = 64; // small, so that records and nodes lie across several

using files = std::map<std::string, std::string>;

// What a disk has been told and what it has been made to keep.
class disk {
public:
    explicit disk(files flushed) : flushed_(std::move(flushed)) {}

    void take(const sim::logged& told)
    {
        if (told.kind != sim::call::flush) {
            waiting_.push_back(told);
            return;
        }
        for (const sim::logged& each : waiting_)
            if (each.file == told.file) put(flushed_, each, 0, each.written.size());
        std::erase_if(waiting_, [&](const sim::logged& each) { return each.file == told.file; });
    }

    // The parts of the index, from `from` up to `to`, have nothing that isn't flushed.
    bool has_all_of_index(int64_t from, int64_t to) const
    {
        return std::none_of(waiting_.begin(), waiting_.end(), [&](const sim::logged& each) {
            return each.file == index_name && each.offset >= from && each.offset < to;
        });
    }

    // What stands there after a cut.
    files after_cut(std::mt19937_64& random) const
    {
        struct piece {
            const sim::logged* of;
            size_t from;
            size_t bytes;
        };
        std::vector<piece> pieces;
        for (const sim::logged& each : waiting_) {
            for (size_t from = 0; from < each.written.size();) {
                const size_t left = sector_bytes -
                                    (static_cast<size_t>(each.offset) + from) % sector_bytes;
                const size_t bytes = std::min(left, each.written.size() - from);
                pieces.push_back({&each, from, bytes});
                from += bytes;
            }
        }
        std::shuffle(pieces.begin(), pieces.end(), random);
        files kept = flushed_;
        for (const piece& one : pieces) {
            const uint64_t fate = random() % 4;
            if (fate == 0) continue;
            const size_t bytes = fate == 1 ? random() % (one.bytes + 1) : one.bytes;
            put(kept, *one.of, one.from, bytes);
        }
        return kept;
    }

private:
    static void put(files& into, const sim::logged& told, size_t from, size_t bytes)
    {
        if (bytes == 0) return;
        overwrite(into[told.file], static_cast<size_t>(told.offset) + from,
                  std::string_view(told.written).substr(from, bytes));
    }

    files flushed_;
    std::vector<sim::logged> waiting_;
};

struct workload {
    const char* name;
    mode how;
    int32_t record_length; // or TS_VARIABLE_LENGTH
    char reuse;
    int32_t longest = 161; // body in a file of variable length
    int32_t operations = 60;
};

void PrintTo(const workload& of, std::ostream* out) { *out << of.name; }

class PowerCut : public Library, public testing::WithParamInterface<workload> {
protected:
    void TearDown() override
    {
        tell_total("power cuts", cuts, seed);
        Library::TearDown();
    }

    // Operations, with the number of effects and the records behind each of them.
    void operate()
    {
        switch_to(GetParam().how);
        tsdelow32(GetParam().reuse);
        data = tscrdata32(data_name, GetParam().record_length, 0, nullptr);
        std::vector<key_definition> keys = definitions();
        ASSERT_GE(tscrind32(data, index_name, 2, keys.data()), 0);
        for (int32_t i = 0; i < 10; ++i) add();
        ASSERT_EQ(tsclosed32(data), TS_OK);
        data = tsopend32(data_name);
        char cursors[] = "yn";
        ASSERT_GE(tsopeni32(data, index_name, cursors), 0);

        at_start = {{data_name, sim::bytes(data_name)}, {index_name, sim::bytes(index_name)}};
        sim::start_recording();
        note_state();
        for (int32_t i = 0; i < GetParam().operations; ++i) {
            any_operation();
            note_state();
        }
    }

    static std::vector<key_definition> definitions()
    {
        return {define_key(2, {{'i'}}), define_key(2, {{'s', 5, 4}, {'c', 1, 3}}, 'n')};
    }

    std::string body()
    {
        const int32_t length = GetParam().record_length;
        const auto range = static_cast<uint64_t>(GetParam().longest - 11);
        const size_t bytes = length > 0 ? static_cast<size_t>(length) : 12 + random() % range;
        std::string made(bytes, static_cast<char>('a' + random() % 5));
        return made.replace(0, 4, i32(static_cast<int32_t>(random() % 50)));
    }

    void add()
    {
        const std::string made = body();
        EXPECT_EQ(tsadd32(data, made.data(), static_cast<int32_t>(made.size()), 'y'), TS_OK);
    }

    // Half of them behind the fields of the keys, and so in place.
    void update(int32_t number)
    {
        const size_t index = static_cast<size_t>(number - 1);
        std::string made = records_in(sim::bytes(data_name)).at(index).body;
        made.back() = static_cast<char>(made.back() + 1);
        if (random() % 2 == 0) made.replace(0, 4, i32(static_cast<int32_t>(random() % 50)));
        std::string scratch = made;
        int32_t deleted = 0;
        EXPECT_GE(tsupd32(data, number, made.data(), static_cast<int32_t>(made.size()), &deleted,
                          scratch.data(), 2),
                  0);
    }

    void any_operation()
    {
        const std::vector<stored_record> records = records_in(sim::bytes(data_name));
        const size_t index = random() % records.size();
        const auto number = static_cast<int32_t>(index) + 1;
        const uint64_t kind = random() % 6;
        if (kind > 2)
            add();
        else if (records[index].mark == mark_deleted)
            EXPECT_EQ(tsundeld32(data, number), TS_OK);
        else if (kind == 2)
            update(number);
        else
            EXPECT_EQ(tsdeld32(data, number), TS_OK);
    }

    // What a disk has been told since operate() began.
    static std::vector<sim::logged> effects()
    {
        std::vector<sim::logged> told;
        for (const sim::logged& each : sim::log())
            if (each.kind == sim::call::write || each.kind == sim::call::flush)
                told.push_back(each);
        return told;
    }

    void note_state()
    {
        ends.push_back(effects().size());
        states.push_back(records_in(sim::bytes(data_name)));
    }

    // All cuts of what operate() did.
    void cut_everywhere()
    {
        const std::vector<sim::logged> log = effects();
        finish();
        disk told(at_start);
        size_t done = 0; // operations
        for (size_t i = 0; i < log.size() && !HasFailure(); ++i) {
            told.take(log[i]);
            while (done + 1 < ends.size() && ends[done + 1] <= i + 1) ++done;
            const bool is_between = ends[done] == i + 1;
            SCOPED_TRACE("after call " + std::to_string(i) + " of operation " +
                         std::to_string(done) + ", seed " + std::to_string(seed));
            for (long long round = 0; round < (is_between ? 1 : rounds); ++round) {
                const files kept = told.after_cut(random);
                ++cuts;
                if (is_between)
                    expect_all(kept, states[done], told);
                else
                    expect_untouched(kept, states[done], states[done + 1]);
            }
        }
    }

    // Or the disk would be too good to lose anything.
    void expect_losses_without_flushes()
    {
        disk told(at_start);
        for (const sim::logged& each : effects())
            if (each.kind == sim::call::write) told.take(each);
        int32_t sound = 0;
        for (int32_t i = 0; i < 20; ++i)
            sound += check_data(told.after_cut(random).at(data_name)).findings.is_sound() ? 1 : 0;
        EXPECT_LT(sound, 20);
    }

    static void expect_sound(const std::string& data_bytes, const std::string& index_bytes)
    {
        EXPECT_TRUE(check_data(data_bytes).findings.is_sound());
        EXPECT_TRUE(check_index(index_bytes, data_bytes).is_sound());
    }

    static void expect_all(const files& kept, const std::vector<stored_record>& records,
                           const disk& told)
    {
        const std::string& bytes = kept.at(data_name);
        EXPECT_TRUE(check_data(bytes).findings.is_sound());
        EXPECT_EQ(records_in(bytes), records);
        EXPECT_TRUE(told.has_all_of_index(first_node_offset, INT32_MAX));
        if (told.has_all_of_index(0, first_node_offset)) expect_sound(bytes, kept.at(index_name));
    }

    // Of an operation that was cut, the records that are the same before and after it.
    static void expect_untouched(const files& kept, const std::vector<stored_record>& before,
                                 const std::vector<stored_record>& after)
    {
        const std::vector<stored_record> found = repaired(kept.at(data_name));
        for (size_t i = 0; i < before.size(); ++i) {
            if (before[i] != after[i]) continue;
            ASSERT_LT(i, found.size()) << "records are lost";
            EXPECT_EQ(found[i], before[i]) << "record " << i + 1;
        }
        EXPECT_LE(found.size(), after.size());
    }

    // The file cut to whole records, counted anew and with an index that is built anew.
    static std::vector<stored_record> repaired(std::string data_bytes)
    {
        const check::data_report report = check_data(data_bytes);
        if (!report.is_whole) data_bytes.resize(static_cast<size_t>(report.walk_end));
        sim::reset();
        tsinit32();
        sim::set_bytes(data_name, data_bytes);
        std::string buffer(data_bytes.size(), ' ');
        const int32_t opened = tsrbdbh32(data_name, buffer.data());
        EXPECT_GE(opened, 0);
        std::vector<key_definition> keys = definitions();
        EXPECT_GE(tscrindd32(opened, index_name, 2, keys.data(), buffer.data()), 0);
        EXPECT_EQ(tsclosed32(opened), TS_OK);
        tsfree32();
        expect_sound(sim::bytes(data_name), sim::bytes(index_name));
        return records_in(sim::bytes(data_name));
    }

    const long long rounds = setting("TARSIL32_CUT_ROUNDS", 1);
    const long long seed = setting("TARSIL32_CUT_SEED", 31);
    std::mt19937_64 random{static_cast<uint64_t>(seed)};
    int32_t data = -1;
    files at_start;
    std::vector<size_t> ends;
    std::vector<std::vector<stored_record>> states;
    long long cuts = 0;
};

TEST_P(PowerCut, LosesNothingThatWasAcknowledged)
{
    operate();
    expect_losses_without_flushes();
    cut_everywhere();
    begin();
}

constexpr workload workloads[] = {
    {"single_fixed", mode::write_through, 20, 'n'},
    {"single_reuse", mode::write_through, 20, 'y'},
    {"single_variable", mode::write_through, TS_VARIABLE_LENGTH, 'n'},
    {"shared_fixed", mode::shared_write_through, 20, 'n'},
    {"shared_reuse", mode::shared_write_through, 20, 'y'},
    {"shared_variable", mode::shared_write_through, TS_VARIABLE_LENGTH, 'n'},
    {"single_long", mode::write_through, 4100, 'y', 0, 25},
    {"shared_long", mode::shared_write_through, 4100, 'y', 0, 25},
    {"single_long_variable", mode::write_through, TS_VARIABLE_LENGTH, 'n', 20000, 25},
    {"shared_long_variable", mode::shared_write_through, TS_VARIABLE_LENGTH, 'n', 20000, 25},
};
INSTANTIATE_TEST_SUITE_P(Workloads, PowerCut, testing::ValuesIn(workloads),
                         [](const auto& of) { return of.param.name; });

} // namespace
} // namespace tarsil
