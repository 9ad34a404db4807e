// From the CSV file of a run to tables and charts. The file alone is read, so that tables can be
// made again at any time; lines that begin with # tell where and with what it was measured.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/stories.h"

namespace bench {

// One cell: a line of one engine, over all runs.
struct summary {
    double median, least, most;
    int64_t peak_kib, private_kib;
};

struct results {
    std::vector<std::string> remarks;
    std::vector<std::string> engines; // in the order of their first line; ours is the first
    std::vector<int32_t> sizes;       // numbers of records, ascending
    int32_t records;                  // of the comparison itself
    struct sample {
        line_id line;
        size_t engine;
        int32_t records;
        double figure;
        int64_t peak_kib, private_kib;
    };
    std::vector<sample> samples;
};

results read_results(const char* csv);

// False: no such line was measured.
bool summarise(const results& of, line_id line, size_t engine, int32_t records, summary* sum);

// The best peer of the line among `against`; 0 (ourselves) if there is none.
size_t best_peer(const results& of, line_id line, rivals against);

// Writes table.md, comparison.svg and scaling.svg into the current folder and prints the table.
void write_report(const results& of);
void write_comparison_chart(const results& of, const char* file);
void write_scaling_chart(const results& of, const char* file);

} // namespace bench
