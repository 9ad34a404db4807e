// The C++ face among several processes: waiting, locks, walks over a file that others change. The
// children start the library themselves, so each test forks before it starts its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tarsil32.hpp"
#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

namespace {

using namespace tarsil;
using namespace std::chrono_literals;
using support::child_line;
using support::child_process;

struct entry {
    int32_t number;
    char text[16];
};

entry make_entry(int32_t number)
{
    entry made = {number, {}};
    std::snprintf(made.text, sizeof made.text, "text %d", static_cast<int>(number));
    return made;
}

std::vector<key_definition> entry_keys()
{
    const layout fields = layout::of<entry>(
        {TARSIL_FIELD(entry, number), TARSIL_FIELD(entry, text)});
    return {*fields.key({"number"}, cursor::kept, 3), *fields.key({"text"}, cursor::kept, 3)};
}

// A process's own view of the files: started, opened, and gone in the right order.
struct shared_files {
    explicit shared_files(const support::temp_folder& folder)
        : started(library::start({.multi_user = true})),
          file(*started->open(folder.file("shared.dat"))),
          keys(*file.open_index(folder.file("shared.idx"))), by_number(*keys.key(0))
    {
    }

    status add(int32_t number, const retry_choice& wait = {}) const
    {
        return file.add(bytes_of(make_entry(number)), duplicates::refuse, wait);
    }
    result<record> find(int32_t number, const retry_choice& wait = {}) const
    {
        return by_number.find(by_number.pack(number), wait);
    }

    result<library> started;
    data_file file;
    index_file keys;
    key_cursor by_number;
};

class SharedFace : public testing::Test {
protected:
    void create(int32_t entries, int32_t record_length = sizeof(entry)) const
    {
        const result<library> started = library::start();
        const data_file file = *started->create(folder.file("shared.dat"), record_length);
        const index_file keys = *file.create_index(folder.file("shared.idx"), entry_keys());
        for (int32_t i = 1; i <= entries; ++i) ASSERT_TRUE(file.add(bytes_of(make_entry(i * 10))));
    }

    support::temp_folder folder;
};

// An open answers TS_OPEN_DATA_LOCK_FAILED for the lock, and is asked again too.
TEST_F(SharedFace, WaitsForALockToStoreOnceToOpenAndToRead)
{
    create(3);
    child_process other([&](const child_line& line) {
        const shared_files files(folder);
        file_lock lock;
        for (int i = 0; i < 3; ++i) {
            line.step([&] {
                lock = *files.file.lock_all();
                return lock.placed();
            });
            line.step([] { return 0; });
            std::this_thread::sleep_for(100ms);
            (void)lock.release();
            line.step([&] { return lock.placed(); });
        }
    });
    const std::string name = folder.file("shared.dat");
    const shared_files files(folder);
    ASSERT_EQ(other.next(), 1);
    EXPECT_EQ(files.add(40, retry::never()).code(), TS_LOCK_REFUSED);
    EXPECT_FALSE(files.add(40, retry::never()).half_done());
    EXPECT_EQ(files.find(10, retry::up_to(5ms)).code(), TS_LOCK_REFUSED);
    EXPECT_EQ(files.file.get(1, retry::never()).code(), TS_LOCK_REFUSED);
    EXPECT_EQ(files.by_number.first(retry::never()).code(), TS_LOCK_REFUSED);
    EXPECT_EQ(files.started->open(name, retry::never()).code(), TS_OPEN_DATA_LOCK_FAILED);

    other.next();
    const status added = files.add(40, retry::up_to(std::chrono::microseconds::max()));
    EXPECT_TRUE(added) << added.message();
    EXPECT_GT(files.started->waits(), 10U);
    EXPECT_EQ(other.next(), 0);
    EXPECT_EQ(files.file.facts()->records, 4);
    EXPECT_TRUE(files.find(40));

    ASSERT_EQ(other.next(), 1);
    other.next();
    EXPECT_TRUE(files.started->open(name, retry::up_to(20s)));
    EXPECT_EQ(other.next(), 0);

    ASSERT_EQ(other.next(), 1);
    other.next();
    EXPECT_EQ(files.file.last()->as<entry>()->number, 40);
    EXPECT_EQ(other.next(), 0);
}

TEST_F(SharedFace, WalksGoOnAfterAnAddAndStopWhenAskedOrAfterAPurge)
{
    create(8);
    child_process other([&](const child_line& line) {
        const shared_files files(folder);
        line.step([&] { return files.add(1000).code(); });
        line.step([&] { return files.add(1001).code(); });
        line.step([&] { return files.file.erase(1).code() + files.file.purge().code(); });
    });
    const shared_files files(folder);
    const auto walk = [&](const walk_options& options) {
        int32_t seen = 0;
        for ([[maybe_unused]] auto&& one : files.by_number.all(options))
            if (++seen == 2) other.next();
        return seen;
    };
    EXPECT_GE(walk({}), 8);
    EXPECT_TRUE(files.by_number.walk_state()) << files.by_number.walk_state().message();
    EXPECT_EQ(walk({.changed = on_change::stop}), 2);
    EXPECT_EQ(files.by_number.walk_state().code(), TS_CURSOR_FILE_CHANGED);
    EXPECT_EQ(walk({}), 2);
    EXPECT_EQ(files.by_number.walk_state().code(), TS_CURSOR_FILE_CHANGED);
}

TEST_F(SharedFace, LocksKeepOthersOutNestAndGoWithTheirScope)
{
    create(3);
    // What is refused of reads of record 2, of the one behind it, and by a key of record 2 and of
    // the one in front: a bit each.
    constexpr int32_t by_number_2 = 8, by_number = 4, by_key_2 = 2, by_key = 1;
    child_process other([&](const child_line& line) {
        const shared_files files(folder);
        for (int i = 0; i < 6; ++i)
            line.step([&] {
                const status reads[] = {
                    files.file.get(2, retry::never()), files.file.get(3, retry::never()),
                    files.find(20, retry::never()), files.find(10, retry::never())};
                int32_t refused = 0;
                for (const status& each : reads)
                    refused = 2 * refused + (each.code() == TS_LOCK_REFUSED);
                return refused;
            });
    });
    const shared_files files(folder);
    EXPECT_EQ(other.next(), 0);
    {
        const file_lock outer = *files.file.lock();
        EXPECT_EQ(other.next(), by_number_2 + by_number + by_key_2 + by_key);
        const file_lock inner = *files.file.lock_all();
        EXPECT_TRUE(files.add(40)) << "inside the own locks";
        EXPECT_FALSE(files.keys.lock()->placed());
    }
    EXPECT_EQ(other.next(), 0);
    file_lock index_lock = *files.keys.lock();
    EXPECT_EQ(other.next(), by_key_2 + by_key);
    EXPECT_TRUE(index_lock.release());

    file_lock record_lock = *files.file.lock_record(2);
    EXPECT_EQ(other.next(), by_number_2 + by_key_2);
    EXPECT_FALSE(files.file.lock_record(2)->placed());
    EXPECT_EQ(other.next(), by_number_2 + by_key_2) << "the outer lock of the record still stands";
    EXPECT_TRUE(files.file.get(2));
    EXPECT_TRUE(files.file.update(2, bytes_of(make_entry(20))));
    EXPECT_TRUE(files.file.erase(2));
    EXPECT_EQ(files.file.erase(3).code(), face::record_lock_held);
    EXPECT_EQ(files.add(50).code(), face::record_lock_held);
    EXPECT_EQ(files.by_number.first()->as<entry>()->number, 10);
    EXPECT_EQ(files.by_number.next().code(), face::record_lock_held);
    EXPECT_TRUE(record_lock.release());
    EXPECT_TRUE(files.add(50));
}

TEST_F(SharedFace, ReadsVariableRecordsThatOthersMakeLonger)
{
    create(3, TS_VARIABLE_LENGTH);
    child_process other([&](const child_line& line) {
        const shared_files files(folder);
        line.step([&] {
            std::vector<std::byte> longer(100'000, std::byte{7});
            const entry head = make_entry(40);
            std::memcpy(longer.data(), &head, sizeof head);
            return files.file.add(longer).code();
        });
    });
    const shared_files files(folder);
    EXPECT_EQ(files.find(30)->bytes.size(), sizeof(entry));
    EXPECT_EQ(files.file.get(3)->bytes.size(), sizeof(entry));
    ASSERT_EQ(other.next(), TS_OK);
    EXPECT_EQ(files.file.next()->bytes.size(), 100'000U);
    EXPECT_EQ(files.by_number.next().code(), TS_NEXT_ENTRY_AT_END);
    EXPECT_EQ(files.find(40)->bytes.size(), 100'000U);

    // A record that ends before a field of a key: zeros stand for the rest.
    ASSERT_TRUE(files.file.add(bytes_of("short")));
    const key_cursor by_text = *files.keys.key(1);
    EXPECT_EQ(by_text.find(by_text.pack("t"))->bytes.size(), 5U);
    int32_t seen = 0;
    for ([[maybe_unused]] auto&& one : by_text.with(by_text.pack("t"))) ++seen;
    EXPECT_EQ(seen, 1);
}

} // namespace
