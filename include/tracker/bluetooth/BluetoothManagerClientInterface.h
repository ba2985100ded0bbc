#pragma once

#include <memory>

#include "tracker/bluetooth/BluetoothManagerScanFilter.h"
#include "tracker/bluetooth/TrackerBleTypes.h"
#include "tracker/bluetooth/TrackerGattTypes.h"

namespace tracker {
namespace util {
namespace bluetooth {

// What a connector of the Bluetooth manager implements: its filters and the callbacks through
// which it hears of initialisation, scan results and its GATT connections. The manager keeps it
// by shared_ptr from registerConnector() on.
//
// Which thread calls what:
// - getScanFilter(): the manager's executor, at every filter build (start, reload).
// - onInitializationSuccess/Failure(): the thread that initialises the proxy, the manager's
//   executor after a proxy death.
// - onBeaconScanResult(): the manager's executor, one result at a time, in arrival order.
// - onConnected, onDisconnected, onServicesDiscovered, onServicesDiscoveryFailure: the
//   connection's own executor, in the order the platform reported them.
// - the read, write, descriptor and changed callbacks: a platform thread, in the platform's order
//   for one connection, possibly at the same time as the connection's executor callbacks.
// The manager holds none of its locks while it calls a client, so a callback may call the
// manager (discover services from onConnected, say). Callbacks should return promptly: scan
// results for every client wait behind onBeaconScanResult.
//
// getScanFilter() and onBeaconScanResult() must be implemented; the other callbacks do nothing
// unless overridden, so a connector that never connects need not write them.
class BluetoothManagerClientInterface {
  public:
    virtual ~BluetoothManagerClientInterface();

    // The client's current filters; null (or empty) asks for nothing.
    virtual std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() = 0;
    virtual void onInitializationSuccess();
    virtual void onInitializationFailure();
    // A result that matched one of this client's filters, and no earlier client's.
    virtual void onBeaconScanResult(std::shared_ptr<TrackerScanRecord> record,
                                    TrackerExtraBeaconData extra) = 0;

    // GATT, for connections this client asked for; connHandle identifies the connection.
    virtual void onConnected(std::shared_ptr<TrackerDeviceAddr> addr,
                             unsigned long long connHandle);
    // The connection is over and its handle no longer valid.
    virtual void onDisconnected(std::shared_ptr<TrackerDeviceAddr> addr,
                                unsigned long long connHandle, TrackerStatus status);
    virtual void onServicesDiscovered(unsigned long long connHandle,
                                      std::shared_ptr<TrackerGattServices> services);
    virtual void onServicesDiscoveryFailure(unsigned long long connHandle);
    virtual void onCharacteristicReadSuccess(unsigned long long connHandle,
                                             std::shared_ptr<TrackerCharacteristicValue> value);
    virtual void onCharacteristicReadFailure(unsigned long long connHandle);
    virtual void onCharacteristicWriteSuccess(unsigned long long connHandle);
    virtual void onCharacteristicWriteFailure(unsigned long long connHandle);
    // The configuration descriptor write that followed setCharacteristicNotification: value is
    // the characteristic's, with m_fromDescriptor set and m_notificationOn telling 01 00 apart.
    virtual void onDescriptorWriteSuccess(unsigned long long connHandle,
                                          std::shared_ptr<TrackerCharacteristicValue> value);
    virtual void onDescriptorWriteFailure(unsigned long long connHandle);
    // A notification; its value may be empty.
    virtual void onCharacteristicChanged(unsigned long long connHandle,
                                         std::shared_ptr<TrackerCharacteristicValue> value);
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
