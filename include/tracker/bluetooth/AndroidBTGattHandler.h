#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <android/bluetooth/BluetoothGattCharacteristic.h>
#include <android/bluetooth/BluetoothGattDescriptor.h>
#include <android/bluetooth/BluetoothGattService.h>
#include <android/os/ParcelUuid.h>
#include <frameworklink/managers/IAndroidBTGattCallback.h>

#include "tracker/bluetooth/BluetoothManagerClientInterface.h"
#include "tracker/bluetooth/BluetoothManagerInterface.h"
#include "tracker/util/Executor.h"
#include "tracker/util/Mutex.h"

namespace tracker {
namespace util {
namespace bluetooth {

// One GATT client connection, brokered for one client: it opens the connection through the
// platform proxy, is the platform's callback object for it, turns the platform's answers into
// the client's callbacks and carries the client's requests. BluetoothManager makes one per
// connect() and keeps it in its connection table. Logs under "TrackerD-AndroidBTGattHandler".
//
// Ownership: shared by the connection table, the platform (until the connection is closed) and
// the tasks queued on its executor. Whichever lets go last destroys it, on any thread, its own
// executor's included. The destructor does not call the platform.
//
// Threads: onConnectionStateChange and onServicesDiscovered only queue their work at the back of
// the handler's executor, so connection and discovery callbacks reach the client one at a time,
// in arrival order. The read, write, changed and descriptor callbacks reach the client on the
// platform thread that delivers them. Requests may come from any thread.
//
// m_mutex guards the connection handle and the discovered services. connect() holds it across
// the platform call, so a state change never reads a handle that connect() is about to store.
class AndroidBTGattHandler : public com::orvane::frameworklink::managers::IAndroidBTGattCallback,
                             public std::enable_shared_from_this<AndroidBTGattHandler> {
  public:
    AndroidBTGattHandler(std::shared_ptr<BluetoothManagerClientInterface> client,
                         std::shared_ptr<TrackerDeviceAddr> deviceAddr);
    ~AndroidBTGattHandler() override;

    // Opens the connection (the handler must be owned by a shared_ptr); connId is the
    // platform's id for it, kept, sign-extended, as the connection handle whatever the result.
    // `accepted`, if given, runs with the id once the platform accepted the connection, before
    // any state change of it can reach the client.
    bool connect(std::shared_ptr<TrackerDeviceAddr> addr, int& connId,
                 const std::function<void(int)>& accepted = nullptr);
    bool disconnect();
    bool discoverAllServices();
    // The first characteristic with that UUID in any discovered service with that UUID; fails
    // before discovery.
    bool readCharacteristic(android::os::ParcelUuid serviceUuid, android::os::ParcelUuid charUuid);
    bool writeCharacteristic(android::os::ParcelUuid serviceUuid, android::os::ParcelUuid charUuid,
                             std::vector<uint8_t> value);
    bool setCharacteristicNotification(android::os::ParcelUuid serviceUuid,
                                       android::os::ParcelUuid charUuid, bool enable);
    // When the handler was made (clock seam): the clean-up closes connections by this age.
    std::chrono::steady_clock::time_point getStartTime();

    // The platform's callbacks.
    void onConnectionStateChange(int status, int newState) override;
    void onServicesDiscovered(int status) override;
    void onCharacteristicRead(const android::bluetooth::BluetoothGattCharacteristic& characteristic,
                              int status) override;
    void onCharacteristicWrite(
        const android::bluetooth::BluetoothGattCharacteristic& characteristic, int status) override;
    void onCharacteristicChanged(
        const android::bluetooth::BluetoothGattCharacteristic& characteristic) override;
    void onDescriptorRead(const android::bluetooth::BluetoothGattDescriptor& descriptor,
                          int status) override;
    void onDescriptorWrite(const android::bluetooth::BluetoothGattDescriptor& descriptor,
                           int status) override;

  private:
    friend class BluetoothManager;

    // The manager closed the connection and forgot it (a clean-up, the proxy's death): a
    // disconnection reported later neither closes nor forgets it again, as its id may belong to
    // a new connection by then.
    void markClosed() { m_closed = true; }
    void handleConnectionStateChange(int status, int newState);
    // Has the manager forget this connection once it is over.
    void forget(unsigned long long handle);
    void handleServicesDiscovered(int status);
    unsigned long long connHandle();
    // A copy of the characteristic a request names, or nothing (logged with the operation).
    std::optional<android::bluetooth::BluetoothGattCharacteristic> findCharacteristic(
        const char* operation, const android::os::ParcelUuid& serviceUuid,
        const android::os::ParcelUuid& charUuid);

    const std::chrono::steady_clock::time_point m_startTime;
    const std::shared_ptr<BluetoothManagerClientInterface> m_client;
    const std::shared_ptr<TrackerDeviceAddr> m_deviceAddr;
    Mutex m_mutex;
    unsigned long long m_connHandle TRACKER_GUARDED_BY(m_mutex) = ~0ULL;
    std::vector<android::bluetooth::BluetoothGattService> m_services TRACKER_GUARDED_BY(m_mutex);
    std::atomic<bool> m_closed{false};
    Executor m_executor{std::chrono::milliseconds(1000)};
    const std::shared_ptr<BluetoothManagerInterface> m_btManager;
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
