// An outside project in C++: the places of a country in name order.
#include <iostream>
#include <tarsil32.hpp>

struct place {
    char country[4];
    char name[28];
};

int main(int count, char** arguments)
{
    if (count != 2) return 2;
    try {
        auto library = tarsil::library::start().value_or_throw();
        auto file = library.open("places.dat").value_or_throw();
        auto index = file.open_index("places.idx").value_or_throw();
        const auto names = index.key(0).value_or_throw();
        for (const tarsil::record& one : names.prefix(names.pack(arguments[1])))
            std::cout << one.as<place>().value().name << '\n';
        names.walk_state().or_throw();
    } catch (const tarsil::error& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
    return 0;
}
