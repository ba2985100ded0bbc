#include "bluetooth/World.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <future>

#include <android/bluetooth/le/ScanRecord.h>

#include "bluetooth/WorldState.h"

namespace tracker {
namespace sim {

namespace {

using android::bluetooth::le::ScanFilter;
using android::bluetooth::le::ScanRecord;
using android::bluetooth::le::ScanResult;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::RemoteDeviceAdapter;

constexpr int kBonded = 12;

bool matchesMasked(const ParcelUuid& value, const ParcelUuid& wanted, const ParcelUuid& mask) {
    return (value.getMostSignificantBits() & mask.getMostSignificantBits()) ==
               (wanted.getMostSignificantBits() & mask.getMostSignificantBits()) &&
           (value.getLeastSignificantBits() & mask.getLeastSignificantBits()) ==
               (wanted.getLeastSignificantBits() & mask.getLeastSignificantBits());
}

// Every criterion the filter sets must hold.
bool passes(const ScanFilter& filter, const ScanRecord& record) {
    if (filter.getServiceUuid()) {
        const ParcelUuid mask = filter.getServiceMask().value_or(ParcelUuid(-1, -1));
        const auto& uuids = record.getServiceUuids();
        if (std::none_of(uuids.begin(), uuids.end(), [&](const ParcelUuid& uuid) {
                return matchesMasked(uuid, *filter.getServiceUuid(), mask);
            })) {
            return false;
        }
    }
    if (filter.getManufacturerId()) {
        const auto& data = record.getManufacturerSpecificData();
        const auto found = data.find(*filter.getManufacturerId());
        if (found == data.end()) {
            return false;
        }
        if (filter.getManufacturerData()) {
            const std::vector<uint8_t>& prefix = filter.getManufacturerData()->getBytes();
            if (found->second.size() < prefix.size() ||
                !std::equal(prefix.begin(), prefix.end(), found->second.begin())) {
                return false;
            }
        }
    }
    return true;
}

bool passesAny(const std::vector<ScanFilter>& filters, const ScanRecord& record) {
    return filters.empty() ||
           std::any_of(filters.begin(), filters.end(),
                       [&](const ScanFilter& filter) { return passes(filter, record); });
}

}  // namespace

std::string normalisedAddress(const std::string& address) {
    std::string upper = address;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return upper;
}

World& World::instance() {
    static World* world = new World;
    return *world;
}

World::World() : m_state(std::make_unique<State>()) {}

void World::reset() {
    std::unique_ptr<State> old;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const uint64_t generation = m_state->generation + 1;
        old = std::move(m_state);
        m_state = std::make_unique<State>();
        m_state->generation = generation;
    }
    // The old state and the dropped events hold the library's callbacks: released without the
    // lock, whatever their destructors do.
    m_loop.clear();
}

// --- the world ------------------------------------------------------------------------------

void World::addTag(TagSpec tagSpec) {
    std::lock_guard<std::mutex> lock(m_mutex);
    tagSpec.address = normalisedAddress(tagSpec.address);
    auto tag = std::make_shared<Tag>(Tag{std::move(tagSpec), util::Clock::current()->now(), {}});
    m_state->tags[tag->tagSpec.address] = tag;
    if (m_state->scan) {
        scheduleAdvertisingLocked(tag, tag->tagSpec.interval);
    }
}

bool World::removeTag(const std::string& address) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->tags.erase(normalisedAddress(address)) > 0;
}

bool World::moveTag(const std::string& address, double metres) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::shared_ptr<Tag> tag = findTagLocked(address);
    if (!tag) {
        return false;
    }
    tag->fixedDistance = metres;
    if (!inRangeLocked(*tag)) {
        for (auto& entry : m_state->connections) {
            if (entry.second.address == tag->tagSpec.address && entry.second.connected) {
                loseLinkLocked(entry.second);
            }
        }
    }
    return true;
}

bool World::advertiseOnce(const std::string& address) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::shared_ptr<Tag> tag = findTagLocked(address);
    if (!tag) {
        return false;
    }
    const uint64_t generation = m_state->generation;
    m_loop.postAfter(util::Clock::Duration::zero(),
                     [this, tag, generation] { deliverAdvertisement(tag, generation, false); });
    return true;
}

bool World::setPairState(const std::string& address, int state) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::shared_ptr<Tag> tag = findTagLocked(address);
    if (!tag) {
        return false;
    }
    if (!tag->tagSpec.pairing) {
        tag->tagSpec.pairing = RemoteDeviceAdapter{};
    }
    tag->tagSpec.pairing->mAddress = tag->tagSpec.address;
    tag->tagSpec.pairing->mPairedState = state;
    const RemoteDeviceAdapter device = *tag->tagSpec.pairing;
    for (const std::shared_ptr<Connectivity>& callback : m_state->connectivity) {
        m_loop.postAfter(util::Clock::Duration::zero(), [callback, device, state] {
            callback->onPairStateChanged(device, state);
        });
    }
    return true;
}

void World::setRange(double metres) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->range = metres;
}

int World::rssiAt(int txPower, double metres) {
    return static_cast<int>(std::lround(txPower - 20.0 * std::log10(std::max(metres, 0.1))));
}

std::shared_ptr<World::Tag> World::findTagLocked(const std::string& address) const {
    const auto found = m_state->tags.find(normalisedAddress(address));
    return found != m_state->tags.end() ? found->second : nullptr;
}

double World::distanceLocked(const Tag& tag) const {
    if (tag.fixedDistance) {
        return *tag.fixedDistance;
    }
    const auto& points = tag.tagSpec.distance;
    if (points.empty()) {
        return 1.0;
    }
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
        util::Clock::current()->now() - tag.added);
    if (elapsed <= points.front().first) {
        return points.front().second;
    }
    for (std::size_t i = 1; i < points.size(); ++i) {
        if (elapsed <= points[i].first) {
            const double span =
                static_cast<double>((points[i].first - points[i - 1].first).count());
            const double part = static_cast<double>((elapsed - points[i - 1].first).count());
            const double fraction = span > 0 ? part / span : 1.0;
            return points[i - 1].second + fraction * (points[i].second - points[i - 1].second);
        }
    }
    return points.back().second;
}

bool World::inRangeLocked(const Tag& tag) const {
    return distanceLocked(tag) <= m_state->range;
}

void World::scheduleAdvertisingLocked(const std::shared_ptr<Tag>& tag,
                                      util::Clock::Duration after) {
    const uint64_t generation = m_state->generation;
    m_loop.postAfter(after,
                     [this, tag, generation] { deliverAdvertisement(tag, generation, true); });
}

void World::deliverAdvertisement(const std::shared_ptr<Tag>& tag, uint64_t generation,
                                 bool repeat) {
    ResultCallback deliver;
    BatchCallback deliverBatch;
    std::optional<ScanResult> result;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const bool current = generation == m_state->generation && m_state->scan &&
                             findTagLocked(tag->tagSpec.address) == tag;
        if (!current) {
            return;
        }
        if (repeat) {
            scheduleAdvertisingLocked(tag, tag->tagSpec.interval);
        }
        if (!inRangeLocked(*tag)) {
            return;
        }
        ScanRecord record = ScanRecord::parseFromBytes(tag->tagSpec.advertisement);
        if (!passesAny(m_state->scan->filters, record)) {
            return;
        }
        m_state->noise = m_state->noise * 1103515245u + 12345u;
        const int noise = static_cast<int>((m_state->noise >> 16) % 5) - 2;
        result.emplace(android::bluetooth::BluetoothDevice(tag->tagSpec.address), std::move(record),
                       rssiAt(tag->tagSpec.txPower, distanceLocked(*tag)) + noise);
        if (m_state->scan->settings.getReportDelayMillis() > 0) {
            deliverBatch = m_state->scan->batch;
        } else {
            deliver = m_state->scan->result;
        }
    }
    if (deliver) {
        deliver(1, *result);
    } else if (deliverBatch) {
        deliverBatch({*result});
    }
}

// --- faults ---------------------------------------------------------------------------------

void World::failNextInitializations(int count) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.failInitializations = count;
}

void World::failNextScanStarts(int count) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.failScanStarts = count;
}

void World::reportScanFailure(int errorCode) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state->scan && m_state->scan->failure) {
        const std::function<void(int)> failure = m_state->scan->failure;
        m_loop.postAfter(util::Clock::Duration::zero(),
                         [failure, errorCode] { failure(errorCode); });
    }
}

void World::killProxy() {
    std::optional<Scan> scan;
    std::map<int, Connection> connections;
    std::vector<std::shared_ptr<Connectivity>> connectivity;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_state->ready = false;
        ++m_state->generation;
        scan.swap(m_state->scan);
        connections.swap(m_state->connections);
        connectivity.swap(m_state->connectivity);
        for (const std::weak_ptr<DeathRecipient>& weak : m_state->deathRecipients) {
            m_loop.postAfter(util::Clock::Duration::zero(), [weak] {
                if (const std::shared_ptr<DeathRecipient> recipient = weak.lock()) {
                    recipient->binderDied();
                }
            });
        }
        m_state->deathRecipients.clear();
    }
    // What held the library's callbacks goes here, without the lock.
}

void World::setNextStatus(GattAnswer answer, int status) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.status[answer] = status;
}

void World::setNextConnectionId(int connId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.nextConnectionId = connId;
}

void World::dropNext(GattAnswer answer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.delivery[answer] = std::nullopt;
}

void World::delayNext(GattAnswer answer, util::Clock::Duration delay) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.delivery[answer] = delay;
}

void World::failPairedDeviceQuery(bool fail) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.failPairedDeviceQuery = fail;
}

bool World::barrier(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    // Events may post further events for now (an answer that turns into a link loss): go round
    // until nothing due is left.
    do {
        auto reached = std::make_shared<std::promise<void>>();
        std::future<void> done = reached->get_future();
        m_loop.postAfter(util::Clock::Duration::zero(), [reached] { reached->set_value(); });
        if (done.wait_until(deadline) != std::future_status::ready) {
            return false;
        }
    } while (m_loop.hasDue(util::Clock::current()->now()));
    return true;
}

// --- what the library asked for -------------------------------------------------------------

bool World::proxyReady() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->ready;
}

int World::initializeCalls() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->initializeCalls;
}

bool World::scanning() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->scan.has_value();
}

std::vector<ScanFilter> World::scanFilters() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->scan ? m_state->scan->filters : std::vector<ScanFilter>();
}

std::optional<android::bluetooth::le::ScanSettings> World::scanSettings() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->scan) {
        return std::nullopt;
    }
    return m_state->scan->settings;
}

std::vector<int> World::openConnections() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<int> ids;
    for (const auto& entry : m_state->connections) {
        ids.push_back(entry.first);
    }
    return ids;
}

// --- the platform side: proxy, scanning and pairing -----------------------------------------

bool World::initialize(int /*waitLimit*/) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_state->initializeCalls;
    if (m_state->faults.failInitializations > 0) {
        --m_state->faults.failInitializations;
        return false;
    }
    m_state->ready = true;
    return true;
}

bool World::registerForProxyDeath(std::weak_ptr<DeathRecipient> recipient) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->ready) {
        return false;
    }
    m_state->deathRecipients.push_back(std::move(recipient));
    return true;
}

bool World::startScan(const std::vector<ScanFilter>* filters,
                      const android::bluetooth::le::ScanSettings& settings, BatchCallback batch,
                      std::function<void(int)> failure, ResultCallback result, int instance) {
    std::lock_guard<std::mutex> lock(m_mutex);
    // A stack refuses to start a scan that is already running.
    if (!m_state->ready || m_state->scan) {
        return false;
    }
    if (m_state->faults.failScanStarts > 0) {
        --m_state->faults.failScanStarts;
        return false;
    }
    m_state->scan =
        Scan{instance,           filters != nullptr ? *filters : std::vector<ScanFilter>(),
             settings,           std::move(batch),
             std::move(failure), std::move(result)};
    ++m_state->generation;
    // Tags do not advertise in step: each starts at its own point of its interval.
    int phase = 0;
    for (const auto& entry : m_state->tags) {
        const auto interval = entry.second->tagSpec.interval;
        scheduleAdvertisingLocked(entry.second, interval * (1 + phase % 4) / 4);
        ++phase;
    }
    return true;
}

bool World::stopScan(int instance) {
    // Declared before the lock, so the library's callbacks it takes die after the lock is gone.
    std::optional<Scan> stopped;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->ready) {
        return false;
    }
    if (m_state->scan && m_state->scan->instance == instance) {
        stopped.swap(m_state->scan);
        ++m_state->generation;
    }
    return true;
}

bool World::registerConnectivity(std::shared_ptr<Connectivity> callback) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->ready || !callback) {
        return false;
    }
    m_state->connectivity.push_back(std::move(callback));
    return true;
}

bool World::deregisterConnectivity(const std::shared_ptr<Connectivity>& callback) {
    std::shared_ptr<Connectivity> removed;  // dies after the lock, as in stopScan()
    std::lock_guard<std::mutex> lock(m_mutex);
    auto& callbacks = m_state->connectivity;
    const auto found = std::find(callbacks.begin(), callbacks.end(), callback);
    if (!m_state->ready || found == callbacks.end()) {
        return false;
    }
    removed = std::move(*found);
    callbacks.erase(found);
    return true;
}

bool World::pairedDevices(std::vector<RemoteDeviceAdapter>& out) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->ready || m_state->faults.failPairedDeviceQuery) {
        return false;
    }
    for (const auto& entry : m_state->tags) {
        const auto& pairing = entry.second->tagSpec.pairing;
        if (pairing && pairing->mPairedState == kBonded) {
            RemoteDeviceAdapter device = *pairing;
            device.mAddress = entry.first;
            out.push_back(std::move(device));
        }
    }
    return true;
}

}  // namespace sim
}  // namespace tracker
