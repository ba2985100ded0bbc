#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "ConnectorContext.h"
#include "tracker/bluetooth/BluetoothManagerClientInterface.h"
#include "tracker/bluetooth/BluetoothManagerInterface.h"

namespace tracker {
namespace trackersim {

// What a GATT session with one tag does: connect, discover the services, read one
// characteristic, turn on notifications of another, and disconnect once enough of them came.
struct GattPlan {
    std::shared_ptr<util::bluetooth::TrackerDeviceAddr> address;
    util::bluetooth::TrackerUuid service;
    util::bluetooth::TrackerUuid read;
    util::bluetooth::TrackerUuid notify;
    int notifications = 3;
};

// A connector of the Bluetooth manager, written as a service's connector would be, against the
// public headers only: it asks for the scan results its filters select and reports what it gets
// to the timeline; it runs one GATT session at a time, each step started from the callback of
// the step before; after a proxy death it reloads, so that the manager scans again.
//
// Threads: the manager calls it as its client interface says. setFilters() and beginSession()
// come from the run's script thread. m_mutex guards the session.
class BluetoothConnector : public util::bluetooth::BluetoothManagerClientInterface,
                           public std::enable_shared_from_this<BluetoothConnector> {
  public:
    using TrackerScanFilter = util::bluetooth::TrackerScanFilter;

    BluetoothConnector(ConnectorContext context, std::vector<TrackerScanFilter> filters,
                       std::shared_ptr<util::bluetooth::BluetoothManagerInterface> manager);

    const ConnectorContext& context() const { return m_context; }
    void setFilters(std::vector<TrackerScanFilter> filters);
    // Starts a session unless one is running; false (and reported) if one is or connect fails.
    bool beginSession(GattPlan plan);

    std::shared_ptr<util::bluetooth::BluetoothManagerScanFilter> getScanFilter() override;
    void onInitializationSuccess() override;
    void onInitializationFailure() override;
    void onBeaconScanResult(std::shared_ptr<util::bluetooth::TrackerScanRecord> record,
                            util::bluetooth::TrackerExtraBeaconData extra) override;
    void onConnected(std::shared_ptr<util::bluetooth::TrackerDeviceAddr> addr,
                     unsigned long long connHandle) override;
    void onDisconnected(std::shared_ptr<util::bluetooth::TrackerDeviceAddr> addr,
                        unsigned long long connHandle,
                        util::bluetooth::TrackerStatus status) override;
    void onServicesDiscovered(
        unsigned long long connHandle,
        std::shared_ptr<util::bluetooth::TrackerGattServices> services) override;
    void onServicesDiscoveryFailure(unsigned long long connHandle) override;
    void onCharacteristicReadSuccess(
        unsigned long long connHandle,
        std::shared_ptr<util::bluetooth::TrackerCharacteristicValue> value) override;
    void onCharacteristicReadFailure(unsigned long long connHandle) override;
    void onDescriptorWriteSuccess(
        unsigned long long connHandle,
        std::shared_ptr<util::bluetooth::TrackerCharacteristicValue> value) override;
    void onDescriptorWriteFailure(unsigned long long connHandle) override;
    void onCharacteristicChanged(
        unsigned long long connHandle,
        std::shared_ptr<util::bluetooth::TrackerCharacteristicValue> value) override;

  private:
    // The plan of the session on that connection, if it is this connector's current one.
    std::optional<GattPlan> sessionOn(unsigned long long connHandle);
    // Asks the manager for the next step of a session; a refused step ends it.
    void step(const char* what, unsigned long long connHandle, bool accepted);
    void endSession(unsigned long long connHandle);
    // A step of the session failed: reported, and the connection let go.
    void failSession(unsigned long long connHandle, const char* what);

    const ConnectorContext m_context;
    const std::shared_ptr<util::bluetooth::BluetoothManagerInterface> m_manager;
    ConnectorFilters m_filters;
    std::mutex m_mutex;
    std::optional<GattPlan> m_session;
    std::optional<unsigned long long> m_handle;
    int m_notificationsHeard = 0;
};

}  // namespace trackersim
}  // namespace tracker
