// One life of the library under random operations: a data file of some kind with its index files,
// the model of it, and the operations, each of which calls the library and compares. See
// model_test.cpp.
#pragma once

#include "tests/support/model.h"
#include "tests/support/model_values.h"

namespace tarsil::model {

constexpr char untouched = '\x5a';
constexpr size_t longest_body = 160;

struct index_file {
    std::string name;
    std::shared_ptr<index_keys> keys;
    int32_t handle = -1;  // below 0: closed
    bool complete = true; // it was open whenever a record was added
};

// A key that the next operation works on.
struct chosen_key {
    int32_t index_handle = 0;
    int32_t number = 0;
    key* of = nullptr;
};

class life {
public:
    life(std::mt19937_64& source, uint64_t seed_of_run, int64_t operations_before)
        : random(source), make(source), seed(seed_of_run), done(operations_before)
    {
    }

    // Runs up to `limit` operations and tells how many there have been; the last ones close all.
    int64_t run(int64_t limit);

private:
    struct deed {
        int32_t weight;
        void (life::*perform)();
        bool may_allocate;
        const char* name;
    };
    static const deed deeds[];

    void begin();
    void perform(const deed& chosen);
    void end();

    void add();
    void mark();
    void update();
    void find();
    void find_part();
    void step();
    void walk_all();
    void navigate();
    void exchange();
    void tell_facts();
    void refuse();
    void set_options();
    void change_indexes();
    void create_index();
    void lock();
    void purge();
    void reopen();
    void rebuild();
    void check_files();

    // Takes the library's answer over to the model; then what the model says goes to `same`.
    int32_t given(int32_t code);
    void same(int64_t expected, int64_t found, const char* what);
    void delivered(const outcome& told, int32_t deleted);
    void same_state();
    void passed_over_rightly();

    int32_t lowest_free_index() const;
    bool choose_key(chosen_key& chosen);
    bool choose_name(chosen_key& chosen, name_of_record& name);
    std::string some_value(const key& of);
    std::string some_body();
    bool is_current_astray() const { return file.current >= 1 && file.records.empty(); }
    char yes_or_no(bool wanted)
    {
        return make.happens(20) ? (wanted ? 'Y' : 'N') : wanted ? 'y' : 'n';
    }
    void enter_mode();
    void release_all();
    void close_all();
    void open_index(index_file& index);
    size_t own_ranges() const;

    std::mt19937_64& random;
    values make;
    const uint64_t seed;
    int64_t done;
    const char* doing = "begin";

    data_file file;
    int32_t d = -1; // its handle
    bool shared = false;
    bool through = false;
    int32_t other = -1; // a second data file, so that handles aren't all 0
    std::vector<index_file> indexes;
    int32_t names = 0;
    int32_t most_records = 0;
    bool data_locked = false;
    int32_t record_locked = 0;
    std::set<int32_t> indexes_locked;
    std::string buffer = std::string(longest_body, untouched);
};

} // namespace tarsil::model
