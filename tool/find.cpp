// tarsil find: records by a value of a key, in the order of the key.
#include "tool/batch_lock.h"
#include "tool/command.h"
#include "tool/keys.h"
#include "tool/opening.h"
#include "tool/shown_records.h"
#include "tool/signals.h"

namespace tarsil::tool {

namespace {

struct request {
    std::string data;
    std::string index;
    std::string key;
    std::vector<std::string> values;
    bool is_prefix = false;
    bool is_nearest = false;
    bool has_deleted = false;
    int64_t limit = 0; // 0: all that fit; of nearest values one
    std::string format;
};

const char* words_for(nearness where)
{
    switch (where) {
    case nearness::match: return "a match";
    case nearness::before: return "the nearest before the value";
    case nearness::behind: return "the first of the key, behind the value";
    }
    return "";
}

class finder {
public:
    finder(const request& wanted, open_files& files, named_key& key, shown_records& shown)
        : wanted_(wanted), key_(key), shown_(shown), lock_(files)
    {
    }

    outcome run(const key_value& value)
    {
        outcome done = lock_.step();
        if (!done) return done;
        if (wanted_.is_nearest) return nearest(value);
        key_walk walk = wanted_.is_prefix ? key_.key.prefix(value) : key_.key.with(value);
        for (auto at = walk.begin(); at != walk.end(); ++at) {
            if (!put(*at, "", done)) return done;
            done = lock_.step();
            if (!done) return done;
        }
        return walk.state() ? done : failure_on(walk.state(), wanted_.index);
    }

    int64_t found() const { return found_; }

private:
    // False ends the search. The record at the cursor tells its number when it is made current.
    bool put(record& one, std::string_view remark, outcome& done)
    {
        if (one.deleted && !wanted_.has_deleted) return true;
        const result<int32_t> number = key_.key.make_current();
        if (!number) done = failure_on(number, wanted_.index);
        if (!done) return false;
        one.number = *number;
        done = shown_.put(one, remark);
        ++found_;
        return done && found_ != wanted_.limit && !standard_output().failed() && !stop_wanted();
    }

    outcome nearest(const key_value& value)
    {
        result<nearest_record> first = key_.key.nearest(value);
        if (first.code() == TS_CURSOR_NONE || first.code() == TS_WALK_NO_RECORDS) return {};
        if (!first) return failure_on(first, wanted_.index);
        outcome done;
        if (!put(first->found, words_for(first->where), done)) return done;
        for (;;) {
            done = lock_.step();
            if (!done) return done;
            result<record> one = key_.key.next();
            if (one.code() == TS_CURSOR_FILE_CHANGED) one = key_.key.next();
            if (one.code() == TS_NEXT_ENTRY_AT_END) return {};
            if (!one) return failure_on(one, wanted_.index);
            if (!put(*one, "", done)) return done;
        }
    }

    const request& wanted_;
    named_key& key_;
    shown_records& shown_;
    batch_lock lock_;
    int64_t found_ = 0;
};

int run(request& wanted, const common_options& common)
{
    if (wanted.is_nearest && wanted.limit == 0) wanted.limit = 1;
    answer<open_files> files = open(wanted.data, {wanted.index}, common);
    if (!files) return fail(files.why());
    answer<named_key> key = find_key(files->indexes[0], wanted.key, files->fields);
    if (!key) return fail(key.why());
    const answer<key_value> value = read_key_value(key->parts, wanted.values, wanted.is_prefix);
    if (!value) return fail(value.why());
    answer<shown_records> shown = shown_records::in_format(wanted.format, common, files->fields);
    if (!shown) return fail(shown.why());
    finder search(wanted, *files, *key, *shown);
    const outcome done = search.run(*value);
    if (!done) return fail(done.why());
    shown->finish();
    if (search.found() > 0) return exit_done;
    note("nothing found");
    return exit_partly;
}

} // namespace

run_command declare_find(option_set& options, common_options& common)
{
    auto wanted = std::make_shared<request>();
    options.add("DATA", wanted->data, "The data file").required();
    options.add("INDEX", wanted->index, "Its index file").required();
    options.add("KEY", wanted->key, "Number of the key from 0, or its first fields by name")
        .required();
    options.add("VALUE", wanted->values, "A value for each field, from the first on").required();
    options.add("--prefix", wanted->is_prefix, "The last value is the beginning of a text");
    options
        .add("--nearest", wanted->is_nearest,
             "The record before the value where none matches; with --limit those behind it too")
        .excludes("--prefix");
    options.add("--limit", wanted->limit, "So many records at most").from_one().value_name("N");
    options.add("--deleted", wanted->has_deleted, "Deleted records too");
    add_shown_format(options, wanted->format, common);
    add_fields_file(options, common);
    add_sharing(options, common);
    return [wanted, &common] { return run(*wanted, common); };
}

} // namespace tarsil::tool
