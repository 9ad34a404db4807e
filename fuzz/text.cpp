// The text services: any text, any flags, a destination of its own or the source itself.
#include "fuzz/target.h"
#include "tarsil32.h"

#include <algorithm>
#include <cstring>

namespace tarsil::fuzz {

std::vector<std::string> seeds()
{
    return {std::string("\xff\0\0\0", 4) + "  Saint   John's, 4th  ",
            std::string("\x03\0\0\0", 4) + "a1 b2 \xe9 C3", std::string("\x60\0\0\0", 4) + "\t x"};
}

} // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    using tarsil::fuzz::require;
    int32_t flags = 0;
    if (count < sizeof flags) return 0;
    std::memcpy(&flags, bytes, sizeof flags);
    std::string source(reinterpret_cast<const char*>(bytes) + sizeof flags, count - sizeof flags);
    source.resize(std::strlen(source.c_str()));

    std::vector<char> apart(source.size() + 1);
    tsstrcvt32(apart.data(), source.c_str(), flags);
    std::vector<char> in_place(source.c_str(), source.c_str() + source.size() + 1);
    tsstrcvt32(in_place.data(), in_place.data(), flags);
    require(std::strcmp(apart.data(), in_place.data()) == 0, "in place as apart");
    require(flags > 0 || source == apart.data(), "no flag changes nothing");
    std::vector<char> again(apart.size());
    tsstrcvt32(again.data(), apart.data(), flags);
    require(std::strcmp(apart.data(), again.data()) == 0, "a normal form stays as it is");

    const auto bytes_to_fill = static_cast<int32_t>(apart.size());
    tsinitbf32(bytes_to_fill, 'x', apart.data());
    tsinitbf32(std::min(flags, 0), 'y', apart.data());
    for (const char filled : apart) require(filled == 'x', "every byte is filled");
    return 0;
}
