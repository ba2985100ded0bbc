#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tracker/bluetooth/BluetoothManagerClientInterface.h"
#include "tracker/bluetooth/IConnectivityEventCallback.h"
#include "tracker/bluetooth/IRemoteDevice.h"
#include "tracker/bluetooth/TrackerBleTypes.h"

namespace tracker {
namespace util {
namespace bluetooth {

// The process-wide Bluetooth manager, as connectors see it: one merged beacon scan for every
// registered client, each result routed to exactly one of them, GATT connections brokered per
// handle, pairing events and the paired-device list. BluetoothManager implements it.
//
// Every operation may be called from any thread, including from a client's callbacks, and
// reports failure by its result and one log line under "TrackerD-BluetoothManager".
class BluetoothManagerInterface {
  public:
    using Client = BluetoothManagerClientInterface;

    virtual ~BluetoothManagerInterface();

    // The manager, created and initialised against the platform proxy on the first call (which
    // blocks through up to three attempts, 15 minutes apart in all). Empty when that first
    // initialisation failed; later calls then return the uninitialised manager without trying
    // again. The first call is expected during start-up; calls made meanwhile on other threads
    // get the same manager at once, initialised or not.
    static std::shared_ptr<BluetoothManagerInterface> getInstance();

    // Clients: registered once (a second registration fails), then started and stopped. The
    // scan starts when every registered client is started and stops when any one stops;
    // reload rebuilds the filters and restarts it whatever the clients' states.
    // A client that registers and starts while the scan runs makes the manager restart it with
    // every client's filters; reload does the same for a client whose filters changed.
    virtual bool registerConnector(std::shared_ptr<Client> client) = 0;
    virtual bool start(std::shared_ptr<Client> client) = 0;
    virtual bool stop(std::shared_ptr<Client> client) = 0;
    virtual bool reload(std::shared_ptr<Client> client) = 0;
    // Not supported by this platform: logs and returns true.
    virtual bool setScanPeriod(std::shared_ptr<Client> client, int secondsActive,
                               int secondsInactive) = 0;

    // GATT. connect() opens a connection; its handle arrives with client->onConnected. The
    // others act on an open connection and fail for an unknown handle. Results arrive through
    // the client's GATT callbacks.
    virtual bool connect(std::shared_ptr<TrackerDeviceAddr> addr,
                         std::shared_ptr<Client> client) = 0;
    // Not supported: always false.
    virtual bool cancelConnect(std::shared_ptr<TrackerDeviceAddr> addr,
                               std::shared_ptr<Client> client) = 0;
    virtual bool disconnect(unsigned long long connHandle) = 0;
    virtual bool discoverAllServices(unsigned long long connHandle) = 0;
    virtual bool readCharacteristic(unsigned long long connHandle, TrackerUuid serviceUuid,
                                    TrackerUuid charUuid) = 0;
    virtual bool writeCharacteristic(unsigned long long connHandle, TrackerUuid serviceUuid,
                                     TrackerUuid charUuid, std::vector<uint8_t> value) = 0;
    // Also writes the characteristic's configuration descriptor, answered through
    // onDescriptorWriteSuccess/Failure.
    virtual bool setCharacteristicNotification(unsigned long long connHandle,
                                               TrackerUuid serviceUuid, TrackerUuid charUuid,
                                               bool enable) = 0;

    // Beacon broadcasting is not offered: these only log.
    virtual void startBroadcastingIBeacons(std::vector<uint8_t>& bytes,
                                           std::shared_ptr<Client> client) = 0;
    virtual void stopBroadcastingIBeacons(std::shared_ptr<Client> client) = 0;

    // Pairing events reach the callback until it is deregistered. Registering one callback twice
    // registers it twice with the platform (it then hears each event twice) and keeps the later
    // registration for deregistration.
    virtual bool registerConnectivityCallback(
        const std::shared_ptr<IConnectivityEventCallback>& callback) = 0;
    virtual bool deregisterConnectivityCallback(
        const std::shared_ptr<IConnectivityEventCallback>& callback) = 0;
    // Appends the paired devices, in the platform's order, to `devices`.
    virtual bool getPairedRemoteDevices(std::vector<std::shared_ptr<IRemoteDevice>>& devices) = 0;

    // Forgets a connection once it is over (the manager calls this itself on disconnection).
    virtual void cleanConnectionDB(unsigned long long connHandle) = 0;
    // Only logs.
    virtual void cleanup() = 0;
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
