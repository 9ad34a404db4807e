// Medians, ratios and tables. The same rows go to the terminal and, as Markdown, to table.md.
#include "bench/report.h"

#include <cmath>

namespace bench {
namespace {

bool has_key_order(const std::string& name) { return name != "TDB" && name != "Tokyo Cabinet"; }

bool counts(const std::string& name, rivals against)
{
    if (against == only_lmdb) return name == "LMDB";
    if (against == only_sqlite) return name == "SQLite";
    return against == any_peer || has_key_order(name);
}

size_t engine_of(results* of, const char* name)
{
    for (size_t i = 0; i < of->engines.size(); ++i)
        if (of->engines[i] == name) return i;
    of->engines.emplace_back(name);
    return of->engines.size() - 1;
}

void take_row(results* into, char* row)
{
    char key[32], name[32];
    long size = 0, run = 0, peak = 0, own = 0;
    double figure = 0;
    if (std::sscanf(row, "%31[^,],%31[^,],%ld,%ld,%lf,%ld,%ld", key, name, &size, &run, &figure,
                    &peak, &own) != 7)
        return;
    const int32_t records = static_cast<int32_t>(size);
    for (int32_t i = 0; i < line_count; ++i)
        if (std::strcmp(key, lines[i].key) == 0)
            into->samples.push_back(
                {static_cast<line_id>(i), engine_of(into, name), records, figure, peak, own});
    if (std::strcmp(key, lines[line_append].key) == 0) into->records = records;
    if (std::find(into->sizes.begin(), into->sizes.end(), records) == into->sizes.end())
        into->sizes.push_back(records);
}

// Both places of a row: what the terminal shows and what the document gets.
struct two_tables {
    std::FILE* markdown;

    void cell(const std::string& text, int width) const
    {
        std::printf("%*s", width, text.c_str());
        std::fprintf(markdown, "| %s ", text.c_str());
    }
    void end() const
    {
        std::printf("\n");
        std::fprintf(markdown, "|\n");
    }
    // The title, a column for each engine, and `last`, which is titles and widths.
    struct column {
        const char* title;
        int width;
    };
    void heading(const char* title, const results& of, std::initializer_list<column> last) const
    {
        cell(title, -44);
        for (const std::string& engine : of.engines) cell(engine, 15);
        for (const column& each : last) cell(each.title, each.width);
        end();
        std::fprintf(markdown, "|---");
        for (size_t i = 0; i < of.engines.size() + last.size(); ++i) std::fprintf(markdown, "|--:");
        std::fprintf(markdown, "|\n");
    }
};

std::string text(const char* format, double value)
{
    char made[64];
    std::snprintf(made, sizeof made, format, value);
    return made;
}

std::string rate(double per_second)
{
    if (per_second >= 1e6) return text("%.2f M", per_second / 1e6);
    return text("%.0f k", per_second / 1e3);
}

double median_of(const results& of, line_id line, size_t engine, int32_t records)
{
    summary sum;
    return summarise(of, line, engine, records, &sum) ? sum.median : 0;
}

std::string rate_cell(const results& of, line_id line, size_t engine)
{
    summary sum;
    if (!summarise(of, line, engine, of.records, &sum)) return "-";
    const double spread = 50 * (sum.most - sum.least) / sum.median;
    return rate(sum.median) + (sum.most > sum.least ? text(" ±%.0f%%", spread) : "");
}

// Tells against whom, and returns the ratio of our figure to theirs.
std::string ratio_cells(const results& of, line_id line, const two_tables& to, rivals against)
{
    const bool own = against == own_fixed_length;
    const size_t best = own ? 0 : best_peer(of, line, against);
    const double theirs = median_of(of, own ? line_sequential : line, best, of.records);
    const bool there = theirs > 0 && (own || best != 0);
    to.cell(own ? "own fixed length" : there ? of.engines[best] : "-", 17);
    return there ? text("%.2f", median_of(of, line, 0, of.records) / theirs) : "-";
}

void write_rates(const results& of, const two_tables& to)
{
    to.heading(
        "Calls per second", of,
        {{"best of all", 17}, {"ratio", 8}, {"measured by", 17}, {"ratio", 8}, {"to reach", 10}});
    for (int32_t i = 0; i < line_kill; ++i) {
        const line_id line = static_cast<line_id>(i);
        to.cell(lines[i].title, -44);
        for (size_t engine = 0; engine < of.engines.size(); ++engine)
            to.cell(rate_cell(of, line, engine), 15);
        to.cell(ratio_cells(of, line, to, any_peer), 8);
        to.cell(ratio_cells(of, line, to, lines[i].against), 8);
        to.cell(text("%.1f", lines[i].target), 10);
        to.end();
    }
}

void write_memory(const results& of, const two_tables& to)
{
    to.heading("Peak of memory in MB (private memory)", of, {});
    for (int32_t i = 0; i < line_kill; ++i) {
        to.cell(lines[i].title, -44);
        for (size_t engine = 0; engine < of.engines.size(); ++engine) {
            summary sum;
            const bool there = summarise(of, static_cast<line_id>(i), engine, of.records, &sum);
            const double mega = 1024;
            const double peak = static_cast<double>(sum.peak_kib);
            const double own = static_cast<double>(sum.private_kib);
            to.cell(there ? text("%.1f", peak / mega) + text(" (%.1f)", own / mega) : "-", 15);
        }
        to.end();
    }
}

void write_scaling(const results& of, const two_tables& to)
{
    to.heading("Microseconds per call", of, {});
    for (const line_id line : {line_add_one, line_look_up}) {
        for (const int32_t size : of.sizes) {
            if (median_of(of, line, 0, size) <= 0) continue;
            to.cell(std::string(lines[line].title) + text(", %.0f records", size), -44);
            for (size_t engine = 0; engine < of.engines.size(); ++engine) {
                const double median = median_of(of, line, engine, size);
                to.cell(median > 0 ? text("%.2f", 1e6 / median) : "-", 15);
            }
            to.end();
        }
    }
    to.cell("Records lost in all kills", -44);
    for (size_t engine = 0; engine < of.engines.size(); ++engine) {
        double lost = 0;
        bool there = false;
        for (const results::sample& each : of.samples) {
            if (each.line != line_kill || each.engine != engine) continue;
            lost += each.figure;
            there = true;
        }
        to.cell(there ? text("%.0f", lost) : "-", 15);
    }
    to.end();
}

} // namespace

results read_results(const char* csv)
{
    results made = {};
    engine_of(&made, "TARSIL32"); // the first, measured or not
    std::FILE* from = std::fopen(csv, "r");
    must(from != nullptr, csv, 0);
    char row[400];
    while (std::fgets(row, sizeof row, from) != nullptr) {
        if (row[0] == '#')
            made.remarks.emplace_back(row + 2, std::strcspn(row + 2, "\n"));
        else
            take_row(&made, row);
    }
    std::fclose(from);
    std::sort(made.sizes.begin(), made.sizes.end());
    return made;
}

bool summarise(const results& of, line_id line, size_t engine, int32_t records, summary* sum)
{
    std::vector<double> figures;
    *sum = {};
    for (const results::sample& each : of.samples) {
        if (each.line != line || each.engine != engine || each.records != records) continue;
        figures.push_back(each.figure);
        sum->peak_kib = std::max(sum->peak_kib, each.peak_kib);
        sum->private_kib = std::max(sum->private_kib, each.private_kib);
    }
    if (figures.empty()) return false;
    std::sort(figures.begin(), figures.end());
    sum->least = figures.front();
    sum->most = figures.back();
    sum->median = (figures[(figures.size() - 1) / 2] + figures[figures.size() / 2]) / 2;
    return true;
}

size_t best_peer(const results& of, line_id line, rivals against)
{
    size_t best = 0;
    double most = 0;
    for (size_t engine = 1; engine < of.engines.size(); ++engine) {
        const double median = median_of(of, line, engine, of.records);
        if (!counts(of.engines[engine], against) || median <= most) continue;
        most = median;
        best = engine;
    }
    return best;
}

void write_report(const results& of)
{
    std::FILE* markdown = std::fopen("table.md", "w");
    must(markdown != nullptr, "table.md", 0);
    for (const std::string& remark : of.remarks) {
        std::printf("%s\n", remark.c_str());
        std::fprintf(markdown, "- %s\n", remark.c_str());
    }
    const two_tables both = {markdown};
    for (void (*part)(const results&, const two_tables&) :
         {write_rates, write_memory, write_scaling}) {
        std::printf("\n");
        std::fprintf(markdown, "\n");
        part(of, both);
    }
    std::fclose(markdown);
    write_comparison_chart(of, "comparison.svg");
    write_scaling_chart(of, "scaling.svg");
}

} // namespace bench
