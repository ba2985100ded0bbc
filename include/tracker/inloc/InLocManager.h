#pragma once

#include <atomic>
#include <chrono>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "tracker/bluetooth/BluetoothManagerScanFilter.h"
#include "tracker/bluetooth/TrackerBleTypes.h"
#include "tracker/bluetooth/TrackerScanFilter.h"
#include "tracker/inloc/InLocManagerClientInterface.h"
#include "tracker/inloc/TrackerInLocDistanceEvent.h"
#include "tracker/power/WakeLockManager.h"
#include "tracker/util/Executor.h"
#include "tracker/util/Mutex.h"
#include "tracker/util/Timer.h"

namespace tracker {
namespace util {
namespace inloc {

// The process-wide InLoc manager: opens the platform's InLoc session once every registered
// client has started, enables and disables distance tracking of the clients' tags by
// membership and by device address, runs the pause/resume duty cycle, rings tracked devices
// and routes each distance event to the client that tracks the device. Logs under
// "TrackerD-InLocManager".
//
// Threads and state:
// - start, stop and reload queue an Operation and wait for it at most k_operationTimeout (10 s
//   of clock time). Every operation runs on m_operationExecutor, one at a time, in queue order,
//   with m_mutex held; a start releases it only while it waits for the session to open.
// - m_operationMutex guards only the operation list.
// - m_mutex guards the session and pause state and the startup promise; m_sessionStarted is
//   also read without it (atomic), so that restart() never waits on a platform thread.
// - m_filterMutex guards the merged filter and the owner tables; platform callbacks take it
//   only for a lookup. m_clientsMutex guards the clients and the scan intervals.
//   Lock order: m_mutex, then m_filterMutex or m_clientsMutex; clients are never called with
//   any of them held.
// - Platform callbacks hand initialisation, registration and distance events to
//   m_callbackExecutor; ring results are routed on the platform thread.
//
// Every sleep and wait goes through util::Clock: the 30 attempts with 2 s waits, the 10 s
// operation limit and the duty cycle run on a manual clock in tests.
//
// Choices made where the behaviour is not fixed elsewhere:
// - getInstance() is safe to call from several threads at once.
// - Clients are asked for their filters before the merged filter is rebuilt, without the
//   filter lock, so a client's getScanFilter() may call the manager.
// - Nothing starts the duty cycle but onPeriodicScanTimer(): a caller that wants scanning
//   paused and resumed calls it once after the start; each step schedules the next.
// - The tracked-devices map and the membership owners only grow (a reload appends again and
//   the earliest owner keeps precedence); no second owner list is kept, as nothing would
//   read it.
// - A reload compares the merged lists as sets: a filter that another client still holds is
//   not stopped when one client drops it.
// - A session that completes after its start gave up waiting (10 s) queues a client-less start,
//   so that tracking is enabled all the same.
// - A stop, and a resume step that finds a client stopped, end the duty cycle and clear the
//   paused state, so the next start tracks at once. Negative scan periods are refused.
class InLocManager : public std::enable_shared_from_this<InLocManager> {
  public:
    using Client = InLocManagerClientInterface;
    using Seconds = std::chrono::duration<int64_t>;

    struct ClientState {
        bool started = false;
        Seconds activeInterval{0};
        Seconds inactiveInterval{3600};
    };

    struct Operation {
        enum Type : int { START = 1, STOP = 2, RELOAD = 3, TOGGLE_SCAN = 4 };

        Operation() = default;
        explicit Operation(Type type);
        Operation(Type type, std::shared_ptr<Client> client,
                  std::unique_ptr<std::promise<bool>> promise);

        Type type = static_cast<Type>(0);
        std::shared_ptr<Client> client;
        std::unique_ptr<std::promise<bool>> promise;  // null when nobody waits
    };

    static constexpr const char* kName = "InLocManager";
    static constexpr std::chrono::seconds k_operationTimeout{10};
    static constexpr int k_openSessionRetries = 30;
    static constexpr std::chrono::seconds k_openSessionRetryInterval{2};
    static constexpr std::chrono::milliseconds k_wakeLockBeaconTimeout{500};
    static constexpr Seconds k_defaultScanActiveInterval{0};
    static constexpr Seconds k_defaultScanInactiveInterval{3600};
    static constexpr const char* k_wakeLockBeaconTag = "trackerInLocLock";

    // The single instance, created on the first call and never destroyed.
    static std::shared_ptr<InLocManager> getInstance();
    // The instance if it exists, for the platform callbacks (which do nothing without one).
    static InLocManager* existingInstance();

    ~InLocManager();
    InLocManager(const InLocManager&) = delete;
    InLocManager& operator=(const InLocManager&) = delete;

    // Registration is permanent. False for a client already registered (or null).
    bool registerConnector(std::shared_ptr<Client> client);
    // Each waits for its operation at most k_operationTimeout; false on failure or time-out.
    bool start(std::shared_ptr<Client> client);
    bool stop(std::shared_ptr<Client> client);
    bool reload(std::shared_ptr<Client> client);
    // Only for a registered client that is not started.
    bool setScanPeriod(std::shared_ptr<Client> client, Seconds active, Seconds inactive);
    // Only for a device that this client tracks by address; the result comes through the
    // client's onRingDeviceResult.
    bool ringDeviceByAddress(const std::shared_ptr<Client>& client,
                             const std::shared_ptr<bluetooth::TrackerDeviceAddr>& address);
    // The adapter became ready again: the session is reopened once every client is started.
    void restart();
    // One step of the pause/resume duty cycle (see the class comment).
    void onPeriodicScanTimer();

    // Entered from the platform callbacks; they return without waiting.
    void handleInitializedCallback(bluetooth::TrackerStatus status);
    void handleClientRegisterCallback(bluetooth::TrackerStatus status);
    void handleInLocDistanceEventCallback(std::shared_ptr<TrackerInLocDistanceEvent> event);
    void handleRingDeviceCallback(const std::shared_ptr<bluetooth::TrackerDeviceAddr>& address,
                                  bluetooth::TrackerStatus status);

  private:
    using Filters = std::vector<bluetooth::TrackerScanFilter>;
    struct AddressOrder {
        bool operator()(const bluetooth::TrackerDeviceAddr& a,
                        const bluetooth::TrackerDeviceAddr& b) const {
            return a.addr < b.addr;
        }
    };

    InLocManager();

    // --- operations ---------------------------------------------------------------------------
    bool runOperation(Operation::Type type, std::shared_ptr<Client> client, const char* name);
    void enqueueOperation(Operation operation);
    bool dequeueOperation(Operation& operation);
    void executeOperation();
    bool executeStart(const std::shared_ptr<Client>& client);
    bool executeStop(const std::shared_ptr<Client>& client);
    bool executeReload(const std::shared_ptr<Client>& client);
    bool executeToggleScan();
    bool setClientState(const std::shared_ptr<Client>& client, bool started);
    bool allClientsStarted();
    void setStartupState(bool result);
    void setStartupStateLocked(bool result) TRACKER_REQUIRES(m_mutex);
    void setSessionState(bool started);
    // Runs onPeriodicScanTimer once after `interval`.
    bool scheduleToggleLocked(Seconds interval) TRACKER_REQUIRES(m_mutex);

    // --- the session, filters and tracking (InLocSession.cpp) ---------------------------------
    std::future<bool> startSessionLocked() TRACKER_REQUIRES(m_mutex);
    bool registerClient();
    bool updateScanFilter(Filters& added, Filters& removed);
    Filters getCurrentScanFilters() const;
    static Filters filterScanFiltersForType(const Filters& filters,
                                            bluetooth::TrackerScanFilterType type);
    // Starts (or stops) tracking the filters by membership and by address.
    bool changeTrackingLocked(bool start, const Filters& filters) TRACKER_REQUIRES(m_mutex);
    // The service's answers to a start or stop of the filters' tracking: a refusal is
    // remembered, and the next reload tries again; a success settles what was left to do.
    void settleLocked(bool start, const Filters& accepted, const Filters& refused)
        TRACKER_REQUIRES(m_mutex);
    // settleLocked for each membership among `filters`, which one call carried; returns
    // `succeeded`.
    bool settleMembershipsLocked(bool start, const Filters& filters, bool succeeded)
        TRACKER_REQUIRES(m_mutex);
    // Adds to a reload's difference the changes refused before that still matter.
    void retryFailedChangesLocked(Filters& added, Filters& removed) TRACKER_REQUIRES(m_mutex);
    bool startTrackingByMembershipLocked(const Filters& filters) TRACKER_REQUIRES(m_mutex);
    bool stopTrackingByMembershipLocked(const Filters& filters) TRACKER_REQUIRES(m_mutex);
    bool startTrackingByAddressLocked(const Filters& filters) TRACKER_REQUIRES(m_mutex);
    bool stopTrackingByAddressLocked(const Filters& filters) TRACKER_REQUIRES(m_mutex);
    void updateScanPeriodsLocked() TRACKER_REQUIRES(m_clientsMutex);
    void notifyOnInitializationSuccess();
    void notifyOnInitializationFailure();
    void notifyOnInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent> event);
    // The client tracking this address, if any.
    std::shared_ptr<Client> trackingClient(const bluetooth::TrackerDeviceAddr& address) const;
    std::vector<std::shared_ptr<Client>> clientsInOrder();

    Executor m_operationExecutor{std::chrono::milliseconds(1000)};
    Mutex m_operationMutex;
    std::list<Operation> m_operations TRACKER_GUARDED_BY(m_operationMutex);
    Mutex m_mutex;
    std::atomic<bool> m_sessionStarted{false};
    bool m_scanPaused TRACKER_GUARDED_BY(m_mutex) = false;
    // Filters whose tracking the service refused to start or to stop (see settleLocked).
    Filters m_failedStarts TRACKER_GUARDED_BY(m_mutex);
    Filters m_failedStops TRACKER_GUARDED_BY(m_mutex);
    Seconds m_scanActiveInterval TRACKER_GUARDED_BY(m_clientsMutex) = k_defaultScanActiveInterval;
    Seconds m_scanInactiveInterval TRACKER_GUARDED_BY(m_clientsMutex) =
        k_defaultScanInactiveInterval;
    Timer m_scanTimer;
    std::unique_ptr<std::promise<bool>> m_startupPromise TRACKER_GUARDED_BY(m_mutex);
    // A start waits for the startup promise.
    bool m_startupAwaited TRACKER_GUARDED_BY(m_mutex) = false;
    Executor m_callbackExecutor{std::chrono::milliseconds(1000)};
    mutable Mutex m_filterMutex;
    std::shared_ptr<bluetooth::BluetoothManagerScanFilter> m_scanFilter
        TRACKER_GUARDED_BY(m_filterMutex);
    std::vector<std::pair<bluetooth::TrackerScanFilterUuid, std::shared_ptr<Client>>>
        m_membershipOwners TRACKER_GUARDED_BY(m_filterMutex);
    std::map<bluetooth::TrackerDeviceAddr, std::shared_ptr<Client>, AddressOrder> m_trackedDevices
        TRACKER_GUARDED_BY(m_filterMutex);
    std::shared_ptr<power::WakeLockManager> m_wakeLock;
    Mutex m_clientsMutex;
    std::map<std::shared_ptr<Client>, ClientState> m_clients TRACKER_GUARDED_BY(m_clientsMutex);
};

}  // namespace inloc
}  // namespace util
}  // namespace tracker
