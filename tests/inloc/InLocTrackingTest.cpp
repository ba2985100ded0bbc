#include <functional>

#include "inloc/InLocFixture.h"

namespace tracker {
namespace testing {
namespace {

using namespace std::chrono_literals;
using Requests = std::vector<std::string>;

const std::vector<uint8_t> kHome = {0x0a, 0x0b, 0x0c, 0x0d};
const std::vector<uint8_t> kWork = {0x1a, 0x1b};
const std::vector<uint8_t> kKeysMembership = {0x2a, 0x2b};
constexpr const char* kKeys = "C0:FF:EE:00:00:01";
constexpr const char* kBag = "C0:FF:EE:00:00:02";

// The one of two clients that comes first in the manager's map.
std::shared_ptr<InLocClient> firstOf(const std::shared_ptr<InLocClient>& a,
                                     const std::shared_ptr<InLocClient>& b) {
    return std::less<std::shared_ptr<util::inloc::InLocManagerClientInterface>>()(a, b) ? a : b;
}

TEST_F(InLocTest, TagsInRangeReachTheClientThatTracksThem) {
    addTag(kKeys, kHome, 2.5);
    addTag(kBag, {}, 40.0);  // out of range
    auto only = client({membershipFilter(kHome), addressFilter(kBag)});
    ASSERT_TRUE(manager()->start(only));
    ASSERT_TRUE(only->log.waitForCount(1));

    settle();
    ASSERT_TRUE(only->log.waitForCount(2));
    EXPECT_EQ(only->log.events()[1], "event C0:FF:EE:00:00:01 0a0b0c0d 1 250 0 0");
    const auto event = only->events().at(0);
    EXPECT_EQ(event->scanRecord, (std::vector<uint8_t>{0x02, 0x01, 0x06, 0x03, 0x03, 0xaa, 0xfe}));

    // The bag comes within range and is reported too; nothing else is.
    world().moveTag(kBag, 1.0);
    settle();
    ASSERT_TRUE(only->log.waitForCount(4));
    EXPECT_FALSE(
        logged('E', "notifyOnInLocTrackingResult: Can not locate connector for the beacon"));
}

TEST_F(InLocTest, AnEventGoesToTheAddressOwnerFirstThenTheFirstMembershipMatch) {
    auto byAddress = client({addressFilter(kKeys)});
    auto byMembership = client({membershipFilter(kHome)});
    auto alsoAddress = client({addressFilter(kKeys), membershipFilter(kHome)});
    for (const auto& connector : {byAddress, byMembership, alsoAddress}) {
        ASSERT_TRUE(manager()->start(connector));
    }
    ASSERT_TRUE(byAddress->log.waitForCount(1));

    // Tracked by address and matching a membership: the address's first client only.
    const auto keysOwner = firstOf(byAddress, alsoAddress);
    addTag(kKeys, kHome, 1.0);
    settle();
    ASSERT_TRUE(keysOwner->log.waitForCount(2));
    ASSERT_TRUE(service().injectDistanceEvent({IXA_STATUS_SUCCESS,
                                               std::nullopt,
                                               kHome,
                                               {},
                                               0,
                                               IXA_INLOC_EVENT_HAS_DISTANCE,
                                               {},
                                               0,
                                               30,
                                               3}));
    // With no address the membership decides: the first matching owner in map order.
    const auto homeOwner = firstOf(byMembership, alsoAddress);
    ASSERT_TRUE(homeOwner->log.waitFor("event  0a0b0c0d 1 10 0 0"));
    // Nobody tracks the device nor its membership.
    ASSERT_TRUE(service().injectDistanceEvent(
        {IXA_STATUS_FAILURE, std::string(kBag), kWork, {}, 0, 0, {}, 0, 0, 0}));
    EXPECT_TRUE(
        awaitLine('E', "notifyOnInLocTrackingResult: Can not locate connector for the beacon"));
    EXPECT_TRUE(logged('D', "onDistanceTrackingCallback: status=1"));

    std::size_t keysEvents = 0;
    for (const auto& connector : {byAddress, byMembership, alsoAddress}) {
        for (const std::string& event : connector->log.events()) {
            keysEvents += event.rfind("event C0:FF:EE:00:00:01", 0) == 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(keysEvents, 1u) << "each event reaches one client";
}

TEST_F(InLocTest, RangeBucketsAndMeasuredDistancesReachTheClient) {
    auto only = client({membershipFilter(kHome)});
    ASSERT_TRUE(manager()->start(only));
    ASSERT_TRUE(only->log.waitForCount(1));
    addTag(kKeys, kHome, 2.0, true);
    settle();
    ASSERT_TRUE(only->log.waitFor("event C0:FF:EE:00:00:01 0a0b0c0d 2 0 100 300"));

    // Injected straight from the service: first, last and unknown buckets, and a measured
    // distance that wins over its bucket.
    using Event = sim::InjectedDistanceEvent;
    const std::vector<uint16_t> bounds = {100, 300};
    const auto bucket = [&](uint8_t index, uint8_t flags) {
        return Event{IXA_STATUS_SUCCESS,
                     std::string(kBag),
                     kHome,
                     {0x02, 0x01, 0x06, 0x00},
                     IXA_INLOC_REPORT_BUCKETED,
                     flags,
                     bounds,
                     index,
                     900,
                     3};
    };
    for (const Event& event :
         {bucket(0, IXA_INLOC_EVENT_HAS_BUCKET), bucket(2, IXA_INLOC_EVENT_HAS_BUCKET),
          bucket(IXA_INLOC_BUCKET_UNKNOWN, IXA_INLOC_EVENT_HAS_BUCKET),
          bucket(1, IXA_INLOC_EVENT_HAS_BUCKET | IXA_INLOC_EVENT_HAS_DISTANCE)}) {
        ASSERT_TRUE(service().injectDistanceEvent(event));
    }
    ASSERT_TRUE(only->log.waitFor("event C0:FF:EE:00:00:02 0a0b0c0d 1 300 0 0"));
    Requests bag;
    for (const std::string& event : only->log.events()) {
        if (event.rfind("event C0:FF:EE:00:00:02", 0) == 0) {
            bag.push_back(event.substr(24));
        }
    }
    EXPECT_EQ(bag, (Requests{"0a0b0c0d 2 0 0 100", "0a0b0c0d 2 0 300 65535", "0a0b0c0d 2 0 0 0",
                             "0a0b0c0d 1 300 0 0"}));
    EXPECT_EQ(only->events().back()->scanRecord, (std::vector<uint8_t>{0x02, 0x01, 0x06}));
}

TEST_F(InLocTest, RingingNeedsTheDeviceToBeTrackedByThatClient) {
    auto first = client({addressFilter(kKeys)});
    auto second = client({addressFilter(kKeys)});
    ASSERT_TRUE(manager()->start(first));
    ASSERT_TRUE(manager()->start(second));
    addTag(kKeys, {}, 1.0);
    const auto owner = firstOf(first, second);
    const auto other = owner == first ? second : first;

    EXPECT_FALSE(manager()->ringDeviceByAddress(owner, deviceAddress(kBag)));
    EXPECT_FALSE(manager()->ringDeviceByAddress(other, deviceAddress(kKeys)));
    EXPECT_FALSE(manager()->ringDeviceByAddress(owner, nullptr));
    EXPECT_TRUE(logged('E', "ringDeviceByAddress: client is not tracking this device"));
    EXPECT_TRUE(logged('E', "ringDeviceByAddress: null address"));
    EXPECT_EQ(service().calls(sim::InLocCall::Ring), 0);

    ASSERT_TRUE(manager()->ringDeviceByAddress(owner, deviceAddress(kKeys)));
    EXPECT_TRUE(logged('I', "ringDeviceByAddress: addr=MAC:00:01"));
    ASSERT_TRUE(owner->log.waitFor("ring C0:FF:EE:00:00:01 0"));

    // A tag gone out of range fails to ring; a refused request fails at once.
    world().moveTag(kKeys, 50.0);
    ASSERT_TRUE(manager()->ringDeviceByAddress(owner, deviceAddress(kKeys)));
    ASSERT_TRUE(owner->log.waitFor("ring C0:FF:EE:00:00:01 1"));
    service().failNext(sim::InLocCall::Ring, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->ringDeviceByAddress(owner, deviceAddress(kKeys)));
    EXPECT_TRUE(logged('E', "ringDeviceByAddress: err from ILS:1"));

    // A result for an address nobody tracks is logged and dropped.
    ASSERT_TRUE(service().sendRingResult(kBag, IXA_STATUS_SUCCESS));
    EXPECT_TRUE(awaitLine('W', "handleRingDeviceCallback: no client found"));
    for (const std::string& event : other->log.events()) {
        EXPECT_EQ(event.rfind("ring", 0), std::string::npos) << event;
    }
}

TEST_F(InLocTest, TheDutyCyclePausesAndResumesMembershipTrackingOnly) {
    auto only = client({membershipFilter(kHome), addressFilter(kKeys)});
    ASSERT_TRUE(
        manager()->setScanPeriod(only, InLocManager::Seconds(5), InLocManager::Seconds(20)));
    EXPECT_TRUE(logged('I', "updateScanPeriodsLocked: active=5s, inactive=20s"));
    ASSERT_TRUE(manager()->start(only));
    EXPECT_FALSE(
        manager()->setScanPeriod(only, InLocManager::Seconds(1), InLocManager::Seconds(2)));
    EXPECT_TRUE(logged('E', "setScanPeriod: cannot change scan period of started client"));
    const std::set<std::string> addresses{kKeys};

    util::Clock::TimePoint due = m_clock->now() + 20s;
    manager()->onPeriodicScanTimer();
    ASSERT_TRUE(awaitLine('I', "executeToggleScan: pausing beacon scan..."));
    ASSERT_TRUE(m_clock->waitForDeadline(due, kEventLimit));
    EXPECT_TRUE(service().trackedMemberships().empty());
    EXPECT_EQ(service().trackedAddresses(), addresses);

    // A reload while paused does not start membership tracking behind the cycle's back.
    only->setFilters({membershipFilter(kHome), membershipFilter(kWork), addressFilter(kKeys)});
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_TRUE(logged('I', "startTrackingByMembershipLocked: paused; not starting scan"));

    due += 5s;
    m_clock->advance(20s);
    ASSERT_TRUE(awaitLine('I', "executeToggleScan: resuming beacon scan..."));
    ASSERT_TRUE(m_clock->waitForDeadline(due, kEventLimit));
    EXPECT_EQ(service().trackedMemberships(), (std::set<std::vector<uint8_t>>{kHome, kWork}));
    m_clock->advance(5s);
    ASSERT_TRUE(eventually([] { return service().trackedMemberships().empty(); }));
    EXPECT_EQ(service().trackedAddresses(), addresses);

    // A client that registers while the cycle is paused ends it at the next resume; its start
    // then tracks at once.
    ASSERT_TRUE(m_clock->waitForDeadline(m_clock->now() + 20s, kEventLimit));
    auto late = client({membershipFilter(kKeysMembership)});
    m_clock->advance(20s);
    ASSERT_TRUE(awaitLine('I', "executeToggleScan: stopped while paused; not resuming"));
    EXPECT_FALSE(
        manager()->setScanPeriod(late, InLocManager::Seconds(-1), InLocManager::Seconds(2)));
    EXPECT_TRUE(logged('E', "setScanPeriod: invalid scan period, active=-1s, inactive=2s"));
    ASSERT_TRUE(manager()->start(late));
    EXPECT_EQ(service().trackedMemberships().size(), 3u);

    // A stop while paused ends the cycle; the next start tracks at once.
    manager()->onPeriodicScanTimer();
    ASSERT_TRUE(eventually([] { return service().trackedMemberships().empty(); }));
    EXPECT_TRUE(manager()->stop(only));
    EXPECT_TRUE(manager()->start(only));
    EXPECT_EQ(service().trackedMemberships().size(), 3u);
    m_clock->advance(1h);
    settle();
    EXPECT_EQ(service().trackedMemberships().size(), 3u) << "the cycle stays stopped";
}

}  // namespace
}  // namespace testing
}  // namespace tracker
