// The C++20 face of TARSIL32: owning objects, known lengths, errors to read, waits instead of
// refusals. Header-only, over the 61 C functions of tarsil32.h, hiding none of them.
//
//     auto started = tarsil::library::start({.multi_user = true});
//     auto file = started->open("airports.dat");
//     auto names = file->open_index("airports.idx");
//     auto key = names->key(1);
//     for (auto&& one : key->with(key->pack("CH"))) print(one.as<airport>().value());
//
// library      start to stop with its options; creates, opens and rebuilds data files
// data_file    facts, records by number and in file order, adds, updates, deletes, purge, locks
// index        an index file; its keys are key_cursor: searches by whole, leading and nearest
//              value, walks in key order, changes at the cursor
// layout       records described by name: field tables, key definitions, key values, fields
// result       what a call answers: a value, or a code with its name, cause, remedy and detail
// retry        how long a call goes on when another process holds what it needs
// file_lock    a lock that goes with its scope
//
// Every call answers a status or a result; an ignored one is a warning of the compiler. No call
// throws by itself, but for want of memory. One thread at a time may be inside. Buffers are sized
// by the face (tarsil32/record.hpp tells how), waiting is told in tarsil32/file_lock.hpp and with
// the calls in data_file.hpp and index.hpp.
#pragma once

#include "tarsil32/library.hpp"
