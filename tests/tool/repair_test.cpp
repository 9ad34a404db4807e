// tarsil repair.
#include "tests/tool/trees.h"

namespace tarsil::tests {

namespace {

using repair = trees;

// Half a record of any size at the end is cut, all records before it stay, and the header counts
// them all.
TEST_F(repair, HalfARecordAtTheEndIsCutAndNothingElse)
{
    make_trees(50, 7);
    const std::string whole = read("trees.dat");
    for (int left = 0; left < stride; left += left < 9 ? 1 : 6) {
        SCOPED_TRACE(left);
        write("trees.dat", whole.substr(0, static_cast<size_t>(frame_of(50) + left)));
        set_header_back(30);
        const std::string before = read("trees.dat");
        must("tarsil repair --dry-run trees.dat");
        EXPECT_EQ(read("trees.dat"), before);
        const std::string told = must("tarsil repair trees.dat");
        EXPECT_NE(told.find("49 records, 7 of them deleted"), told.npos) << told;
        EXPECT_EQ(told.find(std::to_string(left) + " bytes of half a record") != told.npos,
                  left > 0)
            << told;
        expect_sound("trees.dat");
        EXPECT_EQ(read("trees.dat").substr(first_frame),
                  whole.substr(first_frame, static_cast<size_t>(frame_of(50) - first_frame)));
    }
}

TEST_F(repair, ASoundFileIsLeftAsItIs)
{
    make_trees(20, 3);
    const std::string before = read("trees.dat");
    EXPECT_NE(must("tarsil repair trees.dat trees.idx").find("nothing to repair"), before.npos);
    EXPECT_EQ(read("trees.dat"), before);
    must("tarsil purge trees.dat trees.idx");
    const std::string purged = read("trees.dat");
    must("tarsil repair trees.dat");
    EXPECT_EQ(read("trees.dat"), purged);
    set_header_back(5);
    must("tarsil repair trees.dat trees.idx");
    EXPECT_EQ(read("trees.dat"), purged);
}

// More is wrong than a header can tell: nothing is cut and nothing is written.
TEST_F(repair, WhatItCantMendStaysAsItIs)
{
    make_trees(50);
    make_notes(50);
    const std::string data = read("trees.dat");
    const std::string notes = read("notes.dat");
    const struct {
        const char* what;
        const char* file;
        std::string bytes;
        size_t offset;
    } rows[] = {
        {"a frame in the middle", "trees.dat", std::string(8, '\xFF'), size_t(frame_of(20))},
        {"the last frame, wrong in its length", "trees.dat", "\x7F", size_t(frame_of(50) + 4)},
        {"one record of another length", "trees.dat", "\x21", size_t(frame_of(50) + 4)},
        {"the length of an early record", "notes.dat", std::string("\0\1\0\0", 4), 44 + 4},
        {"the mark", "trees.dat", "XSD", 1},
        {"the length of the field table", "trees.dat", "\x19", 20},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        write("trees.dat", data);
        write("notes.dat", notes);
        damage(row.file, row.offset, row.bytes);
        const std::string before = read(row.file);
        const typed done = type(std::string("tarsil repair ") + row.file);
        EXPECT_EQ(done.status, 2) << done.out;
        EXPECT_TRUE(is_one_line(done.err)) << done.err;
        EXPECT_NE(done.err.find("tarsil salvage"), done.err.npos) << done.err;
        EXPECT_EQ(read(row.file), before);
    }
}

TEST_F(repair, RecordsOfSeveralLengthsNeedAWord)
{
    make_trees(10);
    const std::string longer = std::string(" \0\0\0\x21\0\0\0", 8) + std::string(33, 'x');
    write("trees.dat", read("trees.dat") + longer + longer);
    set_header_back(9);
    const std::string before = read("trees.dat");
    const typed refused = type("tarsil repair trees.dat");
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("would become a file of variable length"), refused.err.npos);
    EXPECT_EQ(read("trees.dat"), before);
    EXPECT_NE(must("tarsil repair --variable trees.dat").find("12 records"), before.npos);
    expect_sound("trees.dat");
}

TEST_F(repair, IndexFilesThatNoLongerFitAreTold)
{
    make_trees(40);
    cut("trees.dat", size_t(frame_of(40) + 11));
    const typed done = type("tarsil repair trees.dat trees.idx");
    EXPECT_EQ(done.status, 1);
    const std::string told = "tarsil reindex trees.dat trees.idx\n";
    ASSERT_NE(done.out.find(told), told.npos) << done.out;
    must(told);
    expect_sound();
}

} // namespace

} // namespace tarsil::tests
