// What tests share that count the system calls of the platform or refuse single ones.
#pragma once

#include "tests/files/mapped_files.h"
#include "tests/files/system_calls.h"

namespace tarsil::support {

inline constexpr size_t page = 4096;
inline constexpr size_t large = 1 << 21; // a file that grows ahead, and ends where it has grown to
inline constexpr share alone = share::none;
inline constexpr share shared = share::read_write;

// Not where the program stands, so that a name without its folder would lead elsewhere.
class counted_calls : public mapped_files {
protected:
    static void SetUpTestSuite() { setenv("TMPDIR", "/dev/shm", 1); }
    ~counted_calls() override
    {
        planned = {};
        file_system_kind = 0;
    }
};

template <class Action> std::string calls_of(Action&& action)
{
    calls_made.clear();
    action();
    return calls_made;
}

inline file_handle file_of(const std::string& name, share mode, const std::string& content)
{
    const file_handle file = create_file(name, mode);
    for (size_t done = 0; done < content.size(); done += 50000)
        EXPECT_TRUE(put(file, content.substr(done, 50000)));
    return file;
}

} // namespace tarsil::support
