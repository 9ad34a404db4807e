// Commands as a user types them, run by the shell in a folder of their own.
#pragma once

#include <cstdlib>
#include <string>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "tests/support/temp_folder.h"

namespace tarsil::tests {

struct typed {
    int status = -1; // -1: ended by a signal
    std::string out;
    std::string err;
};

class typed_commands : public ::testing::Test {
protected:
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

    support::temp_folder folder;
};

// One line for people, whatever went wrong: it begins with the command and ends with advice.
inline bool is_one_line(const std::string& text)
{
    return text.starts_with("tarsil: ") && text.find('\n') == text.size() - 1;
}

} // namespace tarsil::tests
