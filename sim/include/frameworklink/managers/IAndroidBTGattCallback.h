#pragma once

#include <android/bluetooth/BluetoothGattCharacteristic.h>
#include <android/bluetooth/BluetoothGattDescriptor.h>

namespace com {
namespace orvane {
namespace frameworklink {
namespace managers {

// The answers of one GATT client connection. The platform calls them on its own threads, never
// inside the call that caused them, in the order a Bluetooth stack answers.
class IAndroidBTGattCallback {
  public:
    // newState: 0 disconnected, 2 connected; status 0 is success.
    static constexpr int STATE_DISCONNECTED = 0;
    static constexpr int STATE_CONNECTED = 2;

    virtual ~IAndroidBTGattCallback() = default;
    virtual void onConnectionStateChange(int status, int newState) = 0;
    virtual void onServicesDiscovered(int status) = 0;
    virtual void onCharacteristicRead(const android::bluetooth::BluetoothGattCharacteristic&,
                                      int status) = 0;
    virtual void onCharacteristicWrite(const android::bluetooth::BluetoothGattCharacteristic&,
                                       int status) = 0;
    virtual void onCharacteristicChanged(
        const android::bluetooth::BluetoothGattCharacteristic&) = 0;
    virtual void onDescriptorRead(const android::bluetooth::BluetoothGattDescriptor&,
                                  int status) = 0;
    virtual void onDescriptorWrite(const android::bluetooth::BluetoothGattDescriptor&,
                                   int status) = 0;
};

}  // namespace managers
}  // namespace frameworklink
}  // namespace orvane
}  // namespace com
