// Numbers that lie in a record in big-endian order on every machine and convert on access.
#pragma once

#include <bit>
#include <cstdint>

namespace koli {

/// One 32-bit big-endian field.  T is int32_t, uint32_t or float; zero bytes are the value 0.
template <typename T>
class BigEndian {
    static_assert(sizeof(T) == 4);

  public:
    BigEndian() = default;
    BigEndian(T value) : raw_(Swap(std::bit_cast<uint32_t>(value))) {}  // NOLINT(google-explicit-constructor)
    operator T() const { return std::bit_cast<T>(Swap(raw_)); }         // NOLINT(google-explicit-constructor)

  private:
    static constexpr uint32_t Swap(uint32_t value) {
        return std::endian::native == std::endian::big ? value : __builtin_bswap32(value);
    }
    uint32_t raw_;  // the bytes as they lie in the record
};

using BeInt32 = BigEndian<int32_t>;
using BeUint32 = BigEndian<uint32_t>;
using BeFloat = BigEndian<float>;

}  // namespace koli
