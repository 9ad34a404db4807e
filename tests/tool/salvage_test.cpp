// How much tarsil salvage saves of damaged files; that no content is in its way is told by
// fuzz/salvage.cpp.
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
        must("tarsil check new.dat");
        const std::string rows = must("tarsil export --deleted new.dat");
        return static_cast<int>(std::count(rows.begin(), rows.end(), '\n')) - 1;
    }
};

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
    write("trees.dat", std::string(44, '\xEE') + whole.substr(44));
    EXPECT_NE(run().status, 2);
    EXPECT_GE(saved(), 290);
}

} // namespace

} // namespace tarsil::tests
