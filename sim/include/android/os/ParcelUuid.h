#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace android {
namespace os {

// A 128-bit UUID as the platform parcels it: two signed 64-bit halves.
class ParcelUuid {
  public:
    ParcelUuid() = default;  // the all-zero UUID
    ParcelUuid(int64_t mostSignificantBits, int64_t leastSignificantBits)
        : m_msb(mostSignificantBits), m_lsb(leastSignificantBits) {}

    int64_t getMostSignificantBits() const { return m_msb; }
    int64_t getLeastSignificantBits() const { return m_lsb; }

    // "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", either case; anything else gives the zero UUID.
    static ParcelUuid fromString(const std::string& text);
    // The 36-character form, lower case.
    std::string toString() const;

    bool operator==(const ParcelUuid& other) const {
        return m_msb == other.m_msb && m_lsb == other.m_lsb;
    }
    bool operator!=(const ParcelUuid& other) const { return !(*this == other); }

  private:
    int64_t m_msb = 0;
    int64_t m_lsb = 0;
};

struct ParcelUuidHasher {
    std::size_t operator()(const ParcelUuid& uuid) const;
};

}  // namespace os
}  // namespace android
