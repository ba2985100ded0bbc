#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <android/bluetooth/BluetoothDevice.h>
#include <android/bluetooth/BluetoothGattCharacteristic.h>
#include <android/bluetooth/BluetoothGattService.h>
#include <android/bluetooth/le/ScanFilter.h>
#include <android/bluetooth/le/ScanResult.h>
#include <android/bluetooth/le/ScanSettings.h>
#include <frameworklink/interfaces/RemoteDeviceAdapter.h>
#include <frameworklink/managers/FrameworkLinkDeathRecipient.h>
#include <frameworklink/managers/IAndroidBTGattCallback.h>
#include <frameworklink/managers/IConnectivityEventCallback.h>

namespace com {
namespace orvane {
namespace frameworklink {
namespace managers {

// The platform's Bluetooth proxy: scanning, GATT client connections, pairing.
//
// Every operation returns whether the proxy accepted it; answers come later through the
// callbacks, on platform threads, never inside the call. Until initialize() succeeds, and after
// the proxy died until it is initialised again, every other operation fails.
//
// Thread-safety: every operation may be called from any thread.
class AndroidBTProxyManager {
  public:
    // The process-wide proxy.
    static std::shared_ptr<AndroidBTProxyManager> getManager();

    // Connects to the platform service, waiting at most `waitLimit` seconds.
    bool initialize(int waitLimit);
    // The recipient is told once when the proxy dies; a recipient that no longer exists is not.
    bool registerForProxyDeath(std::weak_ptr<FrameworkLinkDeathRecipient> recipient);

    // Starts scan `scanInstance` with the filters (a result passes if any filter passes it).
    // Results arrive through resultCb one at a time (reportDelay 0) or through batchCb.
    bool startBLEScan(
        const std::vector<android::bluetooth::le::ScanFilter>* filters,
        const android::bluetooth::le::ScanSettings& settings,
        std::function<void(const std::vector<android::bluetooth::le::ScanResult>&)> batchResultCb,
        std::function<void(int)> scanFailureCb,
        std::function<void(int, const android::bluetooth::le::ScanResult&)> scanResultCb,
        int scanInstance);
    bool stopBLEScan(int scanInstance);

    // Opens a GATT client connection; connId identifies it in every later call. Its state
    // changes arrive through callback->onConnectionStateChange.
    bool connectGatt(const std::shared_ptr<android::bluetooth::BluetoothDevice>& device,
                     bool autoConnect, std::shared_ptr<IAndroidBTGattCallback> callback,
                     int transport, int& connId);
    bool disconnect(int connId);
    bool discoverServices(int connId);
    // Releases the connection's GATT client; no callback follows.
    bool close(int connId);
    // The services found by the last discovery.
    bool getServices(int connId, std::vector<android::bluetooth::BluetoothGattService>& out);
    bool readCharacteristic(int connId,
                            const android::bluetooth::BluetoothGattCharacteristic& characteristic);
    bool writeCharacteristic(int connId,
                             const android::bluetooth::BluetoothGattCharacteristic& characteristic);
    // Also writes the characteristic's configuration descriptor (01 00 on, 00 00 off), answered
    // by onDescriptorWrite.
    bool setCharacteristicNotification(
        int connId, const android::bluetooth::BluetoothGattCharacteristic& characteristic,
        bool enable);

    bool registerConnectivityCallback(std::shared_ptr<IConnectivityEventCallback> callback);
    bool deregisterConnectivityCallback(std::shared_ptr<IConnectivityEventCallback> callback);
    bool getPairedRemoteDevices(std::vector<interfaces::RemoteDeviceAdapter>& out);
};

}  // namespace managers
}  // namespace frameworklink
}  // namespace orvane
}  // namespace com
