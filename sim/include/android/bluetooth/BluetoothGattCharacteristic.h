#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <android/bluetooth/BluetoothGattDescriptor.h>
#include <android/os/ParcelUuid.h>
#include <frameworklink/interfaces/ParcelByteArray.h>

namespace android {
namespace bluetooth {

// A GATT characteristic: its UUID, properties, value (null when it has none) and descriptors.
class BluetoothGattCharacteristic {
  public:
    using Value = std::shared_ptr<com::orvane::frameworklink::interfaces::ParcelByteArray>;

    // Property bits as the platform defines them.
    static constexpr int PROPERTY_READ = 0x02;
    static constexpr int PROPERTY_WRITE_NO_RESPONSE = 0x04;
    static constexpr int PROPERTY_WRITE = 0x08;
    static constexpr int PROPERTY_NOTIFY = 0x10;
    static constexpr int PROPERTY_INDICATE = 0x20;

    BluetoothGattCharacteristic() = default;
    BluetoothGattCharacteristic(os::ParcelUuid uuid, int properties)
        : m_uuid(uuid), m_properties(properties) {}

    const os::ParcelUuid& getUuid() const { return m_uuid; }
    // Tells apart characteristics that share a UUID (in two services, say); the stack assigns it
    // at discovery, 0 before.
    int getInstanceId() const { return m_instanceId; }
    void setInstanceId(int instanceId) { m_instanceId = instanceId; }
    int getProperties() const { return m_properties; }
    const Value& getValue() const { return m_value; }
    void setValue(Value value) { m_value = std::move(value); }
    const std::vector<BluetoothGattDescriptor>& getDescriptors() const { return m_descriptors; }
    void addDescriptor(BluetoothGattDescriptor descriptor) {
        m_descriptors.push_back(std::move(descriptor));
    }

    // "BluetoothGattCharacteristic{uuid=..., properties=0x.., value=AA:BB}" for logs.
    std::string toString() const;

  private:
    os::ParcelUuid m_uuid;
    int m_instanceId = 0;
    int m_properties = 0;
    Value m_value;
    std::vector<BluetoothGattDescriptor> m_descriptors;
};

}  // namespace bluetooth
}  // namespace android
