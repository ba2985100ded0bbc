#pragma once

#include <optional>

#include <android/os/ParcelUuid.h>
#include <frameworklink/interfaces/ParcelByteArray.h>

namespace android {
namespace bluetooth {
namespace le {

// One platform scan filter. A result passes it when every criterion that is set matches: some
// advertised service UUID under the mask (every bit when no mask is set), the manufacturer id,
// and the manufacturer data as a prefix of that id's payload. A scan passes a result that
// passes any of its filters.
class ScanFilter {
  public:
    using ByteArray = com::orvane::frameworklink::interfaces::ParcelByteArray;

    void setServiceUuid(const os::ParcelUuid& uuid) { m_serviceUuid = uuid; }
    void setServiceMask(const os::ParcelUuid& mask) { m_serviceMask = mask; }
    void setManufacturerId(int id) { m_manufacturerId = id; }
    void setManufacturerData(const ByteArray& data) { m_manufacturerData = data; }

    const std::optional<os::ParcelUuid>& getServiceUuid() const { return m_serviceUuid; }
    const std::optional<os::ParcelUuid>& getServiceMask() const { return m_serviceMask; }
    const std::optional<int>& getManufacturerId() const { return m_manufacturerId; }
    const std::optional<ByteArray>& getManufacturerData() const { return m_manufacturerData; }

  private:
    std::optional<os::ParcelUuid> m_serviceUuid;
    std::optional<os::ParcelUuid> m_serviceMask;
    std::optional<int> m_manufacturerId;
    std::optional<ByteArray> m_manufacturerData;
};

}  // namespace le
}  // namespace bluetooth
}  // namespace android
