#include "tests/unit/bracket_courses.h"

#include <set>

namespace tarsil::support {
namespace {

const struct {
    const char* course;
    std::set<std::string> of;
} courses[] = {
    {"D", {"tslockd32"}},
    {"d", {"tsulockd32"}},
    {"A", {"tslocki32"}},
    {"a", {"tsulocki32", "tsulalli32"}},
    {"Dwd", {"tscrdata32", "tsrbdbh32", "tsrbdbh32 zeros", "tspurge32 plain"}},
    {"Drd", {"tsopend32", "tsopend32 with the scan", "tspurge32 nothing"}},
    {"DrABwdwawb", {"tspurge32 indexed", "tspurge32 variable", "tspurge32 all"}},
    {"Jwj", {"tscrind32"}},
    {"JwjHrhwHrhwHrhwHrhwHrhwHrhwHrhwHrhwHrhwHrh", {"tscrindd32", "tscrindd32 variable"}},
    {"Ara", {"tsopeni32"}},
    {"r",
     {"tsvernum32 data", "tsvernum32 index", "tsstati32", "tsgeti32", "tsgeti32 missing",
      "tsgetip32", "tsgetipp32 equal", "tsgetipp32 behind all", "tsgetfi32", "tsgetli32",
      "tsgetni32 locked by the caller"}},
    {"Hrh", {"tsstatd32", "tslockdr32", "tsulckdr32"}},
    {"Hrhr",
     {"tsfields32", "tsgetd32", "tsgetd32 variable", "tsgetfd32", "tsgetld32", "tsgetnd32",
      "tsgetpd32", "tsgetcd32", "tsrecd32", "tsseti2d32", "tsupd32 key changed"}},
    {"HrArha",
     {"tsgetni32", "tsgetni32 across", "tsgetpi32", "tsgetpi32 across", "tsgetci32", "tssetd2i32",
      "tssetd2i32 variable", "tsdelci32 deleted already"}},
    {"HrArhar", {"tsgetni32 at the end", "tsgetpi32 at the start"}},
    {"rHrArha", {"tsgetipp32 in front"}},
    {"rHrArhar", {"tsgetipp32 before all"}},
    {"HrAraBrbwhAwaBwb", {"tsadd32 variable"}},
    {"rBrbwBwb", {"tsadd32 locked by the caller"}},
    {"w", {"tsadd32 into a full root, locked by the caller", "tsupi32 in place"}},
    {"Hwh", {"tsdeld32", "tsdelcd32"}},
    {"rHwh", {"tsdeli32"}},
    {"HrAwha", {"tsdelci32", "tsudelci32", "tsupci32 in place"}},
    // With reuse on, the next place for it is looked for afterwards.
    {"HwhHrhrHrhrHrhr", {"tsundeld32", "tsudelcd32"}},
    {"HrAwhaHrhrHrhrHrhr", {"tsundeli32"}},
    {"Hrhw", {"tsupd32 in place", "tsupcd32 in place"}},
    {"HrhrHwhHwhAwaBwb", {"tsupd32 anew", "tsupcd32 anew"}},
    {"rHwhHrAraBrbwhAwaBwb", {"tsupi32 anew"}},
    {"HrAwBwbha", {"tsupci32 anew"}},
};

} // namespace

std::string course_of(const std::vector<fault_site>& sites)
{
    std::string course;
    for (const fault_site& site : sites) {
        const sim::logged& met = site.call;
        const bool places = met.kind == sim::call::lock;
        if (places || met.kind == sim::call::unlock) {
            if (!is_bracket(met)) continue;
            const char file = met.file == "i0" ? 'A' : met.file == "i1" ? 'B' : 'J';
            const char letter = is_header_bracket(met) ? 'H' : is_data(met.file) ? 'D' : file;
            course += places ? letter : static_cast<char>(letter - 'A' + 'a');
        } else if (met.kind == sim::call::write) {
            if (course.ends_with('r')) course.pop_back();
            if (!course.ends_with('w')) course += 'w';
        } else if (met.kind == sim::call::read && !course.ends_with('w')) {
            if (!course.ends_with('r')) course += 'r';
        }
    }
    return course;
}

std::string expected_course(const workload& work)
{
    const std::string name = work.title.empty() ? work.function
                                                : work.function + (" " + work.title);
    for (const auto& each : courses) {
        if (each.of.contains(name)) return each.course;
    }
    return "";
}

} // namespace tarsil::support
