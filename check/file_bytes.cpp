#include "check/file_bytes.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace tarsil::check {

namespace {

constexpr int64_t largest_file = 0x7fffffff; // of both formats
constexpr int64_t smallest_step = 4096;
constexpr int64_t largest_step = 256 * 1024;

byte_span part_of(byte_span whole, int64_t offset, int64_t count)
{
    return whole.subspan(static_cast<size_t>(offset), static_cast<size_t>(count));
}

} // namespace

open_result file_bytes::open(const char* name)
{
    std::error_code error;
    const auto status = std::filesystem::status(name, error);
    if (!std::filesystem::exists(status)) return open_result::not_there;
    if (!std::filesystem::is_regular_file(status)) return open_result::not_a_file;
    const uintmax_t length = std::filesystem::file_size(name, error);
    if (error) return open_result::not_there;
    if (length > uintmax_t{largest_file}) return open_result::too_large;

    *this = file_bytes();
    file.reset(std::fopen(name, "rb"));
    if (!file) return open_result::not_there;
    std::setvbuf(file.get(), nullptr, _IONBF, 0); // the window is the buffer
    bytes = static_cast<int64_t>(length);
    return open_result::opened;
}

byte_span file_bytes::at(int64_t offset, int64_t count)
{
    if (offset < 0 || count < 0 || offset > bytes || count > bytes - offset) return {};
    if (!file) return part_of(memory, offset, count);
    if (!fill(offset, count)) return {};
    return part_of(window, offset - window_offset, count);
}

byte_span file_bytes::up_to(int64_t offset, int64_t count)
{
    if (offset < 0 || offset > bytes) return {};
    return at(offset, std::min(count, bytes - offset));
}

// Sees to it that the window holds `count` bytes from `offset`, which the file has.
bool file_bytes::fill(int64_t offset, int64_t count)
{
    const int64_t window_end = window_offset + window_bytes;
    if (offset >= window_offset && offset + count <= window_end) return true;

    const bool goes_on = offset >= window_offset && offset <= window_end + step;
    step = std::max(goes_on ? std::min(2 * step, largest_step) : smallest_step, smallest_step);
    const int64_t wanted = std::min(std::max(count, step), bytes - offset);

    window.resize(std::max(window.size(), static_cast<size_t>(wanted)));
    window_offset = offset;
    window_bytes = 0;
    if (std::fseek(file.get(), static_cast<long>(offset), SEEK_SET) == 0) {
        window_bytes = static_cast<int64_t>(
            std::fread(window.data(), 1, static_cast<size_t>(wanted), file.get()));
    }
    if (window_bytes < count) read_failed = true;
    return window_bytes >= count;
}

bool only_zeros_from(file_bytes& file, int64_t from)
{
    const auto is_zero = [](unsigned char byte) { return byte == 0; };
    while (from < file.size()) {
        const byte_span piece = file.up_to(from, largest_step);
        if (piece.empty() || !std::all_of(piece.begin(), piece.end(), is_zero)) return false;
        from += static_cast<int64_t>(piece.size());
    }
    return true;
}

} // namespace tarsil::check
