#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/SimBluetooth.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/bluetooth/BluetoothManager.h"
#include "tracker/util/StringUtils.h"

namespace tracker {
namespace testing {

using util::bluetooth::BluetoothManagerScanFilter;
using util::bluetooth::TrackerScanFilter;

inline TrackerScanFilter uuidFilter(std::vector<uint8_t> uuid, std::vector<uint8_t> mask = {}) {
    TrackerScanFilter filter;
    filter.type = util::bluetooth::TYPE_UUID;
    filter.uuidFilter = {std::move(uuid), std::move(mask)};
    return filter;
}

inline TrackerScanFilter manuFilter(std::vector<uint8_t> data, std::vector<uint8_t> mask = {}) {
    TrackerScanFilter filter;
    filter.type = util::bluetooth::TYPE_MANU_DATA;
    filter.manuDataFilter = {std::move(data), std::move(mask)};
    return filter;
}

inline TrackerScanFilter addressFilter(std::vector<uint8_t> address) {
    TrackerScanFilter filter;
    filter.type = util::bluetooth::TYPE_ADDRESS;
    filter.addressFilter.bytesA = std::move(address);
    return filter;
}

inline std::string hexOf(std::vector<uint8_t> bytes) {
    return util::StringUtils::bytesToHexString(bytes);
}

// A connector that records, as text, everything the manager tells it, and hands over the filters
// the test gives it. Events: "init ok", "init failed", "result <address>", "connected <h>",
// "disconnected <h> <status>", "discovered <h> <services>", "discovery failed <h>",
// "read <h> <hex>", "read failed <h>", "write <h>", "write failed <h>",
// "descriptor <h> <hex> from=<0|1> on=<0|1>", "descriptor failed <h>", "changed <h> <hex>".
class RecordingClient : public util::bluetooth::BluetoothManagerClientInterface {
  public:
    using Extra = util::bluetooth::TrackerExtraBeaconData;

    explicit RecordingClient(std::vector<TrackerScanFilter> filters = {}) {
        setFilters(std::move(filters));
    }
    // Replaces the holder: the next filter build sees these. No holder at all with `none`.
    void setFilters(std::vector<TrackerScanFilter> filters, bool none = false) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_holder = none ? nullptr : std::make_shared<BluetoothManagerScanFilter>();
        if (m_holder) {
            m_holder->addScanFilters(std::move(filters));
        }
    }
    std::vector<Extra> extras() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_extras;
    }

    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_holder;
    }
    void onInitializationSuccess() override { log.add("init ok"); }
    void onInitializationFailure() override { log.add("init failed"); }
    void onBeaconScanResult(std::shared_ptr<util::bluetooth::TrackerScanRecord> record,
                            Extra extra) override {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_extras.push_back(extra);
        }
        log.add("result " + util::bluetooth::BleUtils::getBleAddress(record->address));
    }
    void onConnected(std::shared_ptr<util::bluetooth::TrackerDeviceAddr>,
                     unsigned long long h) override {
        log.add("connected " + std::to_string(h));
    }
    void onDisconnected(std::shared_ptr<util::bluetooth::TrackerDeviceAddr>, unsigned long long h,
                        util::bluetooth::TrackerStatus status) override {
        log.add("disconnected " + std::to_string(h) + " " + std::to_string(status));
    }
    void onServicesDiscovered(unsigned long long h,
                              std::shared_ptr<util::bluetooth::TrackerGattServices> s) override {
        log.add("discovered " + std::to_string(h) + " " + std::to_string(s->services.size()));
    }
    void onServicesDiscoveryFailure(unsigned long long h) override {
        log.add("discovery failed " + std::to_string(h));
    }
    void onCharacteristicReadSuccess(
        unsigned long long h,
        std::shared_ptr<util::bluetooth::TrackerCharacteristicValue> v) override {
        log.add("read " + std::to_string(h) + " " + hexOf(v->value));
    }
    void onCharacteristicReadFailure(unsigned long long h) override {
        log.add("read failed " + std::to_string(h));
    }
    void onCharacteristicWriteSuccess(unsigned long long h) override {
        log.add("write " + std::to_string(h));
    }
    void onCharacteristicWriteFailure(unsigned long long h) override {
        log.add("write failed " + std::to_string(h));
    }
    void onDescriptorWriteSuccess(
        unsigned long long h,
        std::shared_ptr<util::bluetooth::TrackerCharacteristicValue> v) override {
        log.add("descriptor " + std::to_string(h) + " " + hexOf(v->value) + " from=" +
                std::to_string(v->m_fromDescriptor) + " on=" + std::to_string(v->m_notificationOn));
    }
    void onDescriptorWriteFailure(unsigned long long h) override {
        log.add("descriptor failed " + std::to_string(h));
    }
    void onCharacteristicChanged(
        unsigned long long h,
        std::shared_ptr<util::bluetooth::TrackerCharacteristicValue> v) override {
        log.add("changed " + std::to_string(h) + " " + hexOf(v->value));
    }

    EventLog log;

  private:
    std::mutex m_mutex;
    std::shared_ptr<BluetoothManagerScanFilter> m_holder;
    std::vector<Extra> m_extras;
};

}  // namespace testing
}  // namespace tracker
