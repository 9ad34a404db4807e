// The thread that looks at a growing file.
#include "tool/watch.h"

#include <sys/stat.h>

#include "tool/progress.h"

namespace tarsil::tool {

watch::watch(std::string what, std::string file, int64_t expected)
    : thread_([this, what = std::move(what), file = std::move(file), expected] {
          look_on(what, file, expected);
      })
{
}

watch::~watch()
{
    {
        const std::lock_guard lock(mutex_);
        is_over_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void watch::look_on(const std::string& what, const std::string& file, int64_t expected)
{
    progress line(what, expected);
    std::unique_lock lock(mutex_);
    while (!changed_.wait_for(lock, std::chrono::milliseconds(200), [this] { return is_over_; })) {
        struct stat about = {};
        line.look(stat(file.c_str(), &about) == 0 ? about.st_size : 0, 0);
    }
}

} // namespace tarsil::tool
