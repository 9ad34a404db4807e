// Progress of a single long call into the library: a thread of its own looks at the size of a file
// that grows meanwhile, and at nothing of the library's.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace tarsil::tool {

class watch {
public:
    // `expected`: about how many bytes the file will have, or 0.
    watch(std::string what, std::string file, int64_t expected);
    ~watch();
    watch(const watch&) = delete;
    watch& operator=(const watch&) = delete;

private:
    void look_on(const std::string& what, const std::string& file, int64_t expected);

    std::mutex mutex_;
    std::condition_variable changed_;
    bool is_over_ = false;
    std::thread thread_;
};

} // namespace tarsil::tool
