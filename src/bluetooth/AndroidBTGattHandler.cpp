#include "tracker/bluetooth/AndroidBTGattHandler.h"

#include <android/bluetooth/BluetoothDevice.h>
#include <frameworklink/interfaces/ParcelByteArray.h>
#include <frameworklink/managers/AndroidBTProxyManager.h>

#include "tracker/bluetooth/AndroidBLEBridge.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/bluetooth/BluetoothManager.h"
#include "tracker/util/Clock.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace bluetooth {

namespace {

using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattDescriptor;
using android::bluetooth::BluetoothGattService;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using com::orvane::frameworklink::managers::AndroidBTProxyManager;

const Log& kLog = *new Log("AndroidBTGattHandler");

// The Client Characteristic Configuration descriptor.
const ParcelUuid kConfigurationDescriptorUuid =
    ParcelUuid::fromString("00002902-0000-1000-8000-00805f9b34fb");

constexpr int kStatusSuccess = 0;
constexpr unsigned long long kNoHandle = ~0ULL;

// Towards the platform a handle is the low 32 bits of the sign-extended connection id.
int toConnId(unsigned long long connHandle) {
    return static_cast<int>(static_cast<uint32_t>(connHandle));
}

std::shared_ptr<AndroidBTProxyManager> proxy() {
    return AndroidBTProxyManager::getManager();
}

}  // namespace

AndroidBTGattHandler::AndroidBTGattHandler(std::shared_ptr<BluetoothManagerClientInterface> client,
                                           std::shared_ptr<TrackerDeviceAddr> deviceAddr)
    : m_startTime(Clock::current()->now()),
      m_client(std::move(client)),
      m_deviceAddr(std::move(deviceAddr)),
      m_btManager(BluetoothManagerInterface::getInstance()) {
    if (!m_btManager) {
        kLog.e("%s: failed to get BluetoothManager instance", "AndroidBTGattHandler");
    }
}

AndroidBTGattHandler::~AndroidBTGattHandler() = default;

bool AndroidBTGattHandler::connect(std::shared_ptr<TrackerDeviceAddr> addr, int& connId,
                                   const std::function<void(int)>& accepted) {
    auto device =
        std::make_shared<android::bluetooth::BluetoothDevice>(BleUtils::getBleAddress(addr));
    MutexLock lock(m_mutex);
    const bool connected = proxy()->connectGatt(device, false, shared_from_this(), 0, connId);
    m_connHandle = static_cast<unsigned long long>(static_cast<long long>(connId));
    if (connected && accepted) {
        accepted(connId);
    }
    return connected;
}

unsigned long long AndroidBTGattHandler::connHandle() {
    MutexLock lock(m_mutex);
    return m_connHandle;
}

bool AndroidBTGattHandler::disconnect() {
    return proxy()->disconnect(toConnId(connHandle()));
}

bool AndroidBTGattHandler::discoverAllServices() {
    return proxy()->discoverServices(toConnId(connHandle()));
}

std::chrono::steady_clock::time_point AndroidBTGattHandler::getStartTime() {
    return m_startTime;
}

std::optional<BluetoothGattCharacteristic> AndroidBTGattHandler::findCharacteristic(
    const char* operation, const ParcelUuid& serviceUuid, const ParcelUuid& charUuid) {
    {
        MutexLock lock(m_mutex);
        // Services may share a UUID: one that lacks the characteristic does not end the search.
        for (const BluetoothGattService& service : m_services) {
            if (service.getUuid() != serviceUuid) {
                continue;
            }
            for (const BluetoothGattCharacteristic& characteristic : service.getCharacteristics()) {
                if (characteristic.getUuid() == charUuid) {
                    return characteristic;
                }
            }
        }
    }
    kLog.e("%s, Can not find service or characteristic", operation);
    return std::nullopt;
}

bool AndroidBTGattHandler::readCharacteristic(ParcelUuid serviceUuid, ParcelUuid charUuid) {
    static constexpr const char* kFunction = "readCharacteristic";
    const std::optional<BluetoothGattCharacteristic> characteristic =
        findCharacteristic(kFunction, serviceUuid, charUuid);
    if (!characteristic) {
        return false;
    }
    kLog.d("%s, found characteristic", kFunction);
    kLog.d("%s, %s", kFunction, characteristic->toString().c_str());
    const bool requested = proxy()->readCharacteristic(toConnId(connHandle()), *characteristic);
    if (!requested) {
        kLog.e("%s, unableToreadCharacteristic", kFunction);
    }
    return requested;
}

bool AndroidBTGattHandler::writeCharacteristic(ParcelUuid serviceUuid, ParcelUuid charUuid,
                                               std::vector<uint8_t> value) {
    static constexpr const char* kFunction = "writeCharacteristic";
    std::optional<BluetoothGattCharacteristic> characteristic =
        findCharacteristic(kFunction, serviceUuid, charUuid);
    if (!characteristic) {
        return false;
    }
    characteristic->setValue(std::make_shared<ParcelByteArray>(std::move(value)));
    kLog.d("%s, found characteristic", kFunction);
    kLog.d("%s, %s", kFunction, characteristic->toString().c_str());
    const bool requested = proxy()->writeCharacteristic(toConnId(connHandle()), *characteristic);
    if (!requested) {
        kLog.e("%s, unableTowriteCharacteristic", kFunction);
    }
    return requested;
}

bool AndroidBTGattHandler::setCharacteristicNotification(ParcelUuid serviceUuid,
                                                         ParcelUuid charUuid, bool enable) {
    static constexpr const char* kFunction = "setCharacteristicNotification";
    const std::optional<BluetoothGattCharacteristic> characteristic =
        findCharacteristic(kFunction, serviceUuid, charUuid);
    if (!characteristic) {
        return false;
    }
    kLog.d("%s, found characteristic", kFunction);
    const bool requested =
        proxy()->setCharacteristicNotification(toConnId(connHandle()), *characteristic, enable);
    if (!requested) {
        kLog.e("%s, unableToSetCharacteristicNotification", kFunction);
    }
    return requested;
}

void AndroidBTGattHandler::onConnectionStateChange(int status, int newState) {
    m_executor.post(false, [self = shared_from_this(), status, newState] {
        self->handleConnectionStateChange(status, newState);
    });
}

void AndroidBTGattHandler::handleConnectionStateChange(int status, int newState) {
    kLog.d("onConnectionStateChange, status=%d, newState=%d", status, newState);
    const unsigned long long handle = connHandle();
    if (handle == kNoHandle) {
        kLog.e("m_connHandle not set.");
        return;
    }
    if (status != kStatusSuccess) {
        kLog.e("connection/disconnection request failed, status=%d, newState=%d", status, newState);
    }
    switch (newState) {
        case STATE_CONNECTED:
            kLog.d("%s: Connected to %s", "operator()",
                   BleUtils::getBleAddress(m_deviceAddr).c_str());
            m_client->onConnected(m_deviceAddr, handle);
            break;
        case STATE_DISCONNECTED: {
            kLog.d("%s: Disonnected to %s", "operator()",
                   BleUtils::getBleAddress(m_deviceAddr).c_str());
            const bool closedAlready = m_closed.exchange(true);
            if (!closedAlready && !proxy()->close(toConnId(handle))) {
                kLog.e("%s: Failed to close Gatt client for connHandle=%llu", "operator()", handle);
            }
            m_client->onDisconnected(
                m_deviceAddr, handle,
                static_cast<TrackerStatus>(AndroidBLEBridge::toTrackerGattStatus(status)));
            if (!closedAlready) {
                forget(handle);
            }
            break;
        }
        default:
            kLog.e("%s: unsupported, state=%d", "operator()", newState);
            break;
    }
}

void AndroidBTGattHandler::forget(unsigned long long handle) {
    // The manager forgets this connection, not whichever took over its id meanwhile.
    if (auto* manager = dynamic_cast<BluetoothManager*>(m_btManager.get())) {
        manager->cleanConnectionDB(handle, weak_from_this());
    } else if (m_btManager) {
        m_btManager->cleanConnectionDB(handle);
    }
}

void AndroidBTGattHandler::onServicesDiscovered(int status) {
    m_executor.post(
        false, [self = shared_from_this(), status] { self->handleServicesDiscovered(status); });
}

void AndroidBTGattHandler::handleServicesDiscovered(int status) {
    kLog.d("onServicesDiscovered=%d", status);
    const unsigned long long handle = connHandle();
    if (status == kStatusSuccess) {
        std::vector<BluetoothGattService> services;
        if (proxy()->getServices(toConnId(handle), services)) {
            {
                MutexLock lock(m_mutex);
                m_services = services;
            }
            m_client->onServicesDiscovered(
                handle, AndroidBLEBridge::toTrackerGattServices(std::move(services)));
            return;
        }
        kLog.e("unableToGetDiscoveredServices");
    } else {
        kLog.e("onServicesDiscovered failed, status=%d", status);
    }
    m_client->onServicesDiscoveryFailure(handle);
}

void AndroidBTGattHandler::onCharacteristicRead(const BluetoothGattCharacteristic& characteristic,
                                                int status) {
    kLog.d("onCharacteristicRead=%d", status);
    const unsigned long long handle = connHandle();
    if (status == kStatusSuccess && characteristic.getValue()) {
        m_client->onCharacteristicReadSuccess(handle,
                                              AndroidBLEBridge::toTrackerCharValue(characteristic));
        return;
    }
    kLog.e("ReadCharacteristicFailed, uuid=%s, status=%d",
           characteristic.getUuid().toString().c_str(), status);
    m_client->onCharacteristicReadFailure(handle);
}

void AndroidBTGattHandler::onCharacteristicWrite(const BluetoothGattCharacteristic& characteristic,
                                                 int status) {
    kLog.d("onCharacteristicWrite=%d", status);
    const unsigned long long handle = connHandle();
    if (status == kStatusSuccess) {
        m_client->onCharacteristicWriteSuccess(handle);
        return;
    }
    kLog.e("WriteCharacteristicFailed, uuid=%s, status=%d",
           characteristic.getUuid().toString().c_str(), status);
    m_client->onCharacteristicWriteFailure(handle);
}

void AndroidBTGattHandler::onCharacteristicChanged(
    const BluetoothGattCharacteristic& characteristic) {
    kLog.d("onCharacteristicChanged");
    if (!characteristic.getValue()) {
        kLog.e("%s: BluetoothGattCharacteristic has empty value", "onCharacteristicChanged");
    }
    m_client->onCharacteristicChanged(connHandle(),
                                      AndroidBLEBridge::toTrackerCharValue(characteristic));
}

void AndroidBTGattHandler::onDescriptorRead(const BluetoothGattDescriptor& /*descriptor*/,
                                            int status) {
    kLog.d("onDescriptorRead=%d", status);
}

void AndroidBTGattHandler::onDescriptorWrite(const BluetoothGattDescriptor& descriptor,
                                             int status) {
    static constexpr const char* kFunction = "onDescriptorWrite";
    kLog.d("%s: onDescriptorWrite=%d", kFunction, status);
    const unsigned long long handle = connHandle();
    if (status != kStatusSuccess || !descriptor.getCharacteristic()) {
        kLog.e("%s: BluetoothGattDescriptor has not set corresponding BluetoothGattCharacteristic",
               kFunction);
        m_client->onDescriptorWriteFailure(handle);
        return;
    }
    std::shared_ptr<TrackerCharacteristicValue> value =
        AndroidBLEBridge::toTrackerCharValue(*descriptor.getCharacteristic());
    if (!descriptor.getValue()) {
        kLog.e("%s: BluetoothGattDescriptor value is null", kFunction);
        m_client->onDescriptorWriteFailure(handle);
        return;
    }
    value->m_fromDescriptor = true;
    const std::vector<uint8_t>& written = descriptor.getValue()->getBytes();
    if (descriptor.getUuid() == kConfigurationDescriptorUuid && written.size() >= 2) {
        // 01 00 switches notifications on, 00 00 off; indications (02 00) count as neither.
        if (written[0] == 0x01 && written[1] == 0x00) {
            value->m_notificationOn = true;
            kLog.d("%s: notificationOn", kFunction);
        } else if (written[0] == 0x00 && written[1] == 0x00) {
            kLog.d("%s: notificationOff", kFunction);
        }
    }
    m_client->onDescriptorWriteSuccess(handle, std::move(value));
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
