// The demo: the airports of the world in a data file with three keys.
//
// usage: demo AIRPORTS.csv. Works in the current folder: creates airports.dat and airports.idx,
// stores the rows of the CSV, finds some by whole, leading and nearest key value, walks a country
// in name order both ways, updates, deletes, undeletes and purges, and has the files checked at the
// end. Every call is one of the public header; every answer is looked at.
#include <csv.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "check/data_check.h"
#include "check/index_check.h"
#include "check/report_text.h"
#include "tarsil32.h"

namespace {

struct airport {
    int32_t id;
    int32_t elevation_ft;
    char ident[8];
    char iata[4];
    char size[8];
    char name[80];
    char municipality[40];
    char country[4];
    char region[16];
    double latitude;
    double longitude;
    char scheduled[8];
};

enum : int32_t { key_ident, key_country_name, key_place, key_total };

const char data_name[] = "airports.dat";
const char index_name[] = "airports.idx";

[[noreturn]] void fail(const char* step, int32_t result)
{
    std::fprintf(stderr, "demo: %s answered %d\n", step, static_cast<int>(result));
    std::exit(1);
}

// Gives the number back, or ends the demo when it is a code that the step does not expect.
int32_t must(int32_t result, const char* step)
{
    if (result < 0) fail(step, result);
    return result;
}

// --- The CSV -----------------------------------------------------------------------------------

struct csv_rows {
    std::vector<std::vector<std::string>> rows{1};
};

void take_field(void* bytes, size_t length, void* to)
{
    static_cast<csv_rows*>(to)->rows.back().emplace_back(static_cast<const char*>(bytes), length);
}

void take_row(int, void* to) { static_cast<csv_rows*>(to)->rows.emplace_back(); }

std::vector<std::vector<std::string>> read_csv(const char* name)
{
    std::FILE* file = std::fopen(name, "rb");
    if (file == nullptr) {
        std::fprintf(stderr, "demo: cannot read %s\n", name);
        std::exit(1);
    }
    csv_rows all;
    csv_parser parser;
    csv_init(&parser, CSV_APPEND_NULL);
    char buffer[1 << 16];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, file)) > 0;)
        csv_parse(&parser, buffer, got, take_field, take_row, &all);
    csv_fini(&parser, take_field, take_row, &all);
    csv_free(&parser);
    std::fclose(file);
    all.rows.pop_back();
    return all.rows;
}

template <size_t room> void put_text(char (&field)[room], const std::string& text)
{
    std::memset(field, 0, room);
    std::memcpy(field, text.data(), text.size() < room ? text.size() : room);
}

airport to_airport(const std::vector<std::string>& row)
{
    airport place = {};
    place.id = std::atoi(row[0].c_str());
    put_text(place.ident, row[1]);
    put_text(place.iata, row[2]);
    put_text(place.size, row[3]);
    put_text(place.name, row[4]);
    put_text(place.municipality, row[5]);
    put_text(place.country, row[6]);
    put_text(place.region, row[7]);
    place.latitude = std::atof(row[8].c_str());
    place.longitude = std::atof(row[9].c_str());
    place.elevation_ft = std::atoi(row[10].c_str());
    put_text(place.scheduled, row[11]);
    return place;
}

// --- Files -------------------------------------------------------------------------------------

#define TEXT_FIELD(member)                                 \
    {                                                      \
        static_cast<int32_t>(sizeof(airport::member)), 's' \
    }

int32_t create_data_file()
{
    field_entry fields[] = {{4, 'i'},
                            {4, 'i'},
                            TEXT_FIELD(ident),
                            TEXT_FIELD(iata),
                            TEXT_FIELD(size),
                            TEXT_FIELD(name),
                            TEXT_FIELD(municipality),
                            TEXT_FIELD(country),
                            TEXT_FIELD(region),
                            {8, 'd'},
                            {8, 'd'},
                            TEXT_FIELD(scheduled)};
    const int32_t count = static_cast<int32_t>(sizeof fields / sizeof fields[0]);
    return must(tscrdata32(data_name, sizeof(airport), count, fields), "tscrdata32");
}

void add_key_field(key_definition& key, char type, size_t length, size_t offset)
{
    key.types[key.field_count] = type;
    key.lengths[key.field_count] = static_cast<int32_t>(length);
    key.offsets[key.field_count] = static_cast<int32_t>(offset);
    key.field_count += 1;
}

int32_t create_index_file(int32_t data)
{
    key_definition keys[key_total] = {};
    for (key_definition& key : keys) key.cursor = 'y';
    add_key_field(keys[key_ident], 's', sizeof(airport::ident), offsetof(airport, ident));
    add_key_field(keys[key_country_name], 's', sizeof(airport::country),
                  offsetof(airport, country));
    add_key_field(keys[key_country_name], 's', sizeof(airport::name), offsetof(airport, name));
    add_key_field(keys[key_place], 'd', 8, offsetof(airport, latitude));
    add_key_field(keys[key_place], 'd', 8, offsetof(airport, longitude));
    return must(tscrind32(data, index_name, key_total, keys), "tscrind32");
}

void import(int32_t data, const char* csv_name)
{
    const std::vector<std::vector<std::string>> rows = read_csv(csv_name);
    const auto start = std::chrono::steady_clock::now();
    int32_t added = 0;
    for (size_t i = 1; i < rows.size(); ++i) {
        if (rows[i].size() != rows[0].size()) continue;
        const airport place = to_airport(rows[i]);
        must(tsadd32(data, &place, 0, 'y'), "tsadd32");
        ++added;
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("Stored %d airports with three keys in %.3f s.\n", static_cast<int>(added),
                took.count());
}

// --- What one does with them -------------------------------------------------------------------

void print(const char* what, const airport& place, int32_t deleted)
{
    std::printf("  %-9s %-7.8s %-2.4s  %-44.44s %9.4f %10.4f%s\n", what, place.ident, place.country,
                place.name, place.latitude, place.longitude, deleted != 0 ? "  (deleted)" : "");
}

void find_some(int32_t data, int32_t index)
{
    airport place;
    int32_t deleted = 0;
    std::printf("\nBy code, by the beginning of a name within a country, by nearest latitude:\n");
    must(tsgeti32(data, index, key_ident, "LSZH\0\0\0", &place, &deleted), "tsgeti32");
    print("LSZH", place, deleted);

    must(tsgetip32(data, index, key_country_name, "GB\0\0London", 2, 6, &place, &deleted),
         "tsgetip32");
    for (int32_t code = 0; code == 0 && std::strncmp(place.name, "London", 6) == 0;
         code = tsgetni32(data, index, key_country_name, &place, &deleted))
        print("London*", place, deleted);

    const double latitude = 71.0;
    const int32_t how = must(tsgetipp32(data, index, key_place, &latitude, 1, 0, &place, &deleted),
                             "tsgetipp32");
    print(how == 0 ? "71 N" : "near 71 N", place, deleted);
}

void walk_a_country(int32_t data, int32_t index)
{
    airport place;
    int32_t deleted = 0;
    std::printf("\nIceland in name order, and the last three backwards:\n");
    must(tsgetip32(data, index, key_country_name, "IS\0", 1, 4, &place, &deleted), "tsgetip32");
    while (std::strcmp(place.country, "IS") == 0) {
        print("", place, deleted);
        must(tsgetni32(data, index, key_country_name, &place, &deleted), "tsgetni32");
    }
    for (int i = 0; i < 3; ++i) {
        must(tsgetpi32(data, index, key_country_name, &place, &deleted), "tsgetpi32");
        print("back", place, deleted);
    }
}

void change_some(int32_t data, int32_t index)
{
    airport place;
    airport scratch;
    int32_t deleted = 0;
    std::printf("\nChanges:\n");
    must(tsgeti32(data, index, key_ident, "BIKF\0\0\0", &place, &deleted), "tsgeti32");
    place.elevation_ft += 1;
    const int32_t in_place = tsupi32(data, index, key_ident, "BIKF\0\0\0", &place, 0, &deleted,
                                     &scratch, 0);
    std::printf("  a new elevation is written in place: %d\n",
                static_cast<int>(must(in_place, "tsupi32")));

    put_text(place.name, "Reykjavik Keflavik");
    const int32_t refused = tsupi32(data, index, key_ident, "BIKF\0\0\0", &place, 0, &deleted,
                                    &scratch, 0);
    if (refused != TS_UPDATE_KEY_CHANGED) fail("tsupi32 with a changed key", refused);
    const int32_t moved = tsupi32(data, index, key_ident, "BIKF\0\0\0", &place, 0, &deleted,
                                  &scratch, 2);
    std::printf("  a new name is refused (%d), then stored as a new record: %d\n",
                static_cast<int>(refused), static_cast<int>(must(moved, "tsupi32")));

    must(tsdeli32(data, index, key_ident, "LSZH\0\0\0"), "tsdeli32");
    must(tsgeti32(data, index, key_ident, "LSZH\0\0\0", &place, &deleted), "tsgeti32");
    print("deleted", place, deleted);
    must(tsundeli32(data, index, key_ident, "LSZH\0\0\0"), "tsundeli32");
    must(tsgeti32(data, index, key_ident, "LSZH\0\0\0", &place, &deleted), "tsgeti32");
    print("back", place, deleted);

    int32_t removed = 0;
    must(tspurge32(data, &scratch, &removed), "tspurge32");
    std::printf("  purged: %d record gone, the keys built anew\n", static_cast<int>(removed));
}

void show_facts(int32_t data)
{
    int32_t records, deleted, length, current, fields;
    must(tsstatd32(data, &records, &deleted, &length, &current, &fields), "tsstatd32");
    std::printf("\n%s holds %d records of %d bytes with %d fields, %d of them deleted.\n",
                data_name, static_cast<int>(records), static_cast<int>(length),
                static_cast<int>(fields), static_cast<int>(deleted));
}

// The checkers read the files as they lie there, without the library.
bool check_files()
{
    tarsil::check::file_bytes data, index;
    data.open(data_name);
    index.open(index_name);
    tarsil::check::frame_list frames;
    const tarsil::check::data_report data_report = check_data_file(data, &frames);
    const tarsil::check::data_side side = {data, frames};
    const tarsil::check::index_report index_report = check_index_file(index, &side, 9);
    std::fputs(lines_of(data_report.findings).c_str(), stdout);
    std::fputs(lines_of(index_report.findings).c_str(), stdout);
    for (const tarsil::check::key_report& key : index_report.keys) {
        std::fputs(lines_of(key.findings).c_str(), stdout);
        std::printf(
            "  key of %d field(s): %d levels, %lld nodes, %lld entries, leaves %d %% full\n",
            static_cast<int>(key.key.field_count), static_cast<int>(key.depth),
            static_cast<long long>(key.nodes()), static_cast<long long>(key.entries),
            static_cast<int>(key.fill_percent()));
    }
    const bool sound = data_report.findings.is_sound() && index_report.is_sound();
    std::printf("Both files checked against each other: %s.\n", sound ? "sound" : "NOT SOUND");
    return sound;
}

} // namespace

int main(int argument_count, char** arguments)
{
    if (argument_count != 2) {
        std::fprintf(stderr, "usage: demo AIRPORTS.csv\n");
        return 2;
    }
    std::remove(data_name);
    std::remove(index_name);
    if (tsinit32() != TS_STARTED) return 1;
    must(tsspdoub32(9), "tsspdoub32"); // places are told apart to a billionth of a degree
    const int32_t data = create_data_file();
    const int32_t index = create_index_file(data);
    import(data, arguments[1]);
    find_some(data, index);
    walk_a_country(data, index);
    change_some(data, index);
    show_facts(data);
    must(tsclosed32(data), "tsclosed32");
    tsfree32();
    return check_files() ? 0 : 1;
}
