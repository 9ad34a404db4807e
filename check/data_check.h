// Checking a data file: the header against the frames, read-only.
//
// The walk goes by the lengths in the frames from the first one to the physical end of the file and
// notes what it has counted when it passes the end that the header tells. So a header that is
// behind its records, as a process leaves it that ended before it wrote it, is told apart from
// damage: the first is mended by rebuilding the header, the second only by saving what can be read.
// Any content is taken: every frame moves the walk by 9 bytes or more, and no number of the file is
// believed before it was compared with the file's size.
#pragma once

#include <cstdint>

#include "check/file_bytes.h"
#include "check/finding.h"
#include "check/frame_list.h"
#include "data/data_format.h"

namespace tarsil::check {

// What lies behind the end that the header tells.
enum class tail_kind : uint8_t {
    nothing,
    zeros,   // as a purge leaves it
    records, // whole frames, and behind them nothing but zeros: the header is behind
    other    // tail_records whole frames, and behind them bytes that are none
};

struct data_report {
    bool is_data_file = false; // D1 holds, and there is a header
    bool is_walked = false;    // the first frame could be found: the numbers below mean something
    int64_t file_size = 0;
    data_header header{}; // as it stands in the file

    int64_t records = 0; // counted up to the end that the header tells, deleted ones included
    int64_t deleted = 0; // of these
    int64_t body_bytes = 0;
    int64_t shortest = 0; // body; 0 without records
    int64_t longest = 0;
    int64_t walk_end = 0;  // behind the last whole frame of the file
    bool is_whole = false; // nothing but frames, then nothing but zeros: the header can be rebuilt

    tail_kind tail = tail_kind::nothing;
    int64_t tail_bytes = 0;
    int64_t tail_records = 0;

    finding_list findings;
};

// `frames`, if given, takes the place of every frame met, for check_index_file.
data_report check_data_file(file_bytes& file, frame_list* frames = nullptr);

} // namespace tarsil::check
