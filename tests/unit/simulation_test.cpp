// The simulation's own instrument: a sweep over planned failures that never fail would prove
// nothing. That the simulated platform behaves as a platform does is the affair of tests/contract/.
#include "tests/sim/sim.h"

#include <gtest/gtest.h>

namespace tarsil::sim {
namespace {

using namespace platform;

TEST(Simulation, TheNthCallOfTheKindsNamedFailsOnceOrForGood)
{
    const struct {
        fault planned;
        const char* outcomes; // of lock, write, lock, write, lock, write: '+' is success
        uint64_t met;
    } rows[] = {
        {{.at = 1}, "-+++++", 1},
        {{.at = 4}, "+++-++", 1},
        {{.at = 4, .times = for_good}, "+++---", 3},
        {{.at = 7}, "++++++", 0},
        {{.at = 2, .where = only(call::lock)}, "++-+++", 1},
        {{.at = 2, .times = for_good, .where = only(call::lock)}, "++-+-+", 2},
        {{.at = 1, .times = for_good, .how = failure::one_byte_short}, "+s+s+s", 3},
    };
    for (const auto& r : rows) {
        reset();
        const file_handle file = CreateFileA("a", access::read_write, share::read_write,
                                             disposition::create_new);
        plan(r.planned);
        std::string outcomes;
        for (int32_t i = 0; i < 3; ++i) {
            outcomes += LockFile(file, i, 1) ? '+' : '-';
            uint32_t moved = 0;
            const bool done = WriteFile(file, "ab", 2, moved);
            outcomes += !done ? '-' : moved == 2 ? '+' : 's';
        }
        EXPECT_EQ(outcomes, r.outcomes);
        EXPECT_EQ(faults_met(), r.met);
    }
    reset();
}

} // namespace
} // namespace tarsil::sim
