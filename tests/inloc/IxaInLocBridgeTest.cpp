#include "tracker/inloc/IxaInLocBridge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace tracker {
namespace util {
namespace inloc {
namespace {

using bluetooth::TrackerDeviceAddr;
using bluetooth::TrackerScanFilter;
using Bytes = std::vector<uint8_t>;

TrackerScanFilter membershipFilter(Bytes id, Bytes mask = {}) {
    TrackerScanFilter filter;
    filter.type = bluetooth::TYPE_MEMBERSHIP;
    filter.uuidFilter = {std::move(id), std::move(mask)};
    return filter;
}

TrackerScanFilter addressFilter(Bytes address) {
    TrackerScanFilter filter;
    filter.type = bluetooth::TYPE_ADDRESS;
    filter.addressFilter.bytesA = std::move(address);
    return filter;
}

template <typename T>
bool allZero(const T& value) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    return std::all_of(bytes, bytes + sizeof(T), [](uint8_t b) { return b == 0; });
}

ixaInloc_distanceEvent_t blankEvent() {
    ixaInloc_distanceEvent_t event;
    std::memset(&event, 0, sizeof(event));
    return event;
}

TEST(IxaInLocBridge, ScanRecordKeepsTheStructuresWithinTheStatedLength) {
    struct Case {
        const char* what;
        Bytes advertisement;  // exactly the stated length, so that ASan sees any over-read
        Bytes expected;
    };
    const Case cases[] = {
        {"padding dropped", {0x02, 0x01, 0x06, 0x00, 0x00}, {0x02, 0x01, 0x06}},
        {"all structures kept",
         {0x02, 0x01, 0x06, 0x03, 0xFF, 0x01, 0x02},
         {0x02, 0x01, 0x06, 0x03, 0xFF, 0x01, 0x02}},
        {"last structure cut at the stated length",
         {0x02, 0x01, 0x06, 0x09, 0xFF, 0x01},
         {0x02, 0x01, 0x06, 0x09, 0xFF, 0x01}},
        {"single length byte claiming more", {0xFF}, {0xFF}},
        {"leading zero", {0x00, 0x02, 0x01, 0x06}, {}},
        {"empty", {}, {}},
    };
    for (const Case& c : cases) {
        auto advertisement = std::make_unique<uint8_t[]>(c.advertisement.size());
        std::copy(c.advertisement.begin(), c.advertisement.end(), advertisement.get());
        ixaInloc_distanceEvent_t event = blankEvent();
        event.advDataLen = static_cast<uint16_t>(c.advertisement.size());
        event.advData = advertisement.get();
        EXPECT_EQ(IxaInLocBridge::toTrackerInLocDistanceEvent(&event, nullptr, nullptr)->scanRecord,
                  c.expected)
            << c.what;
    }

    ixaInloc_distanceEvent_t noData = blankEvent();
    noData.advDataLen = 4;
    EXPECT_TRUE(
        IxaInLocBridge::toTrackerInLocDistanceEvent(&noData, nullptr, nullptr)->scanRecord.empty());
}

TEST(IxaInLocBridge, DistanceIsMeasuredOrABucket) {
    const uint16_t buckets[] = {100, 300, 1000};
    struct Case {
        const char* what;
        uint8_t flags;
        uint32_t reportKind;
        uint8_t bucketIndex;
        int16_t accumulated;
        uint16_t samples;
        TrackerInLocDistanceType type;
        int32_t distance;
        uint16_t min;
        uint16_t max;
    };
    const uint8_t measured = IXA_INLOC_EVENT_HAS_DISTANCE;
    const uint8_t bucket = IXA_INLOC_EVENT_HAS_BUCKET;
    const uint32_t bucketed = IXA_INLOC_REPORT_BUCKETED;
    const Case cases[] = {
        {"average of the samples", measured, 0, 0, 1000, 4, DISTANCE_TYPE_MEASURED, 250, 0, 0},
        {"signed division", measured, 0, 0, -7, 2, DISTANCE_TYPE_MEASURED, -3, 0, 0},
        {"no samples", measured, 0, 0, 500, 0, DISTANCE_TYPE_MEASURED, 0, 0, 0},
        {"measured wins", measured | bucket, bucketed, 1, 90, 3, DISTANCE_TYPE_MEASURED, 30, 0, 0},
        {"first bucket", bucket, bucketed, 0, 0, 0, DISTANCE_TYPE_RANGE_BUCKET, 0, 0, 100},
        {"middle bucket", bucket, bucketed, 1, 0, 0, DISTANCE_TYPE_RANGE_BUCKET, 0, 100, 300},
        {"last bucket", bucket, bucketed, 3, 0, 0, DISTANCE_TYPE_RANGE_BUCKET, 0, 1000, 0xFFFF},
        {"past the table", bucket, bucketed, 9, 0, 0, DISTANCE_TYPE_RANGE_BUCKET, 0, 1000, 0xFFFF},
        {"unknown bucket", bucket, bucketed, IXA_INLOC_BUCKET_UNKNOWN, 0, 0,
         DISTANCE_TYPE_RANGE_BUCKET, 0, 0, 0},
        {"bucket outside a bucketed report", bucket, 1, 1, 0, 0, DISTANCE_TYPE_NONE, 0, 0, 0},
        {"no flags", 0, bucketed, 1, 500, 5, DISTANCE_TYPE_NONE, 0, 0, 0},
    };
    for (const Case& c : cases) {
        ixaInloc_distanceEvent_t event = blankEvent();
        event.flags = c.flags;
        event.reportKind = c.reportKind;
        event.bucketCount = 3;
        event.buckets = buckets;
        event.bucketIndex = c.bucketIndex;
        event.accumulatedDistance = c.accumulated;
        event.sampleCount = c.samples;
        const auto result = IxaInLocBridge::toTrackerInLocDistanceEvent(&event, nullptr, nullptr);
        EXPECT_EQ(result->distanceType, c.type) << c.what;
        EXPECT_EQ(result->distance, c.distance) << c.what;
        EXPECT_EQ(result->minDistance, c.min) << c.what;
        EXPECT_EQ(result->maxDistance, c.max) << c.what;
    }
    EXPECT_EQ(TrackerInLocDistanceEvent::kMaxDistance, 65535);

    // Without a boundary table every known bucket is the open one.
    ixaInloc_distanceEvent_t noTable = blankEvent();
    noTable.flags = bucket;
    noTable.reportKind = bucketed;
    noTable.bucketCount = noTable.bucketIndex = 1;
    const auto open = IxaInLocBridge::toTrackerInLocDistanceEvent(&noTable, nullptr, nullptr);
    EXPECT_EQ(open->minDistance, 0);
    EXPECT_EQ(open->maxDistance, TrackerInLocDistanceEvent::kMaxDistance);
}

TEST(IxaInLocBridge, AddressAndMembershipAreCopiedAndTheAddressIsNeverNull) {
    Bytes address = {1, 2, 3, 4, 5, 6};
    Bytes id = {0xCA, 0xFE, 0x01};
    const ixaInloc_deviceAddr_t addr{6, address.data()};
    const ixaInloc_membership_t membership{0, 3, id.data()};
    const ixaInloc_distanceEvent_t event = blankEvent();

    const auto full = IxaInLocBridge::toTrackerInLocDistanceEvent(&event, &addr, &membership);
    address.assign(6, 0);  // nothing may point into the platform's records
    id.assign(3, 0);
    EXPECT_EQ(full->deviceAddr->addr, (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(full->membership, (Bytes{0xCA, 0xFE, 0x01}));

    // A null event keeps only the address; null records and null bytes give empty values.
    const auto none = IxaInLocBridge::toTrackerInLocDistanceEvent(nullptr, nullptr, &membership);
    ASSERT_NE(none->deviceAddr, nullptr);
    EXPECT_TRUE(none->deviceAddr->addr.empty());
    EXPECT_TRUE(none->membership.empty());
    EXPECT_TRUE(
        IxaInLocBridge::toTrackerInLocDistanceEvent(&event, &addr, nullptr)->membership.empty());
    const ixaInloc_deviceAddr_t noBytes{6, nullptr};
    EXPECT_TRUE(IxaInLocBridge::toTrackerDeviceAddr(&noBytes)->addr.empty());
    EXPECT_TRUE(IxaInLocBridge::toTrackerDeviceAddr(nullptr)->addr.empty());

    // The ring request borrows the address's bytes.
    const TrackerDeviceAddr ringAddr{{1, 2, 3, 4, 5, 6}};
    const ixaInloc_deviceAddr_t ring = IxaInLocBridge::createIxaRingDeviceConfig(ringAddr);
    EXPECT_EQ(ring.len, 6);
    EXPECT_EQ(ring.addr, ringAddr.addr.data());
}

// The values both membership lists share, reserved12 to option44.
template <typename Entry>
std::vector<uint32_t> sharedOptions(const Entry& e) {
    return {e.reserved12, e.option16, e.option20, e.option24, e.option28,
            e.option32,   e.option36, e.option40, e.option44};
}

Bytes dataOf(const ixaInloc_membership_t& membership) {
    return Bytes(membership.data, membership.data + membership.len);
}

TEST(IxaInLocBridge, MembershipListsFillTheFiltersPositions) {
    const std::vector<TrackerScanFilter> filters = {
        addressFilter({1, 2, 3, 4, 5, 6}), addressFilter({6, 5, 4, 3, 2, 1}),
        membershipFilter({0xAB, 0xCD, 0xEF}, {0xFF, 0xFF, 0xFF})};
    const std::vector<uint32_t> shared = {0, 0, 0, 0, 1, 2, 0, 0, 1};

    ixaInloc_distanceConfigMembership_t config[3];
    std::memset(config, 0x5A, sizeof(config));  // stale content must not survive
    ASSERT_EQ(IxaInLocBridge::toIxaConfigMembershipList(filters, config), 1u);
    EXPECT_TRUE(allZero(config[0]));
    EXPECT_TRUE(allZero(config[1]));
    const ixaInloc_distanceConfigMembership_t& entry = config[2];
    EXPECT_EQ(entry.membership.kind, static_cast<uint32_t>(IXA_INLOC_MEMBERSHIP_KIND_COPY));
    EXPECT_NE(entry.membership.data, filters[2].uuidFilter.uuid.data());
    EXPECT_EQ(dataOf(entry.membership), (Bytes{0xAB, 0xCD, 0xEF}));
    EXPECT_EQ(sharedOptions(entry), shared);
    EXPECT_EQ(
        (std::vector<uint32_t>{entry.option48, entry.option52, entry.option56, entry.option60}),
        (std::vector<uint32_t>{2, 1, 10, 3}));
    IxaInLocBridge::clearIxaConfigMembershipList(config, 3);
    EXPECT_EQ(config[2].membership.data, nullptr);
    IxaInLocBridge::clearIxaConfigMembershipList(config, 3);  // a second clear frees nothing twice

    ixaInloc_distanceDeconfigMembership_t deconfig[3];
    std::memset(deconfig, 0x5A, sizeof(deconfig));
    ASSERT_EQ(IxaInLocBridge::toIxaDeconfigMembershipList(filters, deconfig), 1u);
    EXPECT_TRUE(allZero(deconfig[0]));
    EXPECT_TRUE(allZero(deconfig[1]));
    EXPECT_EQ(deconfig[2].membership.kind, static_cast<uint32_t>(IXA_INLOC_MEMBERSHIP_KIND_COPY));
    EXPECT_EQ(dataOf(deconfig[2].membership), (Bytes{0xAB, 0xCD, 0xEF}));
    EXPECT_EQ(sharedOptions(deconfig[2]), shared);
    IxaInLocBridge::clearIxaDeconfigMembershipList(deconfig, 3);

    // Nothing to convert: nothing written.
    std::memset(config, 0x5A, sizeof(config));
    EXPECT_EQ(IxaInLocBridge::toIxaConfigMembershipList({}, config), 0u);
    EXPECT_EQ(config[0].membership.kind, 0x5A5A5A5Au);
    EXPECT_EQ(IxaInLocBridge::toIxaConfigMembershipList(filters, nullptr), 0u);
    EXPECT_EQ(IxaInLocBridge::toIxaDeconfigMembershipList(filters, nullptr), 0u);
}

TEST(IxaInLocBridge, ClearingFreesOnlyTheBridgesCopies) {
    // Freeing the borrowed stack bytes, or the entry past count a second time, is a bad or
    // double free that AddressSanitizer reports.
    uint8_t borrowed[] = {7, 7};
    ixaInloc_distanceConfigMembership_t list[4];
    ASSERT_EQ(
        IxaInLocBridge::toIxaConfigMembershipList({membershipFilter({1}), addressFilter({2}),
                                                   membershipFilter({3}), membershipFilter({4})},
                                                  list),
        3u);
    std::unique_ptr<uint8_t[]> third(list[2].membership.data);
    std::unique_ptr<uint8_t[]> last(list[3].membership.data);
    list[2].membership.kind = 0;
    list[2].membership.data = borrowed;
    IxaInLocBridge::clearIxaConfigMembershipList(list, 3);
    EXPECT_EQ(list[0].membership.data, nullptr);
    EXPECT_EQ(list[2].membership.data, borrowed);
    EXPECT_EQ(list[3].membership.data, last.get());

    IxaInLocBridge::clearIxaConfigMembershipList(nullptr, 5);
    IxaInLocBridge::clearIxaDeconfigMembershipList(nullptr, 5);
}

TEST(IxaInLocBridge, DeviceConfigsBorrowTheFiltersFields) {
    TrackerScanFilter filter = addressFilter({1, 2, 3, 4, 5, 6});
    filter.addressFilter.bytesB = {0xB0, 0xB1};
    filter.addressFilter.bytesC = {0xC0, 0xC1, 0xC2};
    filter.addressFilter.bytesD = {0xD0, 0xD1, 0xD2};
    filter.addressFilter.words16 = {0x1234, 0x5678, 0x9ABC, 0xDEF0};
    filter.addressFilter.value64 = 0x1122334455667788ull;
    const auto& a = filter.addressFilter;
    const auto expectShared = [&a](const auto& record) {
        EXPECT_EQ(record.addrLen, 6u);
        EXPECT_EQ(record.addr, a.bytesA.data());
        EXPECT_EQ(record.identityLen, 2u);
        EXPECT_EQ(record.identity, a.bytesB.data());
        EXPECT_EQ(record.keyLen, 3u);
        EXPECT_EQ(record.key, a.bytesC.data());
        EXPECT_EQ(record.keyData, a.bytesD.data());
        EXPECT_EQ(record.wordCount, 4u);
        EXPECT_EQ(record.words, a.words16.data());
        EXPECT_EQ((std::vector<uint32_t>{record.option8, record.option20, record.option36,
                                         record.option40, record.option52}),
                  (std::vector<uint32_t>{2, 2, 1, 2, 1}));
    };

    const auto config = IxaInLocBridge::createIxaDeviceDistanceConfig(filter);
    expectShared(config);
    EXPECT_EQ(config.value, 0x55667788u);
    EXPECT_EQ((std::vector<uint32_t>{config.option56, config.option60, config.option68}),
              (std::vector<uint32_t>{2, 1, 1}));
    expectShared(IxaInLocBridge::createIxaDeviceDistanceDeconfig(filter));
}

}  // namespace
}  // namespace inloc
}  // namespace util
}  // namespace tracker
