// tarsil reindex.
#include "tests/support/child_process.h"
#include "tests/tool/trees.h"

#include "tarsil32.h"

namespace tarsil::tests {

namespace {

using reindex = trees;

TEST_F(reindex, TheKeysComeFromTheOldFileWhateverItsTrees)
{
    make_trees(300, 11);
    const std::string built = read("trees.idx");
    must("tarsil reindex trees.dat trees.idx");
    const std::string again = read("trees.idx");
    for (const size_t from : {size_t{2216}, size_t{24}, size_t{2300}}) {
        write("trees.idx", built);
        damage("trees.idx", from, std::string(from == 24 ? 4 : 1500, '\xA5'));
        EXPECT_NE(type("tarsil check trees.dat trees.idx").status, 0);
        must("tarsil reindex trees.dat trees.idx");
        EXPECT_EQ(read("trees.idx"), again);
    }
    cut("trees.idx", 2216);
    must("tarsil reindex trees.dat trees.idx");
    EXPECT_EQ(read("trees.idx"), again);
    expect_sound();
}

TEST_F(reindex, KeysCanBeTold)
{
    make_trees(100);
    damage("trees.idx", 8 + 8, int32_t{99});
    EXPECT_EQ(type("tarsil reindex trees.dat trees.idx").status, 2);
    must("tarsil reindex trees.dat trees.idx --key height,id");
    expect_sound();
    must("tarsil reindex trees.dat new.idx --key id");
    expect_sound("trees.dat new.idx");
    EXPECT_EQ(type("tarsil reindex trees.dat new.idx trees.idx --key id").status, 2);
    EXPECT_EQ(type("tarsil reindex trees.dat new.idx --key nothing").status, 2);
}

TEST_F(reindex, WhatItRefusesStaysAsItIs)
{
    make_trees(100);
    make_notes(5);
    write("foreign", std::string(4000, 'x'));
    write("empty", "");
    damage("trees.idx", 2300, std::string(64, '\xEE'));
    const std::string index = read("trees.idx");
    const struct {
        std::string files;
        const char* says;
    } rows[] = {
        {"trees.dat foreign", "mark of an index file"},
        {"trees.dat empty", "mark of an index file"},
        {"trees.dat trees.dat", "mark of an index file"},
        {"trees.dat foreign --key id", "mark of an index file"},
        {"trees.dat nowhere.idx", "there is no such file"},
        {"trees.idx trees.idx", "data file"},
        {"nowhere.dat trees.idx", "there is no such file"},
    };
    for (const auto& row : rows) {
        const typed done = type("tarsil reindex " + row.files);
        EXPECT_EQ(done.status, 2) << row.files;
        EXPECT_TRUE(is_one_line(done.err)) << done.err;
        EXPECT_NE(done.err.find(row.says), done.err.npos) << done.err;
    }
    EXPECT_EQ(read("foreign"), std::string(4000, 'x'));
    must("tarsil reindex --dry-run trees.dat trees.idx");
    EXPECT_EQ(read("trees.idx"), index);
    set_header_back(50);
    EXPECT_EQ(type("tarsil reindex trees.dat trees.idx").status, 2);
    EXPECT_EQ(read("trees.idx"), index);
}

// Neither a full disk nor what a killed run left is in the way of the old file or of the next run.
TEST_F(reindex, TheOldFileStaysUntilTheNewOneIsWhole)
{
    make_trees(2000);
    const std::string index = read("trees.idx");
    const typed full = type("ulimit -f 40; tarsil reindex trees.dat trees.idx");
    EXPECT_EQ(full.status, 2);
    EXPECT_TRUE(is_one_line(full.err)) << full.err;
    EXPECT_EQ(read("trees.idx"), index);
    EXPECT_FALSE(is_there("trees.idx.reindexing"));
    write("trees.idx.reindexing", index.substr(0, 5000));
    must("tarsil reindex trees.dat trees.idx");
    EXPECT_FALSE(is_there("trees.idx.reindexing"));
    write("trees.idx.reindexing", "something of the user's");
    EXPECT_EQ(type("tarsil reindex trees.dat trees.idx").status, 2);
    EXPECT_EQ(read("trees.idx.reindexing"), "something of the user's");
    expect_sound();
}

TEST_F(reindex, TheFileKeepsItsPermissionsAndItsLinks)
{
    make_trees(50);
    must("mkdir far && mv trees.idx far && chmod 640 far/trees.idx && ln -s far/trees.idx "
         "trees.idx");
    must("tarsil reindex trees.dat trees.idx");
    EXPECT_EQ(must("stat -c %a far/trees.idx && readlink trees.idx"), "640\nfar/trees.idx\n");
    expect_sound();
}

TEST_F(reindex, FilesInUseAreLeftAloneAndTheProcessIsNamed)
{
    make_trees(50);
    const std::string data = folder.file("trees.dat");
    const std::string index = folder.file("trees.idx");
    support::child_process other([&](const support::child_line& line) {
        tsinit32();
        tsmuser32('y');
        char cursors[] = "yy";
        line.step([&] { return tsopend32(data.c_str()); });
        line.step([&] { return tsopeni32(0, index.c_str(), cursors); });
        line.step([&] { return tsclosed32(0); });
    });
    EXPECT_EQ(other.next(), 0);
    EXPECT_EQ(other.next(), 0);
    const std::string before = read("trees.idx");
    const typed refused = type("tarsil reindex --wait 0 trees.dat trees.idx");
    EXPECT_EQ(refused.status, 2);
    EXPECT_TRUE(is_one_line(refused.err)) << refused.err;
    EXPECT_NE(refused.err.find(std::to_string(other.id())), before.npos) << refused.err;
    EXPECT_EQ(read("trees.idx"), before);
    EXPECT_EQ(other.next(), 0);
    must("tarsil reindex --wait 0 trees.dat trees.idx");
}

} // namespace

} // namespace tarsil::tests
