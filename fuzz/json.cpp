// JSON Lines, with all that can be wrong with them.
#include "fuzz/rows.h"

namespace tarsil::fuzz {

std::vector<std::string> seeds()
{
    const std::string whole =
        R"({"id":1,"small":2,"price":3.5,"ratio":-1e3,"count":4,"note":"a \u00e9 \"b\""})";
    return {'\0' + whole + "\n" + whole, '\1' + whole + "\r\n{}\n[1,2]\nnull\n{\"id\":",
            '\x08' + std::string("{\"id\":99999999999,\"other\":[{}]}\n{\"id\":1,\"id\":2}\n"),
            '\x09' + std::string("{\"note\":\"\\u0000\",\"_deleted\":true}\n{\"small\":1.5}\n")};
}

} // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tarsil::fuzz::read_rows(bytes, count, tarsil::tool::row_format::json_lines);
    return 0;
}
