#include "bluetooth/World.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include <android/bluetooth/le/ScanRecord.h>

#include "bluetooth/WorldState.h"
#include "inloc/InLocService.h"

namespace tracker {
namespace sim {

namespace {

using android::bluetooth::le::ScanFilter;
using android::bluetooth::le::ScanRecord;
using android::bluetooth::le::ScanResult;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::RemoteDeviceAdapter;

constexpr int kBonded = 12;
// What a scanner reports when it cannot register a scan.
constexpr int kScanFailedRegistration = 2;

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
    InLocService::instance().reset();
    std::unique_ptr<State> old;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const uint64_t generation = m_state->generation + 1;
        old = std::move(m_state);
        m_state = std::make_unique<State>();
        m_state->generation = generation;
    }
    // The old state and the dropped deliveries hold the library's callbacks: released without
    // the lock, whatever their destructors do.
    m_deliveries.clear();
}

bool World::admitLocked(ProxyCall call) {
    ++m_state->calls[call];
    if (!m_state->ready && call != ProxyCall::Initialize) {
        return false;
    }
    const auto failing = m_state->faults.failing.find(call);
    if (failing == m_state->faults.failing.end()) {
        return true;
    }
    if (failing->second != kEveryCall && --failing->second == 0) {
        m_state->faults.failing.erase(failing);
    }
    return false;
}

// --- the world ------------------------------------------------------------------------------

void World::addTag(TagSpec tagSpec) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        tagSpec.address = normalisedAddress(tagSpec.address);
        auto tag =
            std::make_shared<Tag>(Tag{std::move(tagSpec), util::Clock::current()->now(), {}});
        m_state->tags[tag->tagSpec.address] = tag;
        if (m_state->scan) {
            scheduleAdvertisingLocked(tag, tag->tagSpec.interval);
        }
    }
    // The InLoc service reports only while there are tags: it may have to start again.
    InLocService::instance().tagsChanged();
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
            if (entry.second.address == tag->tagSpec.address &&
                entry.second.link == Connection::Link::Connected) {
                linkDownLocked(entry.first, 8);
            }
        }
    }
    return true;
}

bool World::advertiseOnce(const std::string& address) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::shared_ptr<Tag> tag = findTagLocked(address);
    if (!tag || !m_state->scan) {
        return false;
    }
    const uint64_t generation = m_state->generation;
    m_deliveries.postAfter(
        m_state->scan->callbacks.get(), util::Clock::Duration::zero(),
        [this, tag, generation] { deliverAdvertisement(tag, generation, false); });
    return true;
}

bool World::injectAdvertisement(const std::string& address, std::vector<uint8_t> advertisement,
                                int rssi) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->scan) {
        return false;
    }
    return deliverToScanLocked(
        ScanResult(android::bluetooth::BluetoothDevice(normalisedAddress(address)),
                   ScanRecord::parseFromBytes(advertisement), rssi));
}

void World::seedNoise(uint32_t seed) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->noise = seed;
}

void World::setRadioTap(std::function<void(const ScanResult&)> tap) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->radioTap =
        tap ? std::make_shared<std::function<void(const ScanResult&)>>(std::move(tap)) : nullptr;
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
        m_deliveries.postAfter(
            callback.get(), util::Clock::Duration::zero(),
            [callback, device, state] { callback->onPairStateChanged(device, state); });
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

std::vector<TagSighting> World::tagsInRange() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<TagSighting> sightings;
    for (const auto& entry : m_state->tags) {
        const TagSpec& tag = entry.second->tagSpec;
        const double metres = distanceLocked(*entry.second);
        if (metres <= m_state->range) {
            sightings.push_back(
                {tag.address, tag.advertisement, tag.membership, tag.rangeBuckets, metres});
        }
    }
    return sightings;
}

bool World::hasTags() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_state->tags.empty();
}

bool World::inRangeLocked(const Tag& tag) const {
    return distanceLocked(tag) <= m_state->range;
}

// --- scanning -------------------------------------------------------------------------------

void World::scheduleAdvertisingLocked(const std::shared_ptr<Tag>& tag,
                                      util::Clock::Duration after) {
    const uint64_t generation = m_state->generation;
    m_deliveries.postAfter(m_state->scan->callbacks.get(), after, [this, tag, generation] {
        deliverAdvertisement(tag, generation, true);
    });
}

void World::deliverAdvertisement(const std::shared_ptr<Tag>& tag, uint64_t generation,
                                 bool repeat) {
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
    m_state->noise = m_state->noise * 1103515245u + 12345u;
    const int noise = static_cast<int>((m_state->noise >> 16) % 5) - 2;
    deliverToScanLocked(ScanResult(android::bluetooth::BluetoothDevice(tag->tagSpec.address),
                                   ScanRecord::parseFromBytes(tag->tagSpec.advertisement),
                                   rssiAt(tag->tagSpec.txPower, distanceLocked(*tag)) + noise));
}

bool World::deliverToScanLocked(ScanResult result) {
    const Scan& scan = *m_state->scan;
    if (!passesAny(scan.filters, result.getScanRecord())) {
        return false;
    }
    const std::shared_ptr<ScanCallbacks> callbacks = scan.callbacks;
    const bool batched = scan.settings.getReportDelayMillis() > 0;
    const uint64_t generation = m_state->generation;
    m_deliveries.postAfter(callbacks.get(), util::Clock::Duration::zero(),
                           [this, callbacks, batched, generation, result = std::move(result)] {
                               std::shared_ptr<std::function<void(const ScanResult&)>> tap;
                               {
                                   std::lock_guard<std::mutex> lock(m_mutex);
                                   // Nothing arrives once the scan has stopped or failed.
                                   if (generation != m_state->generation) {
                                       return;
                                   }
                                   tap = m_state->radioTap;
                               }
                               if (tap) {
                                   (*tap)(result);
                               }
                               if (batched && callbacks->batch) {
                                   callbacks->batch({result});
                               } else if (!batched && callbacks->result) {
                                   callbacks->result(1, result);
                               }
                           });
    return true;
}

void World::failScanLocked(int errorCode) {
    // Moved, not copied, into the delivery: a copy left here could be the last one, and the
    // library's callbacks would die under the mutex.
    std::shared_ptr<ScanCallbacks> callbacks = std::move(m_state->scan->callbacks);
    m_state->scan.reset();
    ++m_state->generation;
    const DeliveryPool::Key key = callbacks.get();
    m_deliveries.postAfter(key, util::Clock::Duration::zero(),
                           [callbacks = std::move(callbacks), errorCode] {
                               if (callbacks->failure) {
                                   callbacks->failure(errorCode);
                               }
                           });
}

// --- faults ---------------------------------------------------------------------------------

void World::failNext(ProxyCall call, int count) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (count == 0) {
        m_state->faults.failing.erase(call);
    } else {
        m_state->faults.failing[call] = count;
    }
}

void World::failNextScanStarts(int count, ScanStartFailure how) {
    failNext(ProxyCall::StartScan, count);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.scanStartFailure = how;
}

void World::reportScanFailure(int errorCode) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state->scan) {
        failScanLocked(errorCode);
    }
}

void World::killProxy() {
    std::optional<Scan> scan;
    std::map<int, Connection> connections;
    std::vector<std::shared_ptr<Connectivity>> connectivity;
    std::vector<std::shared_ptr<DeathRecipient>> told;  // let go of after the lock
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_state->ready = false;
        ++m_state->deaths;
        ++m_state->generation;
        scan.swap(m_state->scan);
        connections.swap(m_state->connections);
        connectivity.swap(m_state->connectivity);
        for (const std::weak_ptr<DeathRecipient>& weak : m_state->deathRecipients) {
            if (std::shared_ptr<DeathRecipient> recipient = weak.lock()) {
                m_deliveries.postAfter(recipient.get(), util::Clock::Duration::zero(), [weak] {
                    if (const std::shared_ptr<DeathRecipient> alive = weak.lock()) {
                        alive->binderDied();
                    }
                });
                told.push_back(std::move(recipient));
            }
        }
        m_state->deathRecipients.clear();
    }
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

void World::duplicateNext(GattAnswer answer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.duplicate.insert(answer);
}

void World::stripNext(GattAnswer answer, Missing what) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->faults.missing[answer] = what;
}

bool World::barrier(std::chrono::milliseconds limit) {
    return m_deliveries.barrier(limit);
}

// --- what the library asked for -------------------------------------------------------------

bool World::proxyReady() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->ready;
}

int World::proxyDeaths() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->deaths;
}

int World::calls(ProxyCall call) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_state->calls.find(call);
    return found != m_state->calls.end() ? found->second : 0;
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

std::vector<ScanRequest> World::scanRequests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->scanRequests;
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
    if (!admitLocked(ProxyCall::Initialize)) {
        return false;
    }
    m_state->ready = true;
    return true;
}

bool World::registerForProxyDeath(std::weak_ptr<DeathRecipient> recipient) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!admitLocked(ProxyCall::RegisterForProxyDeath)) {
        return false;
    }
    m_state->deathRecipients.push_back(std::move(recipient));
    return true;
}

bool World::startScan(const std::vector<ScanFilter>* filters,
                      const android::bluetooth::le::ScanSettings& settings, BatchCallback batch,
                      std::function<void(int)> failure, ResultCallback result, int instance) {
    // Declared before the lock: a refused start's callbacks die after it.
    auto callbacks = std::make_shared<ScanCallbacks>(
        ScanCallbacks{std::move(batch), std::move(failure), std::move(result)});
    std::lock_guard<std::mutex> lock(m_mutex);
    ScanRequest request{true, instance, filters != nullptr ? *filters : std::vector<ScanFilter>(),
                        settings, false};
    const bool admitted = admitLocked(ProxyCall::StartScan);
    // A start made to fail is refused, or accepted and then reported by the failure callback.
    const bool failsLater = !admitted && m_state->ready &&
                            m_state->faults.scanStartFailure == ScanStartFailure::Callback;
    // A stack refuses to start a scan that is already running.
    request.accepted = (admitted || failsLater) && !m_state->scan;
    m_state->scanRequests.push_back(request);
    if (!request.accepted) {
        return false;
    }
    if (failsLater) {
        m_deliveries.postAfter(callbacks.get(), util::Clock::Duration::zero(), [callbacks] {
            if (callbacks->failure) {
                callbacks->failure(kScanFailedRegistration);
            }
        });
        return true;
    }
    m_state->scan = Scan{instance, std::move(request.filters), settings, callbacks};
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
    const bool accepted = admitLocked(ProxyCall::StopScan);
    m_state->scanRequests.push_back(ScanRequest{false, instance, {}, std::nullopt, accepted});
    if (!accepted) {
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
    if (!admitLocked(ProxyCall::RegisterConnectivity) || !callback) {
        return false;
    }
    m_state->connectivity.push_back(std::move(callback));
    return true;
}

bool World::deregisterConnectivity(const std::shared_ptr<Connectivity>& callback) {
    std::shared_ptr<Connectivity> removed;  // dies after the lock, as in stopScan()
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!admitLocked(ProxyCall::DeregisterConnectivity)) {
        return false;
    }
    auto& callbacks = m_state->connectivity;
    const auto found = std::find(callbacks.begin(), callbacks.end(), callback);
    if (found == callbacks.end()) {
        return false;
    }
    removed = std::move(*found);
    callbacks.erase(found);
    return true;
}

bool World::pairedDevices(std::vector<RemoteDeviceAdapter>& out) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!admitLocked(ProxyCall::GetPairedDevices)) {
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
