// The InLoc manager's side of the platform: opening the session, merging the clients' filters,
// tracking by membership and by address, the duty cycle's intervals, ringing and the routing of
// what the platform reports.

#include <algorithm>
#include <iterator>
#include <utility>

#include <inloc/ixa_inloc.h>

#include "inloc/InLocPlatformCallbacks.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/inloc/InLocManager.h"
#include "tracker/inloc/IxaInLocBridge.h"
#include "tracker/util/Clock.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace inloc {

namespace {

using bluetooth::BleUtils;
using bluetooth::TrackerDeviceAddr;
using bluetooth::TrackerScanFilter;
using bluetooth::TrackerStatus;

const Log& kLog = *new Log(InLocManager::kName);

std::string obfuscated(const TrackerDeviceAddr& address) {
    return BleUtils::getObfuscatedAddress(BleUtils::getBleAddress(address));
}

// Enables or disables tracking of the membership filters among `filters`, with the entry type
// and platform call of that direction.
template <typename Entry, typename Fill, typename Clear, typename Call>
bool changeMembershipTracking(const char* function, bool enable,
                              const std::vector<TrackerScanFilter>& filters, Fill fill, Clear clear,
                              Call call) {
    const char* const verb = enable ? "start" : "stop";
    if (filters.empty()) {
        kLog.i("%s: no scan filter; will not start scanning", function);
        return true;
    }
    kLog.d("%s: scanFilterSize=%zu", function, filters.size());
    std::vector<Entry> entries(filters.size());
    const unsigned count = fill(filters, entries.data());
    if (count == 0) {
        kLog.e("%s: Empty supported scan filter, do not %s tracking.", function, verb);
        clear(entries.data(), static_cast<unsigned>(entries.size()));
        return false;
    }
    const ixa_status_t status = call(count, entries.data());
    clear(entries.data(), count);
    if (status != IXA_STATUS_SUCCESS) {
        kLog.e("%s: %s request failed; status=%d", function, enable ? "Tracking" : "Stop tracking",
               status);
        return false;
    }
    kLog.d("%s: Submitted request to %s tracking", function, verb);
    return true;
}

// Enables or disables tracking of each address filter among `filters`, going on after a
// failure; the filters the platform was asked about go to `accepted` or `refused`.
template <typename Create, typename Call>
bool changeAddressTracking(const char* function, bool enable,
                           const std::vector<TrackerScanFilter>& filters, Create create, Call call,
                           std::vector<TrackerScanFilter>& accepted,
                           std::vector<TrackerScanFilter>& refused) {
    if (filters.empty()) {
        kLog.i("%s: no scan filter; will not %s scanning", function, enable ? "start" : "stop");
        return true;
    }
    kLog.d("%s: scanFilterSize=%zu", function, filters.size());
    bool result = true;
    for (const TrackerScanFilter& filter : filters) {
        kLog.i("%s: addr=%s", function,
               obfuscated(TrackerDeviceAddr{filter.addressFilter.bytesA}).c_str());
        // The platform reads bytesD with the length of bytesC.
        if (filter.addressFilter.bytesD.size() < filter.addressFilter.bytesC.size()) {
            kLog.e("%s: invalid address filter, reason=shortKeyData", function);
            result = false;
            continue;
        }
        const auto config = create(filter);
        const ixa_status_t status = call(1, &config);
        (status == IXA_STATUS_SUCCESS ? accepted : refused).push_back(filter);
        if (status != IXA_STATUS_SUCCESS) {
            kLog.e("%s: error from ILS:%d", function, status);
            result = false;
        }
    }
    return result;
}

}  // namespace

// --- the session --------------------------------------------------------------------------------

std::future<bool> InLocManager::startSessionLocked() {
    static constexpr const char* kFunction = "startSessionLocked";
    m_startupPromise = std::make_unique<std::promise<bool>>();
    std::future<bool> startup = m_startupPromise->get_future();
    kLog.d("%s: opening session", kFunction);
    for (int attempt = 0; attempt < k_openSessionRetries; ++attempt) {
        const ixa_status_t status =
            ixaInloc_adapterInit(IXA_INLOC_INTERFACE_VERSION, &kAdapterCallbacks);
        if (status == IXA_STATUS_SUCCESS) {
            kLog.i("%s: opened InLoc session", kFunction);
            return startup;
        }
        kLog.e("%s: unable to open InLoc session, status=%d", kFunction, status);
        if (attempt == k_openSessionRetries - 1) {
            // The product, although the last attempt is not followed by a wait.
            kLog.e("%s: unable to open InLoc session after %d seconds; giving up", kFunction,
                   static_cast<int>(k_openSessionRetries * k_openSessionRetryInterval.count()));
            std::exchange(m_startupPromise, nullptr)->set_value(false);
            return startup;
        }
        kLog.i("%s: will retry InLoc open session after %d seconds", kFunction,
               static_cast<int>(k_openSessionRetryInterval.count()));
        Clock::current()->sleepFor(k_openSessionRetryInterval);
    }
    return startup;
}

bool InLocManager::registerClient() {
    static constexpr const char* kFunction = "registerClient";
    const ixa_status_t status = ixaInloc_distanceRegisterClient(&kDistanceClientCallbacks);
    if (status != IXA_STATUS_SUCCESS) {
        kLog.e("%s: failed to submit inLoc client registration to inLoc service; status=%d",
               kFunction, status);
        m_callbackExecutor.post(false, [this] { notifyOnInitializationFailure(); });
        return false;
    }
    kLog.d("%s: successfully submitted request to register inLoc client.", kFunction);
    return true;
}

void InLocManager::handleInitializedCallback(TrackerStatus status) {
    m_callbackExecutor.post(false, [this, status] {
        if (status == bluetooth::TRACKER_SUCCESS) {
            kLog.i("%s: state=INITIALIZED", "operator()");
            registerClient();
        } else {
            kLog.e("%s: unsupported, status=%d", "operator()", status);
        }
    });
}

void InLocManager::handleClientRegisterCallback(TrackerStatus status) {
    m_callbackExecutor.post(false, [this, status] {
        if (status == bluetooth::TRACKER_SUCCESS) {
            kLog.i("%s: successfully registered InLoc tracker client", "operator()");
            notifyOnInitializationSuccess();
        } else {
            kLog.e("%s: InLoc client registration failed; status=%d", "operator()", status);
            notifyOnInitializationFailure();
        }
    });
}

void InLocManager::notifyOnInitializationSuccess() {
    setStartupState(true);
    for (const std::shared_ptr<Client>& client : clientsInOrder()) {
        client->onInitializationSuccess();
    }
}

void InLocManager::notifyOnInitializationFailure() {
    setStartupState(false);
    for (const std::shared_ptr<Client>& client : clientsInOrder()) {
        client->onInitializationFailure();
    }
}

// --- filters ------------------------------------------------------------------------------------

bool InLocManager::updateScanFilter(Filters& added, Filters& removed) {
    static constexpr const char* kFunction = "updateScanFilter";
    kLog.d("%s: building scan filter", kFunction);
    // The clients are asked first, without the lock: their getScanFilter() is theirs.
    std::vector<std::pair<std::shared_ptr<Client>, Filters>> lists;
    for (const std::shared_ptr<Client>& client : clientsInOrder()) {
        if (const auto holder = client->getScanFilter()) {
            lists.emplace_back(client, holder->getScanFilters());
        }
    }
    MutexLock lock(m_filterMutex);
    Filters old = m_scanFilter->getScanFilters();
    m_scanFilter = std::make_shared<bluetooth::BluetoothManagerScanFilter>();
    for (auto& [client, filters] : lists) {
        for (const TrackerScanFilter& filter : filters) {
            switch (filter.type) {
                case bluetooth::TYPE_ADDRESS:
                    // The first client to ask for an address keeps it.
                    m_trackedDevices.emplace(TrackerDeviceAddr{filter.addressFilter.bytesA},
                                             client);
                    break;
                case bluetooth::TYPE_MEMBERSHIP:
                    m_membershipOwners.emplace_back(filter.uuidFilter, client);
                    break;
                default:
                    kLog.e("%s: filter type not supported", kFunction);
                    break;
            }
        }
        m_scanFilter->addScanFilters(std::move(filters));
    }
    // Compared as sets: a filter two clients hold stays while either does.
    Filters current = m_scanFilter->getScanFilters();
    for (Filters* list : {&old, &current}) {
        std::sort(list->begin(), list->end());
        list->erase(std::unique(list->begin(), list->end(),
                                [](const TrackerScanFilter& a, const TrackerScanFilter& b) {
                                    return !(a < b) && !(b < a);
                                }),
                    list->end());
    }
    removed.clear();
    added.clear();
    std::set_difference(old.begin(), old.end(), current.begin(), current.end(),
                        std::back_inserter(removed));
    std::set_difference(current.begin(), current.end(), old.begin(), old.end(),
                        std::back_inserter(added));
    return m_scanFilter->getFilterListCount() != 0;
}

InLocManager::Filters InLocManager::getCurrentScanFilters() const {
    MutexLock lock(m_filterMutex);
    return m_scanFilter->getScanFilters();
}

InLocManager::Filters InLocManager::filterScanFiltersForType(
    const Filters& filters, bluetooth::TrackerScanFilterType type) {
    Filters kept;
    std::copy_if(filters.begin(), filters.end(), std::back_inserter(kept),
                 [type](const TrackerScanFilter& filter) { return filter.type == type; });
    return kept;
}

// --- tracking -----------------------------------------------------------------------------------

bool InLocManager::changeTrackingLocked(bool start, const Filters& filters) {
    const bool byMembership = start ? startTrackingByMembershipLocked(filters)
                                    : stopTrackingByMembershipLocked(filters);
    const bool byAddress =
        start ? startTrackingByAddressLocked(filters) : stopTrackingByAddressLocked(filters);
    return byMembership && byAddress;
}

namespace {

bool sameFilter(const TrackerScanFilter& a, const TrackerScanFilter& b) {
    return !(a < b) && !(b < a);
}

bool contains(const std::vector<TrackerScanFilter>& list, const TrackerScanFilter& filter) {
    return std::any_of(list.begin(), list.end(),
                       [&](const TrackerScanFilter& other) { return sameFilter(filter, other); });
}

// What the service tracks a filter by: its address, or its membership identifier. Filters that
// differ only in keys or masks share one tracking.
bool sameTarget(const TrackerScanFilter& a, const TrackerScanFilter& b) {
    if (a.type != b.type) {
        return false;
    }
    switch (a.type) {
        case bluetooth::TYPE_ADDRESS:
            return a.addressFilter.bytesA == b.addressFilter.bytesA;
        case bluetooth::TYPE_MEMBERSHIP:
            return a.uuidFilter.uuid == b.uuidFilter.uuid;
        default:
            return sameFilter(a, b);
    }
}

template <typename Same>
void drop(std::vector<TrackerScanFilter>& list, const TrackerScanFilter& filter, Same same) {
    list.erase(std::remove_if(list.begin(), list.end(),
                              [&](const TrackerScanFilter& other) { return same(filter, other); }),
               list.end());
}

}  // namespace

void InLocManager::settleLocked(bool start, const Filters& accepted, const Filters& refused) {
    for (const TrackerScanFilter& filter : accepted) {
        if (start) {
            // Tracked as this filter asks: a stop still due for its target (under other keys)
            // would end it.
            drop(m_failedStarts, filter, sameFilter);
            drop(m_failedStops, filter, sameTarget);
        } else {
            // No longer tracked; a start still due (refused before) stays due.
            drop(m_failedStops, filter, sameFilter);
        }
    }
    for (const TrackerScanFilter& filter : refused) {
        // A filter whose start was refused and that no stop is due for was never tracked: a
        // refused stop leaves nothing behind.
        const bool neverTracked =
            contains(m_failedStarts, filter) && !contains(m_failedStops, filter);
        Filters& failed = start ? m_failedStarts : m_failedStops;
        if (!contains(failed, filter) && (start || !neverTracked)) {
            failed.push_back(filter);
        }
    }
}

void InLocManager::retryFailedChangesLocked(Filters& added, Filters& removed) {
    const Filters current = getCurrentScanFilters();
    const auto wanted = [&current](const TrackerScanFilter& filter) {
        return std::any_of(current.begin(), current.end(), [&](const TrackerScanFilter& other) {
            return sameTarget(filter, other);
        });
    };
    // Never tracked: nothing to stop; still wanted: start it.
    for (const TrackerScanFilter& filter : std::exchange(m_failedStarts, {})) {
        drop(removed, filter, sameFilter);
        if (contains(current, filter) && !contains(added, filter)) {
            added.push_back(filter);
        }
    }
    // Still tracked: nothing to start; no longer wanted (under any keys): stop it.
    for (const TrackerScanFilter& filter : std::exchange(m_failedStops, {})) {
        drop(added, filter, sameFilter);
        if (!wanted(filter) && !contains(removed, filter)) {
            removed.push_back(filter);
        }
    }
}

bool InLocManager::startTrackingByMembershipLocked(const Filters& filters) {
    static constexpr const char* kFunction = "startTrackingByMembershipLocked";
    if (m_scanPaused) {
        kLog.i("%s: paused; not starting scan", kFunction);
        return true;
    }
    kLog.i("%s: starting inloc tracking", kFunction);
    return settleMembershipsLocked(
        true, filters,
        changeMembershipTracking<ixaInloc_distanceConfigMembership_t>(
            kFunction, true, filterScanFiltersForType(filters, bluetooth::TYPE_MEMBERSHIP),
            IxaInLocBridge::toIxaConfigMembershipList,
            IxaInLocBridge::clearIxaConfigMembershipList,
            ixaInloc_distanceEnableTrackingByMembership));
}

bool InLocManager::stopTrackingByMembershipLocked(const Filters& filters) {
    static constexpr const char* kFunction = "stopTrackingByMembershipLocked";
    kLog.i("%s: stopping inloc tracking", kFunction);
    return settleMembershipsLocked(
        false, filters,
        changeMembershipTracking<ixaInloc_distanceDeconfigMembership_t>(
            kFunction, false, filterScanFiltersForType(filters, bluetooth::TYPE_MEMBERSHIP),
            IxaInLocBridge::toIxaDeconfigMembershipList,
            IxaInLocBridge::clearIxaDeconfigMembershipList,
            ixaInloc_distanceDisableTrackingByMembership));
}

bool InLocManager::settleMembershipsLocked(bool start, const Filters& filters, bool succeeded) {
    // One call carries every membership: the answer is each one's.
    const Filters memberships = filterScanFiltersForType(filters, bluetooth::TYPE_MEMBERSHIP);
    settleLocked(start, succeeded ? memberships : Filters{}, succeeded ? Filters{} : memberships);
    return succeeded;
}
bool InLocManager::startTrackingByAddressLocked(const Filters& filters) {
    Filters accepted;
    Filters refused;
    const bool result = changeAddressTracking(
        "startTrackingByAddressLocked", true,
        filterScanFiltersForType(filters, bluetooth::TYPE_ADDRESS),
        IxaInLocBridge::createIxaDeviceDistanceConfig, ixaInloc_distanceEnableTrackingByDeviceAddr,
        accepted, refused);
    settleLocked(true, accepted, refused);
    return result;
}

bool InLocManager::stopTrackingByAddressLocked(const Filters& filters) {
    Filters accepted;
    Filters refused;
    const bool result = changeAddressTracking(
        "stopTrackingByAddressLocked", false,
        filterScanFiltersForType(filters, bluetooth::TYPE_ADDRESS),
        IxaInLocBridge::createIxaDeviceDistanceDeconfig,
        ixaInloc_distanceDisableTrackingByDeviceAddr, accepted, refused);
    settleLocked(false, accepted, refused);
    return result;
}

// --- scan periods -------------------------------------------------------------------------------

bool InLocManager::setScanPeriod(std::shared_ptr<Client> client, Seconds active, Seconds inactive) {
    static constexpr const char* kFunction = "setScanPeriod";
    MutexLock lock(m_clientsMutex);
    const auto found = m_clients.find(client);
    if (found == m_clients.end()) {
        kLog.e("%s: client not registered", kFunction);
        return false;
    }
    if (found->second.started) {
        kLog.e("%s: cannot change scan period of started client", kFunction);
        return false;
    }
    if (active.count() < 0 || inactive.count() < 0) {
        kLog.e("%s: invalid scan period, active=%llds, inactive=%llds", kFunction,
               static_cast<long long>(active.count()), static_cast<long long>(inactive.count()));
        return false;
    }
    found->second.activeInterval = active;
    found->second.inactiveInterval = inactive;
    updateScanPeriodsLocked();
    return true;
}

void InLocManager::updateScanPeriodsLocked() {
    Seconds active = k_defaultScanActiveInterval;
    Seconds inactive = k_defaultScanInactiveInterval;
    for (const auto& entry : m_clients) {
        active = std::max(active, entry.second.activeInterval);
        inactive = std::min(inactive, entry.second.inactiveInterval);
    }
    m_scanActiveInterval = active;
    m_scanInactiveInterval = inactive;
    kLog.i("%s: active=%llds, inactive=%llds", "updateScanPeriodsLocked",
           static_cast<long long>(active.count()), static_cast<long long>(inactive.count()));
}

void InLocManager::onPeriodicScanTimer() {
    enqueueOperation(Operation(Operation::TOGGLE_SCAN));
}

// --- ringing and events -------------------------------------------------------------------------

std::shared_ptr<InLocManager::Client> InLocManager::trackingClient(
    const TrackerDeviceAddr& address) const {
    MutexLock lock(m_filterMutex);
    const auto found = m_trackedDevices.find(address);
    return found != m_trackedDevices.end() ? found->second : nullptr;
}

bool InLocManager::ringDeviceByAddress(const std::shared_ptr<Client>& client,
                                       const std::shared_ptr<TrackerDeviceAddr>& address) {
    static constexpr const char* kFunction = "ringDeviceByAddress";
    if (!address) {
        kLog.e("%s: null address", kFunction);
        return false;
    }
    const std::shared_ptr<Client> owner = trackingClient(*address);
    if (!owner || owner != client) {
        kLog.e("%s: client is not tracking this device", kFunction);
        return false;
    }
    kLog.i("%s: addr=%s", kFunction, obfuscated(*address).c_str());
    const ixaInloc_deviceAddr_t config = IxaInLocBridge::createIxaRingDeviceConfig(*address);
    const ixa_status_t status = ixaInloc_distanceRingDeviceByDeviceAddr(1, &config);
    if (status != IXA_STATUS_SUCCESS) {
        kLog.e("%s: err from ILS:%d", kFunction, status);
        return false;
    }
    return true;
}

void InLocManager::handleRingDeviceCallback(const std::shared_ptr<TrackerDeviceAddr>& address,
                                            TrackerStatus status) {
    static constexpr const char* kFunction = "handleRingDeviceCallback";
    if (!address) {
        kLog.e("%s: null addr", kFunction);
        return;
    }
    kLog.i("%s: status=%d, addr=%s", kFunction, status, obfuscated(*address).c_str());
    if (const std::shared_ptr<Client> client = trackingClient(*address)) {
        client->onRingDeviceResult(address, status);
    } else {
        kLog.w("%s: no client found", kFunction);
    }
}

void InLocManager::handleInLocDistanceEventCallback(
    std::shared_ptr<TrackerInLocDistanceEvent> event) {
    m_callbackExecutor.post(false, [this, event = std::move(event)] {
        m_wakeLock->acquireWakeLock(k_wakeLockBeaconTimeout);
        notifyOnInLocTrackingResult(event);
    });
}

void InLocManager::notifyOnInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent> event) {
    std::shared_ptr<Client> owner;
    {
        MutexLock lock(m_filterMutex);
        if (event->deviceAddr && !event->deviceAddr->addr.empty()) {
            const auto found = m_trackedDevices.find(*event->deviceAddr);
            if (found != m_trackedDevices.end()) {
                owner = found->second;
            }
        }
        if (!owner) {
            const bluetooth::TrackerUuid membership{event->membership};
            for (const auto& [filter, client] : m_membershipOwners) {
                if (BleUtils::matchUuidFilter(filter, membership)) {
                    owner = client;
                    break;
                }
            }
        }
    }
    if (!owner) {
        kLog.e("%s: Can not locate connector for the beacon", "notifyOnInLocTrackingResult");
        return;
    }
    owner->onInLocTrackingResult(std::move(event));
}

}  // namespace inloc
}  // namespace util
}  // namespace tracker
