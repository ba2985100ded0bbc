// The platform's Bluetooth proxy, answered by the simulated world.

#include <frameworklink/managers/AndroidBTProxyManager.h>

#include "bluetooth/World.h"

namespace com {
namespace orvane {
namespace frameworklink {
namespace managers {

namespace {
tracker::sim::World& world() {
    return tracker::sim::World::instance();
}
}  // namespace

std::shared_ptr<AndroidBTProxyManager> AndroidBTProxyManager::getManager() {
    // Never destroyed: callbacks may still use it while the process exits.
    static const auto* manager =
        new std::shared_ptr<AndroidBTProxyManager>(std::make_shared<AndroidBTProxyManager>());
    return *manager;
}

bool AndroidBTProxyManager::initialize(int waitLimit) {
    return world().initialize(waitLimit);
}

bool AndroidBTProxyManager::registerForProxyDeath(
    std::weak_ptr<FrameworkLinkDeathRecipient> recipient) {
    return world().registerForProxyDeath(std::move(recipient));
}

bool AndroidBTProxyManager::startBLEScan(
    const std::vector<android::bluetooth::le::ScanFilter>* filters,
    const android::bluetooth::le::ScanSettings& settings,
    std::function<void(const std::vector<android::bluetooth::le::ScanResult>&)> batchResultCb,
    std::function<void(int)> scanFailureCb,
    std::function<void(int, const android::bluetooth::le::ScanResult&)> scanResultCb,
    int scanInstance) {
    return world().startScan(filters, settings, std::move(batchResultCb), std::move(scanFailureCb),
                             std::move(scanResultCb), scanInstance);
}

bool AndroidBTProxyManager::stopBLEScan(int scanInstance) {
    return world().stopScan(scanInstance);
}

bool AndroidBTProxyManager::connectGatt(
    const std::shared_ptr<android::bluetooth::BluetoothDevice>& device, bool /*autoConnect*/,
    std::shared_ptr<IAndroidBTGattCallback> callback, int /*transport*/, int& connId) {
    return device && world().connectGatt(device->getAddress(), std::move(callback), connId);
}

bool AndroidBTProxyManager::disconnect(int connId) {
    return world().disconnect(connId);
}

bool AndroidBTProxyManager::discoverServices(int connId) {
    return world().discoverServices(connId);
}

bool AndroidBTProxyManager::close(int connId) {
    return world().close(connId);
}

bool AndroidBTProxyManager::getServices(
    int connId, std::vector<android::bluetooth::BluetoothGattService>& out) {
    return world().getServices(connId, out);
}

bool AndroidBTProxyManager::readCharacteristic(
    int connId, const android::bluetooth::BluetoothGattCharacteristic& characteristic) {
    return world().readCharacteristic(connId, characteristic);
}

bool AndroidBTProxyManager::writeCharacteristic(
    int connId, const android::bluetooth::BluetoothGattCharacteristic& characteristic) {
    return world().writeCharacteristic(connId, characteristic);
}

bool AndroidBTProxyManager::setCharacteristicNotification(
    int connId, const android::bluetooth::BluetoothGattCharacteristic& characteristic,
    bool enable) {
    return world().setCharacteristicNotification(connId, characteristic, enable);
}

bool AndroidBTProxyManager::registerConnectivityCallback(
    std::shared_ptr<IConnectivityEventCallback> callback) {
    return world().registerConnectivity(std::move(callback));
}

bool AndroidBTProxyManager::deregisterConnectivityCallback(
    std::shared_ptr<IConnectivityEventCallback> callback) {
    return world().deregisterConnectivity(callback);
}

bool AndroidBTProxyManager::getPairedRemoteDevices(
    std::vector<interfaces::RemoteDeviceAdapter>& out) {
    return world().pairedDevices(out);
}

}  // namespace managers
}  // namespace frameworklink
}  // namespace orvane
}  // namespace com
