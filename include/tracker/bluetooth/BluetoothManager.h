#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include <android/bluetooth/le/ScanResult.h>
#include <frameworklink/managers/FrameworkLinkDeathRecipient.h>

#include "tracker/bluetooth/BluetoothManagerInterface.h"
#include "tracker/bluetooth/BluetoothManagerScanFilter.h"
#include "tracker/bluetooth/TrackerScanFilter.h"
#include "tracker/metrics/MetricsManager.h"
#include "tracker/util/Executor.h"
#include "tracker/util/Mutex.h"
#include "tracker/util/Timer.h"

namespace tracker {
namespace util {
namespace bluetooth {

class AndroidBTGattHandler;

// The Bluetooth manager behind BluetoothManagerInterface::getInstance(). Logs under
// "TrackerD-BluetoothManager".
//
// Threads and state:
// - m_mutex guards the client registry. start, stop and reload hold it throughout, so they run
//   one at a time; they never wait for the executor and never call a client under it.
// - m_executor runs the discovery start task (with its retry sleeps), every scan result's
//   routing, the proxy-death recovery and the removal of ended connections, one at a time.
//   m_scanFilter and the two pair lists belong to it: only its tasks touch them, so routing
//   needs no lock. The filter build copies the registry under m_mutex and asks the clients for
//   their filters outside it.
// - Platform scan callbacks only convert a result and queue it on m_executor.
// - m_discoveryActive is atomic: client calls read it, executor tasks write it. The start task
//   makes its platform calls under m_mutex too (it calls no client there), so a client's stop
//   and a start never interleave: a stop makes a start still queued give way
//   (m_discoveryWanted), and finds a scan a start submitted (m_scanSubmitted) even before the
//   task that sets m_discoveryActive has run.
// - The GATT connection table and the connectivity registrations are file-scope, each under
//   its own mutex (BluetoothManagerGatt.cpp, BluetoothManagerConnectivity.cpp).
// - m_cleanupTimer runs the GATT clean-up on its own thread every 10 minutes.
// - m_initMutex serialises initialisations (the first one and a recovery after an early death).
//
// Every sleep and clock read goes through util::Clock, so tests can run the 300 s and 600 s
// initialisation retries, the 2-4-6-8 s scan back-off and the 10-minute clean-up on a manual
// clock.
//
// Choices made where the behaviour is not fixed elsewhere:
// - A null client, or an address that is not six bytes, is refused with a log line; a client
//   whose getScanFilter() is null contributes no filters (warned).
// - The platform may hand out a connection id again once its connection is closed: a handler
//   that ends forgets only its own entry, and a connection the manager closed (clean-up, proxy
//   death) is not closed again by a disconnection reported later.
// - When the proxy dies, every open connection is over: its client hears onDisconnected with
//   an error status, and the connection is forgotten.
// - A proxy death re-initialises the proxy but does not restart discovery, and does not clear
//   m_discoveryActive: a client that wants scanning again calls reload().
// - A scan failure reported by the platform is logged only; discovery is considered running
//   until the next stop or reload.
// - The routing pair lists only grow: every rebuild appends all clients' pairs again, and the
//   first build's pairs keep precedence.
// - A start task that finds a scan of an earlier start still running (two reloads in a row, a
//   client that starts while the scan runs) stops it and starts its own, with every client's
//   current filters, instead of asking the platform for a second scan that it would refuse.
// - A stop that comes while a start task is queued or running wins: the task does not start
//   the scan ("discovery stopped meanwhile"), or the stop stops the scan it just started.
class BluetoothManager : public BluetoothManagerInterface,
                         public std::enable_shared_from_this<BluetoothManager> {
  public:
    static constexpr const char* kName = "BluetoothManager";
    // Attempts to start the scan in all, and the step of the linear back-off between them.
    static constexpr int k_startDiscoveryRetries = 5;
    static constexpr std::chrono::seconds k_startDiscoveryRetryInterval{2};
    // How often the GATT clean-up runs, and how old a connection it closes.
    static constexpr std::chrono::minutes k_cleanupInterval{10};

    // Does not touch the platform; getInstance() initialises it.
    explicit BluetoothManager(std::shared_ptr<orvane::metricutils::MetricsManager> metricsManager);
    ~BluetoothManager() override;

    bool registerConnector(std::shared_ptr<Client> client) override;
    bool start(std::shared_ptr<Client> client) override;
    bool stop(std::shared_ptr<Client> client) override;
    bool reload(std::shared_ptr<Client> client) override;
    bool setScanPeriod(std::shared_ptr<Client> client, int secondsActive,
                       int secondsInactive) override;
    bool connect(std::shared_ptr<TrackerDeviceAddr> addr, std::shared_ptr<Client> client) override;
    bool cancelConnect(std::shared_ptr<TrackerDeviceAddr> addr,
                       std::shared_ptr<Client> client) override;
    bool disconnect(unsigned long long connHandle) override;
    bool discoverAllServices(unsigned long long connHandle) override;
    bool readCharacteristic(unsigned long long connHandle, TrackerUuid serviceUuid,
                            TrackerUuid charUuid) override;
    bool writeCharacteristic(unsigned long long connHandle, TrackerUuid serviceUuid,
                             TrackerUuid charUuid, std::vector<uint8_t> value) override;
    bool setCharacteristicNotification(unsigned long long connHandle, TrackerUuid serviceUuid,
                                       TrackerUuid charUuid, bool enable) override;
    void startBroadcastingIBeacons(std::vector<uint8_t>& bytes,
                                   std::shared_ptr<Client> client) override;
    void stopBroadcastingIBeacons(std::shared_ptr<Client> client) override;
    bool registerConnectivityCallback(
        const std::shared_ptr<IConnectivityEventCallback>& callback) override;
    bool deregisterConnectivityCallback(
        const std::shared_ptr<IConnectivityEventCallback>& callback) override;
    bool getPairedRemoteDevices(std::vector<std::shared_ptr<IRemoteDevice>>& devices) override;
    void cleanConnectionDB(unsigned long long connHandle) override;
    void cleanup() override;

    // One attempt to initialise the proxy, register for its death and start the clean-up timer;
    // tells the registered clients of success. Blocks for as long as the proxy takes.
    bool initialize();
    // Up to three attempts, sleeping 300 s and then 600 s between them; tells the clients of
    // the final failure.
    bool initializeWithRetrySync();

    // Closes every connection and forgets it; the clients are not told.
    void runFullConnectionDBClean();

    // Queues routing of one converted result on the executor (any thread).
    void handleBeaconScanResultCallback(unsigned long long scanId,
                                        std::shared_ptr<TrackerScanRecord> record,
                                        TrackerExtraBeaconData extra);

  private:
    using UuidPair = std::pair<TrackerScanFilterUuid, std::shared_ptr<Client>>;

    // initialize() without telling the clients, under m_initMutex.
    bool initializeProxy() TRACKER_EXCLUDES(m_initMutex);
    using ManuDataPair = std::pair<TrackerScanFilterManuData, std::shared_ptr<Client>>;

    void notifyOnInitializationSuccess();
    void notifyOnInitializationFailure();
    // On the executor, after the proxy died.
    void handleAndroidBtProxyDeath();
    // The registered clients, in registry order.
    std::vector<std::shared_ptr<Client>> clients();

    // --- discovery (BluetoothManagerDiscovery.cpp) ------------------------------------------
    // Queues the start task, which tries k_startDiscoveryRetries times.
    void initializeBeaconDiscoveryLocked() TRACKER_REQUIRES(m_mutex);
    // Executor only.
    void buildScanFilterLocked() TRACKER_EXCLUDES(m_mutex);
    bool startBeaconDiscovery() TRACKER_EXCLUDES(m_mutex);
    void runDiscoveryStartTask() TRACKER_EXCLUDES(m_mutex);
    void notifyOnBeaconScanResult(std::shared_ptr<TrackerScanRecord> record,
                                  TrackerExtraBeaconData extra);
    bool stopBeaconDiscovery() TRACKER_REQUIRES(m_mutex);

    // --- GATT (BluetoothManagerGatt.cpp) ----------------------------------------------------
    friend class AndroidBTGattHandler;
    // Forgets the connection if the handle still names it: the platform may have given its id
    // to a new connection meanwhile. An empty `ended` forgets whatever the handle names.
    void cleanConnectionDB(unsigned long long connHandle,
                           std::weak_ptr<const AndroidBTGattHandler> ended);
    void runCleanConnectionDB(unsigned long long connHandle,
                              const std::weak_ptr<const AndroidBTGattHandler>& ended);
    // After the proxy's death: the platform reports nothing more for its connections, so each
    // is forgotten and its client told, through its handler, that it is over.
    void endConnectionsOnProxyDeath();
    // Closes each connection `pick` chooses and forgets it, without telling its client; the
    // handlers are returned so that they die after the table's lock.
    static std::vector<std::shared_ptr<AndroidBTGattHandler>> closeConnections(
        const std::function<bool(unsigned long long, AndroidBTGattHandler&)>& pick);
    // On the clean-up timer's thread: closes connections opened k_cleanupInterval or more ago.
    void runGattDbCleanupTask();

    Timer m_cleanupTimer;
    Executor m_executor{std::chrono::milliseconds(1000)};
    const std::shared_ptr<orvane::metricutils::MetricsManager> m_metricsManager;
    std::atomic<bool> m_discoveryActive{false};
    std::shared_ptr<BluetoothManagerScanFilter> m_scanFilter;
    std::vector<UuidPair> m_uuidFilterClients;
    std::vector<ManuDataPair> m_manuDataFilterClients;
    Mutex m_mutex;
    std::map<std::shared_ptr<Client>, bool> m_clients TRACKER_GUARDED_BY(m_mutex);
    // A start or reload asked for the scan and no stop came since.
    bool m_discoveryWanted TRACKER_GUARDED_BY(m_mutex) = false;
    // A scan a start task submitted is running and nothing stopped it since. Unlike
    // m_discoveryActive it is set as the platform accepts the scan, not a task later.
    bool m_scanSubmitted TRACKER_GUARDED_BY(m_mutex) = false;
    // Serialises initialisations: the first, in getInstance(), and a recovery after a death that
    // came while it ran. Not held while clients are told.
    Mutex m_initMutex;
    // The platform keeps only a weak reference to the recipient; the latest one lives here.
    std::shared_ptr<com::orvane::frameworklink::managers::FrameworkLinkDeathRecipient>
        m_deathRecipient TRACKER_GUARDED_BY(m_initMutex);
};

// Converts a platform scan result and hands it to the manager, if there is one. Called on the
// platform's threads.
void processScanResult(const android::bluetooth::le::ScanResult& result);

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
