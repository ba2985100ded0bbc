#pragma once

#include <utility>
#include <vector>

#include <android/bluetooth/BluetoothGattCharacteristic.h>
#include <android/os/ParcelUuid.h>

namespace android {
namespace bluetooth {

// A discovered GATT service and its characteristics, in the peer's order.
class BluetoothGattService {
  public:
    BluetoothGattService() = default;
    explicit BluetoothGattService(os::ParcelUuid uuid) : m_uuid(uuid) {}

    const os::ParcelUuid& getUuid() const { return m_uuid; }
    const std::vector<BluetoothGattCharacteristic>& getCharacteristics() const {
        return m_characteristics;
    }
    void addCharacteristic(BluetoothGattCharacteristic characteristic) {
        m_characteristics.push_back(std::move(characteristic));
    }
    // For the stack that owns the service (assigning instance ids, storing written values).
    std::vector<BluetoothGattCharacteristic>& characteristics() { return m_characteristics; }

  private:
    os::ParcelUuid m_uuid;
    std::vector<BluetoothGattCharacteristic> m_characteristics;
};

}  // namespace bluetooth
}  // namespace android
