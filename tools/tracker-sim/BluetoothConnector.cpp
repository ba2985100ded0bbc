#include "BluetoothConnector.h"

#include <string>

#include "tracker/bluetooth/BleUtils.h"

namespace tracker {
namespace trackersim {

using namespace util::bluetooth;

namespace {

std::string statusText(TrackerStatus status) {
    return status == TRACKER_SUCCESS ? "success"
                                     : "status " + std::to_string(static_cast<int>(status));
}

}  // namespace

BluetoothConnector::BluetoothConnector(ConnectorContext context,
                                       std::vector<TrackerScanFilter> filters,
                                       std::shared_ptr<BluetoothManagerInterface> manager)
    : m_context(std::move(context)), m_manager(std::move(manager)), m_filters(std::move(filters)) {}

void BluetoothConnector::setFilters(std::vector<TrackerScanFilter> filters) {
    m_filters.set(std::move(filters));
}

std::shared_ptr<BluetoothManagerScanFilter> BluetoothConnector::getScanFilter() {
    return m_filters.holder();
}

void BluetoothConnector::onInitializationSuccess() {
    m_context.report("initialised", nullptr);
    // The manager is initialised before any connector can register, so this is a recovery after
    // a proxy death, which ended the scan: ask for it again.
    m_context.later([self = shared_from_this()] {
        const bool reloaded = self->m_manager->reload(self);
        self->m_context.report(reloaded ? "rescan after recovery" : "rescan refused", nullptr, {},
                               !reloaded);
    });
}

void BluetoothConnector::onInitializationFailure() {
    m_context.report("initialisation failed", nullptr, {}, true);
}

void BluetoothConnector::onBeaconScanResult(std::shared_ptr<TrackerScanRecord> record,
                                            TrackerExtraBeaconData extra) {
    TimelineEvent event;
    event.connector = m_context.name;
    event.event = "result";
    event.address = record->address ? obfuscated(*record->address) : std::string();
    event.device = BleUtils::getBleAddress(record->address);
    event.rssi = record->rssi;
    if (!extra.uuid.uuid.empty()) {
        event.detail = "uuid " + shortUuid(extra.uuid);
    }
    for (const TrackerManuData& manufacturer : extra.manuData) {
        if (!manufacturer.data.empty()) {
            event.detail += (event.detail.empty() ? "" : ", ") + std::string("manufacturer ") +
                            hex(manufacturer.data);
        }
    }
    m_context.timeline.add(std::move(event));
}

bool BluetoothConnector::beginSession(GattPlan plan) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_session) {
            m_context.report("session refused", plan.address.get(), "one is running", true);
            return false;
        }
        m_session = plan;
        m_handle.reset();
        m_notificationsHeard = 0;
    }
    m_context.timeline.countGattOperation(m_context.name);
    if (!m_manager->connect(plan.address, shared_from_this())) {
        m_context.report("connect refused", plan.address.get(), {}, true);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_session.reset();
        return false;
    }
    m_context.report("connecting", plan.address.get());
    return true;
}

std::optional<GattPlan> BluetoothConnector::sessionOn(unsigned long long connHandle) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_handle == connHandle) {
        return m_session;
    }
    return std::nullopt;
}

void BluetoothConnector::step(const char* what, unsigned long long connHandle, bool accepted) {
    m_context.timeline.countGattOperation(m_context.name);
    if (!accepted) {
        m_context.report(std::string(what) + " refused", nullptr, {}, true);
        endSession(connHandle);
    }
}

void BluetoothConnector::failSession(unsigned long long connHandle, const char* what) {
    if (const std::optional<GattPlan> plan = sessionOn(connHandle)) {
        m_context.report(what, plan->address.get(), {}, true);
        endSession(connHandle);
    }
}

void BluetoothConnector::endSession(unsigned long long connHandle) {
    m_context.timeline.countGattOperation(m_context.name);
    m_manager->disconnect(connHandle);
}

void BluetoothConnector::onConnected(std::shared_ptr<TrackerDeviceAddr> addr,
                                     unsigned long long connHandle) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_session || m_handle) {
            return;
        }
        m_handle = connHandle;
    }
    m_context.report("connected", addr.get(), "handle " + std::to_string(connHandle));
    step("discovery", connHandle, m_manager->discoverAllServices(connHandle));
}

void BluetoothConnector::onDisconnected(std::shared_ptr<TrackerDeviceAddr> addr,
                                        unsigned long long connHandle, TrackerStatus status) {
    bool complete = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        // A connection that never reported itself connected ends the session too.
        if (!m_session || (m_handle && *m_handle != connHandle)) {
            return;
        }
        complete = m_notificationsHeard >= m_session->notifications;
        m_session.reset();
        m_handle.reset();
    }
    m_context.report("disconnected", addr.get(), statusText(status), status != TRACKER_SUCCESS);
    if (complete) {
        m_context.report("session complete", addr.get());
    }
}

void BluetoothConnector::onServicesDiscovered(unsigned long long connHandle,
                                              std::shared_ptr<TrackerGattServices> services) {
    const std::optional<GattPlan> plan = sessionOn(connHandle);
    if (!plan) {
        return;
    }
    std::string found;
    for (const TrackerGattService& service : services->services) {
        found += (found.empty() ? "" : " ") + shortUuid(service.uuid);
    }
    m_context.report("services", plan->address.get(), found);
    step("read", connHandle, m_manager->readCharacteristic(connHandle, plan->service, plan->read));
}

void BluetoothConnector::onServicesDiscoveryFailure(unsigned long long connHandle) {
    failSession(connHandle, "discovery failed");
}

void BluetoothConnector::onCharacteristicReadSuccess(
    unsigned long long connHandle, std::shared_ptr<TrackerCharacteristicValue> value) {
    const std::optional<GattPlan> plan = sessionOn(connHandle);
    if (!plan) {
        return;
    }
    m_context.report("read", plan->address.get(),
                     shortUuid(plan->read) + " = " + hex(value->value));
    step("notifications", connHandle,
         m_manager->setCharacteristicNotification(connHandle, plan->service, plan->notify, true));
}

void BluetoothConnector::onCharacteristicReadFailure(unsigned long long connHandle) {
    failSession(connHandle, "read failed");
}

void BluetoothConnector::onDescriptorWriteSuccess(
    unsigned long long connHandle, std::shared_ptr<TrackerCharacteristicValue> value) {
    if (const std::optional<GattPlan> plan = sessionOn(connHandle)) {
        m_context.report(value->m_notificationOn ? "notifications on" : "notifications off",
                         plan->address.get(), shortUuid(plan->notify));
    }
}

void BluetoothConnector::onDescriptorWriteFailure(unsigned long long connHandle) {
    failSession(connHandle, "notifications failed");
}

void BluetoothConnector::onCharacteristicChanged(
    unsigned long long connHandle, std::shared_ptr<TrackerCharacteristicValue> value) {
    const std::optional<GattPlan> plan = sessionOn(connHandle);
    if (!plan) {
        return;
    }
    bool enough = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        enough = ++m_notificationsHeard == plan->notifications;
    }
    m_context.report("notification", plan->address.get(), hex(value->value));
    if (enough) {
        endSession(connHandle);
    }
}

}  // namespace trackersim
}  // namespace tracker
