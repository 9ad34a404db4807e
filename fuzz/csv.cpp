// CSV, with all that can be wrong with it.
#include "fuzz/rows.h"

namespace tarsil::fuzz {

std::vector<std::string> seeds()
{
    const std::string header = "id,small,price,ratio,count,note\n";
    return {'\0' + header +
                "1,2,3.5,-1e3,4,abc\n-2147483648,255,inf,nan,4294967295,\"a \"\"b\"\"\"\n",
            '\1' + header + "1,2,3.5,1,4,\"two\r\nlines\"\n7,300,x,,-1,much too long for it\n",
            '\2' + std::string("1,2,3,4,5,6\n1,2\n\"open,2,3\n"),
            '\x08' + std::string("note,id,_deleted,other\nabc,1,1,z\n,2,0,\n"),
            '\x14' + std::string("id;small;price;ratio;count;note\r\n;;;;;\r\n")};
}

} // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tarsil::fuzz::read_rows(bytes, count, tarsil::tool::row_format::csv);
    return 0;
}
