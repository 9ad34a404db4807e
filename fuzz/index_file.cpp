// Index files of any content, with a script of calls behind them and a sound data file beside them.
#include "fuzz/hostile_input.h"

namespace tarsil::fuzz {

constexpr bool fuzzes_index = true;

std::vector<std::string> seeds() { return hostile_seeds(fuzzes_index); }

} // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tarsil::fuzz::live_with_input(bytes, count, tarsil::fuzz::fuzzes_index);
    return 0;
}
