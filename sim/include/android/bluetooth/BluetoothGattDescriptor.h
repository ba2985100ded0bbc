#pragma once

#include <memory>
#include <utility>

#include <android/os/ParcelUuid.h>
#include <frameworklink/interfaces/ParcelByteArray.h>

namespace android {
namespace bluetooth {

class BluetoothGattCharacteristic;

// A GATT descriptor with its value (null when it has none) and the characteristic it belongs to
// (null when the platform did not set one).
class BluetoothGattDescriptor {
  public:
    using Value = std::shared_ptr<com::orvane::frameworklink::interfaces::ParcelByteArray>;

    BluetoothGattDescriptor() = default;
    explicit BluetoothGattDescriptor(os::ParcelUuid uuid) : m_uuid(uuid) {}

    const os::ParcelUuid& getUuid() const { return m_uuid; }
    const Value& getValue() const { return m_value; }
    void setValue(Value value) { m_value = std::move(value); }
    const std::shared_ptr<BluetoothGattCharacteristic>& getCharacteristic() const {
        return m_characteristic;
    }
    void setCharacteristic(std::shared_ptr<BluetoothGattCharacteristic> characteristic) {
        m_characteristic = std::move(characteristic);
    }

  private:
    os::ParcelUuid m_uuid;
    Value m_value;
    std::shared_ptr<BluetoothGattCharacteristic> m_characteristic;
};

}  // namespace bluetooth
}  // namespace android
