// What has to be found in the files after a kill, with every writer in the midst of one call at
// most: tells where docs/BEHAVIOUR.md is not kept, and counts what a kill has left.
#pragma once

#include "check/index_check.h"
#include "tests/files/kill_writer.h"

#include <map>
#include <unordered_set>

namespace tarsil::kills {

struct place {
    int32_t offset;
    char mark;
    std::string body;
    row read; // of as many bytes as the body has

    bool is_whole(const mode_of_work& how) const;
    bool crosses_page() const;
    bool is_made_of(const row& a, const row& b) const; // byte by byte
};

class onlooker {
public:
    onlooker(const mode_of_work& work, answered* of_all, std::string data, std::string index)
        : how(work), notes(of_all), data_name(std::move(data)), index_name(std::move(index))
    {
    }

    // `most_runs`: of neighbours that one key can lack.
    void look(int32_t most_runs);

    // What was under way is done or not; from now on it counts as found.
    void settle();

    bool is_out_of_step = false; // a tree
    bool has_torn = false;       // a record; with either, nothing goes on in this round
    std::map<const char*, long long> totals;

private:
    using places_in_work = std::unordered_set<int32_t>;

    bool is_under_way(const place& at, bool with_a_new_key = false) const;
    bool is_as_answered(const place& at) const;
    bool can_be_torn_by(const answered& told, int32_t writer, const place& at, bool is_last) const;
    int32_t writer_who_tears(const place& at, bool is_last, const std::vector<bool>& tears) const;
    void expect_records(const std::vector<place>& places, places_in_work& in_work);
    void expect_live(int32_t writer, int32_t number, int32_t found, bool is_torn) const;
    void expect_keys(const std::string& data, std::vector<place> places,
                     const places_in_work& in_work, int32_t most_runs);
    struct damage_left {
        int32_t torn_nodes = 0;
        int32_t cut_edges = 0;
    };
    void expect_damage(const std::string& file, const check::key_report& key,
                       damage_left& left) const;
    void expect_split(const std::string& file, const key_record& key,
                      const std::vector<place>& in_order, const places_in_work& in_work,
                      int32_t most_runs);

    const mode_of_work how;
    answered* const notes;
    const std::string data_name;
    const std::string index_name;
};

} // namespace tarsil::kills
