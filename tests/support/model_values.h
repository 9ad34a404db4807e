// Records for random operations: a layout of fields of all ten letters, and bodies whose fields
// take few or many values, so that keys over them have duplicates or none.
#pragma once

#include "tests/support/model.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace tarsil::model {

class values {
public:
    explicit values(std::mt19937_64& source) : random(source)
    {
        std::string letters = "lisSdfHhcLU";
        std::shuffle(letters.begin(), letters.end(), random);
        for (const char letter : letters) {
            const char type = letter == 'S' ? 's' : letter;
            fields_.push_back({type, length_of(letter), bytes_});
            constexpr int32_t counts[] = {2, 5, 30, 1000};
            different_.push_back(counts[below(4)]);
            bytes_ += fields_.back().length;
        }
    }

    const std::vector<field>& fields() const { return fields_; }
    int32_t bytes() const { return bytes_; }

    // A number from 0 up, below `limit`.
    int32_t below(int32_t limit)
    {
        return static_cast<int32_t>(random() % static_cast<uint64_t>(limit));
    }
    bool happens(int32_t percent) { return below(100) < percent; }

    std::string body(int32_t length)
    {
        std::string body(static_cast<size_t>(std::max(length, bytes_)), '.');
        for (size_t i = 0; i < fields_.size(); ++i)
            put(fields_[i], below(different_[i]), body.data() + fields_[i].offset);
        body.resize(static_cast<size_t>(length));
        return body;
    }

    // The body with one of its fields or a byte behind them changed; maybe to what it was.
    std::string changed(std::string body)
    {
        const auto which = static_cast<size_t>(below(static_cast<int32_t>(fields_.size()) + 4));
        if (which >= fields_.size()) {
            body.back() = static_cast<char>(body.back() + 1);
            return body;
        }
        std::string other = this->body(static_cast<int32_t>(body.size()));
        const auto at = static_cast<size_t>(fields_[which].offset);
        if (at < body.size()) {
            const auto length = static_cast<size_t>(fields_[which].length);
            body.replace(at, length, other, at, length);
        }
        return body;
    }

private:
    static int32_t length_of(char letter)
    {
        switch (letter) {
        case 's': return 12;
        case 'S': return 3;
        case 'd': return 8;
        case 'H':
        case 'h': return 2;
        case 'c': return 1;
        default: return 4;
        }
    }

    template <class Number> static void store(char* to, Number value)
    {
        std::memcpy(to, &value, sizeof value);
    }

    void put(const field& of, int32_t choice, char* to)
    {
        const int32_t spread = (choice - 400) * 3000017; // both signs
        const double half = (choice - 400) / 2.0 + (below(5) - 2) * 0.0001;
        switch (of.type) {
        case 'H':
        case 'h': return store(to, static_cast<uint16_t>(choice * 131));
        case 'c': return store(to, static_cast<uint8_t>(choice));
        case 'f': return store(to, static_cast<float>(half));
        case 'd': return store(to, half);
        case 's': return put_string(of.length, choice, to);
        default: return store(to, spread);
        }
    }

    // A few letters of both signs, in fields of 12 bytes with an end and anything behind it.
    void put_string(int32_t length, int32_t choice, char* to)
    {
        constexpr char letters[] = {'a', 'B', static_cast<char>(0xff), static_cast<char>(0x80)};
        const int32_t shown = 1 + choice % 7;
        for (int32_t i = 0; i < length; ++i) {
            to[i] = i < shown ? letters[choice % 4] : static_cast<char>(below(256));
            if (i == shown) to[i] = 0;
            choice = choice / 4 + i;
        }
    }

    std::mt19937_64& random;
    std::vector<field> fields_;
    std::vector<int32_t> different_;
    int32_t bytes_ = 0;
};

} // namespace tarsil::model
