// The manager's connectivity side: pairing-event registrations and the paired-device list.

#include <unordered_map>

#include <frameworklink/managers/AndroidBTProxyManager.h>

#include "tracker/bluetooth/BluetoothManager.h"
#include "tracker/bluetooth/ConnectivityEventCallbackImpl.h"
#include "tracker/bluetooth/RemoteDeviceImpl.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace bluetooth {

namespace {

using com::orvane::frameworklink::interfaces::RemoteDeviceAdapter;
using com::orvane::frameworklink::managers::AndroidBTProxyManager;
using Registrations = std::unordered_map<std::shared_ptr<IConnectivityEventCallback>,
                                         std::shared_ptr<ConnectivityEventCallbackImpl>>;

const Log& kLog = *new Log(BluetoothManager::kName);

// The adapter registered with the platform for each client callback, by the callback's address.
// Registration is expected from one thread, but a lock costs nothing here and keeps two callers
// from corrupting the map. No platform call runs under it. Never destroyed, like the manager.
Mutex& s_connectivityMutex = *new Mutex;
Registrations& s_connectivityCallbacks TRACKER_GUARDED_BY(s_connectivityMutex) = *new Registrations;

}  // namespace

bool BluetoothManager::registerConnectivityCallback(
    const std::shared_ptr<IConnectivityEventCallback>& callback) {
    static constexpr const char* kFunction = "registerConnectivityCallback";
    kLog.d("%s", kFunction);
    if (!callback) {
        kLog.e("%s: invalid callback", kFunction);
        return false;
    }
    auto adapter = std::make_shared<ConnectivityEventCallbackImpl>(callback);
    if (!AndroidBTProxyManager::getManager()->registerConnectivityCallback(adapter)) {
        return false;
    }
    std::shared_ptr<ConnectivityEventCallbackImpl> replaced;  // dies after the lock
    {
        MutexLock lock(s_connectivityMutex);
        // An earlier adapter for the same callback stays registered with the platform.
        std::shared_ptr<ConnectivityEventCallbackImpl>& slot = s_connectivityCallbacks[callback];
        replaced = std::move(slot);
        slot = std::move(adapter);
    }
    kLog.i("%s: success", kFunction);
    return true;
}

bool BluetoothManager::deregisterConnectivityCallback(
    const std::shared_ptr<IConnectivityEventCallback>& callback) {
    static constexpr const char* kFunction = "deregisterConnectivityCallback";
    kLog.d("%s", kFunction);
    std::shared_ptr<ConnectivityEventCallbackImpl> adapter;
    {
        MutexLock lock(s_connectivityMutex);
        const auto found = s_connectivityCallbacks.find(callback);
        if (found != s_connectivityCallbacks.end()) {
            adapter = found->second;
        }
    }
    if (!adapter) {
        kLog.e("%s: unable to find callback", kFunction);
        return false;
    }
    // On failure the entry stays, so that a later attempt finds it.
    if (!AndroidBTProxyManager::getManager()->deregisterConnectivityCallback(adapter)) {
        return false;
    }
    std::shared_ptr<ConnectivityEventCallbackImpl> erased;  // dies after the lock
    {
        MutexLock lock(s_connectivityMutex);
        const auto found = s_connectivityCallbacks.find(callback);
        if (found != s_connectivityCallbacks.end() && found->second == adapter) {
            erased = std::move(found->second);
            s_connectivityCallbacks.erase(found);
        }
    }
    kLog.i("%s: success", kFunction);
    return true;
}

bool BluetoothManager::getPairedRemoteDevices(
    std::vector<std::shared_ptr<IRemoteDevice>>& devices) {
    std::vector<RemoteDeviceAdapter> paired;
    if (!AndroidBTProxyManager::getManager()->getPairedRemoteDevices(paired)) {
        kLog.e("%s: Unable to get RemoteDevice list", "getPairedRemoteDevices");
        return false;
    }
    devices.reserve(devices.size() + paired.size());
    for (const RemoteDeviceAdapter& device : paired) {
        devices.push_back(RemoteDeviceImpl::create(device));
    }
    return true;
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
