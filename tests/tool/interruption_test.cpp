// Kills of compact, reindex and repair: at every step between which files change their names, and
// at random moments. TOOL_KILL_ROUNDS tells how many of the latter (10), TOOL_KILL_SEED which.
#include <random>

#include "tests/support/child_process.h"
#include "tests/support/settings.h"
#include "tests/tool/trees.h"

#include "tarsil32.h"

namespace tarsil::tests {

namespace {

constexpr int killed = 128 + SIGKILL;
constexpr const char* all_files = "trees.dat trees.idx far/height.idx";
constexpr int all_records = 300;
constexpr int live_records = 258;

class interruption : public trees {
protected:
    void SetUp() override { make_all(all_records); }
    void make_all(int records) const
    {
        make_trees(records, 7);
        must("mkdir far && tarsil index trees.dat far/height.idx --key height,id");
        must("mkdir kept && cp -p trees.dat trees.idx far/height.idx trees.dat.fields kept");
    }
    void restore() const
    {
        must("rm -rf far trees.* && mkdir far && cp -p kept/trees.* . && "
             "cp -p kept/height.idx far");
    }
    typed stumble(const std::string& command, int at) const
    {
        return type("ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" TOOL_STUMBLE_LIBRARY
                    " TOOL_STUMBLE=" +
                    std::to_string(at) + " " + command);
    }
    // How many records the data file has, as the checker sees it, all files being sound.
    int checked_records() const
    {
        const typed checked = type(std::string("tarsil check --json ") + all_files);
        EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
        const std::string name = "\"records\": ";
        const size_t at = checked.out.find(name);
        return at == checked.out.npos ? -1 : std::stoi(checked.out.substr(at + name.size()));
    }
    bool is_as_before() const
    {
        return read("trees.dat") == read("kept/trees.dat") &&
               read("trees.idx") == read("kept/trees.idx") &&
               read("far/height.idx") == read("kept/height.idx");
    }
    std::string folder_list() const { return must("ls -A . far | grep -v '^[.]\\(out\\|err\\)$'"); }
};

// After each kill the checker is content; the next command that opens the file finishes what was
// begun, or nothing was; and the next compaction leaves no trace of the killed one.
TEST_F(interruption, CompactAtEveryStep)
{
    const std::string compact = std::string("tarsil compact ") + all_files;
    must(compact);
    const std::string clean = folder_list();
    int planned = 0;
    int step = 1;
    for (;; ++step) {
        SCOPED_TRACE(step);
        restore();
        const typed done = stumble(compact, step);
        if (done.status == 0) break;
        ASSERT_EQ(done.status, killed) << done.err;
        const bool is_planned = is_there("trees.dat.compacting");
        planned += is_planned ? 1 : 0;
        const int records = checked_records();
        EXPECT_EQ(records == live_records, is_planned || !is_as_before());
        const typed opened = type("tarsil get trees.dat 1");
        EXPECT_EQ(opened.status, 0) << opened.err;
        EXPECT_EQ(opened.err.find("has been finished") != opened.err.npos, is_planned);
        EXPECT_FALSE(is_there("trees.dat.compacting"));
        EXPECT_EQ(checked_records(), records);
        EXPECT_TRUE(records == live_records || (records == all_records && is_as_before()));
        must(compact);
        EXPECT_EQ(checked_records(), live_records);
        EXPECT_EQ(folder_list(), clean);
    }
    EXPECT_GT(planned, 5);
    EXPECT_GT(step, 20);
}

// A program that knows nothing of the journal adds a record before the next command comes: nothing
// of what it added is lost.
TEST_F(interruption, CompactAndThenAnAddByAnotherProgram)
{
    const std::string data = folder.file("trees.dat");
    int undone = 0;
    for (int step = 1;; ++step) {
        SCOPED_TRACE(step);
        restore();
        if (stumble(std::string("tarsil compact ") + all_files, step).status == 0) break;
        if (!is_there("trees.dat.compacting")) continue;
        support::child_process other([&](const support::child_line& line) {
            line.step([&] {
                tsinit32();
                const char record[tree_bytes] = "\x7F\x7F\x7F\x7F!";
                const int32_t file = tsopend32(data.c_str());
                return tsadd32(file, record, tree_bytes, 'y') + tsclosed32(file);
            });
        });
        ASSERT_EQ(other.next(), 0);
        const typed settled = type("tarsil get trees.dat 1");
        EXPECT_EQ(settled.status, 0) << settled.err;
        const bool is_undone = settled.err.find("has been undone") != settled.err.npos;
        undone += is_undone ? 1 : 0;
        must(std::string("tarsil reindex ") + all_files);
        EXPECT_EQ(checked_records(), is_undone ? all_records + 1 : live_records + 1);
        EXPECT_NE(must("tarsil export trees.dat").find("2139062143"), std::string::npos);
        EXPECT_EQ(folder_list().find("compact"), std::string::npos);
    }
    EXPECT_GT(undone, 0);
}

// The files beside are as they were, and the next run mends what the killed one left.
TEST_F(interruption, ReindexAndRepairAtEveryStep)
{
    const std::string torn = read("trees.dat").substr(0, size_t(frame_of(250) + 20));
    for (const std::string command : {"reindex trees.dat trees.idx", "repair trees.dat"}) {
        const bool repairs = command.starts_with("repair");
        for (int step = 1;; ++step) {
            SCOPED_TRACE(command + std::to_string(step));
            restore();
            if (repairs) write("trees.dat", torn);
            const typed done = stumble("tarsil " + command, step);
            if (!repairs) { EXPECT_EQ(checked_records(), all_records); }
            if (done.status == 0) break;
            ASSERT_EQ(done.status, killed) << done.err;
            must("tarsil " + command);
            EXPECT_FALSE(is_there("trees.idx.reindexing"));
            must("tarsil check trees.dat");
        }
    }
}

TEST_F(interruption, AtRandomMoments)
{
    constexpr int many = 5000;
    constexpr int live = many - many / 7;
    must("rm -rf far kept trees.*");
    make_all(many);
    const long long rounds = support::setting("TOOL_KILL_ROUNDS", 10);
    const long long seed = support::setting("TOOL_KILL_SEED", std::random_device()() & 0xFFFFFF);
    std::mt19937 random(static_cast<unsigned>(seed));
    for (const std::string command : {"compact", "reindex"}) {
        const std::string line = "tarsil " + command + " " + all_files;
        const auto start = std::chrono::steady_clock::now();
        must(line);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        std::uniform_real_distribution<double> moment(0.001, took.count());
        long long kills = 0;
        for (long long round = 0; round < rounds; ++round) {
            restore();
            const std::string delay = std::to_string(moment(random));
            SCOPED_TRACE("seed " + std::to_string(seed) + ": " + command + ", " + delay);
            kills += type("timeout -s KILL " + delay + " " + line).status == killed;
            const int records = checked_records();
            const bool is_compacted = command == "compact" && records == live;
            EXPECT_TRUE(is_compacted || records == many);
            EXPECT_TRUE(is_compacted || command == "reindex" || is_as_before());
            must("tarsil get trees.dat 1");
            EXPECT_EQ(checked_records(), records);
        }
        support::tell_total(("kills of tarsil " + command).c_str(), kills, seed);
        EXPECT_GT(kills, 0);
    }
}

} // namespace

} // namespace tarsil::tests
