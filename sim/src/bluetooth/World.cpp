#include "bluetooth/World.h"

#include <algorithm>
#include <cmath>
#include <future>

#include <android/bluetooth/le/ScanRecord.h>
#include <frameworklink/interfaces/ParcelByteArray.h>

namespace tracker {
namespace sim {

namespace {

using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattDescriptor;
using android::bluetooth::BluetoothGattService;
using android::bluetooth::le::ScanFilter;
using android::bluetooth::le::ScanRecord;
using android::bluetooth::le::ScanResult;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using com::orvane::frameworklink::interfaces::RemoteDeviceAdapter;
using Gatt = com::orvane::frameworklink::managers::IAndroidBTGattCallback;

// How long a tag takes to answer a GATT request.
constexpr std::chrono::milliseconds kGattLatency{10};
// Platform statuses the world answers with.
constexpr int kGattError = 133;
constexpr int kConnectionTimeout = 8;
constexpr int kBonded = 12;
const ParcelUuid kConfigurationDescriptor =
    ParcelUuid::fromString("00002902-0000-1000-8000-00805f9b34fb");

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
    return filters.empty() || std::any_of(filters.begin(), filters.end(),
                                          [&](const ScanFilter& f) { return passes(f, record); });
}

std::string characteristicKey(const ParcelUuid& service, const ParcelUuid& characteristic) {
    return service.toString() + "/" + characteristic.toString();
}

}  // namespace

struct World::Tag {
    TagSpec tagSpec;
    util::Clock::TimePoint added;
    std::optional<double> fixedDistance;
};

struct World::Scan {
    int instance;
    std::vector<ScanFilter> filters;
    android::bluetooth::le::ScanSettings settings;
    BatchCallback batch;
    std::function<void(int)> failure;
    ResultCallback result;
};

struct World::Connection {
    std::string address;
    std::shared_ptr<Gatt> callback;
    bool connected = false;
    bool discovered = false;
    std::vector<BluetoothGattService> services;
    // characteristicKey() of every characteristic whose notifications are on.
    std::vector<std::string> notifying;
};

struct World::Faults {
    int failInitializations = 0;
    int failScanStarts = 0;
    std::map<GattAnswer, int> status;
    // nullopt: drop the answer; a duration: deliver it that late.
    std::map<GattAnswer, std::optional<util::Clock::Duration>> delivery;
    std::optional<int> nextConnectionId;
    bool failPairedDeviceQuery = false;
};

struct World::State {
    bool ready = false;
    int initializeCalls = 0;
    double range = 30.0;
    std::map<std::string, std::shared_ptr<Tag>> tags;
    std::optional<Scan> scan;
    // Bumped whenever the scan starts, stops or the world resets: advertisements scheduled
    // under an older generation are dropped.
    uint64_t generation = 0;
    std::map<int, Connection> connections;
    int nextConnectionId = 1;
    std::vector<std::weak_ptr<DeathRecipient>> deathRecipients;
    std::vector<std::shared_ptr<Connectivity>> connectivity;
    Faults faults;
    uint32_t noise = 12345;  // a small deterministic generator for RSSI noise
};

World& World::instance() {
    static World* world = new World;
    return *world;
}

World::World() : m_state(std::make_unique<State>()) {}

void World::reset() {
    std::lock_guard<std::mutex> lock(m_mutex);
    const uint64_t generation = m_state->generation + 1;
    m_state = std::make_unique<State>();
    m_state->generation = generation;
    m_loop.clear();
}

// --- the world ------------------------------------------------------------------------------

void World::addTag(TagSpec tagSpec) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto tag = std::make_shared<Tag>(Tag{std::move(tagSpec), util::Clock::current()->now(), {}});
    m_state->tags[tag->tagSpec.address] = tag;
    if (m_state->scan) {
        scheduleAdvertisingLocked(tag, tag->tagSpec.interval);
    }
}

bool World::removeTag(const std::string& address) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->tags.erase(address) > 0;
}

bool World::moveTag(const std::string& address, double metres) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::shared_ptr<Tag> tag = findTagLocked(address);
    if (!tag) {
        return false;
    }
    tag->fixedDistance = metres;
    if (inRangeLocked(*tag)) {
        return true;
    }
    // Out of range: its connections time out.
    for (auto& entry : m_state->connections) {
        Connection& connection = entry.second;
        if (connection.address == address && connection.connected) {
            connection.connected = false;
            const std::shared_ptr<Gatt> callback = connection.callback;
            m_loop.postAfter(kGattLatency, [callback] {
                callback->onConnectionStateChange(kConnectionTimeout, Gatt::STATE_DISCONNECTED);
            });
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

bool World::notifyValue(const std::string& address, const ParcelUuid& service,
                        const ParcelUuid& characteristic, std::vector<uint8_t> value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::string key = characteristicKey(service, characteristic);
    bool sent = false;
    for (auto& entry : m_state->connections) {
        Connection& connection = entry.second;
        if (connection.address != address || !connection.connected ||
            std::find(connection.notifying.begin(), connection.notifying.end(), key) ==
                connection.notifying.end()) {
            continue;
        }
        for (BluetoothGattService& known : connection.services) {
            if (known.getUuid() != service) {
                continue;
            }
            for (const BluetoothGattCharacteristic& candidate : known.getCharacteristics()) {
                if (candidate.getUuid() != characteristic) {
                    continue;
                }
                BluetoothGattCharacteristic changed = candidate;
                changed.setValue(std::make_shared<ParcelByteArray>(value));
                const std::shared_ptr<Gatt> callback = connection.callback;
                m_loop.postAfter(kGattLatency, [callback, changed] {
                    callback->onCharacteristicChanged(changed);
                });
                sent = true;
            }
        }
    }
    return sent;
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
    tag->tagSpec.pairing->mAddress = address;
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
    const auto found = m_state->tags.find(address);
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
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->ready = false;
    m_state->scan.reset();
    ++m_state->generation;
    m_state->connections.clear();
    for (const std::weak_ptr<DeathRecipient>& weak : m_state->deathRecipients) {
        m_loop.postAfter(util::Clock::Duration::zero(), [weak] {
            if (const std::shared_ptr<DeathRecipient> recipient = weak.lock()) {
                recipient->binderDied();
            }
        });
    }
    m_state->deathRecipients.clear();
    m_state->connectivity.clear();
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
    auto reached = std::make_shared<std::promise<void>>();
    std::future<void> done = reached->get_future();
    m_loop.postAfter(util::Clock::Duration::zero(), [reached] { reached->set_value(); });
    return done.wait_for(limit) == std::future_status::ready;
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

// --- the platform side ----------------------------------------------------------------------

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
    if (!m_state->ready) {
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
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->ready) {
        return false;
    }
    if (m_state->scan && m_state->scan->instance == instance) {
        m_state->scan.reset();
        ++m_state->generation;
    }
    return true;
}

int World::takeStatusLocked(GattAnswer answer, int normal) {
    auto& statuses = m_state->faults.status;
    const auto found = statuses.find(answer);
    if (found == statuses.end()) {
        return normal;
    }
    const int status = found->second;
    statuses.erase(found);
    return status;
}

void World::answerLocked(GattAnswer answer, std::function<void()> deliver) {
    auto& delivery = m_state->faults.delivery;
    util::Clock::Duration delay = kGattLatency;
    const auto found = delivery.find(answer);
    if (found != delivery.end()) {
        const std::optional<util::Clock::Duration> chosen = found->second;
        delivery.erase(found);
        if (!chosen) {
            return;  // dropped: the answer never comes
        }
        delay = *chosen;
    }
    m_loop.postAfter(delay, std::move(deliver));
}

World::Connection* World::connectionLocked(int connId) {
    const auto found = m_state->connections.find(connId);
    return found != m_state->connections.end() ? &found->second : nullptr;
}

bool World::connectGatt(const std::string& address, std::shared_ptr<Gatt> callback, int& connId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->ready || !callback) {
        return false;
    }
    Faults& faults = m_state->faults;
    connId = faults.nextConnectionId.value_or(m_state->nextConnectionId++);
    faults.nextConnectionId.reset();
    const std::shared_ptr<Tag> tag = findTagLocked(address);
    const bool reachable = tag && tag->tagSpec.connectable && inRangeLocked(*tag);
    const int status = takeStatusLocked(GattAnswer::Connect, reachable ? 0 : kGattError);
    const int newState = status == 0 ? Gatt::STATE_CONNECTED : Gatt::STATE_DISCONNECTED;
    m_state->connections[connId] = Connection{address, callback, false, false, {}, {}};
    const int id = connId;
    answerLocked(GattAnswer::Connect, [this, id, callback, status, newState] {
        {
            std::lock_guard<std::mutex> inner(m_mutex);
            Connection* connection = connectionLocked(id);
            if (connection == nullptr || connection->callback != callback) {
                return;
            }
            connection->connected = newState == Gatt::STATE_CONNECTED;
        }
        callback->onConnectionStateChange(status, newState);
    });
    return true;
}

bool World::disconnect(int connId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (!m_state->ready || connection == nullptr) {
        return false;
    }
    const std::shared_ptr<Gatt> callback = connection->callback;
    const int status = takeStatusLocked(GattAnswer::Disconnect, 0);
    answerLocked(GattAnswer::Disconnect, [this, connId, callback, status] {
        {
            std::lock_guard<std::mutex> inner(m_mutex);
            Connection* current = connectionLocked(connId);
            if (current == nullptr || current->callback != callback) {
                return;
            }
            current->connected = false;
        }
        callback->onConnectionStateChange(status, Gatt::STATE_DISCONNECTED);
    });
    return true;
}

bool World::close(int connId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->connections.erase(connId) > 0;
}

bool World::discoverServices(int connId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (!m_state->ready || connection == nullptr || !connection->connected) {
        return false;
    }
    const std::shared_ptr<Gatt> callback = connection->callback;
    const int status = takeStatusLocked(GattAnswer::Discover, 0);
    answerLocked(GattAnswer::Discover, [this, connId, callback, status] {
        {
            std::lock_guard<std::mutex> inner(m_mutex);
            Connection* current = connectionLocked(connId);
            if (current == nullptr || current->callback != callback) {
                return;
            }
            if (status == 0) {
                const std::shared_ptr<Tag> tag = findTagLocked(current->address);
                current->services = tag ? tag->tagSpec.gatt : std::vector<BluetoothGattService>();
                current->discovered = true;
            }
        }
        callback->onServicesDiscovered(status);
    });
    return true;
}

bool World::getServices(int connId, std::vector<BluetoothGattService>& out) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (!m_state->ready || connection == nullptr || !connection->discovered) {
        return false;
    }
    out = connection->services;
    return true;
}

BluetoothGattCharacteristic* World::findCharacteristicLocked(
    Connection& connection, const BluetoothGattCharacteristic& wanted) {
    for (BluetoothGattService& service : connection.services) {
        // Services hand out their characteristics read-only; the world owns them, so it edits
        // its copy in place.
        auto& characteristics =
            const_cast<std::vector<BluetoothGattCharacteristic>&>(service.getCharacteristics());
        for (BluetoothGattCharacteristic& candidate : characteristics) {
            if (candidate.getUuid() == wanted.getUuid()) {
                return &candidate;
            }
        }
    }
    return nullptr;
}

bool World::readCharacteristic(int connId, const BluetoothGattCharacteristic& characteristic) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (!m_state->ready || connection == nullptr || !connection->connected) {
        return false;
    }
    BluetoothGattCharacteristic* target = findCharacteristicLocked(*connection, characteristic);
    if (target == nullptr) {
        return false;
    }
    const BluetoothGattCharacteristic answer = *target;
    const std::shared_ptr<Gatt> callback = connection->callback;
    const int status = takeStatusLocked(GattAnswer::Read, 0);
    answerLocked(GattAnswer::Read,
                 [callback, answer, status] { callback->onCharacteristicRead(answer, status); });
    return true;
}

bool World::writeCharacteristic(int connId, const BluetoothGattCharacteristic& characteristic) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (!m_state->ready || connection == nullptr || !connection->connected) {
        return false;
    }
    BluetoothGattCharacteristic* target = findCharacteristicLocked(*connection, characteristic);
    if (target == nullptr) {
        return false;
    }
    const int status = takeStatusLocked(GattAnswer::Write, 0);
    if (status == 0 && characteristic.getValue()) {
        target->setValue(std::make_shared<ParcelByteArray>(*characteristic.getValue()));
    }
    const BluetoothGattCharacteristic answer = *target;
    const std::shared_ptr<Gatt> callback = connection->callback;
    answerLocked(GattAnswer::Write,
                 [callback, answer, status] { callback->onCharacteristicWrite(answer, status); });
    return true;
}

bool World::setCharacteristicNotification(int connId,
                                          const BluetoothGattCharacteristic& characteristic,
                                          bool enable) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (!m_state->ready || connection == nullptr || !connection->connected) {
        return false;
    }
    BluetoothGattCharacteristic* target = findCharacteristicLocked(*connection, characteristic);
    if (target == nullptr) {
        return false;
    }
    const auto& descriptors = target->getDescriptors();
    const auto configuration = std::find_if(
        descriptors.begin(), descriptors.end(),
        [](const BluetoothGattDescriptor& d) { return d.getUuid() == kConfigurationDescriptor; });
    if (configuration == descriptors.end()) {
        return false;  // the characteristic cannot notify
    }
    // The key names the service the characteristic was found in.
    std::string key;
    for (const BluetoothGattService& service : connection->services) {
        for (const BluetoothGattCharacteristic& candidate : service.getCharacteristics()) {
            if (&candidate == target) {
                key = characteristicKey(service.getUuid(), candidate.getUuid());
            }
        }
    }
    const int status = takeStatusLocked(GattAnswer::DescriptorWrite, 0);
    auto& notifying = connection->notifying;
    notifying.erase(std::remove(notifying.begin(), notifying.end(), key), notifying.end());
    if (status == 0 && enable) {
        notifying.push_back(key);
    }
    BluetoothGattDescriptor written = *configuration;
    written.setValue(std::make_shared<ParcelByteArray>(
        std::vector<uint8_t>{static_cast<uint8_t>(enable ? 0x01 : 0x00), 0x00}));
    written.setCharacteristic(std::make_shared<BluetoothGattCharacteristic>(*target));
    const std::shared_ptr<Gatt> callback = connection->callback;
    answerLocked(GattAnswer::DescriptorWrite,
                 [callback, written, status] { callback->onDescriptorWrite(written, status); });
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
    std::lock_guard<std::mutex> lock(m_mutex);
    auto& callbacks = m_state->connectivity;
    const auto found = std::find(callbacks.begin(), callbacks.end(), callback);
    if (!m_state->ready || found == callbacks.end()) {
        return false;
    }
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
