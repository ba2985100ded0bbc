// Raw advertisement bytes, as any device in radio range may send them, through the platform's
// parser, the bridge's conversions and the manager's routing to its clients, and through the
// library's masked matching.
//
// The manager runs on the simulated platform with a client per kind of filter (16- and 128-bit
// service UUIDs, masked and exact manufacturer data) and a marker client. Each input is handed
// to the scan result path as the platform would, then a marker result; results are routed one
// at a time, in order, so the marker's arrival means the input's routing is over.

#include <android/bluetooth/BluetoothDevice.h>
#include <android/bluetooth/BluetoothUuid.h>
#include <android/bluetooth/le/ScanRecord.h>
#include <android/bluetooth/le/ScanResult.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bluetooth/World.h"
#include "tracker/bluetooth/AndroidBLEBridge.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/bluetooth/BluetoothManager.h"

using namespace tracker::util::bluetooth;
using android::bluetooth::BluetoothDevice;
using android::bluetooth::le::ScanRecord;
using android::bluetooth::le::ScanResult;

namespace {

const std::vector<uint8_t> kMarkerAd = {0x03, 0x03, 0x0D, 0x18};  // lists service 0x180D only
const std::vector<uint8_t> kMarkerAddress = {0xC0, 0xFF, 0xEE, 0x00, 0x00, 0x0D};

TrackerScanFilter filterOf(TrackerScanFilterType type, std::vector<uint8_t> value,
                           std::vector<uint8_t> mask = {}) {
    TrackerScanFilter filter;
    filter.type = type;
    if (type == TYPE_MANU_DATA) {
        filter.manuDataFilter = {std::move(value), std::move(mask)};
    } else {
        filter.uuidFilter = {std::move(value), std::move(mask)};
    }
    return filter;
}

// Reads every byte it receives and counts the results from the marker's address (an input may
// list the marker's service too).
class Client : public BluetoothManagerClientInterface {
  public:
    explicit Client(TrackerScanFilter filter)
        : m_filters(std::make_shared<BluetoothManagerScanFilter>()) {
        m_filters->addScanFilters({std::move(filter)});
    }
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override { return m_filters; }
    void onBeaconScanResult(std::shared_ptr<TrackerScanRecord> record,
                            TrackerExtraBeaconData extra) override {
        unsigned sum = checksum(record->scanRecord) + checksum(extra.uuid.uuid) +
                       checksum(extra.serviceData);
        for (const TrackerManuData& manuData : extra.manuData) {
            sum += checksum(manuData.data);
        }
        const bool fromMarker = record->address && record->address->addr == kMarkerAddress;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_checksum += sum;
        m_results += fromMarker ? 1 : 0;
        m_changed.notify_all();
    }
    // Waits until more than `seen` results have arrived; false after a minute.
    bool awaitMoreThan(std::size_t seen) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::minutes(1),
                                  [&] { return m_results > seen; });
    }
    std::size_t results() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_results;
    }

  private:
    static unsigned checksum(const std::vector<uint8_t>& bytes) {
        unsigned sum = 0;
        for (uint8_t byte : bytes) {
            sum += byte;
        }
        return sum;
    }

    std::shared_ptr<BluetoothManagerScanFilter> m_filters;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::size_t m_results = 0;
    unsigned m_checksum = 0;  // so that every byte received is read
};

struct Routing {
    std::shared_ptr<BluetoothManagerInterface> manager;
    std::vector<std::shared_ptr<Client>> clients;
    std::shared_ptr<Client> marker;
};

// The manager with its clients, started once for the whole run (kept for the process's life).
Routing& routing() {
    static Routing* instance = [] {
        auto* made = new Routing;
        made->manager = BluetoothManagerInterface::getInstance();
        made->clients = {
            std::make_shared<Client>(filterOf(TYPE_UUID, {0xFE, 0xAA})),
            std::make_shared<Client>(filterOf(TYPE_UUID,
                                              {0x00, 0x00, 0xFE, 0xED, 0x00, 0x00, 0x10, 0x00,
                                               0x80, 0x00, 0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB},
                                              std::vector<uint8_t>(16, 0xF0))),
            std::make_shared<Client>(
                filterOf(TYPE_MANU_DATA, {0x4C, 0x00, 0x12}, {0xFF, 0xFF, 0x00})),
            std::make_shared<Client>(filterOf(TYPE_MANU_DATA, {0x71, 0x01})),
        };
        made->marker = std::make_shared<Client>(filterOf(TYPE_UUID, {0x18, 0x0D}));
        made->clients.push_back(made->marker);
        for (const auto& client : made->clients) {
            made->manager->registerConnector(client);
        }
        for (const auto& client : made->clients) {
            made->manager->start(client);
        }
        // The routing lists are built once the scan has started.
        const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (!tracker::sim::World::instance().scanning()) {
            if (std::chrono::steady_clock::now() > limit) {
                std::fprintf(stderr, "fuzz_advertisement: the scan did not start\n");
                std::abort();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return made;
    }();
    return *instance;
}

void route(const std::vector<uint8_t>& bytes) {
    Routing& state = routing();
    const std::size_t seen = state.marker->results();
    processScanResult(
        ScanResult(BluetoothDevice("C0:FF:EE:00:00:01"), ScanRecord::parseFromBytes(bytes), -60));
    processScanResult(
        ScanResult(BluetoothDevice("C0:FF:EE:00:00:0D"), ScanRecord::parseFromBytes(kMarkerAd),
                   -60));
    if (!state.marker->awaitMoreThan(seen)) {
        std::fprintf(stderr, "fuzz_advertisement: the marker result was not routed\n");
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::vector<uint8_t> bytes(data, data + size);
    route(bytes);

    const auto record = ScanRecord::parseFromBytes(bytes);
    const TrackerExtraBeaconData extra = AndroidBLEBridge::toTrackerExtraBeaconData(record);
    BleUtils::getUuidString(extra.uuid);

    // The same bytes as a filter: every split into data and mask must match without reading
    // past either.
    const std::size_t half = size / 2;
    const std::vector<uint8_t> filterData(data, data + half);
    const std::vector<uint8_t> mask(data + half, data + size);
    for (const TrackerManuData& manuData : extra.manuData) {
        BleUtils::matchManuDataFilter({filterData, mask}, manuData);
    }
    BleUtils::matchUuidFilter({filterData, mask}, extra.uuid);
    BleUtils::matchMaskedData(bytes, filterData, mask);
    android::bluetooth::BluetoothUuid::parseUuidFrom(filterData);
    return 0;
}
