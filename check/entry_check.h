// I11: the entries of one key against the records of the data file.
//
// Every leaf entry is entered as the walk meets it, and each is looked up at once: it has to lead
// to a frame, be the first to do so, and hold the fields of the record there. What no entry led to
// in the end has no entry. One bit a record is kept meanwhile.
#pragma once

#include <cstdint>
#include <vector>

#include "check/index_check.h"

namespace tarsil::check {

class entry_ledger {
public:
    entry_ledger(const data_side& data_file, const key_record& checked_key, int32_t number,
                 key_report& key_findings);

    // `entry` is the image of a leaf entry, which stands at `entry_offset` in the index file.
    void enter(const unsigned char* entry, int64_t entry_offset);

    // After the last entry: reports the records that have none.
    void close();

private:
    struct waiting {
        int32_t frame; // offset in the data file
        int32_t entry; // offset in the index file
        size_t image;  // in `images`
    };

    void add(const place& where, std::string text, remedy mended_by = remedy::reindex);
    void compare_batch();
    int32_t differing_field(const unsigned char* image, int64_t frame_offset);

    const data_side& data;
    const key_record& key;
    const int32_t key_number;
    key_report& report;
    std::vector<bool> met; // by record
    std::vector<waiting> batch;
    std::vector<unsigned char> images; // key images of the batch
    int64_t tail_entries = 0;
    int64_t needed = 0; // bytes of a record in which the key's fields lie
};

} // namespace tarsil::check
