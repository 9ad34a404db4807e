// A file that is made under a name of its own beside the place that it is meant for, and takes that
// place by one rename when it is whole and on stable storage. Whatever ends the program before,
// the place is as it was, and what was begun is removed: at once, or, after a kill, by the next
// command that makes a file for the same place.
#pragma once

#include <string>

#include "tool/failure.h"

namespace tarsil::tool {

class staged_file {
public:
    // `place` may be a symbolic link, and its target is what is meant then. `ending` makes the name
    // of the new file: "trees.idx" and ".reindexing" give "trees.idx.reindexing". A file of that
    // name is removed if it can be seen that it was begun by such a command, which has ended.
    static answer<staged_file> beside(const std::string& place, const std::string& ending);

    staged_file() = default;
    staged_file(staged_file&& other) noexcept;
    staged_file& operator=(staged_file&& other) noexcept;
    ~staged_file() { discard(); }

    const std::string& name() const { return name_; }
    const std::string& place() const { return place_; }

    // Gives it the owner and the permissions of `like`, if that is given, and waits until all of it
    // is on stable storage.
    outcome make_durable(const std::string& like = {}) const;
    // The rename, made durable. With exists::refuse a file that has come to stand there stays.
    enum class exists { replace, refuse };
    outcome take_place(exists what);
    // From here on the file stays, whatever happens; somebody else renames it.
    void keep() { name_.clear(); }
    void discard();

private:
    std::string place_;
    std::string name_;
};

// While it lives, files are made for their owner alone. What is to take the place of a file that
// not everybody may read isn't readable before it has that file's permissions (make_durable).
class private_files {
public:
    private_files();
    ~private_files();
    private_files(const private_files&) = delete;
    private_files& operator=(const private_files&) = delete;

private:
    unsigned before_;
};

// The file that a name leads to, through symbolic links, as a full path; also if it isn't there.
std::string real_place(const std::string& name);

// Each is a step towards stable storage, or a failure that names what couldn't be done.
outcome rename_file(const std::string& from, const std::string& to);
outcome flush_folder_of(const std::string& name);
outcome flush_file(const std::string& name);

// Removes what a killed command has left; see staged_file::beside.
outcome remove_leftover(const std::string& name);

} // namespace tarsil::tool
