#pragma once

#include <cstdint>
#include <iosfwd>
#include <type_traits>

namespace Kiv::Core
{

// The host's long: 32 bits wide whatever the compiler's long is, because files and serialized
// values of this kind were made where long has 32 bits. A type of its own rather than an alias
// of std::int32_t (which is int here) keeps Data<int> and Data<HostLong> apart.
//
// It is built from a std::int32_t only: a wider number must be narrowed on purpose, so that a
// 64-bit long cannot slip in and be cut without anyone deciding how.
class HostLong
{
public:
    constexpr HostLong() = default;
    constexpr HostLong(std::int32_t value) : m_Value(value) {}
    template <class Other, class = std::enable_if_t<!std::is_same_v<Other, std::int32_t> &&
                                                    !std::is_same_v<Other, HostLong>>>
    HostLong(Other) = delete;

    constexpr operator std::int32_t() const { return m_Value; }

private:
    std::int32_t m_Value = 0;
};

static_assert(sizeof(HostLong) == 4 && std::is_trivially_copyable_v<HostLong>,
              "HostLong is written and read as its 4 raw bytes");

// As a decimal number; reading fails (sets failbit) for a text beyond the 32-bit range.
std::ostream& operator<<(std::ostream& out, HostLong value);
std::istream& operator>>(std::istream& in, HostLong& value);

} // namespace Kiv::Core
