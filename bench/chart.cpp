// The charts: rates of all engines per line as dots on a logarithmic scale, and the cost of an add
// and a look-up over the number of records.
#include <cmath>

#include "bench/report.h"

namespace bench {
namespace {

constexpr const char* colours[] = {"#c1121f", "#1d6fb8", "#2a9d4a", "#8e5ea2",
                                   "#e08e0b", "#5c6770", "#0fa3a3"};

const char* colour(size_t engine) { return colours[engine % std::size(colours)]; }

// A logarithmic scale from `low` to `high` onto places of the picture.
struct scale {
    double low, high, from, to;

    double at(double value) const
    {
        return from + (to - from) * std::log10(value / low) / std::log10(high / low);
    }
};

std::FILE* start_picture(const char* file, int width, int height)
{
    std::FILE* to = std::fopen(file, "w");
    must(to != nullptr, file, 0);
    std::fprintf(to,
                 "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
                 "font-family=\"sans-serif\" font-size=\"12\">\n"
                 "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
                 width, height);
    return to;
}

void end_picture(std::FILE* to)
{
    std::fprintf(to, "</svg>\n");
    std::fclose(to);
}

void write_text(std::FILE* to, double x, double y, const char* anchor, const std::string& words)
{
    std::fprintf(to, "<text x=\"%.0f\" y=\"%.0f\" text-anchor=\"%s\">%s</text>\n", x, y, anchor,
                 words.c_str());
}

void write_line(std::FILE* to, double x1, double y1, double x2, double y2, const char* stroke)
{
    std::fprintf(to, "<path d=\"M%.1f %.1fL%.1f %.1f\" stroke=\"%s\"/>\n", x1, y1, x2, y2, stroke);
}

void write_dot(std::FILE* to, double x, double y, double radius, const char* fill)
{
    std::fprintf(to, "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"%.1f\" fill=\"%s\"/>\n", x, y, radius,
                 fill);
}

std::string short_number(double value)
{
    char made[32];
    const bool mega = value >= 1e6, kilo = value >= 1e3;
    std::snprintf(made, sizeof made, "%g%s",
                  mega   ? value / 1e6
                  : kilo ? value / 1e3
                         : value,
                  mega   ? "M"
                  : kilo ? "k"
                         : "");
    return made;
}

void write_legend(std::FILE* to, const results& of, double x, double y)
{
    for (size_t engine = 0; engine < of.engines.size(); ++engine) {
        write_dot(to, x, y - 4, engine == 0 ? 6 : 4, colour(engine));
        write_text(to, x + 10, y, "start", of.engines[engine]);
        x += 40 + 7 * static_cast<double>(of.engines[engine].size());
    }
}

} // namespace

void write_comparison_chart(const results& of, const char* file)
{
    const int row = 28, top = 60;
    const int height = top + row * line_kill + 20;
    std::FILE* to = start_picture(file, 960, height);
    const scale across = {1e3, 1e8, 300, 930};
    write_legend(to, of, 20, 20);
    for (double mark = across.low; mark <= across.high; mark *= 10) {
        write_line(to, across.at(mark), top - 10, across.at(mark), height - 20, "#ddd");
        write_text(to, across.at(mark), top - 15, "middle", short_number(mark) + "/s");
    }
    for (int32_t i = 0; i < line_kill; ++i) {
        const double y = top + row * i + row / 2.0;
        write_text(to, across.from - 12, y + 4, "end", lines[i].title);
        write_line(to, across.from, y, across.to, y, "#eee");
        for (size_t engine = of.engines.size(); engine-- > 0;) {
            summary sum;
            if (!summarise(of, static_cast<line_id>(i), engine, of.records, &sum)) continue;
            const double x = across.at(std::clamp(sum.median, across.low, across.high));
            write_dot(to, x, y, engine == 0 ? 6 : 4, colour(engine));
        }
    }
    end_picture(to);
}

void write_scaling_chart(const results& of, const char* file)
{
    const double top = 60, bottom = 380;
    std::FILE* to = start_picture(file, 960, 420);
    write_legend(to, of, 20, 20);
    const scale up = {0.1, 100, bottom, top};
    double left = 60;
    for (const line_id line : {line_add_one, line_look_up}) {
        const scale across = {1e3, 1e7, left, left + 400};
        write_text(to, left, top - 18, "start",
                   std::string(lines[line].title) + ": microseconds over records");
        for (double mark = up.low; mark < up.high * 2; mark *= 10) {
            write_line(to, left, up.at(mark), left + 400, up.at(mark), "#ddd");
            write_text(to, left - 6, up.at(mark) + 4, "end", short_number(mark));
        }
        for (double mark = across.low; mark <= across.high; mark *= 10)
            write_text(to, across.at(mark), bottom + 18, "middle", short_number(mark));
        for (size_t engine = of.engines.size(); engine-- > 0;) {
            double x = 0, y = 0;
            for (const int32_t size : of.sizes) {
                summary sum;
                if (!summarise(of, line, engine, size, &sum)) continue;
                const double next_x = across.at(size), next_y = up.at(1e6 / sum.median);
                if (x > 0) write_line(to, x, y, next_x, next_y, colour(engine));
                x = next_x;
                y = next_y;
                write_dot(to, x, y, engine == 0 ? 6 : 4, colour(engine));
            }
        }
        left += 460;
    }
    end_picture(to);
}

} // namespace bench
