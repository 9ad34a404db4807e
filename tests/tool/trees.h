// Commands as a user types them, run by the shell in a folder of their own, for tests that look
// inside files: trees.dat with its index trees.idx, and notes.dat with records of variable length.
#pragma once

#include <cstdlib>
#include <string>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "data/data_format.h"
#include "tests/support/temp_folder.h"

namespace tarsil::tests {

struct typed {
    int status = -1; // -1: ended by a signal
    std::string out;
    std::string err;
};

class trees : public ::testing::Test {
protected:
    static constexpr int first_frame = field_table_offset + 3 * field_entry_bytes;
    static constexpr int tree_bytes = 32;
    static constexpr int stride = frame_bytes + tree_bytes;

    static constexpr int frame_of(int record) { return first_frame + (record - 1) * stride; }

    // `tarsil` is found; what stands in front of it (a limit, a variable) works as in any shell.
    typed type(const std::string& line) const
    {
        const std::string tool = TARSIL_TOOL;
        const std::string path = tool.substr(0, tool.rfind('/'));
        const std::string script = "cd '" + folder.path() + "' && export PATH='" + path +
                                   "':\"$PATH\" && { " + line + "\n} >.out 2>.err </dev/null";
        const int ended = std::system(script.c_str());
        return {WIFEXITED(ended) ? WEXITSTATUS(ended) : -1, read(".out"), read(".err")};
    }
    // A step that has to work; its standard output.
    std::string must(const std::string& line) const
    {
        const typed done = type(line);
        EXPECT_EQ(done.status, 0) << line << "\n" << done.out << done.err;
        return done.out;
    }

    std::string read(const std::string& name) const
    {
        return support::file_bytes(folder.file(name));
    }
    void write(const std::string& name, const std::string& bytes) const
    {
        support::set_file_bytes(folder.file(name), bytes);
    }
    bool is_there(const std::string& name) const
    {
        return std::filesystem::exists(folder.file(name));
    }

    // Records 1 to `count`; those whose number `deleted` divides are deleted.
    void make_trees(int count, int deleted) const
    {
        must("tarsil create trees.dat --field id:i32 --field name:text:20 --field height:f64");
        must("tarsil index trees.dat trees.idx --key id --key name,id");
        must("seq 1 " + std::to_string(count) +
             " | awk '{ print $1 \",tree \" $1 * 7919 % 10007 \",\" $1 % 40 \".5\" }' "
             "| tarsil import trees.dat trees.idx - --no-header");
        must("tarsil delete trees.dat $(seq " + std::to_string(deleted) + " " +
             std::to_string(deleted) + " " + std::to_string(count) + ")");
    }
    void make_notes(int count) const
    {
        must("tarsil create notes.dat --field id:i32 --field note:text:500 --variable");
        must("seq 1 " + std::to_string(count) +
             " | awk '{ printf \"%d,%*d\\n\", $1, $1 % 90 + 1, 1 }' "
             "| tarsil import notes.dat - --no-header");
    }

    support::temp_folder folder;
};

} // namespace tarsil::tests
