// The InLoc manager's entry points and its serialised operations: every start, stop, reload and
// duty-cycle step is one Operation, run on the operation executor in queue order.

#include "tracker/inloc/InLocManager.h"

#include <optional>
#include <utility>

#include "tracker/util/Clock.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace inloc {

namespace {

const Log& kLog = *new Log(InLocManager::kName);

std::atomic<InLocManager*> s_instance{nullptr};

const char* typeName(InLocManager::Operation::Type type) {
    switch (type) {
        case InLocManager::Operation::START:
            return "START";
        case InLocManager::Operation::STOP:
            return "STOP";
        case InLocManager::Operation::RELOAD:
            return "RELOAD";
        case InLocManager::Operation::TOGGLE_SCAN:
            return "TOGGLE_SCAN";
    }
    return nullptr;
}

// The value of a ready future; none if its promise was dropped unfulfilled.
std::optional<bool> valueOf(std::future<bool>& future) {
    try {
        return future.get();
    } catch (const std::future_error&) {
        return std::nullopt;
    }
}

}  // namespace

InLocManager::Operation::Operation(Type operationType) : type(operationType) {}

InLocManager::Operation::Operation(Type operationType, std::shared_ptr<Client> forClient,
                                   std::unique_ptr<std::promise<bool>> waiter)
    : type(operationType), client(std::move(forClient)), promise(std::move(waiter)) {}

std::shared_ptr<InLocManager> InLocManager::getInstance() {
    // Never destroyed: platform callbacks, the timer and the executors may reach the manager
    // until the process ends.
    static const std::shared_ptr<InLocManager>& instance = *[] {
        auto* created = new std::shared_ptr<InLocManager>(new InLocManager);
        s_instance.store(created->get(), std::memory_order_release);
        return created;
    }();
    return instance;
}

InLocManager* InLocManager::existingInstance() {
    return s_instance.load(std::memory_order_acquire);
}

InLocManager::InLocManager()
    : m_scanFilter(std::make_shared<bluetooth::BluetoothManagerScanFilter>()),
      m_wakeLock(std::make_shared<power::WakeLockManager>(k_wakeLockBeaconTag, true)) {}

InLocManager::~InLocManager() = default;

bool InLocManager::registerConnector(std::shared_ptr<Client> client) {
    if (!client) {
        kLog.e("%s: invalid client", "registerConnector");
        return false;
    }
    MutexLock lock(m_clientsMutex);
    if (!m_clients.emplace(std::move(client), ClientState{}).second) {
        kLog.e("%s: client already registered", "registerConnector");
        return false;
    }
    updateScanPeriodsLocked();
    return true;
}

bool InLocManager::start(std::shared_ptr<Client> client) {
    return runOperation(Operation::START, std::move(client), "start");
}

bool InLocManager::stop(std::shared_ptr<Client> client) {
    return runOperation(Operation::STOP, std::move(client), "stop");
}

bool InLocManager::reload(std::shared_ptr<Client> client) {
    return runOperation(Operation::RELOAD, std::move(client), "reload");
}

bool InLocManager::runOperation(Operation::Type type, std::shared_ptr<Client> client,
                                const char* name) {
    auto promise = std::make_unique<std::promise<bool>>();
    std::future<bool> future = promise->get_future();
    enqueueOperation(Operation(type, std::move(client), std::move(promise)));
    switch (Clock::current()->waitFor(future, k_operationTimeout)) {
        case std::future_status::ready:
            if (const std::optional<bool> result = valueOf(future)) {
                kLog.d("%s: %s complete: result=%d", name, name, *result);
                return *result;
            }
            kLog.e("%s: %s failed", name, name);
            return false;
        case std::future_status::timeout:
            kLog.e("%s: timed out waiting for %s", name, name);
            return false;
        default:
            kLog.e("%s: %s failed", name, name);
            return false;
    }
}

void InLocManager::restart() {
    setSessionState(false);
    enqueueOperation(Operation(Operation::START));
}

void InLocManager::enqueueOperation(Operation operation) {
    MutexLock lock(m_operationMutex);
    m_operations.push_back(std::move(operation));
    // Refused once the executor is shut down: the operation stays and its waiter times out.
    m_operationExecutor.post(false, [this] { executeOperation(); });
}

bool InLocManager::dequeueOperation(Operation& operation) {
    MutexLock lock(m_operationMutex);
    if (m_operations.empty()) {
        return false;
    }
    operation = std::move(m_operations.front());
    m_operations.pop_front();
    return true;
}

void InLocManager::executeOperation() {
    Operation operation;
    while (dequeueOperation(operation)) {
        const char* name = typeName(operation.type);
        bool result = false;
        if (name == nullptr) {
            kLog.e("%s: unknown operation: %d", "executeOperation", operation.type);
        } else {
            kLog.d("%s: %s", "executeOperation", name);
        }
        switch (operation.type) {
            case Operation::START:
                result = executeStart(operation.client);
                break;
            case Operation::STOP:
                result = executeStop(operation.client);
                break;
            case Operation::RELOAD:
                result = executeReload(operation.client);
                break;
            case Operation::TOGGLE_SCAN:
                result = executeToggleScan();
                break;
        }
        if (operation.promise) {
            operation.promise->set_value(result);
        }
    }
}

bool InLocManager::executeStart(const std::shared_ptr<Client>& client) {
    static constexpr const char* kFunction = "executeStart";
    MutexLock lock(m_mutex);
    // A client-less start comes from restart(): it only reopens the session.
    if (client && !setClientState(client, true)) {
        return false;
    }
    if (!allClientsStarted()) {
        kLog.i("%s: deferring startup", kFunction);
        return true;
    }
    if (!m_sessionStarted) {
        std::future<bool> startup = startSessionLocked();
        // The callbacks that complete the startup need the mutex.
        m_startupAwaited = true;
        lock.unlock();
        std::future_status status = Clock::current()->waitFor(startup, k_operationTimeout);
        lock.lock();
        m_startupAwaited = false;
        // A completion that came while the mutex was being taken back still counts.
        status = startup.wait_for(std::chrono::seconds(0));
        if (status == std::future_status::timeout) {
            kLog.e("%s: timed out waiting for startup to complete", kFunction);
            return false;
        }
        const std::optional<bool> started =
            status == std::future_status::ready ? valueOf(startup) : std::nullopt;
        if (!started) {
            kLog.e("%s: failed waiting for startup", kFunction);
            return false;
        }
        if (!*started) {
            kLog.e("%s: startup failed", kFunction);
            return false;
        }
        kLog.i("%s: session startup complete; start scanning...", kFunction);
        // A new session tracks nothing: what earlier refusals left due no longer applies.
        m_failedStarts.clear();
        m_failedStops.clear();
    } else {
        kLog.i("%s: restart scanning...", kFunction);
    }
    Filters added;
    Filters removed;
    if (!updateScanFilter(added, removed)) {
        kLog.i("%s: empty scan filter; not starting scan", kFunction);
        return true;
    }
    return changeTrackingLocked(true, getCurrentScanFilters());
}

bool InLocManager::executeStop(const std::shared_ptr<Client>& client) {
    MutexLock lock(m_mutex);
    if (!setClientState(client, false)) {
        return false;
    }
    if (m_scanTimer.isActive()) {
        m_scanTimer.stop();
    }
    // Also when the timer has just fired and its step is still queued: a stopped cycle must not
    // leave the next start paused.
    m_scanPaused = false;
    // Address tracking stays: only a reload that drops the filter ends it.
    return stopTrackingByMembershipLocked(getCurrentScanFilters());
}

bool InLocManager::executeReload(const std::shared_ptr<Client>& /*client*/) {
    static constexpr const char* kFunction = "executeReload";
    MutexLock lock(m_mutex);
    if (!m_sessionStarted) {
        kLog.e("%s: session not started; ignoring reload", kFunction);
        return false;
    }
    kLog.i("%s: reloading scan filters...", kFunction);
    Filters added;
    Filters removed;
    updateScanFilter(added, removed);
    // The merged filters are the wanted ones whatever the platform said: what it refused
    // before is still to be done.
    retryFailedChangesLocked(added, removed);
    bool result = true;
    if (!changeTrackingLocked(false, removed)) {
        kLog.e("%s: failed to stop scanning", kFunction);
        result = false;
    }
    if (!changeTrackingLocked(true, added)) {
        kLog.e("%s: failed to start scanning", kFunction);
        result = false;
    }
    return result;
}

bool InLocManager::executeToggleScan() {
    static constexpr const char* kFunction = "executeToggleScan";
    MutexLock lock(m_mutex);
    kLog.i("%s: %s beacon scan...", kFunction, m_scanPaused ? "resuming" : "pausing");
    Seconds active;
    Seconds inactive;
    {
        MutexLock clients(m_clientsMutex);
        active = m_scanActiveInterval;
        inactive = m_scanInactiveInterval;
    }
    if (m_scanPaused) {
        if (!allClientsStarted()) {
            kLog.i("%s: stopped while paused; not resuming", kFunction);
            // The cycle ends here; the start that follows tracks at once.
            m_scanPaused = false;
            return true;
        }
        m_scanPaused = false;
        startTrackingByMembershipLocked(getCurrentScanFilters());
        if (!scheduleToggleLocked(active)) {
            kLog.e("%s: failed to schedule pause", kFunction);
            return false;
        }
        return true;
    }
    m_scanPaused = true;
    stopTrackingByMembershipLocked(getCurrentScanFilters());
    if (!scheduleToggleLocked(inactive)) {
        kLog.e("%s: failed to schedule resume", kFunction);
        return false;
    }
    return true;
}

bool InLocManager::scheduleToggleLocked(Seconds interval) {
    // The timer's single run has queued this step and may still be leaving; a schedule still
    // pending (a step asked for by hand) gives way to this one.
    m_scanTimer.stop();
    return m_scanTimer.start(interval, interval, Timer::FixedRate, 1,
                             [this] { onPeriodicScanTimer(); });
}

bool InLocManager::setClientState(const std::shared_ptr<Client>& client, bool started) {
    MutexLock lock(m_clientsMutex);
    const auto found = m_clients.find(client);
    if (found == m_clients.end()) {
        kLog.e("%s: client not registered", "setClientState");
        return false;
    }
    if (found->second.started == started) {
        kLog.e("%s: client already %s", "setClientState", started ? "started" : "stopped");
        return false;
    }
    found->second.started = started;
    return true;
}

bool InLocManager::allClientsStarted() {
    MutexLock lock(m_clientsMutex);
    for (const auto& entry : m_clients) {
        if (!entry.second.started) {
            return false;
        }
    }
    return true;
}

void InLocManager::setStartupState(bool result) {
    MutexLock lock(m_mutex);
    setStartupStateLocked(result);
}

void InLocManager::setStartupStateLocked(bool result) {
    if (m_sessionStarted) {
        kLog.d("%s: startup already complete", "setStartupState");
        return;
    }
    kLog.i("%s: completing startup; result=%d", "setStartupState", result);
    m_sessionStarted = result;
    // Fulfilled once: a later report finds no promise.
    if (std::unique_ptr<std::promise<bool>> promise = std::move(m_startupPromise)) {
        promise->set_value(result);
    }
    // The start that opened the session gave up waiting: nothing would enable tracking.
    if (result && !m_startupAwaited) {
        enqueueOperation(Operation(Operation::START));
    }
}

void InLocManager::setSessionState(bool started) {
    m_sessionStarted = started;
}

std::vector<std::shared_ptr<InLocManager::Client>> InLocManager::clientsInOrder() {
    MutexLock lock(m_clientsMutex);
    std::vector<std::shared_ptr<Client>> clients;
    clients.reserve(m_clients.size());
    for (const auto& entry : m_clients) {
        clients.push_back(entry.first);
    }
    return clients;
}

}  // namespace inloc
}  // namespace util
}  // namespace tracker
