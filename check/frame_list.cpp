#include "check/frame_list.h"

#include <algorithm>

namespace tarsil::check {

void frame_list::add(int64_t offset, int64_t body_bytes)
{
    longest_body = std::max(longest_body, body_bytes);
    if (frames == 0) first = offset;
    if (frames == 1) distance = offset - first;
    if (is_even() && frames > 1 && offset != first + distance * frames) spell_out();
    if (!is_even()) offsets.push_back(static_cast<int32_t>(offset));
    ++frames;
}

void frame_list::spell_out()
{
    for (int64_t i = 0; i < frames; ++i) {
        offsets.push_back(static_cast<int32_t>(first + distance * i));
    }
}

int64_t frame_list::index_at(int64_t offset) const
{
    if (frames == 0 || offset < first) return -1;
    if (frames == 1) return offset == first ? 0 : -1;
    if (is_even()) {
        const int64_t index = (offset - first) / distance;
        return index < frames && (offset - first) % distance == 0 ? index : -1;
    }
    const auto found = std::lower_bound(offsets.begin(), offsets.end(), offset);
    return found != offsets.end() && *found == offset ? found - offsets.begin() : -1;
}

int64_t frame_list::offset_of(int64_t index) const
{
    return is_even() ? first + distance * index : int64_t{offsets[static_cast<size_t>(index)]};
}

} // namespace tarsil::check
