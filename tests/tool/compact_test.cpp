// tarsil compact; what a kill leaves of it stands in interruption_test.cpp.
#include "tests/support/child_process.h"
#include "tests/tool/trees.h"

#include "tarsil32.h"

namespace tarsil::tests {

namespace {

using compact = trees;

TEST_F(compact, LiveRecordsStayInTheirOrderAndTheRestOfTheSpaceGoes)
{
    make_trees(500, 3);
    const std::string live = must("tarsil export trees.dat");
    const std::string before = read("trees.dat") + read("trees.idx");
    EXPECT_NE(must("tarsil compact --dry-run trees.dat trees.idx").find("166 deleted"),
              std::string::npos);
    EXPECT_EQ(read("trees.dat") + read("trees.idx"), before);
    must("chmod 604 trees.dat");
    const std::string told = must("tarsil compact trees.dat trees.idx");
    EXPECT_NE(told.find("166 deleted records taken out, 334 left"), told.npos) << told;
    EXPECT_EQ(read("trees.dat").size(), size_t(frame_of(335)));
    EXPECT_EQ(must("tarsil export trees.dat"), live);
    EXPECT_EQ(must("stat -c %a trees.dat"), "604\n");
    expect_sound();
    const std::string compacted = read("trees.dat") + read("trees.idx");
    must("tarsil compact trees.dat trees.idx");
    EXPECT_EQ(read("trees.dat") + read("trees.idx"), compacted);
}

TEST_F(compact, VariableLengthAndNothingLeft)
{
    make_notes(200);
    must("tarsil index notes.dat notes.idx --key id");
    must("tarsil delete notes.dat 1 2 3 200");
    const std::string live = must("tarsil export notes.dat");
    must("tarsil compact notes.dat notes.idx");
    EXPECT_EQ(must("tarsil export notes.dat"), live);
    expect_sound("notes.dat notes.idx");
    make_trees(3, 1);
    must("tarsil compact trees.dat trees.idx");
    EXPECT_EQ(read("trees.dat").size(), size_t(first_frame));
    expect_sound();
}

TEST_F(compact, WhatItRefusesStaysAsItIs)
{
    make_trees(2000, 2);
    write("foreign", std::string(4000, 'x'));
    const std::string data = read("trees.dat");
    const std::string index = read("trees.idx");
    const auto refuses = [&](const std::string& line, const std::string& says) {
        const typed done = type(line);
        EXPECT_EQ(done.status, 2) << line << done.out;
        EXPECT_TRUE(is_one_line(done.err)) << done.err;
        EXPECT_NE(done.err.find(says), says.npos) << done.err;
        EXPECT_TRUE(read("trees.idx") == index);
        EXPECT_EQ(must("ls").find("compact"), says.npos);
    };
    refuses("ulimit -f 20; tarsil compact trees.dat trees.idx", "limit for the size of files");
    refuses("ulimit -f 60; tarsil compact trees.dat trees.idx", "limit for the size of files");
    refuses("tarsil compact foreign", "no data file");
    refuses("tarsil compact trees.idx", "no data file");
    refuses("tarsil compact trees.dat foreign", "mark of an index file");
    refuses("tarsil compact trees.dat nowhere.idx", "there is no such file");
    EXPECT_TRUE(read("trees.dat") == data);
    set_header_back(1000);
    refuses("tarsil compact trees.dat trees.idx", "is damaged");
    write("trees.dat", data);

    const std::string name = folder.file("trees.dat");
    support::child_process other([&](const support::child_line& line) {
        tsinit32();
        tsmuser32('y');
        line.step([&] { return tsopend32(name.c_str()); });
        line.step([&] { return tsclosed32(0); });
    });
    EXPECT_EQ(other.next(), 0);
    refuses("tarsil compact --wait 0 trees.dat trees.idx", std::to_string(other.id()));
    EXPECT_EQ(other.next(), 0);
}

TEST_F(compact, AJournalThatIsNoneIsLeftAlone)
{
    make_trees(20, 2);
    write("trees.dat.compacting", "a note of the user's\n");
    EXPECT_EQ(type("tarsil compact trees.dat trees.idx").status, 2);
    EXPECT_EQ(type("tarsil get trees.dat 1").status, 2);
    EXPECT_NE(type("tarsil check trees.dat trees.idx").err.find("no journal"), std::string::npos);
    EXPECT_EQ(read("trees.dat.compacting"), "a note of the user's\n");
}

} // namespace

} // namespace tarsil::tests
