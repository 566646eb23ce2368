#pragma once

#include <charconv>
#include <cstdint>
#include <cstring>

namespace Pelrix
{

// Writes value as C's "%f" prints it: six decimals, rounded half to even on the exact binary
// value, a minus sign for every negative value (also when it rounds to zero). Returns the end
// of the text, at most 47 characters on.
//
// A float is mantissa x 2^exponent with a 24-bit mantissa, so mantissa x 10^6 is an exact
// integer of at most 44 bits: shifting it by the exponent and rounding the bits shifted out
// gives the six-decimal value exactly, with integers alone. This is several times faster than
// the general conversion, which is kept for values past 2^43, infinities and NaN.
inline char* WriteFixedSix(char* out, float value)
{
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const int biased = static_cast<int>((bits >> 23) & 0xFF);
    const int LARGEST_FAST_BIASED = 127 + 43;
    if (biased > LARGEST_FAST_BIASED)
    {
        return std::to_chars(out, out + 48, static_cast<double>(value), std::chars_format::fixed, 6)
            .ptr;
    }
    std::uint64_t mantissa = bits & 0x7FFFFF;
    int exponent = -149; // of a subnormal
    if (biased != 0)
    {
        mantissa |= 0x800000;
        exponent = biased - 150;
    }
    const std::uint64_t scaled = mantissa * 1000000;
    std::uint64_t micros = 0;
    if (exponent >= 0)
    {
        micros = scaled << exponent; // below 2^64: 44 bits shifted by at most 20
    }
    else if (exponent > -64)
    {
        const int shift = -exponent;
        micros = scaled >> shift;
        const std::uint64_t rest = scaled & ((std::uint64_t{1} << shift) - 1);
        const std::uint64_t half = std::uint64_t{1} << (shift - 1);
        if (rest > half || (rest == half && (micros & 1) != 0))
        {
            ++micros;
        }
    }
    // else: far below half a millionth, it rounds to zero.

    if ((bits >> 31) != 0)
    {
        *out++ = '-';
    }
    out = std::to_chars(out, out + 20, micros / 1000000).ptr;
    *out++ = '.';
    std::uint32_t fraction = static_cast<std::uint32_t>(micros % 1000000);
    for (int digit = 5; digit >= 0; --digit)
    {
        out[digit] = static_cast<char>('0' + fraction % 10);
        fraction /= 10;
    }
    return out + 6;
}

} // namespace Pelrix
