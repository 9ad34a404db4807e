// The records that the benchmarks store: exactly 100 bytes each, ids 0 to count - 1 in random
// order.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

namespace bench {

#pragma pack(push, 1)
struct record {
    int32_t id;
    char name[24]; // random letters, 0-terminated
    double amount;
    int32_t group; // one of 1000
    char payload[60];
};
#pragma pack(pop)
static_assert(sizeof(record) == 100);

// The numbers 0 to count - 1 in an order that is the same for every run.
inline std::vector<int32_t> shuffled(int32_t count, uint32_t seed)
{
    std::vector<int32_t> numbers(static_cast<size_t>(count));
    std::iota(numbers.begin(), numbers.end(), 0);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(seed));
    return numbers;
}

inline record make_record(int32_t id)
{
    record made = {};
    uint64_t mix = (static_cast<uint64_t>(id) + 1) * 0x9E3779B97F4A7C15U;
    for (int i = 0; i < 20; ++i) {
        mix ^= mix >> 29;
        mix *= 0xBF58476D1CE4E5B9U;
        made.name[i] = static_cast<char>('a' + (mix >> 40) % 26);
    }
    made.id = id;
    made.amount = static_cast<double>(static_cast<uint32_t>(id) * 2654435761U); // no two alike
    made.group = static_cast<int32_t>(mix % 1000);
    std::memset(made.payload, 'x', sizeof made.payload);
    return made;
}

} // namespace bench
