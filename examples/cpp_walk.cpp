// Walks in C++, over records of variable length: in file order, in key order, between two values,
// without the deleted ones. Without exceptions: every answer is looked at.
//
// A record here is a fixed head with the key's fields, and behind it a text of any length.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "tarsil32.hpp"

namespace {

struct head {
    uint16_t day;
    char author[10];
};

const tarsil::layout fields = tarsil::layout::of<head>(
    {TARSIL_FIELD(head, day), TARSIL_FIELD(head, author)});

bool failed(const tarsil::status& answer)
{
    if (!answer) std::fprintf(stderr, "cpp_walk: %s\n", answer.message().c_str());
    return !answer;
}

tarsil::status add_note(const tarsil::data_file& file, int day, std::string_view author,
                        std::string_view text)
{
    std::vector<std::byte> record(sizeof(head));
    tarsil::status done = fields.set(record, "day", day);
    if (done) done = fields.set(record, "author", author);
    if (!done) return done;
    const auto body = tarsil::bytes_of(text);
    record.insert(record.end(), body.begin(), body.end());
    return file.add(record);
}

void print(const tarsil::record& one)
{
    const auto author = fields.get<std::string>(one.bytes, "author").value_or("?");
    const std::string text(reinterpret_cast<const char*>(one.bytes.data()) + sizeof(head),
                           one.bytes.size() - sizeof(head));
    std::printf("  day %d, %s: %s%s\n", fields.get<int>(one.bytes, "day").value_or(0),
                author.c_str(), text.c_str(), one.deleted ? "  (deleted)" : "");
}

// The walk ends at its last record or at a failure; its state tells which.
template <class Walk> bool print_all(const char* title, Walk walk)
{
    std::printf("%s\n", title);
    for (const auto& one : walk) print(one);
    return !failed(walk.state());
}

bool run()
{
    auto library = tarsil::library::start();
    if (failed(library)) return false;
    auto file = library->create("notes.dat", TS_VARIABLE_LENGTH);
    if (failed(file)) return false;
    const auto by_day = fields.key({"day", "author"});
    if (failed(by_day)) return false;
    auto keys = file->create_index("notes.idx", {&*by_day, 1});
    if (failed(keys)) return false;
    auto key = keys->key(0);
    if (failed(key)) return false;

    for (const tarsil::status& added :
         {add_note(*file, 12, "Ada", "The engine weaves patterns."),
          add_note(*file, 3, "Grace", "A moth in relay 70."),
          add_note(*file, 12, "Grace", "Nanoseconds are 30 cm long."),
          add_note(*file, 7, "Alan", "Can it think?"), add_note(*file, 30, "Ada", "")})
        if (failed(added)) return false;
    if (failed(file->erase(4))) return false;

    return print_all("In file order:", file->records()) &&
           print_all("By day, without the deleted:", key->all({.skip_deleted = true})) &&
           print_all("Backwards:", key->backwards()) &&
           print_all("Of day 12:", key->with(key->pack(12))) &&
           print_all("From day 5 to day 12:", key->from(key->pack(5)).until(key->pack(12)));
}

} // namespace

int main() { return run() ? 0 : 1; }
