// Random operations over all functions on records and keys, compared call by call with the model of
// tests/support/model.h: codes, bodies, flags, current record, noted slot, cursors and the order of
// walks. After every operation nothing is held but what the caller locked, and nothing has been
// allocated but for the opening of files and the reuse of slots; every few hundred operations the
// checkers look at the files.
//
// A run is a series of lives, each with a file of its own kind and all options by chance. It is
// determined by its seed, which every failure names. TARSIL32_MODEL_SEED sets it, and
// TARSIL32_MODEL_OPERATIONS the number of operations of the whole.
#include "tests/unit/model_life.h"

#include "tests/sim/sim.h"
#include "tests/support/settings.h"

#include <gtest/gtest.h>

namespace tarsil::model {

constexpr bool opens_files = true;
const life::deed life::deeds[] = {
    {250, &life::add, false, "add"},
    {110, &life::mark, false, "delete or undelete"},
    {110, &life::update, false, "update"},
    {80, &life::find, false, "find"},
    {120, &life::find_part, false, "find by a part"},
    {200, &life::step, false, "step"},
    {3, &life::walk_all, false, "walk"},
    {100, &life::navigate, false, "read in file order"},
    {40, &life::exchange, false, "position exchange"},
    {8, &life::tell_facts, false, "facts"},
    {5, &life::refuse, opens_files, "refusals"},
    {4, &life::set_options, false, "options"},
    {6, &life::change_indexes, opens_files, "index files"},
    {15, &life::lock, false, "locks"},
    {2, &life::purge, false, "purge"},
    {2, &life::reopen, opens_files, "reopen"},
    {1, &life::rebuild, opens_files, "rebuild"},
    {3, &life::check_files, false, "check"},
};

void life::perform(const deed& chosen)
{
    doing = chosen.name;
    sim::count_afresh();
    (this->*chosen.perform)();
    ++done;
    const auto blocks = static_cast<int64_t>(sim::calls(sim::call::allocate));
    if (!chosen.may_allocate && !file.reuse) same(0, blocks, "the number of allocations");
    same_state();
}

int64_t life::run(int64_t limit)
{
    int32_t all = 0;
    for (const deed& each : deeds) all += each.weight;
    begin();
    const int64_t last = done +
                         std::min<int64_t>(limit, 200 + make.below(make.happens(3) ? 40000 : 4000));
    while (done < last && !testing::Test::HasFailure()) {
        int32_t chosen = make.below(all);
        const deed* each = deeds;
        for (; chosen >= each->weight; ++each) chosen -= each->weight;
        perform(*each);
    }
    if (!testing::Test::HasFailure()) end();
    return done;
}

} // namespace tarsil::model

namespace {

TEST(Model, AnswersAsTheLibraryDoes)
{
    const auto seed = static_cast<uint64_t>(
        tarsil::support::setting("TARSIL32_MODEL_SEED", 20100210));
    const int64_t operations = tarsil::support::setting("TARSIL32_MODEL_OPERATIONS", 120000);
    std::mt19937_64 random(seed);
    int64_t done = 0;
    while (done < operations && !HasFailure())
        done = tarsil::model::life(random, seed, done).run(operations - done);
    tarsil::support::tell_total("operations beside the model", done, static_cast<long long>(seed));
}

} // namespace
