// The manager's GATT side: the connection table, the routing of client requests to the
// connection's handler, and the clean-ups that forget connections.

#include <unordered_map>

#include <frameworklink/managers/AndroidBTProxyManager.h>

#include "tracker/bluetooth/AndroidBLEBridge.h"
#include "tracker/bluetooth/AndroidBTGattHandler.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/bluetooth/BluetoothManager.h"
#include "tracker/util/Clock.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace bluetooth {

namespace {

using com::orvane::frameworklink::managers::AndroidBTProxyManager;
using Handlers = std::unordered_map<unsigned long long, std::shared_ptr<AndroidBTGattHandler>>;

const Log& kLog = *new Log(BluetoothManager::kName);

// The connection table: handle to handler, from a successful connect() until the connection is
// forgotten. s_gattMutex guards only the table: no handler and no platform call runs under it,
// but for close() in the clean-ups. Handlers leave the table under it and die after it. Never
// destroyed: connections still open at exit are not torn down under running threads.
Mutex& s_gattMutex = *new Mutex;
Handlers& s_gattHandlers TRACKER_GUARDED_BY(s_gattMutex) = *new Handlers;

// The platform's signed connection id, widened as the table's key, and back.
unsigned long long toHandle(int connId) {
    return static_cast<unsigned long long>(static_cast<long long>(connId));
}
int toConnId(unsigned long long connHandle) {
    return static_cast<int>(static_cast<uint32_t>(connHandle));
}

std::shared_ptr<AndroidBTGattHandler> findHandler(unsigned long long connHandle) {
    MutexLock lock(s_gattMutex);
    const auto found = s_gattHandlers.find(connHandle);
    return found != s_gattHandlers.end() ? found->second : nullptr;
}

}  // namespace

bool BluetoothManager::connect(std::shared_ptr<TrackerDeviceAddr> addr,
                               std::shared_ptr<Client> client) {
    static constexpr const char* kFunction = "connect";
    if (!addr || addr->addr.size() != 6 || !client) {
        kLog.e("%s: invalid parameters", kFunction);
        return false;
    }
    const std::string mac = BleUtils::getBleAddress(addr);
    kLog.d("%s: macAddr = %s", kFunction, BleUtils::getObfuscatedAddress(mac).c_str());
    const std::shared_ptr<TrackerDeviceAddr> deviceAddr =
        BleUtils::stringToTrackerDeviceAddr(mac.c_str());
    auto handler = std::make_shared<AndroidBTGattHandler>(std::move(client), deviceAddr);
    int connId = -1;
    std::shared_ptr<AndroidBTGattHandler> replaced;  // dies after both locks
    // In the table before its first state change can reach the client, which may then use it.
    const bool connected = handler->connect(addr, connId, [&](int accepted) {
        MutexLock lock(s_gattMutex);
        std::shared_ptr<AndroidBTGattHandler>& slot = s_gattHandlers[toHandle(accepted)];
        replaced = std::move(slot);
        slot = handler;
    });
    if (!connected) {
        kLog.e("unableToConnectToPeripheral");
    }
    return connected;
}

bool BluetoothManager::disconnect(unsigned long long connHandle) {
    kLog.d("%s", "disconnect");
    const std::shared_ptr<AndroidBTGattHandler> handler = findHandler(connHandle);
    return handler && handler->disconnect();
}

bool BluetoothManager::discoverAllServices(unsigned long long connHandle) {
    kLog.d("%s", "discoverAllServices");
    const std::shared_ptr<AndroidBTGattHandler> handler = findHandler(connHandle);
    return handler && handler->discoverAllServices();
}

bool BluetoothManager::readCharacteristic(unsigned long long connHandle, TrackerUuid serviceUuid,
                                          TrackerUuid charUuid) {
    const std::shared_ptr<AndroidBTGattHandler> handler = findHandler(connHandle);
    if (!handler) {
        kLog.e("%s: No client found for connHandle=%llu", "readCharacteristic", connHandle);
        return false;
    }
    return handler->readCharacteristic(AndroidBLEBridge::toParcelUuid(serviceUuid),
                                       AndroidBLEBridge::toParcelUuid(charUuid));
}

bool BluetoothManager::writeCharacteristic(unsigned long long connHandle, TrackerUuid serviceUuid,
                                           TrackerUuid charUuid, std::vector<uint8_t> value) {
    const std::shared_ptr<AndroidBTGattHandler> handler = findHandler(connHandle);
    if (!handler) {
        kLog.e("%s: No client found for connHandle=%llu", "writeCharacteristic", connHandle);
        return false;
    }
    return handler->writeCharacteristic(AndroidBLEBridge::toParcelUuid(serviceUuid),
                                        AndroidBLEBridge::toParcelUuid(charUuid), std::move(value));
}

bool BluetoothManager::setCharacteristicNotification(unsigned long long connHandle,
                                                     TrackerUuid serviceUuid, TrackerUuid charUuid,
                                                     bool enable) {
    const std::shared_ptr<AndroidBTGattHandler> handler = findHandler(connHandle);
    if (!handler) {
        kLog.e("%s: No client found for connHandle=%llu", "setCharacteristicNotification",
               connHandle);
        return false;
    }
    return handler->setCharacteristicNotification(AndroidBLEBridge::toParcelUuid(serviceUuid),
                                                  AndroidBLEBridge::toParcelUuid(charUuid), enable);
}

void BluetoothManager::cleanConnectionDB(unsigned long long connHandle) {
    cleanConnectionDB(connHandle, {});
}

void BluetoothManager::cleanConnectionDB(unsigned long long connHandle,
                                         std::weak_ptr<const AndroidBTGattHandler> ended) {
    m_executor.post(false, [self = shared_from_this(), connHandle, ended = std::move(ended)] {
        self->runCleanConnectionDB(connHandle, ended);
    });
}

void BluetoothManager::runCleanConnectionDB(
    unsigned long long connHandle, const std::weak_ptr<const AndroidBTGattHandler>& ended) {
    const auto sameOwner = [](const auto& a, const auto& b) {
        return !a.owner_before(b) && !b.owner_before(a);
    };
    std::shared_ptr<AndroidBTGattHandler> forgotten;  // dies after the lock
    MutexLock lock(s_gattMutex);
    const auto found = s_gattHandlers.find(connHandle);
    if (found == s_gattHandlers.end()) {
        return;
    }
    if (sameOwner(ended, std::weak_ptr<const AndroidBTGattHandler>()) ||
        sameOwner(ended, found->second)) {
        forgotten = std::move(found->second);
        s_gattHandlers.erase(found);
    }
}

void BluetoothManager::endConnectionsOnProxyDeath() {
    // The generic GATT error: the client hears of a failure.
    static constexpr int kGattError = 133;
    Handlers ended;
    {
        MutexLock lock(s_gattMutex);
        ended.swap(s_gattHandlers);
    }
    for (auto& [connHandle, handler] : ended) {
        handler->markClosed();
        handler->onConnectionStateChange(kGattError, AndroidBTGattHandler::STATE_DISCONNECTED);
    }
}

std::vector<std::shared_ptr<AndroidBTGattHandler>> BluetoothManager::closeConnections(
    const std::function<bool(unsigned long long, AndroidBTGattHandler&)>& pick) {
    std::vector<std::shared_ptr<AndroidBTGattHandler>> closed;
    const std::shared_ptr<AndroidBTProxyManager> proxy = AndroidBTProxyManager::getManager();
    MutexLock lock(s_gattMutex);
    for (auto entry = s_gattHandlers.begin(); entry != s_gattHandlers.end();) {
        if (!pick(entry->first, *entry->second)) {
            ++entry;
            continue;
        }
        entry->second->markClosed();
        proxy->close(toConnId(entry->first));
        closed.push_back(std::move(entry->second));
        entry = s_gattHandlers.erase(entry);
    }
    return closed;
}

void BluetoothManager::runGattDbCleanupTask() {
    const Clock::TimePoint now = Clock::current()->now();
    kLog.d("%s", "runGattDbCleanupTask");
    // The age counts from the handler's creation, not its last use.
    closeConnections([now](unsigned long long connHandle, AndroidBTGattHandler& handler) {
        const auto minutes =
            std::chrono::duration_cast<std::chrono::minutes>(now - handler.getStartTime());
        if (minutes < k_cleanupInterval) {
            return false;
        }
        kLog.d("Deleting connection handle = %llu", connHandle);
        return true;
    });
}

void BluetoothManager::runFullConnectionDBClean() {
    closeConnections([](unsigned long long, AndroidBTGattHandler&) { return true; });
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
