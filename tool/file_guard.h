// A file that this process holds by itself, outside the library, for commands that look at or
// replace its bytes. The locks are those of docs/LOCKING.md, so that programs that use the library
// and this keep out of each other's way.
//
// Holding a file to look at it takes read locks of the share byte and of the whole file: nobody
// changes it meanwhile, several can look, and no right to write is needed. Where a program has the
// file for itself, or is in the middle of a change, is_steady() says no after the wait: what is
// read then may be half of a change. Holding a file alone takes the write lock of the share byte,
// as an open in single-user mode does; nobody else can open the file then.
//
// The library itself can't open a file that is held alone here: each open excludes the others, in
// one process as well.
#pragma once

#include <string>

#include "check/file_bytes.h"
#include "tool/failure.h"

namespace tarsil::tool {

class file_guard {
public:
    file_guard() = default;
    file_guard(file_guard&& other) noexcept;
    file_guard& operator=(file_guard&& other) noexcept;
    ~file_guard() { release(); }

    static answer<file_guard> look(const std::string& name, double wait_seconds);
    static answer<file_guard> alone(const std::string& name, double wait_seconds);

    bool is_held() const { return descriptor_ >= 0; }
    bool is_steady() const { return steady_; }
    const std::string& name() const { return name_; }
    int descriptor() const { return descriptor_; }

    // The bytes of this very file, whatever has become of its name.
    outcome read(check::file_bytes& bytes) const;

    void release();

private:
    enum class purpose { look, alone };
    static answer<file_guard> take(const std::string& name, purpose what, double wait_seconds);
    static answer<file_guard> open(const std::string& name, purpose what);
    bool lock(purpose what) const;
    bool is_still_named() const;

    std::string name_;
    int descriptor_ = -1;
    bool steady_ = false;
};

// The warning that goes with a look at a file that isn't steady.
std::string unsteady_text(const std::string& name);

// Why a file can't be opened, from errno.
failure open_failure(const std::string& name, int error);

} // namespace tarsil::tool
