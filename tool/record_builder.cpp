// Putting a record together.
#include "tool/record_builder.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "tool/values.h"

namespace tarsil::tool {

namespace {

constexpr size_t most_open_ended = size_t{64} << 20; // of a text whose field has no length

} // namespace

record_builder::record_builder(const field_list& fields, bool may_lack_fields, bool is_empty_zero)
    : fields_(fields), may_lack_fields_(may_lack_fields), is_empty_zero_(is_empty_zero),
      states_(fields.all.size())
{
    const auto longest = static_cast<size_t>(fields.longest_record());
    bytes_.resize(fields.is_variable() ? std::min(longest, most_open_ended) : longest);
}

void record_builder::begin()
{
    std::fill(states_.begin(), states_.end(), state::missing);
    if (may_lack_fields_) std::fill(bytes_.begin(), bytes_.end(), std::byte{0});
    length_ = 0;
    text_length_ = 0;
    is_deleted_ = false;
    reason_.clear();
}

void record_builder::begin(std::span<const std::byte> old)
{
    begin();
    if (old.size() > bytes_.size()) bytes_.resize(old.size());
    std::copy(old.begin(), old.end(), bytes_.begin());
    for (size_t i = 0; i < states_.size(); ++i) {
        const auto offset = static_cast<size_t>(fields_.all[i].offset);
        const bool is_there = fields_.is_open_ended(i) ? old.size() >= offset : old.size() > offset;
        states_[i] = is_there ? state::present : state::absent;
        if (fields_.is_open_ended(i) && is_there) text_length_ = old.size() - offset;
    }
}

void record_builder::put(size_t field_number, std::string_view text)
{
    if (!reason_.empty()) return;
    const field& one = fields_.all[field_number];
    if (text == absent_text) {
        if (fields_.is_variable())
            states_[field_number] = state::absent;
        else
            refuse(one.name +
                   ": null or \\N is no value here: no record ends before its last field");
        return;
    }
    const bool is_open_ended = fields_.is_open_ended(field_number);
    const auto offset = static_cast<size_t>(one.offset);
    if (is_open_ended && text.size() > bytes_.size() - offset && text.size() > most_open_ended)
        return refuse(fmt::format("{}: a text of {} bytes", one.name, text.size()));
    if (is_open_ended && text.size() <= static_cast<size_t>(one.length))
        bytes_.resize(std::max(bytes_.size(), offset + text.size()));
    if (is_empty_zero_ && text.empty() && one.letter != 's') text = "0";
    std::string problem = put_value(one, text, bytes_.data() + offset,
                                    is_open_ended ? &text_length_ : nullptr);
    if (!problem.empty()) return refuse(one.name + ": " + problem);
    states_[field_number] = state::present;
}

void record_builder::put_deleted(std::string_view text)
{
    is_deleted_ = text == "1" || text == "true";
    if (!is_deleted_ && text != "0" && text != "false" && !text.empty())
        refuse(fmt::format("_deleted: {} is neither 0 nor 1", in_quotes(text)));
}

void record_builder::refuse(std::string reason)
{
    if (reason_.empty()) reason_ = std::move(reason);
}

void record_builder::find_length()
{
    length_ = static_cast<size_t>(std::min<int64_t>(fields_.longest_record(), INT32_MAX));
    size_t number = 0;
    while (number < states_.size() && states_[number] != state::absent) ++number;
    const bool is_cut = number < states_.size();
    if (is_cut)
        length_ = static_cast<size_t>(fields_.all[number].offset);
    else if (fields_.is_open_ended(states_.size() - 1))
        length_ = static_cast<size_t>(fields_.all.back().offset) + text_length_;
    while (number < states_.size() && states_[number] == state::absent) ++number;
    if (number < states_.size()) refuse("a field behind the end of the record has a value");
    if (length_ == 0) refuse("a record without a byte can't be stored");
}

bool record_builder::finish()
{
    for (size_t i = 0; i < states_.size() && reason_.empty(); ++i) {
        if (states_[i] != state::missing) continue;
        if (!may_lack_fields_) refuse(fields_.all[i].name + ": has no value");
    }
    if (!reason_.empty()) return false;
    find_length();
    return reason_.empty();
}

bool record_builder::take_as_it_is(size_t length)
{
    length_ = length;
    return true;
}

} // namespace tarsil::tool
