// Sites of failures and their codes; see tests/unit/fault_sites.h.
#include "tests/unit/fault_sites.h"

#include "core/tables.h"
#include "index/slots.h"

#include <algorithm>

namespace tarsil::support {
namespace {

using sim::call;
using sites = std::vector<fault_site>;

bool is_range(const fault_site& site)
{
    return site.call.kind == call::lock || site.call.kind == call::unlock;
}

bool is_position(const sites& all, size_t at, platform::origin from)
{
    return at < all.size() && all[at].call.kind == call::position && all[at].call.from == from;
}

bool is_range_at(const sites& all, size_t at) { return at < all.size() && is_range(all[at]); }

void name_position(sites& all, size_t at)
{
    fault_site& site = all[at];
    const bool after_question = at > 0 && is_position(all, at - 1, platform::origin::current);
    if (site.call.from == platform::origin::current) {
        site.what = step::ask_position;
        const bool moves = is_position(all, at + 1, platform::origin::begin);
        if (is_range_at(all, at + 1))
            site.range = at + 1;
        else if (moves && is_range_at(all, at + 2))
            site.range = at + 2;
    } else if (site.call.from == platform::origin::end) {
        site.what = step::ask_size;
    } else if (after_question && is_range_at(all, at + 1)) {
        site.what = step::go_to_range;
        site.range = at + 1;
    } else if (at > 0 && is_range(all[at - 1])) {
        site.what = step::come_back;
        site.range = at - 1;
    } else {
        site.what = step::move;
    }
}

void name_steps(sites& all)
{
    for (size_t at = 0; at < all.size(); ++at) {
        fault_site& site = all[at];
        switch (site.call.kind) {
        case call::position: name_position(all, at); break;
        case call::lock: site.what = step::place, site.range = at; break;
        case call::unlock: site.what = step::give_back, site.range = at; break;
        case call::read:
        case call::write: site.what = step::transfer, site.transfer = at; break;
        case call::flush: site.what = step::flush; break;
        default: break;
        }
    }
}

bool serves_range(const fault_site& site) { return site.range != nowhere; }

// Ranges given back right before a flush, and placed again right behind it.
void find_ranges_of_flushes(sites& all)
{
    for (size_t flush = 0; flush < all.size(); ++flush) {
        if (all[flush].what != step::flush) continue;
        for (size_t at = flush;
             at-- > 0 && serves_range(all[at]) && all[all[at].range].call.kind == call::unlock;)
            all[at].in_flush = true;
        for (size_t at = flush + 1;
             at < all.size() && serves_range(all[at]) && all[all[at].range].call.kind == call::lock;
             ++at)
            all[at].in_flush = true;
    }
}

// A call in front of a transfer serves that one; the release behind it, and the flush, the last.
void find_transfers(sites& all)
{
    size_t last = nowhere;
    for (fault_site& site : all) {
        if (site.what == step::transfer) last = site.transfer;
        const bool behind = site.what == step::flush || site.in_flush ||
                            (serves_range(site) && all[site.range].call.kind == call::unlock);
        if (behind) site.transfer = last;
    }
    size_t next = nowhere;
    for (size_t at = all.size(); at-- > 0;) {
        if (all[at].what == step::transfer) next = at;
        if (all[at].transfer == nowhere) all[at].transfer = next;
    }
}

struct place_codes {
    bool in_data;
    call kind;
    int64_t offset; // -1: any
    int64_t length; // -1: any
    int32_t move, transfer;
};

// The first row that fits.
constexpr place_codes places[] = {
    {true, call::read, 0, 1, TS_VERSION_READ_POSITION, TS_VERSION_READ_SHORT},
    {true, call::read, 1, 3, TS_MAGIC_READ_POSITION, TS_MAGIC_READ_SHORT},
    {true, call::read, 4, 24, TS_HEADER_READ_POSITION, TS_HEADER_READ_SHORT},
    {true, call::read, -1, 8, TS_FRAME_READ_POSITION, TS_FRAME_READ_SHORT},
    {true, call::read, -1, -1, TS_BODY_READ_SHORT, TS_BODY_READ_SHORT},
    {true, call::write, 0, 4, TS_FILE_MARK_WRITE_POSITION, TS_FILE_MARK_WRITE_SHORT},
    {true, call::write, 4, 24, TS_HEADER_WRITE_POSITION, TS_HEADER_WRITE_SHORT},
    {true, call::write, -1, -1, TS_RECORD_WRITE_POSITION, TS_RECORD_WRITE_SHORT},
    {false, call::read, 0, 1, TS_VERSION_READ_POSITION, TS_VERSION_READ_SHORT},
    {false, call::read, 1, 3, TS_MAGIC_READ_POSITION, TS_MAGIC_READ_SHORT},
    {false, call::read, 4, 4, TS_KEY_COUNT_READ_POSITION, TS_KEY_COUNT_READ_SHORT},
    {false, call::read, 8, 2208, TS_KEY_RECORDS_READ_POSITION, TS_KEY_RECORDS_READ_SHORT},
    {false, call::read, -1, -1, TS_NODE_READ_POSITION, TS_NODE_READ_SHORT},
    {false, call::write, 0, 4, TS_FILE_MARK_WRITE_POSITION, TS_FILE_MARK_WRITE_SHORT},
    {false, call::write, 4, 4, 0, TS_KEY_COUNT_WRITE_SHORT},
    {false, call::write, 8, 2208, TS_KEY_RECORDS_WRITE_POSITION, TS_KEY_RECORDS_WRITE_SHORT},
    {false, call::write, -1, -1, TS_NODE_WRITE_POSITION, TS_NODE_WRITE_SHORT},
};

const place_codes& codes_of_place(const sim::logged& transfer)
{
    const auto fits = [&transfer](const place_codes& row) {
        return row.in_data == is_data(transfer.file) && row.kind == transfer.kind &&
               (row.offset < 0 || row.offset == transfer.offset) &&
               (row.length < 0 || row.length == transfer.length);
    };
    return *std::find_if(std::begin(places), std::end(places), fits);
}

struct function_codes {
    std::string_view function;
    call kind;
    int64_t nth; // of that kind in the run, from 0; -1: any
    int32_t code;
    int32_t code_shared;
};

// Where the function decides. Opens and creations: the first open asks whether the file is there.
constexpr function_codes by_function[] = {
    {"tsIsFileThere32", call::open, 0, TS_OPEN_DATA_NOT_THERE, TS_OPEN_DATA_NOT_THERE},
    {"tsinit32", call::allocate, 0, TS_NO_MEMORY_PATH, TS_NO_MEMORY_PATH},
    {"tsinit32", call::allocate, 1, TS_NO_MEMORY_KEY, TS_NO_MEMORY_KEY},
    {"tsmuser32", call::allocate, 0, TS_NO_MEMORY_LOCK_TABLE, TS_NO_MEMORY_LOCK_TABLE},
    {"tsopend32", call::open, 0, TS_OPEN_DATA_NOT_THERE, TS_OPEN_DATA_NOT_THERE},
    {"tsopend32", call::open, 1, TS_VERSION_READ_POSITION, TS_OPEN_DATA_LOCK_FAILED},
    {"tsrbdbh32", call::open, 0, TS_REBUILD_NOT_THERE, TS_REBUILD_NOT_THERE},
    {"tsrbdbh32", call::open, 1, TS_REBUILD_NO_SIZE, TS_LOCK_NO_POSITION},
    {"tsopeni32", call::open, 0, TS_OPEN_INDEX_NOT_THERE, TS_OPEN_INDEX_NOT_THERE},
    {"tsopeni32", call::open, 1, TS_OPEN_INDEX_FAILED, TS_OPEN_INDEX_FAILED},
    {"tscrdata32", call::create, 0, TS_FILE_MARK_WRITE_POSITION, TS_LOCK_NO_POSITION},
    {"tscrind32", call::create, 0, TS_CREATE_INDEX_FAILED, TS_CREATE_INDEX_FAILED},
    {"tscrindd32", call::create, 0, TS_CREATE_INDEX_FAILED, TS_CREATE_INDEX_FAILED},
    {"tsdeld32", call::position, -1, TS_DELETE_RECORD_POSITION, TS_DELETE_RECORD_POSITION},
    {"tsundeld32", call::position, -1, TS_UNDELETE_RECORD_POSITION, TS_UNDELETE_RECORD_POSITION},
    {"tsdelcd32", call::position, -1, TS_DELETE_CURRENT_POSITION, TS_DELETE_CURRENT_POSITION},
    {"tsudelcd32", call::position, -1, TS_UNDELETE_CURRENT_POSITION, TS_UNDELETE_CURRENT_POSITION},
    {"tsdeli32", call::position, -1, TS_DELETE_FOUND_POSITION, TS_DELETE_FOUND_POSITION},
    {"tsundeli32", call::position, -1, TS_UNDELETE_FOUND_POSITION, TS_UNDELETE_FOUND_POSITION},
    {"tsdelci32", call::position, -1, TS_DELETE_CURSOR_POSITION, TS_DELETE_CURSOR_POSITION},
    {"tsudelci32", call::position, -1, TS_UNDELETE_CURSOR_POSITION, TS_UNDELETE_CURSOR_POSITION},
    {"tsupd32", call::position, -1, TS_DELETE_RECORD_POSITION, TS_DELETE_RECORD_POSITION},
    {"tsupcd32", call::position, -1, TS_DELETE_CURRENT_POSITION, TS_DELETE_CURRENT_POSITION},
    {"tsupi32", call::position, -1, TS_DELETE_FOUND_POSITION, TS_DELETE_FOUND_POSITION},
    {"tsupci32", call::position, -1, TS_DELETE_CURSOR_POSITION, TS_DELETE_CURSOR_POSITION},
};

// The codes of the table for the nth call of this kind, or 0.
int32_t code_by_function(std::string_view function, call kind, int64_t nth, bool shared)
{
    for (const function_codes& row : by_function) {
        if (row.function == function && row.kind == kind && (row.nth < 0 || row.nth == nth))
            return shared ? row.code_shared : row.code;
    }
    return 0;
}

bool is_among(std::string_view function, std::initializer_list<std::string_view> names)
{
    return std::find(names.begin(), names.end(), function) != names.end();
}

// The operations that hold data file and index together report no release of theirs.
bool releases_silently(std::string_view function)
{
    return is_among(function, {"tsgetni32", "tsgetpi32", "tsgetci32", "tsgetipp32", "tssetd2i32",
                               "tsdelci32", "tsudelci32", "tsundeli32", "tsupci32"});
}

struct judge {
    const sites& all;
    std::string_view function;
    int32_t success;
    bool shared;

    // The place of the first such call, or the end.
    template <class Test> size_t first(const Test& is_it) const
    {
        return static_cast<size_t>(std::find_if(all.begin(), all.end(), is_it) - all.begin());
    }

    template <class Test> size_t last(const Test& is_it) const
    {
        size_t at = all.size();
        while (at-- > 0 && !is_it(all[at])) {}
        return at;
    }

    bool is_of_first_index_held(const sim::logged& range) const
    {
        const size_t held = first([](const fault_site& site) {
            return site.what == step::place && !is_data(site.call.file) && is_whole_file(site.call);
        });
        return held < all.size() && range.file == all[held].call.file;
    }

    // The release of the header bracket by an add, behind the last header that it writes.
    bool is_asked_again(const fault_site& site) const
    {
        if (!serves_range(site) || site.in_flush || site.transfer == nowhere) return false;
        if (!is_among(function, {"tsadd32", "tsupd32", "tsupcd32", "tsupi32"})) return false;
        const sim::logged& range = all[site.range].call;
        return range.kind == call::unlock && is_header_bracket(range) &&
               site.transfer == last([](const fault_site& each) {
                   return each.call.kind == call::write && is_header_bracket(each.call);
               });
    }

    int32_t of_range(size_t at) const
    {
        const fault_site& site = all[at];
        const sim::logged& range = all[site.range].call;
        const bool released = range.kind == call::unlock && !site.in_flush && is_bracket(range);
        const size_t first_of_header = first([](const fault_site& each) {
            return each.what == step::give_back && !each.in_flush && is_header_bracket(each.call);
        });
        const bool of_step = is_header_bracket(range) ? site.range == first_of_header
                                                      : is_of_first_index_held(range);
        if (released && of_step && releases_silently(function)) return 0;
        if (site.asked_again) return 0;
        const size_t last_release = last(
            [](const fault_site& each) { return each.what == step::give_back; });
        if (released && success < 0 && site.range == last_release) return 0; // a refusal is told
        if (function == "tsopend32" && is_whole_file(range))
            return released ? 0 : int32_t{TS_OPEN_DATA_LOCK_FAILED};
        return own_code_of_range(site.what);
    }

    static int32_t own_code_of_range(step what)
    {
        switch (what) {
        case step::ask_position: return TS_LOCK_NO_POSITION;
        case step::go_to_range: return TS_LOCK_POSITION;
        case step::come_back: return TS_LOCK_RESTORE_POSITION;
        default: return TS_LOCK_REFUSED;
        }
    }

    int32_t of_move(size_t at) const
    {
        if (is_position(all, at + 1, platform::origin::end)) return TS_PURGE_END_POSITION;
        if (all[at].transfer == nowhere) return 0;
        const sim::logged& transfer = all[all[at].transfer].call;
        const bool is_mark = is_data(transfer.file) && transfer.kind == call::write &&
                             transfer.length == 1;
        if (is_mark) return code_by_function(function, call::position, -1, shared);
        if (function == "tsfields32" && transfer.offset == 28) return TS_HEADER_READ_POSITION;
        return codes_of_place(transfer).move;
    }

    int32_t of_size(size_t at) const
    {
        const call next = at + 1 < all.size() ? all[at + 1].call.kind : call::allocate;
        if (next == call::allocate && is_data(all[at].call.file)) return 0; // as without memory
        if (next == call::zero) return 0;
        const bool is_first = at == first([](const fault_site& site) {
                                  return site.what == step::ask_size;
                              });
        if (function == "tsrbdbh32" && is_first) return TS_REBUILD_NO_SIZE;
        if (function == "tsopeni32") return TS_NODE_READ_POSITION;
        return is_data(all[at].call.file) ? TS_BODY_READ_SHORT : TS_NODE_WRITE_POSITION;
    }

    // What can't be read as a frame may be the zeros at the end, and they are read anew.
    bool is_read_anew(size_t at) const
    {
        const auto next = std::find_if(
            all.begin() + static_cast<std::ptrdiff_t>(at) + 1, all.end(),
            [](const fault_site& s) { return s.what == step::transfer; });
        return function == "tsrbdbh32" && next != all.end() && all[at].call.length == 8 &&
               next->call.offset == all[at].call.offset && next->call.length > 8;
    }

    int32_t of_transfer(size_t at) const
    {
        const sim::logged& transfer = all[at].call;
        if (is_read_anew(at)) return 0;
        const bool in_table = is_data(transfer.file) && transfer.offset == 28;
        if (function == "tscrdata32" && in_table) return TS_FIELD_TABLE_WRITE_SHORT;
        if (function == "tsfields32" && in_table) return TS_FIELD_TABLE_READ_SHORT;
        return codes_of_place(transfer).transfer;
    }

    int64_t blocks_of(size_t bytes) const
    {
        return std::count_if(all.begin(), all.end(), [bytes](const fault_site& site) {
            return site.call.kind == call::allocate &&
                   site.call.length == static_cast<int64_t>(bytes);
        });
    }

    // The blocks of an index in their order: itself, its keys, a root for each, a leaf and a path
    // for each cursor, two buffers for all. Behind the creation only insertions are to be held
    // back, which isn't needed.
    int32_t of_allocation(size_t at, int64_t nth) const
    {
        const size_t created = first(
            [](const fault_site& site) { return site.call.kind == call::create; });
        if (function == "tscrindd32" && at > created) return 0;
        if (!is_among(function, {"tscrind32", "tscrindd32", "tsopeni32"}))
            return code_by_function(function, call::allocate, nth, shared);
        const int64_t keys = blocks_of(sizeof(key_slot));
        const int64_t cursors = blocks_of(path_words * sizeof(int32_t));
        if (nth == 0) return TS_NO_MEMORY_INDEX_SLOT;
        if (nth <= keys) return TS_NO_MEMORY_KEY_SLOT;
        if (nth <= 2 * keys) return TS_NO_MEMORY_ROOT_NODE;
        if (nth <= 2 * keys + cursors) return TS_NO_MEMORY_WORK_NODE;
        if (nth <= 2 * keys + 2 * cursors) return TS_NO_MEMORY_SAVED_PATH;
        return TS_NO_MEMORY_SCRATCH;
    }

    int32_t of_file(size_t at, int64_t nth) const
    {
        const call kind = all[at].call.kind;
        if (kind == call::allocate) return of_allocation(at, nth);
        if (kind != call::close) return code_by_function(function, kind, nth, shared);
        // Elsewhere it is the end of a question whether the file is there.
        if (!is_among(function, {"tsclosed32", "tsclosei32"})) return 0;
        return is_data(all[at].call.file) ? TS_CLOSE_DATA_FAILED : TS_CLOSE_INDEX_FAILED;
    }

    // The end of a key is told after a walk back to its last entry; a failure of that walk has one
    // code.
    int32_t code_of_walk_back() const
    {
        if (function == "tsgetni32" && success == TS_NEXT_ENTRY_AT_END) return TS_NEXT_ENTRY_LOST;
        const bool at_start = (function == "tsgetpi32" && success == TS_PREVIOUS_ENTRY_AT_START) ||
                              (function == "tsgetipp32" && success == 2);
        return at_start ? int32_t{TS_PREVIOUS_ENTRY_LOST} : 0;
    }

    // That walk begins behind the brackets of the step. In single-user mode there are none: with
    // the root in memory, it reads a node of each further level, as a search before it has done,
    // and the climb one less. It ends with the first record that is read, and what comes behind
    // tells codes of its own again.
    bool is_in_walk_back(size_t at) const
    {
        const auto gives_back = [this](const fault_site& site) {
            return serves_range(site) && all[site.range].call.kind == call::unlock;
        };
        const size_t body = first([](const fault_site& site) {
            return site.what == step::transfer &&
                   codes_of_place(site.call).transfer == TS_BODY_READ_SHORT;
        });
        size_t end = body + 1;
        while (end < all.size() && gives_back(all[end])) ++end;
        if (shared) {
            const size_t bracket = last([&](const fault_site& site) {
                return gives_back(site) && is_bracket(all[site.range].call);
            });
            return at > bracket && at < end;
        }
        std::vector<size_t> nodes;
        for (size_t i = 0; i < body; ++i) {
            if (all[i].what == step::transfer && !is_data(all[i].call.file)) nodes.push_back(i);
        }
        const size_t levels = (nodes.size() + 1) / (function == "tsgetipp32" ? 3 : 2);
        const size_t begin = nodes[nodes.size() - levels];
        return at >= first([&](const fault_site& site) { return site.transfer == begin; }) &&
               at < end;
    }

    // A failed write of a mark doesn't stop the operation. Where the flush has let the header
    // bracket go, the end finds nothing to give back.
    bool is_mark_write(const fault_site& site) const
    {
        if (site.what == step::move || site.transfer == nowhere) return false;
        const sim::logged& transfer = all[site.transfer].call;
        return is_data(transfer.file) && transfer.kind == call::write && transfer.length == 1;
    }

    int32_t code(size_t at, int64_t nth) const
    {
        switch (all[at].what) {
        case step::ask_position:
        case step::go_to_range:
        case step::come_back:
        case step::place:
        case step::give_back:
            return serves_range(all[at]) ? of_range(at) : int32_t{TS_LOCK_NO_POSITION};
        case step::move: return of_move(at);
        case step::ask_size: return of_size(at);
        case step::transfer: return of_transfer(at);
        case step::flush: return TS_FLUSH_FAILED;
        case step::other: break;
        }
        return of_file(at, nth);
    }
};

} // namespace

std::vector<fault_site> find_sites(const std::vector<sim::logged>& log, std::string_view function,
                                   int32_t success, bool shared)
{
    sites all(log.size());
    for (size_t at = 0; at < log.size(); ++at) all[at].call = log[at];
    name_steps(all);
    find_ranges_of_flushes(all);
    find_transfers(all);
    int64_t met[sim::call_kinds] = {};
    const judge told = {all, function, success, shared};
    for (fault_site& each : all) each.asked_again = told.is_asked_again(each);
    for (size_t at = 0; at < all.size(); ++at) {
        int32_t code = told.code(at, met[static_cast<size_t>(log[at].kind)]++);
        const int32_t of_walk_back = told.code_of_walk_back();
        if (of_walk_back != 0 && told.is_in_walk_back(at)) code = of_walk_back;
        all[at].passed_over = code == 0;
        all[at].code = code == 0 ? success : code;
        all[at].or_code = all[at].code;
        all[at].goes_on = told.is_mark_write(all[at]) && code != 0;
        if (all[at].goes_on && shared) all[at].or_code = TS_UNLOCK_NOT_HELD;
    }
    return all;
}

} // namespace tarsil::support
