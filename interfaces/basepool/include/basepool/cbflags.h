#pragma once
// A set of bits named by an enumeration (plain or scoped) or by an integer type, held in
// 32 bits. Each enumerator may carry one bit or several; Has() asks whether any of the
// given bits is set, HasAll() whether all are.
#include <cstdint>
#include <type_traits>

template <class E> class CbFlags {
    static_assert(std::is_enum_v<E> || std::is_integral_v<E>, "flags are named by an enum or an integer type");

public:
    constexpr CbFlags() = default;
    constexpr CbFlags(E flag) : m_value(bits(flag)) {}
    constexpr CbFlags(uint32_t value) requires(!std::is_same_v<E, uint32_t>) : m_value(value) {}

    // Set(flag) turns the bits of `flag` on; Set(flag, false) turns them off.
    constexpr CbFlags& Set(E flag, bool on = true) {
        m_value = on ? (m_value | bits(flag)) : (m_value & ~bits(flag));
        return *this;
    }
    constexpr CbFlags& Add(E flag) { return Set(flag, true); }
    constexpr CbFlags& Remove(E flag) { return Set(flag, false); }
    constexpr CbFlags& Toggle(E flag) {
        m_value ^= bits(flag);
        return *this;
    }
    constexpr void Clear() { m_value = 0; }
    constexpr bool Has(E flag) const { return (m_value & bits(flag)) != 0; }
    constexpr bool HasAll(E flag) const { return (m_value & bits(flag)) == bits(flag); }
    constexpr bool IsEmpty() const { return m_value == 0; }
    constexpr uint32_t GetValue() const { return m_value; }

    constexpr CbFlags& operator|=(CbFlags o) {
        m_value |= o.m_value;
        return *this;
    }
    constexpr CbFlags& operator&=(CbFlags o) {
        m_value &= o.m_value;
        return *this;
    }
    friend constexpr CbFlags operator|(CbFlags a, CbFlags b) { return a |= b; }
    friend constexpr CbFlags operator&(CbFlags a, CbFlags b) { return a &= b; }
    friend constexpr bool operator==(CbFlags a, CbFlags b) { return a.m_value == b.m_value; }

private:
    static constexpr uint32_t bits(E flag) {
        if constexpr (std::is_enum_v<E>)
            return static_cast<uint32_t>(static_cast<std::underlying_type_t<E>>(flag));
        else
            return static_cast<uint32_t>(flag);
    }
    uint32_t m_value = 0;
};
