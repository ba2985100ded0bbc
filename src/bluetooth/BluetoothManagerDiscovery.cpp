// Beacon discovery: merging the clients' filters, starting the one platform scan with retries,
// stopping it, and routing every result to the one client whose filter it matches.

#include <new>

#include <frameworklink/managers/AndroidBTProxyManager.h>

#include "bluetooth/ManagerInstance.h"
#include "tracker/bluetooth/AndroidBLEBridge.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/bluetooth/BluetoothManager.h"
#include "tracker/metrics/BluetoothStartFailureMetric.h"
#include "tracker/util/Clock.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace bluetooth {

namespace {

using android::bluetooth::le::ScanFilter;
using android::bluetooth::le::ScanResult;
using com::orvane::frameworklink::managers::AndroidBTProxyManager;

const Log& kLog = *new Log(BluetoothManager::kName);

// The reason the failure metric gives when every attempt to start the scan failed.
constexpr int kStartFailureReason = -1;

}  // namespace

void BluetoothManager::initializeBeaconDiscoveryLocked() {
    m_discoveryWanted = true;
    m_executor.post(false, [self = shared_from_this()] { self->runDiscoveryStartTask(); });
}

void BluetoothManager::runDiscoveryStartTask() {
    if (startBeaconDiscovery()) {
        kLog.i("beacon scan started after %d retries", 0);
        return;
    }
    for (int retry = 1; retry < k_startDiscoveryRetries; ++retry) {
        const std::chrono::seconds wait = k_startDiscoveryRetryInterval * retry;
        kLog.e("unable to start discovery, retrying after %d seconds",
               static_cast<int>(wait.count()));
        Clock::current()->sleepFor(wait);
        if (startBeaconDiscovery()) {
            kLog.i("beacon scan started after %d retries", retry);
            return;
        }
    }
    kLog.e("%s: unable to start discovery after %d retries; giving up", "operator()",
           k_startDiscoveryRetries);
    orvane::metricutils::trackerservice::BluetoothStartFailureMetric metric(m_metricsManager);
    metric.addReason(kStartFailureReason);
    metric.log();
}

void BluetoothManager::buildScanFilterLocked() {
    static constexpr const char* kFunction = "buildScanFilterLocked";
    kLog.d("%s: building scan filter", kFunction);
    m_scanFilter.reset(new (std::nothrow) BluetoothManagerScanFilter());
    if (!m_scanFilter) {
        kLog.e("%s: failed to allocate scan filter", kFunction);
        return;
    }
    for (const std::shared_ptr<Client>& client : clients()) {
        const std::shared_ptr<BluetoothManagerScanFilter> holder = client->getScanFilter();
        if (!holder) {
            kLog.w("%s, client has no scan filter", kFunction);
            continue;
        }
        std::vector<TrackerScanFilter> filters = holder->getScanFilters();
        for (const TrackerScanFilter& filter : filters) {
            if (filter.type == TYPE_UUID) {
                m_uuidFilterClients.emplace_back(filter.uuidFilter, client);
            } else if (filter.type == TYPE_MANU_DATA) {
                m_manuDataFilterClients.emplace_back(filter.manuDataFilter, client);
            } else {
                kLog.e("%s, filter type not supported", kFunction);
            }
        }
        m_scanFilter->addScanFilters(std::move(filters));
    }
}

bool BluetoothManager::startBeaconDiscovery() {
    static constexpr const char* kFunction = "startBeaconDiscovery";
    kLog.i("%s: starting beacon scanner", kFunction);
    buildScanFilterLocked();
    if (!m_scanFilter) {
        kLog.e("%s: scan filter not created", kFunction);
        return false;
    }
    std::vector<TrackerScanFilter> merged = m_scanFilter->getScanFilters();
    kLog.d("%s: scanFilterSize = %zu", kFunction, merged.size());
    if (merged.empty()) {
        kLog.i("%s: Empty scan filter, do not start beacon discovery.", kFunction);
        return true;
    }
    std::vector<ScanFilter> platformFilters;
    AndroidBLEBridge::toAndroidBLEScanFilters(std::move(merged), &platformFilters);
    if (platformFilters.empty()) {
        kLog.e("%s: Empty android supported scan filter, do not start beacon discovery.",
               kFunction);
        return true;
    }
    // The platform calls happen under the registry's mutex, one at a time with the clients'
    // stops: no client is called here, and a stop either comes first (and this start gives
    // way) or finds this scan submitted.
    MutexLock lock(m_mutex);
    if (!m_discoveryWanted) {
        kLog.i("%s: discovery stopped meanwhile, do not start beacon discovery.", kFunction);
        return true;
    }
    // A scan an earlier start submitted may still run: two starts queued back to back (rapid
    // reloads), or a client that started while it ran. The platform runs one scan per instance
    // and would refuse this one, so it replaces that one.
    if (m_scanSubmitted) {
        stopBeaconDiscovery();
    }
    const bool started = AndroidBTProxyManager::getManager()->startBLEScan(
        &platformFilters, AndroidBLEBridge::getDefaultAndroidBLEScanSetting(),
        [](const std::vector<ScanResult>& results) {
            kLog.d("batchResultCb");
            for (const ScanResult& result : results) {
                processScanResult(result);
            }
        },
        [](int errorCode) { kLog.e("scanFailureCb: errorCode=%d", errorCode); },
        [](int /*callbackType*/, const ScanResult& result) {
            kLog.d("scanResultCb");
            processScanResult(result);
        },
        static_cast<int>(g_scanId));
    m_scanSubmitted = started;
    // The flag follows once this task is over (set before the line, which then tells that it
    // is set).
    m_executor.post(false, [self = shared_from_this(), started] {
        self->m_discoveryActive = started;
        if (started) {
            kLog.i("%s: Beacon scan started", "operator()");
        } else {
            kLog.e("%s: Beacon scan failed", "operator()");
        }
    });
    return started;
}

bool BluetoothManager::stopBeaconDiscovery() {
    kLog.i("%s: stopping beacon scanner", "stopBeaconDiscovery");
    if (!AndroidBTProxyManager::getManager()->stopBLEScan(static_cast<int>(g_scanId))) {
        kLog.e("Stop beacon scan request failed");
        return false;
    }
    kLog.i("Submitted request to stop beacon scan, scanInstance = %llu",
           static_cast<unsigned long long>(g_scanId));
    m_discoveryActive = false;
    m_scanSubmitted = false;
    return true;
}

void BluetoothManager::handleBeaconScanResultCallback(unsigned long long /*scanId*/,
                                                      std::shared_ptr<TrackerScanRecord> record,
                                                      TrackerExtraBeaconData extra) {
    m_executor.post(false, [self = shared_from_this(), record = std::move(record),
                            extra = std::move(extra)]() mutable {
        self->notifyOnBeaconScanResult(std::move(record), std::move(extra));
    });
}

void BluetoothManager::notifyOnBeaconScanResult(std::shared_ptr<TrackerScanRecord> record,
                                                TrackerExtraBeaconData extra) {
    static constexpr const char* kFunction = "notifyOnBeaconScanResult";
    kLog.d("%s", kFunction);
    // First match wins, UUID pairs before manufacturer pairs, in the order they were built.
    for (const UuidPair& pair : m_uuidFilterClients) {
        if (BleUtils::matchUuidFilter(pair.first, extra.uuid)) {
            pair.second->onBeaconScanResult(std::move(record), std::move(extra));
            return;
        }
    }
    for (const ManuDataPair& pair : m_manuDataFilterClients) {
        for (const TrackerManuData& manuData : extra.manuData) {
            if (BleUtils::matchManuDataFilter(pair.first, manuData)) {
                pair.second->onBeaconScanResult(std::move(record), std::move(extra));
                return;
            }
        }
    }
    kLog.e("%s: Can not locate connector for the beacon", kFunction);
}

void processScanResult(const ScanResult& result) {
    std::shared_ptr<TrackerScanRecord> record = AndroidBLEBridge::toTrackerScanRecord(result);
    // A result that lists no service UUID has an empty one, which matches no UUID filter.
    TrackerExtraBeaconData extra =
        AndroidBLEBridge::toTrackerExtraBeaconData(result.getScanRecord());
    if (kLog.isLoggable(Log::Level::Debug)) {
        kLog.d("%s: scanInstance = %llu, address=%s, serviceUUID=%s", "processScanResult",
               static_cast<unsigned long long>(g_scanId),
               BleUtils::getObfuscatedAddress(result.getDevice().getAddress()).c_str(),
               BleUtils::getUuidString(extra.uuid).c_str());
    }
    if (BluetoothManager* manager = managerInstance()) {
        manager->handleBeaconScanResultCallback(g_scanId, std::move(record), std::move(extra));
    }
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
