#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace com {
namespace orvane {
namespace frameworklink {
namespace interfaces {

// A byte array as the platform parcels it.
class ParcelByteArray {
  public:
    ParcelByteArray() = default;
    explicit ParcelByteArray(std::vector<uint8_t> bytes) : m_bytes(std::move(bytes)) {}

    const std::vector<uint8_t>& getBytes() const { return m_bytes; }

  private:
    std::vector<uint8_t> m_bytes;
};

}  // namespace interfaces
}  // namespace frameworklink
}  // namespace orvane
}  // namespace com
