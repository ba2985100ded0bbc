// The manager's lifecycle and client registry: the singleton, initialisation against the proxy
// with retries, recovery from the proxy's death, and start, stop and reload.

#include "tracker/bluetooth/BluetoothManager.h"

#include <frameworklink/managers/AndroidBTProxyManager.h>

#include "bluetooth/ManagerInstance.h"
#include "tracker/util/Clock.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace bluetooth {

namespace {

using com::orvane::frameworklink::managers::AndroidBTProxyManager;
using com::orvane::frameworklink::managers::FrameworkLinkDeathRecipient;

const Log& kLog = *new Log(BluetoothManager::kName);

// How long the proxy's initialisation may wait for the platform service.
constexpr int kProxyWaitLimit = 300;
constexpr int kInitializeAttempts = 3;
// The wait after the first failed initialisation; it doubles after each further one.
constexpr std::chrono::seconds kInitializeRetryWait{300};

// s_instance. Never destroyed: platform threads may still deliver results while the process
// exits. Written once, by the first getInstance(), which is expected on one thread.
std::shared_ptr<BluetoothManager>& instanceSlot() {
    static auto* slot = new std::shared_ptr<BluetoothManager>();
    return *slot;
}
// The same manager, for readers on other threads.
std::atomic<BluetoothManager*> s_published{nullptr};
// Two first calls at once make one manager between them. Never destroyed, like the slot.
Mutex& s_creationMutex = *new Mutex;

}  // namespace

BluetoothManager* managerInstance() {
    return s_published.load(std::memory_order_acquire);
}

BluetoothManagerInterface::~BluetoothManagerInterface() = default;

std::shared_ptr<BluetoothManagerInterface> BluetoothManagerInterface::getInstance() {
    if (managerInstance() != nullptr) {
        return instanceSlot();
    }
    std::shared_ptr<BluetoothManager> manager;
    {
        MutexLock lock(s_creationMutex);
        if (managerInstance() != nullptr) {
            return instanceSlot();
        }
        const std::shared_ptr<orvane::metricutils::MetricsManager> metrics =
            orvane::metricutils::MetricsManager::getInstance();
        if (!metrics) {
            kLog.e("%s: failed to create BluetoothManager", "getInstance");
            return nullptr;
        }
        manager = std::make_shared<BluetoothManager>(metrics);
        // Kept even if initialisation fails: later calls return the uninitialised manager.
        instanceSlot() = manager;
        s_published.store(manager.get(), std::memory_order_release);
    }
    // Outside the lock: it may take minutes, and later callers get the manager meanwhile.
    if (manager->initializeWithRetrySync()) {
        return manager;
    }
    kLog.e("%s, failed to initialize BluetoothManager", "getInstance");
    return nullptr;
}

BluetoothManager::BluetoothManager(
    std::shared_ptr<orvane::metricutils::MetricsManager> metricsManager)
    : m_metricsManager(std::move(metricsManager)) {}

BluetoothManager::~BluetoothManager() = default;

bool BluetoothManager::initialize() {
    if (!initializeProxy()) {
        return false;
    }
    notifyOnInitializationSuccess();
    return true;
}

bool BluetoothManager::initializeProxy() {
    // The first initialisation and a recovery after an early death may overlap.
    MutexLock lock(m_initMutex);
    kLog.d("Intializing BluetoothManager");
    const std::shared_ptr<AndroidBTProxyManager> proxy = AndroidBTProxyManager::getManager();
    if (!proxy->initialize(kProxyWaitLimit)) {
        kLog.e("Initializing Android Bluetooth Proxy Manager failed");
        return false;
    }
    // The recovery runs on the executor: the platform thread that reports the death only queues
    // it, and the recovery may sleep for minutes.
    const std::weak_ptr<BluetoothManager> weak = weak_from_this();
    auto recipient = std::make_shared<FrameworkLinkDeathRecipient>([weak] {
        if (const std::shared_ptr<BluetoothManager> manager = weak.lock()) {
            manager->m_executor.post(false, [manager] { manager->handleAndroidBtProxyDeath(); });
        }
    });
    if (!proxy->registerForProxyDeath(recipient)) {
        kLog.e("%s: Failed to register for proxy death", "initialize");
        return false;
    }
    m_deathRecipient = std::move(recipient);
    if (!m_cleanupTimer.isActive()) {
        m_cleanupTimer.start(k_cleanupInterval, k_cleanupInterval, Timer::FixedDelay, 0,
                             [this] { runGattDbCleanupTask(); });
    }
    return true;
}

bool BluetoothManager::initializeWithRetrySync() {
    static constexpr const char* kFunction = "initializeWithRetrySync";
    kLog.d("%s", kFunction);
    for (int attempt = 0; attempt < kInitializeAttempts; ++attempt) {
        if (initialize()) {
            return true;
        }
        if (attempt + 1 < kInitializeAttempts) {
            kLog.d("%s: waiting to retry", kFunction);
            Clock::current()->sleepFor(kInitializeRetryWait * (1 << attempt));
            kLog.d("%s: retrying", kFunction);
        }
    }
    kLog.e("%s: Reached max retries", kFunction);
    notifyOnInitializationFailure();
    return false;
}

std::vector<std::shared_ptr<BluetoothManager::Client>> BluetoothManager::clients() {
    MutexLock lock(m_mutex);
    std::vector<std::shared_ptr<Client>> registered;
    registered.reserve(m_clients.size());
    for (const auto& entry : m_clients) {
        registered.push_back(entry.first);
    }
    return registered;
}

void BluetoothManager::notifyOnInitializationSuccess() {
    for (const std::shared_ptr<Client>& client : clients()) {
        client->onInitializationSuccess();
    }
}

void BluetoothManager::notifyOnInitializationFailure() {
    for (const std::shared_ptr<Client>& client : clients()) {
        client->onInitializationFailure();
    }
}

void BluetoothManager::handleAndroidBtProxyDeath() {
    endConnectionsOnProxyDeath();
    if (!initializeWithRetrySync()) {
        kLog.e("%s: Failed to re-init", "handleAndroidBtProxyDeath");
    }
}

bool BluetoothManager::registerConnector(std::shared_ptr<Client> client) {
    static constexpr const char* kFunction = "registerConnector";
    kLog.d("%s", kFunction);
    if (!client) {
        kLog.e("%s, invalid client", kFunction);
        return false;
    }
    MutexLock lock(m_mutex);
    if (!m_clients.emplace(std::move(client), false).second) {
        kLog.e("%s, client already registered", kFunction);
        return false;
    }
    return true;
}

bool BluetoothManager::start(std::shared_ptr<Client> client) {
    static constexpr const char* kFunction = "start";
    MutexLock lock(m_mutex);
    const auto found = m_clients.find(client);
    if (found == m_clients.end()) {
        kLog.e("%s, client not registered", kFunction);
        return false;
    }
    if (found->second) {
        kLog.e("%s, client already started", kFunction);
        return false;
    }
    found->second = true;
    for (const auto& entry : m_clients) {
        if (!entry.second) {
            kLog.i("%s: deferring startup", kFunction);
            return true;
        }
    }
    initializeBeaconDiscoveryLocked();
    return true;
}

bool BluetoothManager::stop(std::shared_ptr<Client> client) {
    static constexpr const char* kFunction = "stop";
    MutexLock lock(m_mutex);
    const auto found = m_clients.find(client);
    if (found == m_clients.end()) {
        kLog.e("%s, client not registered", kFunction);
        return false;
    }
    if (!found->second) {
        kLog.e("%s, client already stopped", kFunction);
        return false;
    }
    found->second = false;
    // A start still queued gives way.
    m_discoveryWanted = false;
    // One scan serves every client: it stops even while others are still started. A scan a start
    // task submitted counts before that task's flag follows.
    if (m_discoveryActive || m_scanSubmitted) {
        return stopBeaconDiscovery();
    }
    kLog.i("%s: scanning already stopped", kFunction);
    return true;
}

bool BluetoothManager::reload(std::shared_ptr<Client> client) {
    static constexpr const char* kFunction = "reload";
    MutexLock lock(m_mutex);
    if (m_clients.count(client) == 0) {
        kLog.e("%s, client not registered", kFunction);
        return false;
    }
    kLog.i("%s: reloading scan filters...", kFunction);
    if (m_discoveryActive || m_scanSubmitted) {
        kLog.e("%s, Stopping beacon scanning before reload.", kFunction);
        if (!stopBeaconDiscovery()) {
            kLog.e("%s, failed to stop scanning", kFunction);
            return false;
        }
    }
    initializeBeaconDiscoveryLocked();
    return true;
}

bool BluetoothManager::setScanPeriod(std::shared_ptr<Client> /*client*/, int /*secondsActive*/,
                                     int /*secondsInactive*/) {
    kLog.e("scan period not supported on KOS");
    return true;
}

bool BluetoothManager::cancelConnect(std::shared_ptr<TrackerDeviceAddr> /*addr*/,
                                     std::shared_ptr<Client> /*client*/) {
    kLog.e("not supported");
    return false;
}

void BluetoothManager::startBroadcastingIBeacons(std::vector<uint8_t>& /*bytes*/,
                                                 std::shared_ptr<Client> /*client*/) {
    kLog.d("startBroadcastingIBeacons");
}

void BluetoothManager::stopBroadcastingIBeacons(std::shared_ptr<Client> /*client*/) {
    kLog.d("stopBroadcastingIBeacons");
}

void BluetoothManager::cleanup() {
    kLog.d("cleanup");
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
