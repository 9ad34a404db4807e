// Checking an index file, read-only: every invariant of index/index_format.h, and the entries
// against the records of the data file, both ways.
//
// Any content is taken. Nodes are visited once each, because the bytes of every node are marked as
// taken before it is looked at, so that circles, shared nodes and overlaps end at the second visit
// and the whole work is bounded by the size of the file. Trees are walked with a stack of their
// own, no deeper than the library itself goes. What an unsound node points to is left alone.
//
// Bytes of the node area that no tree reaches are counted and are no fault: an insertion that
// failed half way and a purge leave such bytes.
#pragma once

#include <cstdint>
#include <vector>

#include "check/data_check.h"
#include "check/file_bytes.h"
#include "check/finding.h"
#include "index/index_format.h"

namespace tarsil::check {

struct key_report {
    key_record key{};       // as it stands in the file
    bool is_walked = false; // its I2 holds: the numbers below mean something
    int32_t depth = 0;      // levels down to the first leaf; 1 for a root that is a leaf
    int64_t branches = 0;
    int64_t leaves = 0;
    int64_t entries = 0;         // in leaves
    int64_t missing_entries = 0; // records without an entry
    int64_t unsettled_pairs = 0; // see check/key_order.h
    finding_list findings;

    int64_t nodes() const { return branches + leaves; }
    int32_t fill_percent() const; // of the room in leaves
};

struct index_report {
    bool is_index_file = false; // I1 holds
    int64_t file_size = 0;
    int32_t key_count = 0;
    int64_t unreached_bytes = 0; // of the node area
    bool has_data = false;       // entries were compared with records
    std::vector<key_report> keys;
    finding_list findings; // of the file as a whole

    bool is_sound() const; // and so are all keys
};

// The data file that an index belongs to, as check_data_file has walked it. Where its report says
// that it couldn't (is_walked), there is nothing to compare entries with.
struct data_side {
    file_bytes& bytes;
    const frame_list& frames;
};

// `data` may be missing: the index is then checked by itself. `precision` is that of tsspdoub32
// when the entries went in.
index_report check_index_file(file_bytes& file, const data_side* data,
                              int32_t precision = default_precision);

// Both checks of files that are in memory. Without a data file that can be walked, an empty span
// for example, the index is checked by itself.
data_report check_data_image(byte_span data);
index_report check_index_image(byte_span index, byte_span data,
                               int32_t precision = default_precision);

} // namespace tarsil::check
