// The fixed-length array of Tokyo Cabinet: a mapped file whose records are found by their number.
// It knows no keys, so it stands in the lines of appending and sequential reading alone. Its header
// is written at close only, and a kill would lose all records since the open; so every add has the
// header copied into the map (tcfdbmemsync without a flush).
#include <tcfdb.h>
#include <tcutil.h>

#include "bench/engine.h"

namespace bench {
namespace {

TCFDB* base;
int64_t position;

void well(bool done, const char* step) { must(done, step, tcfdbecode(base)); }

void version(char* text, size_t room) { std::snprintf(text, room, "%s", tcversion); }

void open(const opening& how)
{
    base = tcfdbnew();
    position = 0;
    const int64_t room = (int64_t{how.records} + 1000) * 256;
    const int32_t width = how.kind == heap_vary ? static_cast<int32_t>(sizeof(record))
                                                : fixed_length;
    well(tcfdbtune(base, width, room), "tcfdbtune");
    const int mode = FDBOWRITER | FDBOCREAT | (how.shared ? 0 : FDBONOLCK);
    well(tcfdbopen(base, "store.tcf", mode), "tcfdbopen");
}

void close()
{
    well(tcfdbclose(base), "tcfdbclose");
    tcfdbdel(base);
}

bool add(const record& added, int32_t length)
{
    well(tcfdbput(base, FDBIDNEXT, &added, length), "tcfdbput");
    well(tcfdbmemsync(base, false), "tcfdbmemsync");
    return true;
}

int32_t scan(record* out, int32_t count)
{
    for (int32_t i = 0; i < count; ++i) {
        if (tcfdbget4(base, position + 1, &out[i], sizeof out[i]) < 0) {
            position = 0;
            return i;
        }
        position += 1;
    }
    return count;
}

} // namespace

extern const engine tokyo_engine = {"Tokyo Cabinet",
                                    "fixed-length database, FDBONOLCK, limit set for all records, "
                                    "tcfdbmemsync(false) after every add",
                                    false,
                                    false,
                                    version,
                                    open,
                                    close,
                                    add,
                                    scan,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr};

} // namespace bench
