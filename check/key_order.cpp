#include "check/key_order.h"

#include <cmath>
#include <cstring>

namespace tarsil::check {

namespace {

bool is_tolerant_field(char type) { return type == 'f' || type == 'd'; }

// The tolerance after `precision` steps, each rounded to the width of the field. At zero it stays.
template <typename number> number tolerance_of(number start, number factor, int32_t precision)
{
    for (int32_t i = 0; i < precision && start != 0; ++i) start = start * factor;
    return start;
}

template <typename number> number read_as(const unsigned char* place)
{
    number value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

// -1, 0 or 1, as the left value is below, equal to or above the right one.
template <typename number> int compare_as(const unsigned char* left, const unsigned char* right)
{
    const number a = read_as<number>(left);
    const number b = read_as<number>(right);
    return (a > b) - (a < b);
}

// Equal values under a tolerance of zero are not equal to the scan: the later one goes behind. They
// are in order as they stand, whatever follows them.
template <typename number>
int compare_within(const unsigned char* left, const unsigned char* right, number tolerance)
{
    const number a = read_as<number>(left);
    const number b = read_as<number>(right);
    const number distance = std::fabs(a - b);
    if (distance < tolerance || std::isnan(distance)) return 0;
    return a > b ? 1 : -1;
}

// Bytes count as signed; a zero byte in both ends the strings.
int compare_strings(const unsigned char* left, const unsigned char* right, int32_t length)
{
    for (int32_t i = 0; i < length; ++i) {
        if (left[i] != right[i]) return compare_as<signed char>(left + i, right + i);
        if (left[i] == 0) return 0;
    }
    return 0;
}

} // namespace

key_order::key_order(const key_record& checked_key, int32_t precision)
    : key(checked_key), double_tolerance(tolerance_of(0.9999999999, 0.1, precision)),
      float_tolerance(tolerance_of(1.0F, 0.1F, precision))
{
    for (int32_t i = 0; i < key.field_count; ++i) {
        has_tolerance = has_tolerance || is_tolerant_field(key.fields[i].type);
    }
}

key_order::relation key_order::field_relation(char type, const unsigned char* left,
                                              const unsigned char* right, int32_t length) const
{
    int outcome = 0;
    switch (type) {
    case 'H': outcome = compare_as<uint16_t>(left, right); break;
    case 'h': outcome = compare_as<int16_t>(left, right); break;
    case 'L':
    case 'U': outcome = compare_as<uint32_t>(left, right); break;
    case 'i':
    case 'l': outcome = compare_as<int32_t>(left, right); break;
    case 'c': outcome = compare_as<uint8_t>(left, right); break;
    case 'f': outcome = compare_within(left, right, float_tolerance); break;
    case 'd': outcome = compare_within(left, right, double_tolerance); break;
    default: outcome = compare_strings(left, right, length); break;
    }
    if (outcome == 0) return relation::equal;
    return outcome < 0 ? relation::less : relation::greater;
}

standing key_order::of(const unsigned char* in_front, const unsigned char* behind) const
{
    bool open_question = false; // a tolerant field has been passed
    int32_t at = 0;
    for (int32_t i = 0; i < key.field_count; ++i) {
        const key_field& field = key.fields[i];
        open_question = open_question || is_tolerant_field(field.type);
        switch (field_relation(field.type, in_front + at, behind + at, field.length)) {
        case relation::less: return standing::before;
        case relation::greater: return open_question ? standing::unsettled : standing::reversed;
        case relation::equal: break;
        }
        at += field.length;
    }
    const int32_t front_record = record_of_packed_key(key, in_front);
    const int32_t behind_record = record_of_packed_key(key, behind);
    if (front_record == behind_record) return standing::same;
    if (front_record > behind_record) return standing::before;
    return has_tolerance ? standing::unsettled : standing::reversed;
}

} // namespace tarsil::check
