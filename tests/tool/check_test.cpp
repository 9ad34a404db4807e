// tarsil check, and that the command that it names mends what it found.
#include <functional>

#include "tests/support/child_process.h"
#include "tests/tool/trees.h"

#include "tarsil32.h"

namespace tarsil::tests {

namespace {

using check_command = trees;

TEST_F(check_command, SoundFilesAreToldInWordsAndInJson)
{
    make_trees(200, 10);
    const std::string before = read("trees.dat") + read("trees.idx");
    const std::string words = must("tarsil check trees.dat trees.idx");
    EXPECT_NE(words.find("trees.dat: sound; 200 records, 20 of them deleted"), words.npos) << words;
    EXPECT_NE(words.find("key 1: 200 entries"), words.npos) << words;
    const std::string json = must("tarsil check --json trees.dat trees.idx");
    EXPECT_NE(json.find("\"mended_by\": null"), json.npos) << json;
    EXPECT_NE(json.find("\"may_be_in_change\": false"), json.npos) << json;
    EXPECT_EQ(read("trees.dat") + read("trees.idx"), before);
}

// Every file is mended by the commands in their order; only saving into a new file is not tried
// here.
TEST_F(check_command, DamageIsFoundAndMendedByTheCommandThatIsTold)
{
    struct damage_row {
        const char* what;
        std::function<void()> damage;
        const char* rule;
        const char* command;
    };
    make_trees(200);
    const std::string data = read("trees.dat");
    const std::string index = read("trees.idx");
    const damage_row rows[] = {
        {"a header behind its records", [&] { set_header_back(150); }, "D5", "repair"},
        {"half a record at the end", [&] { cut("trees.dat", frame_of(200) + 13); }, "D5", "repair"},
        {"half a frame at the end", [&] { cut("trees.dat", frame_of(200) + 3); }, "D5", "repair"},
        {"a wrong count of deleted records", [&] { damage("trees.dat", 8, int32_t{7}); }, "D7",
         "repair"},
        {"a wrong record length", [&] { damage("trees.dat", 12, int32_t{33}); }, "D6", "repair"},
        {"a damaged frame", [&] { damage("trees.dat", frame_of(100) + 4, int32_t{77}); }, "D6",
         "salvage"},
        {"a field table that can't be", [&] { damage("trees.dat", 20, int32_t{23}); }, "D3",
         "salvage"},
        {"a record without entries", [&] { add_trees(201, 201, "trees.dat"); }, "I11", "reindex"},
        {"a record that changed", [&] { damage("trees.dat", frame_of(9) + 8, "x"); }, "I11",
         "reindex"},
        {"a damaged node", [&] { damage("trees.idx", 3000, std::string(50, '\xEE')); }, "I",
         "reindex"},
        {"a root that is none", [&] { damage("trees.idx", 8 + 16, int32_t{5}); }, "I3", "reindex"},
        {"a cut index file", [&] { cut("trees.idx", 2300); }, "I3", "reindex"},
        {"a damaged order", [&] { damage("trees.idx", 8, int32_t{13}); }, "I2", "reindex"},
    };
    for (const damage_row& row : rows) {
        SCOPED_TRACE(row.what);
        write("trees.dat", data);
        write("trees.idx", index);
        row.damage();
        const typed found = type("tarsil check trees.dat trees.idx");
        EXPECT_EQ(found.status, 1) << found.out << found.err;
        EXPECT_NE(found.out.find(std::string("  ") + row.rule), found.out.npos) << found.out;
        const std::string told = "To mend it: ";
        const size_t at = found.out.find(told);
        ASSERT_NE(at, found.out.npos) << found.out;
        const std::string command = found.out.substr(at + told.size());
        EXPECT_TRUE(command.starts_with(std::string("tarsil ") + row.command)) << command;
        if (command.starts_with("tarsil salvage")) continue;
        EXPECT_NE(type(command).status, 2) << command;
        if (type("tarsil check trees.dat trees.idx").status != 0)
            must("tarsil reindex trees.dat trees.idx");
        expect_sound();
    }
}

TEST_F(check_command, WhatCantBeLookedAtAnswers2InOneLine)
{
    make_trees(5);
    write("empty", "");
    write("foreign", std::string(500, 'x'));
    write("text.idx", "2 lines\nof text");
    const struct {
        const char* files;
        const char* says;
    } rows[] = {
        {"nowhere.dat", "there is no such file"},
        {"empty", "is empty"},
        {".", "no regular file"},
        {"foreign", "doesn't begin with the mark of a data file"},
        {"trees.idx", "is an index file where the data file should stand"},
        {"trees.dat trees.dat", "is a data file where an index file should stand"},
        {"trees.dat text.idx", "doesn't begin with the mark of an index file"},
        {"trees.dat nowhere.idx", "there is no such file"},
    };
    for (const auto& row : rows) {
        const typed done = type(std::string("tarsil check ") + row.files);
        EXPECT_EQ(done.status, 2) << row.files;
        EXPECT_TRUE(is_one_line(done.err)) << done.err;
        EXPECT_NE(done.err.find(row.says), done.err.npos) << done.err;
    }
}

TEST_F(check_command, ThePrecisionOfCloseValuesMatters)
{
    must("tarsil create places.dat --field at:f64");
    std::string rows = "at\n";
    for (int i = 0; i < 500; ++i)
        rows += "0." + std::to_string(1000000 + i * 7919 % 500).substr(1) + "\n";
    write("rows.csv", rows);
    must("tarsil import places.dat rows.csv");
    must("tarsil index places.dat places.idx --key at");
    EXPECT_NE(type("tarsil check places.dat places.idx --precision 9").status, 2);
    must("tarsil reindex places.dat places.idx --precision 9");
    expect_sound("places.dat places.idx --precision 9");
}

// A program that has the file for itself, and one that shares it and holds a range for a while.
TEST_F(check_command, FilesInUseAreWaitedForOrToldOf)
{
    make_trees(20);
    const std::string name = folder.file("trees.dat");
    {
        support::child_process other([&](const support::child_line& line) {
            tsinit32();
            line.step([&] { return tsopend32(name.c_str()); });
            line.step([&] { return tsclosed32(0); });
        });
        EXPECT_EQ(other.next(), 0);
        const typed checked = type("tarsil check --wait 0.1 trees.dat");
        EXPECT_EQ(checked.status, 0) << checked.err;
        const std::string number = std::to_string(other.id());
        EXPECT_NE(checked.err.find("warning"), checked.err.npos) << checked.err;
        EXPECT_NE(checked.err.find(number), checked.err.npos) << checked.err;
        other.next();
    }
    support::child_process other([&](const support::child_line& line) {
        tsinit32();
        tsmuser32('y');
        line.step([&] { return tsopend32(name.c_str()); });
        line.step([&] { return tslockd32(0); });
        usleep(300000);
        line.step([&] { return tsulockd32(0); });
    });
    EXPECT_EQ(other.next(), 0);
    EXPECT_TRUE(type("tarsil check trees.dat").err.empty());
    EXPECT_EQ(other.next(), 1);
    EXPECT_NE(type("tarsil check --wait 0 trees.dat").err.find("warning"), std::string::npos);
    // The range goes while the command waits for it.
    const support::child_line line = other.line();
    line.send(0);
    EXPECT_TRUE(type("tarsil check --wait 20 trees.dat").err.empty());
}

} // namespace

} // namespace tarsil::tests
