// Numbers from the environment: how long a random test runs, and from which seed.
#pragma once

#include <cstdlib>

namespace tarsil::support {

inline long long setting(const char* name, long long otherwise)
{
    const char* const told = std::getenv(name);
    return told == nullptr ? otherwise : std::atoll(told);
}

} // namespace tarsil::support
