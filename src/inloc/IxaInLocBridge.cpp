#include "tracker/inloc/IxaInLocBridge.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace inloc {

namespace {

// The bridge is a pure mapping and writes no lines of its own; the tag is there for the day it
// has something to say.
[[maybe_unused]] const Log& kLog = *new Log("IxaInLocBridge");

using bluetooth::TrackerDeviceAddr;
using bluetooth::TrackerScanFilter;
using bluetooth::TrackerScanFilterAddress;

// The fields both membership lists share (the de-configuration entry is the configuration entry
// cut after option44). The caller has zeroed the entry, which covers the zeros among them.
template <typename Entry>
void fillMembership(Entry& entry, const std::vector<uint8_t>& id) {
    const std::size_t length = std::min<std::size_t>(id.size(), UINT16_MAX);
    entry.membership.kind = IXA_INLOC_MEMBERSHIP_KIND_COPY;
    entry.membership.len = static_cast<uint16_t>(length);
    entry.membership.data = new uint8_t[length];
    std::copy_n(id.data(), length, entry.membership.data);
    // The tuning values of the service version this library is built for.
    entry.option28 = 1;
    entry.option32 = 2;
    entry.option44 = 1;
}

template <typename Entry, typename FillRest>
unsigned toMembershipList(const std::vector<TrackerScanFilter>& filters, Entry* out,
                          FillRest fillRest) {
    if (out == nullptr) {
        return 0;
    }
    unsigned count = 0;
    // Entries follow the filters' positions, not the count: a mixed list leaves zeroed gaps.
    for (std::size_t i = 0; i < filters.size(); ++i) {
        std::memset(&out[i], 0, sizeof(Entry));
        if (filters[i].type != bluetooth::TYPE_MEMBERSHIP) {
            continue;
        }
        fillMembership(out[i], filters[i].uuidFilter.uuid);
        fillRest(out[i]);
        ++count;
    }
    return count;
}

template <typename Entry>
void clearMembershipList(Entry* list, unsigned count) {
    if (list == nullptr) {
        return;
    }
    for (unsigned i = 0; i < count; ++i) {
        ixaInloc_membership_t& membership = list[i].membership;
        if (membership.kind == IXA_INLOC_MEMBERSHIP_KIND_COPY && membership.data != nullptr) {
            delete[] membership.data;
            membership.data = nullptr;
        }
    }
}

// The fields the device configuration and de-configuration share, up to the words.
template <typename Record>
Record deviceRecord(const TrackerScanFilterAddress& filter) {
    Record record;
    std::memset(&record, 0, sizeof(Record));
    record.addrLen = static_cast<uint32_t>(filter.bytesA.size());
    record.addr = filter.bytesA.data();
    record.option8 = 2;
    record.identityLen = static_cast<uint32_t>(filter.bytesB.size());
    record.identity = filter.bytesB.data();
    record.option20 = 2;
    record.keyLen = static_cast<uint32_t>(filter.bytesC.size());
    record.key = filter.bytesC.data();
    record.keyData = filter.bytesD.data();
    record.option36 = 1;
    record.option40 = 2;
    record.wordCount = static_cast<uint32_t>(filter.words16.size());
    record.words = filter.words16.data();
    record.option52 = 1;
    return record;
}

// The advertisement's structures up to the first zero length byte, read within the stated
// length only: a last structure that claims more than is there is cut at the stated length.
std::vector<uint8_t> significantAdvertisement(const uint8_t* data, uint16_t length) {
    if (data == nullptr) {
        return {};
    }
    std::size_t offset = 0;
    while (offset < length) {
        const uint8_t structureLength = data[offset];
        if (structureLength == 0) {
            break;
        }
        offset += structureLength + 1u;
    }
    return std::vector<uint8_t>(data, data + std::min<std::size_t>(offset, length));
}

void setDistance(const ixaInloc_distanceEvent_t& event, TrackerInLocDistanceEvent& out) {
    if ((event.flags & IXA_INLOC_EVENT_HAS_DISTANCE) != 0) {
        out.distanceType = DISTANCE_TYPE_MEASURED;
        out.distance = event.sampleCount == 0 ? 0
                                              : static_cast<int32_t>(event.accumulatedDistance) /
                                                    static_cast<int32_t>(event.sampleCount);
        return;
    }
    if ((event.flags & IXA_INLOC_EVENT_HAS_BUCKET) == 0 ||
        event.reportKind != IXA_INLOC_REPORT_BUCKETED) {
        return;
    }
    out.distanceType = DISTANCE_TYPE_RANGE_BUCKET;
    if (event.bucketIndex == IXA_INLOC_BUCKET_UNKNOWN) {
        return;
    }
    const std::size_t count = event.buckets == nullptr ? 0 : event.bucketCount;
    // Bucket i lies between boundaries i-1 and i; an index past the table is the open last one.
    const std::size_t index = std::min<std::size_t>(event.bucketIndex, count);
    out.minDistance = index == 0 ? 0 : event.buckets[index - 1];
    out.maxDistance =
        index < count ? event.buckets[index] : TrackerInLocDistanceEvent::kMaxDistance;
}

}  // namespace

std::shared_ptr<TrackerDeviceAddr> IxaInLocBridge::toTrackerDeviceAddr(
    const ixaInloc_deviceAddr_t* addr) {
    auto result = std::make_shared<TrackerDeviceAddr>();
    if (addr != nullptr && addr->addr != nullptr) {
        result->addr.assign(addr->addr, addr->addr + addr->len);
    }
    return result;
}

bluetooth::TrackerStatus IxaInLocBridge::toTrackerStatus(ixa_status_t status) {
    return status == IXA_STATUS_SUCCESS ? bluetooth::TRACKER_SUCCESS : bluetooth::TRACKER_FAILURE;
}

TrackerInLocAdapterStatus IxaInLocBridge::toTrackerInLocAdapterStatus(
    ixaInloc_adapterStatus_t status) {
    return status == IXA_INLOC_ADAPTER_ENABLED ? INLOC_ADAPTER_READY : INLOC_ADAPTER_NOT_READY;
}

unsigned IxaInLocBridge::toIxaConfigMembershipList(std::vector<TrackerScanFilter> filters,
                                                   ixaInloc_distanceConfigMembership_t* out) {
    return toMembershipList(filters, out, [](ixaInloc_distanceConfigMembership_t& entry) {
        entry.option48 = 2;
        entry.option52 = 1;
        entry.option56 = 10;
        entry.option60 = 3;
    });
}

unsigned IxaInLocBridge::toIxaDeconfigMembershipList(std::vector<TrackerScanFilter> filters,
                                                     ixaInloc_distanceDeconfigMembership_t* out) {
    return toMembershipList(filters, out, [](ixaInloc_distanceDeconfigMembership_t&) {});
}

void IxaInLocBridge::clearIxaConfigMembershipList(ixaInloc_distanceConfigMembership_t* list,
                                                  unsigned count) {
    clearMembershipList(list, count);
}

void IxaInLocBridge::clearIxaDeconfigMembershipList(ixaInloc_distanceDeconfigMembership_t* list,
                                                    unsigned count) {
    clearMembershipList(list, count);
}

std::shared_ptr<TrackerInLocDistanceEvent> IxaInLocBridge::toTrackerInLocDistanceEvent(
    const ixaInloc_distanceEvent_t* event, const ixaInloc_deviceAddr_t* addr,
    const ixaInloc_membership_t* membership) {
    auto result = std::make_shared<TrackerInLocDistanceEvent>();
    result->deviceAddr = toTrackerDeviceAddr(addr);
    if (event == nullptr) {
        return result;
    }
    result->scanRecord = significantAdvertisement(event->advData, event->advDataLen);
    if (membership != nullptr && membership->data != nullptr) {
        result->membership.assign(membership->data, membership->data + membership->len);
    }
    setDistance(*event, *result);
    return result;
}

ixaInloc_distanceConfigDevice_t IxaInLocBridge::createIxaDeviceDistanceConfig(
    const TrackerScanFilter& filter) {
    auto config = deviceRecord<ixaInloc_distanceConfigDevice_t>(filter.addressFilter);
    config.option56 = 2;
    config.option60 = 1;
    config.value = static_cast<uint32_t>(filter.addressFilter.value64);
    config.option68 = 1;
    return config;
}

ixaInloc_distanceDeconfigDevice_t IxaInLocBridge::createIxaDeviceDistanceDeconfig(
    const TrackerScanFilter& filter) {
    return deviceRecord<ixaInloc_distanceDeconfigDevice_t>(filter.addressFilter);
}

ixaInloc_deviceAddr_t IxaInLocBridge::createIxaRingDeviceConfig(const TrackerDeviceAddr& addr) {
    ixaInloc_deviceAddr_t config;
    std::memset(&config, 0, sizeof(config));
    config.len = static_cast<uint16_t>(addr.addr.size());
    config.addr = addr.addr.data();
    return config;
}

}  // namespace inloc
}  // namespace util
}  // namespace tracker
