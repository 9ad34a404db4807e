// Keys in C++: the airports of a CSV, described by a struct, found by whole, leading and nearest
// values.
//
// usage: cpp_keys AIRPORTS.csv. Works in the current folder, on files that it makes itself.
#include <cstdio>
#include <fstream>
#include <string>

#include "tarsil32.hpp"

namespace {

struct airport {
    char ident[8];
    char country[4];
    char name[80];
    double latitude;
};

// The one description from which field table, keys and key values are made.
const tarsil::layout fields = tarsil::layout::of<airport>(
    {TARSIL_FIELD(airport, ident), TARSIL_FIELD(airport, country), TARSIL_FIELD(airport, name),
     TARSIL_FIELD(airport, latitude)});

enum { by_ident, by_country_and_name, by_latitude };

// Splits a line at its commas, but for those between quotes.
std::vector<std::string> split(const std::string& line)
{
    std::vector<std::string> columns(1);
    bool quoted = false;
    for (const char letter : line) {
        if (letter == '"')
            quoted = !quoted;
        else if (letter == ',' && !quoted)
            columns.emplace_back();
        else
            columns.back() += letter;
    }
    return columns;
}

int add_airports(const tarsil::data_file& file, const char* csv_name)
{
    std::ifstream csv(csv_name);
    std::string line;
    int added = 0;
    for (std::getline(csv, line); std::getline(csv, line); ++added) {
        const std::vector<std::string> columns = split(line);
        std::vector<std::byte> record(sizeof(airport));
        // set() refuses what doesn't fit; or_throw() makes an exception of it.
        fields.set(record, "ident", columns.at(1)).or_throw();
        fields.set(record, "country", columns.at(6)).or_throw();
        fields.set(record, "name", columns.at(4)).or_throw();
        fields.set(record, "latitude", std::stod(columns.at(8))).or_throw();
        file.add(record, tarsil::duplicates::allow).or_throw();
    }
    return added;
}

void print(const char* how, const tarsil::record& found)
{
    const airport one = found.as<airport>().value_or_throw();
    std::printf("%-10s %-8.8s %-3.4s %-40.80s %8.3f\n", how, one.ident, one.country, one.name,
                one.latitude);
}

void run(const char* csv_name)
{
    const auto library = tarsil::library::start().value_or_throw();
    const auto file = library.create("airports.dat", fields).value_or_throw();
    const auto keys = file.create_index(
                              "airports.idx",
                              std::vector{fields.key({"ident"}).value_or_throw(),
                                          fields.key({"country", "name"}).value_or_throw(),
                                          fields.key({"latitude"}).value_or_throw()})
                          .value_or_throw();
    std::printf("%d airports\n", add_airports(file, csv_name));

    const auto ident = keys.key(by_ident).value_or_throw();
    print("whole", ident.find(ident.pack("LSZH")).value_or_throw());

    const auto name = keys.key(by_country_and_name).value_or_throw();
    print("leading", name.find_leading(name.pack("CH")).value_or_throw());
    print("beginning", name.find_prefix(name.pack("GB", "London")).value_or_throw());

    const auto latitude = keys.key(by_latitude).value_or_throw();
    const auto near = latitude.nearest(latitude.pack(71.0)).value_or_throw();
    print(near.where == tarsil::nearness::match ? "match" : "nearest", near.found);

    // An error carries its name, its cause and what it is about.
    std::printf("%s\n", ident.find(ident.pack("a very long code")).message().c_str());
}

} // namespace

int main(int argument_count, char** arguments)
{
    if (argument_count != 2) return 2;
    try {
        run(arguments[1]);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "cpp_keys: %s\n", problem.what());
        return 1;
    }
    return 0;
}
