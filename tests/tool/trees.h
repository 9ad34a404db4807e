// The files that the tests of the commands for damage work on: trees.dat with its index trees.idx,
// and notes.dat with records of variable length.
#pragma once

#include <cstring>

#include "data/data_format.h"
#include "tests/tool/typed_commands.h"

namespace tarsil::tests {

class trees : public typed_commands {
protected:
    static constexpr int first_frame = field_table_offset + 3 * field_entry_bytes;
    static constexpr int tree_bytes = 32;
    static constexpr int stride = frame_bytes + tree_bytes;

    static constexpr int frame_of(int record) { return first_frame + (record - 1) * stride; }

    static std::string tree_row(int number)
    {
        return std::to_string(number) + ",tree " + std::to_string(number * 7919 % 10007) + "," +
               std::to_string(number % 40) + ".5\n";
    }

    // Records 1 to `count`; those whose number `deleted` divides are deleted.
    void make_trees(int count, int deleted = 0) const
    {
        must("tarsil create trees.dat --field id:i32 --field name:text:20 --field height:f64");
        must("tarsil index trees.dat trees.idx --key id --key name,id");
        add_trees(1, count);
        std::string numbers;
        for (int i = deleted; deleted > 0 && i <= count; i += deleted)
            numbers += " " + std::to_string(i);
        if (!numbers.empty()) must("tarsil delete trees.dat" + numbers);
    }
    void add_trees(int first, int last, const std::string& files = "trees.dat trees.idx") const
    {
        std::string rows = "id,name,height\n";
        for (int i = first; i <= last; ++i) rows += tree_row(i);
        write("rows.csv", rows);
        must("tarsil import " + files + " rows.csv");
    }

    void make_notes(int count) const
    {
        must("tarsil create notes.dat --field id:i32 --field note:text:500 --variable");
        std::string rows = "id,note\n";
        for (int i = 1; i <= count; ++i)
            rows += std::to_string(i) + "," + std::string(static_cast<size_t>(i % 90 + 1), 'n') +
                    "\n";
        write("rows.csv", rows);
        must("tarsil import notes.dat rows.csv");
    }

    // Writes bytes into a file, as damage does.
    void damage(const std::string& name, size_t offset, const std::string& bytes) const
    {
        std::string whole = read(name);
        ASSERT_LE(offset + bytes.size(), whole.size());
        write(name, whole.replace(offset, bytes.size(), bytes));
    }
    void damage(const std::string& name, size_t offset, int32_t number) const
    {
        damage(name, offset, std::string(reinterpret_cast<const char*>(&number), sizeof number));
    }
    void cut(const std::string& name, size_t bytes) const
    {
        write(name, read(name).substr(0, bytes));
    }

    // The header as it was when the file had `records` records.
    void set_header_back(int records) const
    {
        damage("trees.dat", data_header_offset + offsetof(data_header, record_count),
               int32_t{records});
        damage("trees.dat", data_header_offset + offsetof(data_header, end_offset),
               int32_t{frame_of(records + 1)});
    }

    void expect_sound(const std::string& files = "trees.dat trees.idx") const
    {
        const typed checked = type("tarsil check " + files);
        EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
    }
};

} // namespace tarsil::tests
