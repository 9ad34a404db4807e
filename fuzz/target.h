// What a fuzz target is: a function that takes any bytes, and the seeds from which the search
// starts. A broken promise ends the program by require().
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace tarsil::fuzz {

std::vector<std::string> seeds();

inline void require(bool holds, const std::string& promise)
{
    if (holds) return;
    std::fprintf(stderr, "broken: %s\n", promise.c_str());
    std::abort();
}

} // namespace tarsil::fuzz
