// The checkers, asked about bytes in memory.
#pragma once

#include "check/index_check.h"

#include <string>

namespace tarsil::support {

inline check::byte_span span_of(const std::string& bytes)
{
    return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

inline check::data_report check_data(const std::string& bytes)
{
    return check::check_data_image(span_of(bytes));
}

inline check::index_report check_index(const std::string& bytes, const std::string& data)
{
    return check::check_index_image(span_of(bytes), span_of(data));
}

} // namespace tarsil::support
