// tarsil salvage.
#include <random>

#include "tests/tool/trees.h"

namespace tarsil::tests {

namespace {

class salvage : public trees {
protected:
    typed run(const std::string& more = {}) const
    {
        must("rm -f new.dat new.dat.fields");
        return type("tarsil salvage trees.dat new.dat " + more);
    }
    int saved() const
    {
        if (!is_there("new.dat")) return -1;
        expect_sound("new.dat");
        const std::string rows = must("tarsil export --deleted new.dat");
        return static_cast<int>(std::count(rows.begin(), rows.end(), '\n')) - 1;
    }
};

TEST_F(salvage, ASoundFileIsCopiedWhole)
{
    make_trees(100, 9);
    EXPECT_EQ(run().status, 0);
    EXPECT_EQ(read("new.dat"), read("trees.dat"));
    EXPECT_EQ(read("new.dat.fields"), read("trees.dat.fields"));
    EXPECT_EQ(run("--live").status, 0);
    EXPECT_EQ(saved(), 89);
    const typed dry = run("--dry-run --json");
    EXPECT_NE(dry.out.find("\"records\": 100"), dry.out.npos) << dry.out;
    EXPECT_FALSE(is_there("new.dat"));
}

TEST_F(salvage, WhatIsWholeIsSaved)
{
    make_trees(200, 9);
    const std::string whole = read("trees.dat");
    const auto without = [&](int from, int bytes) {
        return whole.substr(0, size_t(from)) + whole.substr(size_t(from + bytes));
    };
    const auto with = [&](int at, const std::string& bytes) {
        return std::string(whole).replace(size_t(at), bytes.size(), bytes);
    };
    const struct {
        const char* what;
        std::string bytes;
        int saved;
        int status;
        const char* options = "";
    } rows[] = {
        {"a wrong mark", with(0, "????"), 200, 0},
        {"a header of noise", with(0, std::string(28, '\x5A')), 200, 0},
        {"no header at all", with(0, std::string(first_frame, '\xFF')), 200, 0},
        {"a wrong record length", with(12, "\x40"), 200, 0},
        {"a header that tells fewer records", with(4, std::string("\1\0\0\0", 4)), 200, 0},
        {"a wrong end of the field table", with(20, "\x10"), 200, 0},
        {"one damaged frame", with(frame_of(50), "\xFF\xFF\xFF\xFF\xFF"), 199, 1},
        {"the same, its body wanted", with(frame_of(50), "\xFF\xFF\xFF\xFF\xFF"), 200, 1,
         "--doubtful"},
        {"every second frame of some",
         with(frame_of(50) + 4, "\xFF")
             .replace(size_t(frame_of(52) + 4), 1, "\xFF")
             .replace(size_t(frame_of(54) + 4), 1, "\xFF"),
         197, 1},
        {"a hole of zeros", with(frame_of(50), std::string(10 * stride, '\0')), 190, 1},
        {"a hole of zeros, doubtful", with(frame_of(50), std::string(10 * stride, '\0')), 190, 1,
         "--doubtful"},
        {"13 bytes lost", without(frame_of(80) + 5, 13), 199, 1},
        {"whole records lost", without(frame_of(80), 5 * stride), 195, 0},
        {"bytes put in",
         whole.substr(0, size_t(frame_of(9))) + "12345" + whole.substr(size_t(frame_of(9))), 200,
         1},
        {"half a record at the end", whole.substr(0, whole.size() - 9), 199, 1},
        {"zeros behind the end", whole + std::string(999, '\0'), 200, 0},
        {"noise behind the end", whole + std::string(999, '\x33'), 200, 1},
        {"a start that is told", with(0, std::string(400, '\xFF')), 191, 0,
         "--start 412 --record-length 32"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        write("trees.dat", row.bytes);
        const typed done = run(row.options);
        EXPECT_EQ(done.status, row.status) << done.out << done.err;
        EXPECT_EQ(saved(), row.saved) << done.out;
        EXPECT_TRUE(read("trees.dat") == row.bytes);
    }
}

// Frames of variable length are found again behind any damage.
TEST_F(salvage, VariableLength)
{
    make_notes(300);
    must("mv notes.dat trees.dat");
    const std::string whole = read("trees.dat");
    std::mt19937 random(7);
    for (int round = 0; round < 25; ++round) {
        SCOPED_TRACE(round);
        std::string bytes = whole;
        const int faults = 1 + round % 4;
        for (int i = 0; i < faults; ++i)
            bytes[44 + random() % (bytes.size() - 44)] ^= static_cast<char>(1 + random() % 255);
        write("trees.dat", bytes);
        EXPECT_NE(run().status, 2);
        EXPECT_GE(saved(), 300 - 2 * faults);
        EXPECT_LE(saved(), 300);
    }
    damage("trees.dat", 0, std::string(44, '\xEE'));
    EXPECT_NE(run().status, 2);
    EXPECT_GE(saved(), 290);
}

TEST_F(salvage, AnyContentIsTaken)
{
    make_trees(2);
    constexpr char marks[] = {' ', 'd', 0, 1, 2};
    std::mt19937 random(11);
    for (int round = 0; round < 20; ++round) {
        std::string noise(random() % 20000, '\0');
        for (char& byte : noise)
            byte = round % 2 == 0 ? static_cast<char>(random() % 256) : marks[random() % 5];
        write("trees.dat", noise);
        const typed done = run(round % 3 == 0 ? "--record-length variable" : "");
        EXPECT_GE(done.status, 0) << round;
        if (is_there("new.dat")) expect_sound("new.dat");
    }
}

TEST_F(salvage, WhatItRefusesMakesNothing)
{
    make_trees(500);
    write("taken.dat", "something");
    write("noise", std::string(3000, 'x'));
    const struct {
        const char* line;
        const char* says;
    } rows[] = {
        {"tarsil salvage trees.dat taken.dat", "exists already"},
        {"tarsil salvage trees.idx new.dat", "is an index file"},
        {"tarsil salvage noise new.dat", "no records were found"},
        {"tarsil salvage nowhere new.dat", "there is no such file"},
        {"tarsil salvage trees.dat no/new.dat", "no/new.dat"},
        {"tarsil salvage trees.dat new.dat --record-length none", "is no length"},
        {"tarsil salvage trees.dat new.dat --field id", "no type"},
        {"ulimit -f 10; tarsil salvage trees.dat new.dat", "limit for the size of files"},
    };
    for (const auto& row : rows) {
        const typed done = type(row.line);
        EXPECT_EQ(done.status, 2) << row.line << done.out;
        EXPECT_TRUE(is_one_line(done.err)) << done.err;
        EXPECT_NE(done.err.find(row.says), done.err.npos) << done.err;
        EXPECT_EQ(must("ls").find("new.dat"), std::string::npos);
    }
    EXPECT_EQ(read("taken.dat"), "something");
}

} // namespace

} // namespace tarsil::tests
