// The bytes of a file that is being checked, read-only, at any place, through a window.
//
// The window grows while a reader moves forwards, also over small gaps, and falls back when it
// jumps, so that walks read large pieces and look-ups small ones, and the memory in use doesn't
// depend on the size of the file. Bytes that already are in memory serve as well and are not
// copied.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <vector>

namespace tarsil::check {

using byte_span = std::span<const unsigned char>;

enum class open_result : uint8_t { opened, not_there, not_a_file, too_large };

class file_bytes {
public:
    file_bytes() = default;
    explicit file_bytes(byte_span in_memory)
        : memory(in_memory), bytes(static_cast<int64_t>(in_memory.size()))
    {
    }

    open_result open(const char* name);

    int64_t size() const { return bytes; }

    // `count` bytes from `offset`, or none if the file hasn't all of them. Good until the next
    // call.
    byte_span at(int64_t offset, int64_t count);

    // As `at`, but cut at the end of the file.
    byte_span up_to(int64_t offset, int64_t count);

    // True once the system has refused to read bytes that the file should have: what is said about
    // the file then is not to be relied on.
    bool failed() const { return read_failed; }

private:
    struct closer {
        void operator()(std::FILE* open_file) const { std::fclose(open_file); }
    };

    bool fill(int64_t offset, int64_t count);

    byte_span memory;
    std::unique_ptr<std::FILE, closer> file;
    int64_t bytes = 0;
    std::vector<unsigned char> window;
    int64_t window_offset = 0;
    int64_t window_bytes = 0;
    int64_t step = 0; // what the last filling asked for at least
    bool read_failed = false;
};

// True if all bytes from `from` to the end of the file are zero; also if there are none.
bool only_zeros_from(file_bytes& file, int64_t from);

} // namespace tarsil::check
