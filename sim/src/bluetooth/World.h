#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <android/bluetooth/BluetoothGattService.h>
#include <android/bluetooth/le/ScanFilter.h>
#include <android/bluetooth/le/ScanResult.h>
#include <android/bluetooth/le/ScanSettings.h>
#include <frameworklink/interfaces/RemoteDeviceAdapter.h>
#include <frameworklink/managers/FrameworkLinkDeathRecipient.h>
#include <frameworklink/managers/IAndroidBTGattCallback.h>
#include <frameworklink/managers/IConnectivityEventCallback.h>

#include "bluetooth/EventLoop.h"
#include "tracker/util/Clock.h"

namespace tracker {
namespace sim {

// One virtual tag of the simulated world.
struct TagSpec {
    std::string address;                 // "AA:BB:CC:DD:EE:FF"
    std::vector<uint8_t> advertisement;  // raw AD structures
    std::chrono::milliseconds interval{100};
    // Distance in metres over time since the tag was added: linear between points, the last
    // point holding. Empty: 1 m.
    std::vector<std::pair<std::chrono::milliseconds, double>> distance;
    int txPower = -59;  // RSSI at 1 m
    bool connectable = true;
    std::vector<android::bluetooth::BluetoothGattService> gatt;
    // Present for a device the platform knows from pairing.
    std::optional<com::orvane::frameworklink::interfaces::RemoteDeviceAdapter> pairing;
};

// GATT answers whose status, delivery or connection id tests can choose.
enum class GattAnswer { Connect, Discover, Read, Write, DescriptorWrite, Disconnect };

// The simulated Bluetooth world behind AndroidBTProxyManager: tags that advertise, connect and
// answer GATT requests, the scan the library runs, pairing, and the faults a device shows.
//
// Everything the platform reports arrives on the world's EventLoop thread, timed by the clock
// seam. Control calls may come from any thread; m_mutex guards all state, and no callback into
// the library runs while it is held.
class World {
  public:
    // The process-wide world (never destroyed).
    static World& instance();

    // Back to a fresh world: no tags, no scan, no connections, no faults, proxy uninitialised.
    void reset();

    // --- the world -------------------------------------------------------------------------
    void addTag(TagSpec tag);
    bool removeTag(const std::string& address);
    // Fixes the tag's distance from now on.
    bool moveTag(const std::string& address, double metres);
    // The tag sends one advertisement now, as if it had just advertised.
    bool advertiseOnce(const std::string& address);
    // The tag sends a notification of the characteristic's new value to every connection that
    // enabled notifications for it.
    bool notifyValue(const std::string& address, const android::os::ParcelUuid& service,
                     const android::os::ParcelUuid& characteristic, std::vector<uint8_t> value);
    // The pairing state changes: registered connectivity callbacks hear of it.
    bool setPairState(const std::string& address, int state);
    // Beyond this distance a tag is neither heard nor connectable (default 30 m).
    void setRange(double metres);
    // RSSI of a tag at that distance (log-distance path loss, exponent 2), without noise.
    static int rssiAt(int txPower, double metres);

    // --- faults ----------------------------------------------------------------------------
    void failNextInitializations(int count);
    void failNextScanStarts(int count);
    // The running scan reports this error through its failure callback.
    void reportScanFailure(int errorCode);
    // The proxy dies: recipients are told on the world's thread, the scan and every connection
    // end, and every call fails until initialize() succeeds again.
    void killProxy();
    // The next answer of that kind carries this status.
    void setNextStatus(GattAnswer answer, int status);
    // The next connectGatt succeeds with this connection id (e.g. -1).
    void setNextConnectionId(int connId);
    // The next answer of that kind never comes, or comes after `delay`.
    void dropNext(GattAnswer answer);
    void delayNext(GattAnswer answer, util::Clock::Duration delay);
    void failPairedDeviceQuery(bool fail);

    // Returns once the world's thread has delivered everything due by now (false if that took
    // longer than `limit` of real time). With a ManualClock: advance it, then call this.
    bool barrier(std::chrono::milliseconds limit);

    // --- what the library asked for --------------------------------------------------------
    bool proxyReady() const;
    int initializeCalls() const;
    bool scanning() const;
    std::vector<android::bluetooth::le::ScanFilter> scanFilters() const;
    std::optional<android::bluetooth::le::ScanSettings> scanSettings() const;
    std::vector<int> openConnections() const;

    // --- the platform side (AndroidBTProxyManager forwards here) ---------------------------
    using Gatt = com::orvane::frameworklink::managers::IAndroidBTGattCallback;
    using Connectivity = com::orvane::frameworklink::managers::IConnectivityEventCallback;
    using DeathRecipient = com::orvane::frameworklink::managers::FrameworkLinkDeathRecipient;
    using ResultCallback = std::function<void(int, const android::bluetooth::le::ScanResult&)>;
    using BatchCallback =
        std::function<void(const std::vector<android::bluetooth::le::ScanResult>&)>;

    bool initialize(int waitLimit);
    bool registerForProxyDeath(std::weak_ptr<DeathRecipient> recipient);
    bool startScan(const std::vector<android::bluetooth::le::ScanFilter>* filters,
                   const android::bluetooth::le::ScanSettings& settings, BatchCallback batch,
                   std::function<void(int)> failure, ResultCallback result, int instance);
    bool stopScan(int instance);
    bool connectGatt(const std::string& address, std::shared_ptr<Gatt> callback, int& connId);
    bool disconnect(int connId);
    bool discoverServices(int connId);
    bool close(int connId);
    bool getServices(int connId, std::vector<android::bluetooth::BluetoothGattService>& out);
    bool readCharacteristic(int connId,
                            const android::bluetooth::BluetoothGattCharacteristic& characteristic);
    bool writeCharacteristic(int connId,
                             const android::bluetooth::BluetoothGattCharacteristic& characteristic);
    bool setCharacteristicNotification(
        int connId, const android::bluetooth::BluetoothGattCharacteristic& characteristic,
        bool enable);
    bool registerConnectivity(std::shared_ptr<Connectivity> callback);
    bool deregisterConnectivity(const std::shared_ptr<Connectivity>& callback);
    bool pairedDevices(
        std::vector<com::orvane::frameworklink::interfaces::RemoteDeviceAdapter>& out);

  private:
    struct Tag;
    struct Scan;
    struct Connection;
    struct Faults;
    struct State;

    World();
    std::shared_ptr<Tag> findTagLocked(const std::string& address) const;
    double distanceLocked(const Tag& tag) const;
    bool inRangeLocked(const Tag& tag) const;
    void scheduleAdvertisingLocked(const std::shared_ptr<Tag>& tag, util::Clock::Duration after);
    void deliverAdvertisement(const std::shared_ptr<Tag>& tag, uint64_t generation, bool repeat);
    int takeStatusLocked(GattAnswer answer, int normal);
    // Posts an answer on a connection, honouring the faults for its kind. At delivery it is
    // dropped if the connection was closed meanwhile, turns into a link loss if the tag has
    // walked out of range, and otherwise applies `update` (if any) under the lock, then makes
    // `call` on the connection's callback without it.
    void answerLocked(GattAnswer answer, int connId, std::function<void(Connection&)> update,
                      std::function<void(Gatt&)> call);
    // The connection drops with a link time-out, as when its tag walks out of range.
    void loseLinkLocked(Connection& connection);
    Connection* connectionLocked(int connId);
    // A connected connection with no request outstanding, now marked busy; null otherwise.
    Connection* takeForRequestLocked(int connId);
    // The characteristic a request names on that connection; null if there is none.
    android::bluetooth::BluetoothGattCharacteristic* findCharacteristicLocked(
        int connId, const android::bluetooth::BluetoothGattCharacteristic& wanted);

    mutable std::mutex m_mutex;
    std::unique_ptr<State> m_state;
    EventLoop m_loop;
};

}  // namespace sim
}  // namespace tracker
