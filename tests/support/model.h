// What a data file with its open index files has to answer, told by plain containers: a vector of
// records, and per key a set in key order. It shares no code with the library.
//
// Each operation of the model changes the model and tells the code that the library owes for the
// same call, and which record it delivers. Three things depend on how a tree happens to be cut into
// nodes, which the model doesn't know; for these the caller gives it the library's answer first,
// and the model follows it within what is possible:
//   - a search may miss equal entries once entries with the same value have been taken out of a
//     tree, and only then (`given.code`);
//   - the nearest record of a key without a cursor may need a step back, which is refused;
//   - a deleted slot is passed over when an entry of it is alone in its leaf; the model collects
//     such slots in `passed_over`, for a look at the file.
#pragma once

#include "tarsil32.h"

#include <array>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace tarsil::model {

struct field {
    char type;
    int32_t length;
    int32_t offset; // in the record
};

struct entry {
    std::string image; // the fields back to back
    int32_t offset;    // of the record's frame
};

// The leading part of a key value: so many fields, of the last one, if it is a string, so many
// bytes.
struct part {
    const std::string& value;
    size_t fields;
    int32_t last_length;
};

int compare(const std::vector<field>& fields, const std::string& left, const part& right);
std::string image_of(const std::vector<field>& fields, const std::string& body);

struct entry_order {
    using is_transparent = void;
    const std::vector<field>* fields;

    bool operator()(const entry& left, const entry& right) const;
    bool operator()(const entry& left, const part& right) const;
    bool operator()(const part& left, const entry& right) const;
};
using tree = std::set<entry, entry_order>;

// `lost`: there is a position, but a search has moved the leaf from under it; the caller places the
// cursor anew before it steps.
enum class cursor_state : uint8_t { none, on, lost };

struct key {
    explicit key(std::vector<field> of) : fields(std::move(of)), entries(entry_order{&fields}) {}
    key(const key&) = delete;
    key& operator=(const key&) = delete;

    void place(tree::iterator where);
    void lose();
    void insert(const entry& added);
    part whole(const std::string& value) const { return {value, fields.size(), length_of_last()}; }
    int32_t length_of_last() const { return fields.back().length; }

    const std::vector<field> fields;
    bool has_cursor = false;
    tree entries;
    std::set<std::string> taken_out; // images of entries that left since the tree was begun
    cursor_state state = cursor_state::none;
    tree::iterator at;
};

using index_keys = std::vector<std::unique_ptr<key>>;

struct record {
    int32_t offset;
    bool deleted;
    std::string body;
};

enum class form : uint8_t { number, current, value, cursor };

// How an operation names its record; each form uses its own part.
struct name_of_record {
    form how;
    int32_t number = 0;
    key* of = nullptr;
    const std::string* value = nullptr;
};

// What the library has answered, where the model has to follow it.
struct answer {
    int32_t code;
    int32_t record_count;
    int32_t reuse_offset;
};

// `number` is that of the record delivered; 0 for none.
struct outcome {
    int32_t code;
    int32_t number = 0;
};

class data_file {
public:
    int32_t record_length = 0; // or TS_VARIABLE_LENGTH
    int32_t first_offset = 0;
    std::vector<record> records;
    int32_t current = 0;
    int32_t noted = -1; // the slot that reuse tries next
    bool reuse = false;
    std::array<std::shared_ptr<index_keys>, TS_MAX_INDEX_FILES> open_indexes;
    answer given{};
    std::vector<int32_t> passed_over; // slots, by the last add

    bool is_fixed() const { return record_length > 0; }
    int32_t count() const { return static_cast<int32_t>(records.size()); }
    int32_t deleted_count() const;
    int32_t end_offset() const;
    int32_t number_at(int32_t offset) const;
    const record& numbered(int32_t number) const
    {
        return records[static_cast<size_t>(number - 1)];
    }

    void open();
    void rebuild();
    void build(index_keys& keys); // tscrindd32
    int32_t add(const std::string& body, bool duplicates);
    int32_t mark(const name_of_record& name, bool as_deleted);
    outcome update(const name_of_record& name, const std::string& body, int32_t mode);
    int32_t purge(int32_t& removed);

    outcome by_number(int32_t number);
    outcome first();
    outcome last();
    outcome next();
    outcome previous();
    outcome here() const; // tsgetcd32, tsrecd32

    outcome find(key& in, const part& value, int32_t missed);
    outcome nearest(key& in, const part& value);
    outcome to_end(key& in, bool last_one);
    outcome step(key& in, bool forward);
    outcome at_cursor(const key& in) const;
    outcome cursor_to_record(const key& in);
    outcome record_to_cursor(key& in);

    // The record that a name leads to, or the code of the operation that asks, by its kind.
    enum class purpose : uint8_t { deletion, updating };
    outcome look_up(const name_of_record& name, purpose why);

private:
    bool may_have_been_missed(const key& in, const part& value) const;
    bool is_duplicate(const std::string& body);
    int32_t choose_slot();
    void pass_over(int32_t number);
    bool is_in_all_keys(const record& candidate) const;
    void store(const std::string& body, int32_t slot);
    void next_reusable();
    int32_t next_deleted(int32_t behind) const;
    bool changes_a_key(const std::string& from, const std::string& to) const;
    template <class Deed> void for_each_key(Deed&& deed) const;
};

} // namespace tarsil::model
