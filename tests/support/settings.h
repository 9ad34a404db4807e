// Numbers from the environment: how long a random test runs, and from which seed; and what it did
// then, on standard output, where the long rounds pick it up.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace tarsil::support {

inline long long setting(const char* name, long long otherwise)
{
    const char* const told = std::getenv(name);
    return told == nullptr ? otherwise : std::atoll(told);
}

inline void tell_total(const char* what, long long count, long long seed = 0)
{
    std::printf("total: %lld %s, seed %lld\n", count, what, seed);
}

} // namespace tarsil::support
