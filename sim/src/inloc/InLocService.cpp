#include "inloc/InLocService.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <limits>

#include "bluetooth/World.h"
#include "bluetooth/WorldState.h"

namespace tracker {
namespace sim {

namespace {

using namespace std::chrono_literals;

// The range buckets the service reports, upper bounds in centimetres; the last is open-ended.
const std::vector<uint16_t> kBuckets = {100, 300, 1000};
constexpr uint16_t kSamplesPerReport = 4;
// A result callback takes at most this many entries.
constexpr std::size_t kMaxResults = 255;

std::string addressText(const uint8_t* bytes, std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        char part[4];
        std::snprintf(part, sizeof part, i == 0 ? "%02X" : ":%02X", bytes[i]);
        text += part;
    }
    return text;
}

// "AA:BB:..." as bytes; a pair that is not hex reads as 0.
std::vector<uint8_t> addressBytes(const std::string& text) {
    const auto digit = [](char c) -> int {
        return std::isxdigit(static_cast<unsigned char>(c))
                   ? (std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (c | 0x20) - 'a' + 10)
                   : -1;
    };
    std::vector<uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 3) {
        const int high = digit(text[i]);
        const int low = digit(text[i + 1]);
        bytes.push_back(high < 0 || low < 0 ? 0 : static_cast<uint8_t>(high << 4 | low));
    }
    return bytes;
}

// A copy of `bytes` in an allocation of exactly their size.
std::unique_ptr<uint8_t[]> heapCopy(const std::vector<uint8_t>& bytes) {
    auto copy = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return copy;
}

// An address record and the bytes it points at, alive for one callback.
struct HeapAddress {
    explicit HeapAddress(const std::string& address) : HeapAddress(addressBytes(address)) {}
    explicit HeapAddress(const std::vector<uint8_t>& address)
        : bytes(heapCopy(address)), record(std::make_unique<ixaInloc_deviceAddr_t>()) {
        record->len = static_cast<uint16_t>(address.size());
        record->addr = bytes.get();
    }
    std::unique_ptr<uint8_t[]> bytes;
    std::unique_ptr<ixaInloc_deviceAddr_t> record;
};

void deliverEvent(const ixaInloc_distanceClientCallbacks_t& callbacks,
                  const InjectedDistanceEvent& report) {
    if (callbacks.distanceTracking == nullptr) {
        return;
    }
    auto event = std::make_unique<ixaInloc_distanceEvent_t>();
    const auto advertisement = heapCopy(report.advertisement);
    auto buckets = std::make_unique<uint16_t[]>(report.buckets.size());
    std::copy(report.buckets.begin(), report.buckets.end(), buckets.get());
    event->reportKind = report.reportKind;
    event->flags = report.flags;
    event->advDataLen = static_cast<uint16_t>(report.advertisement.size());
    event->advData = advertisement.get();
    event->bucketCount = static_cast<uint8_t>(report.buckets.size());
    event->buckets = buckets.get();
    event->bucketIndex = report.bucketIndex;
    event->accumulatedDistance = report.accumulatedDistance;
    event->sampleCount = report.sampleCount;

    std::unique_ptr<uint8_t[]> membershipBytes;
    std::unique_ptr<ixaInloc_membership_t> membership;
    if (report.membership) {
        membershipBytes = heapCopy(*report.membership);
        membership = std::make_unique<ixaInloc_membership_t>();
        membership->kind = IXA_INLOC_MEMBERSHIP_KIND_COPY;
        membership->len = static_cast<uint16_t>(report.membership->size());
        membership->data = membershipBytes.get();
    }
    std::optional<HeapAddress> address;
    if (report.address) {
        address.emplace(*report.address);
    }
    callbacks.distanceTracking(report.status, event.get(), membership.get(),
                               address ? address->record.get() : nullptr);
}

// What the service reports for a tag at that distance.
InjectedDistanceEvent eventFor(const TagSighting& tag) {
    InjectedDistanceEvent event;
    event.address = tag.address;
    if (!tag.membership.empty()) {
        event.membership = tag.membership;
    }
    event.advertisement = tag.advertisement;
    const long centimetres = std::lround(tag.metres * 100.0);
    if (tag.rangeBuckets) {
        event.reportKind = IXA_INLOC_REPORT_BUCKETED;
        event.flags = IXA_INLOC_EVENT_HAS_BUCKET;
        event.buckets = kBuckets;
        event.bucketIndex = static_cast<uint8_t>(
            std::upper_bound(kBuckets.begin(), kBuckets.end(), centimetres) - kBuckets.begin());
    } else {
        // As many samples as the accumulated value can hold, at most four.
        constexpr long kMax = std::numeric_limits<int16_t>::max();
        const long clamped = std::clamp(centimetres, 0L, kMax);
        const long samples = std::clamp(clamped > 0 ? kMax / clamped : long{kSamplesPerReport}, 1L,
                                        long{kSamplesPerReport});
        event.flags = IXA_INLOC_EVENT_HAS_DISTANCE;
        event.accumulatedDistance = static_cast<int16_t>(clamped * samples);
        event.sampleCount = static_cast<uint16_t>(samples);
    }
    return event;
}

}  // namespace

struct InLocService::State {
    // Bumped on reset and when the adapter starts again: deliveries of an older epoch are
    // dropped, as a restarted service forgets what it had queued.
    uint64_t epoch = 0;
    std::optional<ixaInloc_adapterCallbacks_t> adapter;
    const void* adapterKey = nullptr;
    std::optional<ixaInloc_distanceClientCallbacks_t> client;
    const void* clientKey = nullptr;
    bool initialised = false;
    bool registered = false;
    std::set<std::vector<uint8_t>> memberships;
    std::set<std::string> addresses;
    std::vector<InLocRequest> requests;
    std::map<InLocCall, int> calls;
    std::map<InLocCall, std::pair<ixa_status_t, int>> failing;
    std::map<InLocCall, ixa_status_t> answers;
    util::Clock::Duration period = 1s;
    bool reporting = false;
};

InLocService& InLocService::instance() {
    static InLocService* service = new InLocService;
    return *service;
}

InLocService::InLocService() : m_state(std::make_unique<State>()) {}

void InLocService::reset() {
    std::lock_guard<std::mutex> lock(m_mutex);
    const uint64_t epoch = m_state->epoch + 1;
    m_state = std::make_unique<State>();
    m_state->epoch = epoch;
}

void InLocService::tagsChanged() {
    std::lock_guard<std::mutex> lock(m_mutex);
    startReportingLocked();
}

// --- faults -----------------------------------------------------------------------------------

void InLocService::failNext(InLocCall call, ixa_status_t status, int count) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (count <= 0) {
        m_state->failing.erase(call);
    } else {
        m_state->failing[call] = {status, count};
    }
}

void InLocService::setNextAnswer(InLocCall call, ixa_status_t status) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->answers[call] = status;
}

void InLocService::reportAdapterStatus(ixaInloc_adapterStatus_t status) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (status == IXA_INLOC_ADAPTER_ENABLED) {
        ++m_state->epoch;
        m_state->registered = false;
        m_state->client.reset();
        m_state->memberships.clear();
        m_state->addresses.clear();
        m_state->reporting = false;
    }
    if (!m_state->adapter || m_state->adapter->statusChanged == nullptr) {
        return;
    }
    const auto statusChanged = m_state->adapter->statusChanged;
    toAdapterLocked([statusChanged, status] { statusChanged(status); });
}

bool InLocService::injectDistanceEvent(const InjectedDistanceEvent& event) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->client) {
        return false;
    }
    toClientLocked([event](const ixaInloc_distanceClientCallbacks_t& callbacks) {
        deliverEvent(callbacks, event);
    });
    return true;
}

bool InLocService::sendRingResult(const std::string& address, ixa_status_t status) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->client) {
        return false;
    }
    postDeviceResultsLocked(InLocCall::Ring, {{normalisedAddress(address), status}});
    return true;
}

void InLocService::setEventPeriod(util::Clock::Duration period) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state->period = std::max(period, util::Clock::Duration(1ms));
}

// --- what the library asked for -----------------------------------------------------------------

std::vector<InLocRequest> InLocService::requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->requests;
}

int InLocService::calls(InLocCall call) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_state->calls.find(call);
    return found != m_state->calls.end() ? found->second : 0;
}

bool InLocService::adapterInitialised() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->initialised;
}

bool InLocService::clientRegistered() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->registered;
}

std::set<std::vector<uint8_t>> InLocService::trackedMemberships() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->memberships;
}

std::set<std::string> InLocService::trackedAddresses() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state->addresses;
}

// --- the platform side
// ----------------------------------------------------------------------------

ixa_status_t InLocService::admitLocked(InLocRequest request) {
    ++m_state->calls[request.call];
    const auto failing = m_state->failing.find(request.call);
    if (failing != m_state->failing.end()) {
        request.status = failing->second.first;
        if (--failing->second.second == 0) {
            m_state->failing.erase(failing);
        }
    }
    m_state->requests.push_back(request);
    return request.status;
}

ixa_status_t InLocService::answerLocked(InLocCall call) {
    const auto found = m_state->answers.find(call);
    if (found == m_state->answers.end()) {
        return IXA_STATUS_SUCCESS;
    }
    const ixa_status_t status = found->second;
    m_state->answers.erase(found);
    return status;
}

template <typename Call>
void InLocService::toClientLocked(Call call) {
    const ixaInloc_distanceClientCallbacks_t callbacks = *m_state->client;
    const uint64_t epoch = m_state->epoch;
    World::instance().deliveries().postAfter(m_state->clientKey, util::Clock::Duration::zero(),
                                             [this, callbacks, epoch, call = std::move(call)] {
                                                 {
                                                     std::lock_guard<std::mutex> lock(m_mutex);
                                                     if (epoch != m_state->epoch) {
                                                         return;
                                                     }
                                                 }
                                                 call(callbacks);
                                             });
}

template <typename Call>
void InLocService::toAdapterLocked(Call call) {
    const uint64_t epoch = m_state->epoch;
    World::instance().deliveries().postAfter(m_state->adapterKey, util::Clock::Duration::zero(),
                                             [this, epoch, call = std::move(call)] {
                                                 {
                                                     std::lock_guard<std::mutex> lock(m_mutex);
                                                     if (epoch != m_state->epoch) {
                                                         return;
                                                     }
                                                 }
                                                 call();
                                             });
}

void InLocService::postDeviceResultsLocked(InLocCall call, std::vector<DeviceResult> results) {
    toClientLocked([call, results = std::move(results)](
                       const ixaInloc_distanceClientCallbacks_t& callbacks) {
        const auto target = call == InLocCall::Ring            ? callbacks.ringDevice
                            : call == InLocCall::EnableAddress ? callbacks.trackingByAddrEnabled
                                                               : callbacks.trackingByAddrDisabled;
        if (target == nullptr) {
            return;
        }
        for (std::size_t first = 0; first < results.size(); first += kMaxResults) {
            const std::size_t count = std::min(kMaxResults, results.size() - first);
            auto records = std::make_unique<ixaInloc_distanceConfigDeviceResult_t[]>(count);
            std::vector<HeapAddress> addresses;
            addresses.reserve(count);
            for (std::size_t i = 0; i < count; ++i) {
                addresses.emplace_back(results[first + i].address);
                records[i].status = results[first + i].status;
                records[i].deviceAddr = *addresses.back().record;
            }
            target(static_cast<uint8_t>(count), records.get());
        }
    });
}

void InLocService::startReportingLocked() {
    const bool tracking = !m_state->memberships.empty() || !m_state->addresses.empty();
    if (m_state->reporting || !tracking || !m_state->client) {
        return;
    }
    m_state->reporting = true;
    const uint64_t epoch = m_state->epoch;
    World::instance().deliveries().postAfter(m_state->clientKey, m_state->period,
                                             [this, epoch] { report(epoch); });
}

void InLocService::report(uint64_t epoch) {
    World& world = World::instance();
    const bool anyTags = world.hasTags();
    const std::vector<TagSighting> tags = world.tagsInRange();
    std::vector<InjectedDistanceEvent> events;
    ixaInloc_distanceClientCallbacks_t callbacks;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (epoch != m_state->epoch) {
            return;
        }
        const bool tracking = !m_state->memberships.empty() || !m_state->addresses.empty();
        if (!tracking || !anyTags || !m_state->client) {
            // Quiet until something is tracked again or a tag appears.
            m_state->reporting = false;
            return;
        }
        for (const TagSighting& tag : tags) {
            if (m_state->addresses.count(tag.address) > 0 ||
                (!tag.membership.empty() && m_state->memberships.count(tag.membership) > 0)) {
                events.push_back(eventFor(tag));
            }
        }
        callbacks = *m_state->client;
        world.deliveries().postAfter(m_state->clientKey, m_state->period,
                                     [this, epoch] { report(epoch); });
    }
    for (const InjectedDistanceEvent& event : events) {
        deliverEvent(callbacks, event);
    }
}

ixa_status_t InLocService::adapterInit(uint32_t version,
                                       const ixaInloc_adapterCallbacks_t* callbacks) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool valid = callbacks != nullptr && version == IXA_INLOC_INTERFACE_VERSION;
    const ixa_status_t status = admitLocked(
        {InLocCall::AdapterInit, {}, {}, valid ? IXA_STATUS_SUCCESS : IXA_STATUS_INVALID_ARGUMENT});
    if (status != IXA_STATUS_SUCCESS) {
        return status;
    }
    // A new initialisation starts the adapter afresh.
    ++m_state->epoch;
    m_state->adapter = *callbacks;
    m_state->adapterKey = callbacks;
    m_state->client.reset();
    m_state->registered = false;
    m_state->memberships.clear();
    m_state->addresses.clear();
    m_state->reporting = false;
    const ixa_status_t answer = answerLocked(InLocCall::AdapterInit);
    m_state->initialised = answer == IXA_STATUS_SUCCESS;
    if (callbacks->initialized != nullptr) {
        const auto initialized = callbacks->initialized;
        toAdapterLocked([initialized, answer] { initialized(answer); });
    }
    return status;
}

ixa_status_t InLocService::registerClient(const ixaInloc_distanceClientCallbacks_t* callbacks) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const ixa_status_t precondition = callbacks == nullptr    ? IXA_STATUS_INVALID_ARGUMENT
                                      : !m_state->initialised ? IXA_STATUS_NOT_READY
                                                              : IXA_STATUS_SUCCESS;
    const ixa_status_t status = admitLocked({InLocCall::RegisterClient, {}, {}, precondition});
    if (status != IXA_STATUS_SUCCESS) {
        return status;
    }
    m_state->client = *callbacks;
    m_state->clientKey = callbacks;
    const ixa_status_t answer = answerLocked(InLocCall::RegisterClient);
    m_state->registered = answer == IXA_STATUS_SUCCESS;
    toClientLocked([answer](const ixaInloc_distanceClientCallbacks_t& client) {
        if (client.clientRegistered != nullptr) {
            client.clientRegistered(answer);
        }
    });
    return status;
}

namespace {

template <typename Entry>
std::vector<std::vector<uint8_t>> membershipsOf(uint32_t count, const Entry* entries) {
    std::vector<std::vector<uint8_t>> memberships;
    for (uint32_t i = 0; entries != nullptr && i < count; ++i) {
        const ixaInloc_membership_t& membership = entries[i].membership;
        memberships.emplace_back(membership.data,
                                 membership.data + (membership.data ? membership.len : 0));
    }
    return memberships;
}

template <typename Entry>
std::vector<std::string> addressesOf(uint32_t count, const Entry* devices) {
    std::vector<std::string> addresses;
    for (uint32_t i = 0; devices != nullptr && i < count; ++i) {
        addresses.push_back(devices[i].addr != nullptr
                                ? addressText(devices[i].addr, devices[i].addrLen)
                                : std::string());
    }
    return addresses;
}

std::vector<std::string> addressesOf(uint32_t count, const ixaInloc_deviceAddr_t* devices) {
    std::vector<std::string> addresses;
    for (uint32_t i = 0; devices != nullptr && i < count; ++i) {
        addresses.push_back(devices[i].addr != nullptr
                                ? addressText(devices[i].addr, devices[i].len)
                                : std::string());
    }
    return addresses;
}

// Six bytes, printed as the platform prints addresses.
bool isAddress(const std::string& address) {
    return address.size() == 17;
}

}  // namespace

ixa_status_t InLocService::enableMemberships(uint32_t count,
                                             const ixaInloc_distanceConfigMembership_t* entries) {
    return changeMemberships(InLocCall::EnableMembership, membershipsOf(count, entries),
                             entries != nullptr && count > 0);
}

ixa_status_t InLocService::disableMemberships(
    uint32_t count, const ixaInloc_distanceDeconfigMembership_t* entries) {
    return changeMemberships(InLocCall::DisableMembership, membershipsOf(count, entries),
                             entries != nullptr && count > 0);
}

ixa_status_t InLocService::changeMemberships(InLocCall call,
                                             std::vector<std::vector<uint8_t>> memberships,
                                             bool valid) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const ixa_status_t precondition = !valid                 ? IXA_STATUS_INVALID_ARGUMENT
                                      : !m_state->registered ? IXA_STATUS_NOT_READY
                                                             : IXA_STATUS_SUCCESS;
    const ixa_status_t status = admitLocked({call, memberships, {}, precondition});
    if (status != IXA_STATUS_SUCCESS) {
        return status;
    }
    const bool enable = call == InLocCall::EnableMembership;
    for (const std::vector<uint8_t>& membership : memberships) {
        if (enable) {
            m_state->memberships.insert(membership);
        } else {
            m_state->memberships.erase(membership);
        }
    }
    const ixa_status_t answer = answerLocked(call);
    toClientLocked([enable, answer, memberships = std::move(memberships)](
                       const ixaInloc_distanceClientCallbacks_t& client) {
        const auto target =
            enable ? client.trackingByMembershipEnabled : client.trackingByMembershipDisabled;
        if (target == nullptr) {
            return;
        }
        for (std::size_t first = 0; first < memberships.size(); first += kMaxResults) {
            const std::size_t count = std::min(kMaxResults, memberships.size() - first);
            auto records = std::make_unique<ixaInloc_distanceConfigMembershipResult_t[]>(count);
            std::vector<std::unique_ptr<uint8_t[]>> data;
            for (std::size_t i = 0; i < count; ++i) {
                const std::vector<uint8_t>& membership = memberships[first + i];
                data.push_back(heapCopy(membership));
                records[i].status = answer;
                records[i].membership = {IXA_INLOC_MEMBERSHIP_KIND_COPY,
                                         static_cast<uint16_t>(membership.size()),
                                         data.back().get()};
            }
            target(static_cast<uint8_t>(count), records.get());
        }
    });
    startReportingLocked();
    return status;
}

ixa_status_t InLocService::enableAddresses(uint32_t count,
                                           const ixaInloc_distanceConfigDevice_t* devices) {
    return changeAddresses(InLocCall::EnableAddress, addressesOf(count, devices),
                           devices != nullptr && count > 0);
}

ixa_status_t InLocService::disableAddresses(uint32_t count,
                                            const ixaInloc_distanceDeconfigDevice_t* devices) {
    return changeAddresses(InLocCall::DisableAddress, addressesOf(count, devices),
                           devices != nullptr && count > 0);
}

ixa_status_t InLocService::ring(uint32_t count, const ixaInloc_deviceAddr_t* devices) {
    return changeAddresses(InLocCall::Ring, addressesOf(count, devices),
                           devices != nullptr && count > 0);
}

ixa_status_t InLocService::changeAddresses(InLocCall call, std::vector<std::string> addresses,
                                           bool valid) {
    std::set<std::string> inRange;
    if (call == InLocCall::Ring) {
        for (const TagSighting& tag : World::instance().tagsInRange()) {
            inRange.insert(tag.address);
        }
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const ixa_status_t precondition = !valid                 ? IXA_STATUS_INVALID_ARGUMENT
                                      : !m_state->registered ? IXA_STATUS_NOT_READY
                                                             : IXA_STATUS_SUCCESS;
    const ixa_status_t status = admitLocked({call, {}, addresses, precondition});
    if (status != IXA_STATUS_SUCCESS) {
        return status;
    }
    const std::optional<ixa_status_t> answer =
        m_state->answers.count(call) > 0 ? std::optional(answerLocked(call)) : std::nullopt;
    std::vector<DeviceResult> results;
    for (const std::string& address : addresses) {
        ixa_status_t result = IXA_STATUS_SUCCESS;
        if (!isAddress(address)) {
            result = IXA_STATUS_INVALID_ARGUMENT;
        } else if (call == InLocCall::EnableAddress) {
            m_state->addresses.insert(address);
        } else if (call == InLocCall::DisableAddress) {
            m_state->addresses.erase(address);
        } else if (inRange.count(address) == 0) {
            result = IXA_STATUS_NOT_FOUND;
        }
        results.push_back({address, answer.value_or(result)});
    }
    postDeviceResultsLocked(call, std::move(results));
    startReportingLocked();
    return status;
}

}  // namespace sim
}  // namespace tracker
