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

#include "delivery/DeliveryPool.h"
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
    // The InLoc membership the tag belongs to (empty: none), and whether the InLoc service
    // reports it by range bucket rather than by measured distance.
    std::vector<uint8_t> membership;
    bool rangeBuckets = false;
};

// A tag as the InLoc service sees it now.
struct TagSighting {
    std::string address;  // upper case
    std::vector<uint8_t> advertisement;
    std::vector<uint8_t> membership;
    bool rangeBuckets;
    double metres;
};

// The proxy's operations, for failing the next calls and counting them.
enum class ProxyCall {
    Initialize,
    RegisterForProxyDeath,
    StartScan,
    StopScan,
    ConnectGatt,
    Disconnect,
    DiscoverServices,
    GetServices,
    Close,
    ReadCharacteristic,
    WriteCharacteristic,
    SetCharacteristicNotification,
    RegisterConnectivity,
    DeregisterConnectivity,
    GetPairedDevices,
};

// GATT answers whose status, content or delivery tests can choose.
enum class GattAnswer { Connect, Discover, Read, Write, DescriptorWrite, Disconnect, Notification };

// What an answer can be made to lack: the value of a read, a notification or a descriptor
// write, or the characteristic a written descriptor belongs to.
enum class Missing { Value, Characteristic };

// How a failed scan start shows: startBLEScan returns false, or it returns true and the scan's
// failure callback reports the error.
enum class ScanStartFailure { Refused, Callback };

// A start or stop of a scan, as the library asked for it.
struct ScanRequest {
    bool start;
    int instance;
    std::vector<android::bluetooth::le::ScanFilter> filters;       // starts only
    std::optional<android::bluetooth::le::ScanSettings> settings;  // starts only
    bool accepted;                                                 // what the call returned
};

// The simulated Bluetooth world behind AndroidBTProxyManager: tags that advertise, connect and
// answer GATT requests, the scan the library runs, pairing, and the faults a device shows.
//
// Everything the platform reports arrives on the delivery pool's threads, timed by the clock
// seam: calls on one callback object (a scan's callbacks, one GATT connection's callback, a
// connectivity callback, a death recipient) in order, different objects possibly at once.
// Control calls may come from any thread; m_mutex guards all state, and no callback into the
// library runs, nor is any of its objects released, while it is held.
//
// The stack's rules, as a device applies them:
// - A scan's failure callback ends that scan: no results follow, and a new start works.
// - GATT: one request per connection at a time; nothing arrives for a connection after its
//   disconnection was reported or after close(); a lost link is reported once. A connection to
//   a tag that is absent, out of range or not connectable stays pending until the tag can be
//   reached, and fails with status 133 after 30 s. A request left unanswered for 30 s drops
//   the link (status 22); a tag out of range drops the link at the next supervision check
//   (every second, status 8). Characteristic properties are honoured: reads need the read
//   property, writes a write property, notifications notify or indicate and the configuration
//   descriptor, whose write is 01 00 (notify), 02 00 (indicate only) or 00 00.
class World {
  public:
    // Fails every call from now on (for failNext).
    static constexpr int kEveryCall = -1;

    // The process-wide world (never destroyed).
    static World& instance();

    // Back to a fresh world: no tags, no scan, no connections, no faults, proxy uninitialised,
    // the InLoc service afresh. Waits for the deliveries in progress.
    void reset();

    // The platform's callback threads, shared by the simulated services.
    DeliveryPool& deliveries() { return m_deliveries; }

    // --- the world -------------------------------------------------------------------------
    void addTag(TagSpec tag);
    bool removeTag(const std::string& address);
    // Fixes the tag's distance from now on.
    bool moveTag(const std::string& address, double metres);
    // The tag sends one advertisement now, as if it had just advertised.
    bool advertiseOnce(const std::string& address);
    // An advertisement from anywhere (a replayed capture, a benchmark): reaches the running scan
    // now if it passes the scan's filters, whatever the range. Whether it passed them (false
    // without a scan).
    bool injectAdvertisement(const std::string& address, std::vector<uint8_t> advertisement,
                             int rssi);
    // Sees every scan result just before the library's callback gets it (a sniffer's view).
    void setRadioTap(std::function<void(const android::bluetooth::le::ScanResult&)> tap);
    // The tag sends a notification of the characteristic's new value to every connection that
    // enabled notifications for it.
    bool notifyValue(const std::string& address, const android::os::ParcelUuid& service,
                     const android::os::ParcelUuid& characteristic, std::vector<uint8_t> value);
    // The tag ends its links (status 19: the remote device terminated the connection).
    bool peerDisconnect(const std::string& address, int status = 19);
    // The pairing state changes: registered connectivity callbacks hear of it.
    bool setPairState(const std::string& address, int state);
    // Beyond this distance a tag is neither heard nor connectable (default 30 m).
    void setRange(double metres);
    // Seeds the RSSI noise (±2 dB per advertisement): one seed, one sequence. reset() goes back
    // to the default seed.
    void seedNoise(uint32_t seed);
    // RSSI of a tag at that distance (log-distance path loss, exponent 2), without noise.
    static int rssiAt(int txPower, double metres);
    // The tags within range now, and whether there are any tags at all.
    std::vector<TagSighting> tagsInRange() const;
    bool hasTags() const;

    // --- faults ----------------------------------------------------------------------------
    // The next `count` calls of that operation return false (kEveryCall: all of them).
    void failNext(ProxyCall call, int count = 1);
    void failNextScanStarts(int count, ScanStartFailure how = ScanStartFailure::Refused);
    // The running scan fails with this error, through its failure callback, and ends.
    void reportScanFailure(int errorCode);
    // The proxy dies: recipients are told, the scan and every connection end, and every call
    // fails until initialize() succeeds again.
    void killProxy();
    // The next answer of that kind carries this status.
    void setNextStatus(GattAnswer answer, int status);
    // The next connectGatt succeeds with this connection id (e.g. -1).
    void setNextConnectionId(int connId);
    // The next answer of that kind never comes, comes after `delay`, comes twice, or lacks
    // something (Missing::Characteristic only for a descriptor write; reads and notifications
    // can only lack their value). A disconnection comes once whatever is asked.
    void dropNext(GattAnswer answer);
    void delayNext(GattAnswer answer, util::Clock::Duration delay);
    void duplicateNext(GattAnswer answer);
    void stripNext(GattAnswer answer, Missing what);
    // An answer of that kind on the connection that no request asked for: a read, write,
    // notification or descriptor write of the first characteristic that allows it, a discovery
    // or a connection report. False for an unknown connection.
    bool sendUnsolicited(int connId, GattAnswer answer);

    // Returns once everything due by now has been delivered (false if that took longer than
    // `limit` of real time). With a ManualClock: advance it, then call this.
    bool barrier(std::chrono::milliseconds limit);

    // --- what the library asked for --------------------------------------------------------
    bool proxyReady() const;
    // How often the proxy died.
    int proxyDeaths() const;
    // How often the library called the operation, whatever the outcome.
    int calls(ProxyCall call) const;
    bool scanning() const;
    std::vector<android::bluetooth::le::ScanFilter> scanFilters() const;
    std::optional<android::bluetooth::le::ScanSettings> scanSettings() const;
    // Every start and stop, in order.
    std::vector<ScanRequest> scanRequests() const;
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
    // Counts the call; false when the proxy is not ready or the call was made to fail.
    bool admitLocked(ProxyCall call);
    std::shared_ptr<Tag> findTagLocked(const std::string& address) const;
    double distanceLocked(const Tag& tag) const;
    bool inRangeLocked(const Tag& tag) const;
    void scheduleAdvertisingLocked(const std::shared_ptr<Tag>& tag, util::Clock::Duration after);
    void deliverAdvertisement(const std::shared_ptr<Tag>& tag, uint64_t generation, bool repeat);
    // Hands a result to the running scan if it passes the scan's filters.
    bool deliverToScanLocked(android::bluetooth::le::ScanResult result);
    // Ends the running scan, reporting errorCode through its failure callback.
    void failScanLocked(int errorCode);

    // --- GATT (WorldGatt.cpp) ---------------------------------------------------------------
    int takeStatusLocked(GattAnswer answer, int normal);
    // Posts an answer on a connection, honouring the faults for its kind. At delivery it is
    // dropped if the connection was closed or its disconnection reported meanwhile; otherwise
    // `update` (if any) runs under the lock, then `call` on the connection's callback without
    // it. `request` names the request the answer ends (0: none).
    void answerLocked(GattAnswer answer, int connId, uint64_t request,
                      std::function<void(Connection&)> update, std::function<void(Gatt&)> call);
    // The link goes down with this status, reported once.
    void linkDownLocked(int connId, int status);
    // Checks a connection every second while it is pending or up (see the class comment).
    void superviseLocked(int connId);
    void tryConnectLocked(int connId);
    Connection* connectionLocked(int connId);
    // The connection, if it still is the one with this callback: queued deliveries hold the
    // callback weakly, as a platform lets go of a connection's callback when it is closed.
    Connection* currentLocked(int connId, const std::weak_ptr<Gatt>& callback);
    // A connected connection with no request outstanding, now waiting for one: a request id
    // (0 if refused). The stack gives up on it after 30 s.
    uint64_t startRequestLocked(int connId);
    // The characteristic a request names on that connection; null if there is none.
    android::bluetooth::BluetoothGattCharacteristic* findCharacteristicLocked(
        int connId, const android::bluetooth::BluetoothGattCharacteristic& wanted);

    mutable std::mutex m_mutex;
    std::unique_ptr<State> m_state;
    DeliveryPool m_deliveries{4};
};

}  // namespace sim
}  // namespace tracker
