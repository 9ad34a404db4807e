// An outside project in C++: the airports of a country in name order, from the files of the demo.
#include <iostream>
#include <tarsil32.hpp>

struct airport {
    int32_t id, elevation_ft;
    char ident[8], iata[4], size[8], name[80], municipality[40], country[4], region[16];
    double latitude, longitude;
    char scheduled[8];
};

int main(int count, char** arguments)
{
    if (count != 2) return 2;
    try {
        auto library = tarsil::library::start().value_or_throw();
        auto file = library.open("airports.dat").value_or_throw();
        auto index = file.open_index("airports.idx").value_or_throw();
        const auto by_country = index.key(1).value_or_throw();
        for (const tarsil::record& one : by_country.with(by_country.pack(arguments[1])))
            std::cout << one.as<airport>().value().name << '\n';
        by_country.walk_state().or_throw();
    } catch (const tarsil::error& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
    return 0;
}
