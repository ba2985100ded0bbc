#include <gtest/gtest.h>

#include <inloc/ixa_inloc.h>

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "scenario/Scenario.h"
#include "inloc/InLocService.h"
#include "sim/SimTags.h"
#include "support/SimBluetooth.h"

namespace tracker {
namespace sim {
namespace {

using namespace testtags;
using namespace std::chrono_literals;
using Events = std::vector<std::string>;
using Addresses = std::vector<std::string>;

const std::string kKeys = kEddystone;
const std::string kFar = "C0:FF:EE:00:00:04";
const std::string kDistant = "C0:FF:EE:00:00:06";
const std::string kUnknown = "C0:FF:EE:00:00:09";
const std::string kShort = "C0:FF:EE:00:00";  // five bytes
const Bytes kHome = {0x0a, 0x0b, 0x0c, 0x0d};

// Every callback, as text with everything it carried, copied before the service frees it.
// Never destroyed: the platform's threads may outlive a test's objects.
testing::EventLog& recorder() {
    static auto* log = new testing::EventLog;
    return *log;
}

// When armed, the next callback waits inside the service's call, before it records anything,
// until the test lets go; whatever the service queued behind it for the same table waits too.
std::mutex g_gateMutex;
std::condition_variable g_gateChanged;
bool g_armed = false;
bool g_holding = false;

void record(std::string event) {
    {
        std::unique_lock<std::mutex> lock(g_gateMutex);
        if (g_armed) {
            g_armed = false;
            g_holding = true;
            g_gateChanged.notify_all();
            g_gateChanged.wait_for(lock, testing::kEventLimit, [] { return !g_holding; });
        }
    }
    recorder().add(std::move(event));
}

void setGate(bool armed) {
    std::lock_guard<std::mutex> lock(g_gateMutex);
    g_armed = armed;
    g_holding = false;
    g_gateChanged.notify_all();
}

bool waitHolding() {
    std::unique_lock<std::mutex> lock(g_gateMutex);
    return g_gateChanged.wait_for(lock, testing::kEventLimit, [] { return g_holding; });
}

// Bytes as lower-case hex, or as an upper-case address: "C0:FF:EE:00:00:01".
std::string hex(const uint8_t* bytes, std::size_t length, bool address = false) {
    const char* digits = address ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        text += std::string(address && i > 0 ? ":" : "") + digits[bytes[i] >> 4] +
                digits[bytes[i] & 15];
    }
    return text;
}
std::string hex(const Bytes& bytes) {
    return hex(bytes.data(), bytes.size());
}
std::string addressOf(const ixaInloc_deviceAddr_t& address) {
    return hex(address.addr, address.len, true);
}

void onMemberships(std::string event, uint8_t count,
                   ixaInloc_distanceConfigMembershipResult_t* results) {
    for (uint8_t i = 0; i < count; ++i) {
        const ixaInloc_membership_t& membership = results[i].membership;
        event += " " + hex(membership.data, membership.len) + "=" +
                 std::to_string(results[i].status) +
                 (membership.kind == IXA_INLOC_MEMBERSHIP_KIND_COPY ? "" : "(not a copy)");
    }
    record(event);
}

void onDevices(std::string event, uint8_t count, ixaInloc_distanceConfigDeviceResult_t* results) {
    for (uint8_t i = 0; i < count; ++i) {
        event += " " + addressOf(results[i].deviceAddr) + "=" + std::to_string(results[i].status);
    }
    record(event);
}

// "distance <status> <address> <membership> ad <advertisement>", then the measured distance
// ("250cm": accumulated over the samples) and the bucket the flags announce.
void onDistance(ixa_status_t status, ixaInloc_distanceEvent_t* event,
                ixaInloc_membership_t* membership, ixaInloc_deviceAddr_t* address) {
    std::string text = "distance " + std::to_string(status) + " " +
                       (address ? addressOf(*address) : "null") + " " +
                       (membership ? hex(membership->data, membership->len) : "null") + " ad " +
                       hex(event->advData, event->advDataLen);
    if (event->flags & IXA_INLOC_EVENT_HAS_DISTANCE) {
        text +=
            " " + (event->sampleCount == 0
                       ? "no samples"
                       : std::to_string(event->accumulatedDistance / event->sampleCount) + "cm");
    }
    if (event->flags & IXA_INLOC_EVENT_HAS_BUCKET) {
        text += " bucket " + std::to_string(event->bucketIndex) + " of";
        for (uint8_t i = 0; i < event->bucketCount; ++i) {
            text += " " + std::to_string(event->buckets[i]);
        }
    }
    record(text + (event->reportKind == IXA_INLOC_REPORT_BUCKETED ? " (bucketed)" : ""));
}

const ixaInloc_adapterCallbacks_t kAdapter = {
    [](ixa_status_t status) { record("initialized " + std::to_string(status)); },
    [](ixaInloc_adapterStatus_t status) { record("status " + std::to_string(status)); },
};

const ixaInloc_distanceClientCallbacks_t kClient = {
    [](ixa_status_t status) { record("registered " + std::to_string(status)); },
    nullptr,
    [](uint8_t n, ixaInloc_distanceConfigMembershipResult_t* r) { onMemberships("m+", n, r); },
    [](uint8_t n, ixaInloc_distanceConfigMembershipResult_t* r) { onMemberships("m-", n, r); },
    nullptr,
    nullptr,
    [](uint8_t n, ixaInloc_distanceConfigDeviceResult_t* r) { onDevices("a+", n, r); },
    [](uint8_t n, ixaInloc_distanceConfigDeviceResult_t* r) { onDevices("a-", n, r); },
    [](uint8_t n, ixaInloc_distanceRingDeviceResult_t* r) { onDevices("ring", n, r); },
    onDistance,
};

// Calls an ixaInloc_* function with one entry per membership, pointing into `memberships`.
template <typename Entry>
ixa_status_t withMemberships(ixa_status_t (*function)(uint32_t, const Entry*),
                             std::vector<Bytes> memberships) {
    std::vector<Entry> entries(memberships.size());
    for (std::size_t i = 0; i < memberships.size(); ++i) {
        entries[i].membership = {IXA_INLOC_MEMBERSHIP_KIND_COPY,
                                 static_cast<uint16_t>(memberships[i].size()),
                                 memberships[i].data()};
    }
    return function(static_cast<uint32_t>(entries.size()), entries.data());
}

// The same with one entry per address ("C0:FF:..." of any number of bytes).
template <typename Entry>
ixa_status_t withAddresses(ixa_status_t (*function)(uint32_t, const Entry*),
                           const Addresses& addresses) {
    std::vector<Bytes> bytes(addresses.size());
    std::vector<Entry> entries(addresses.size());
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        for (std::size_t at = 0; at + 1 < addresses[i].size(); at += 3) {
            bytes[i].push_back(
                static_cast<uint8_t>(std::stoul(addresses[i].substr(at, 2), nullptr, 16)));
        }
        if constexpr (std::is_same_v<Entry, ixaInloc_deviceAddr_t>) {
            entries[i] = {static_cast<uint16_t>(bytes[i].size()), bytes[i].data()};
        } else {
            entries[i].addrLen = static_cast<uint32_t>(bytes[i].size());
            entries[i].addr = bytes[i].data();
        }
    }
    return function(static_cast<uint32_t>(entries.size()), entries.data());
}

class SimulatedInLoc : public testing::SimulatedWorld {
  protected:
    void TearDown() override {
        setGate(false);
        SimulatedWorld::TearDown();
    }
    static InLocService& service() { return InLocService::instance(); }

    static ixa_status_t adapterInit() {
        return ixaInloc_adapterInit(IXA_INLOC_INTERFACE_VERSION, &kAdapter);
    }
    static ixa_status_t registerClient() { return ixaInloc_distanceRegisterClient(&kClient); }
    static ixa_status_t enableMemberships(std::vector<Bytes> memberships) {
        return withMemberships(ixaInloc_distanceEnableTrackingByMembership, memberships);
    }
    static ixa_status_t disableMemberships(std::vector<Bytes> memberships) {
        return withMemberships(ixaInloc_distanceDisableTrackingByMembership, memberships);
    }
    static ixa_status_t enableAddresses(const Addresses& addresses) {
        return withAddresses(ixaInloc_distanceEnableTrackingByDeviceAddr, addresses);
    }
    static ixa_status_t disableAddresses(const Addresses& addresses) {
        return withAddresses(ixaInloc_distanceDisableTrackingByDeviceAddr, addresses);
    }
    static ixa_status_t ring(const Addresses& addresses) {
        return withAddresses(ixaInloc_distanceRingDeviceByDeviceAddr, addresses);
    }

    // Waits for the next `count` callbacks.
    void expectMore(std::size_t count) {
        m_seen += count;
        ASSERT_TRUE(recorder().waitForCount(m_seen)) << ::testing::PrintToString(events());
    }
    static Events events() { return recorder().events(); }
    static std::string last() { return events().back(); }
    // The distance reports so far, sorted.
    static std::multiset<std::string> reports() {
        std::multiset<std::string> reports;
        for (const std::string& event : events()) {
            if (event.rfind("distance ", 0) == 0) {
                reports.insert(event);
            }
        }
        return reports;
    }
    // An initialised adapter with the client registered.
    void ready() {
        ASSERT_EQ(adapterInit(), IXA_STATUS_SUCCESS);
        expectMore(1);  // the adapter's and the client's answers come on different lines
        ASSERT_EQ(registerClient(), IXA_STATUS_SUCCESS);
        expectMore(1);
        ASSERT_EQ(events(), (Events{"initialized 0", "registered 0"}));
    }
    void load(const std::string& scenario) {
        std::string error;
        ASSERT_TRUE(loadScenario(scenario, world(), &error)) << error;
    }

    std::size_t m_seen = 0;
};

TEST_F(SimulatedInLoc, AnswersComeLaterInCallOrderOnThePlatformsThreads) {
    EXPECT_EQ(registerClient(), IXA_STATUS_NOT_READY) << "no adapter yet";
    ASSERT_EQ(adapterInit(), IXA_STATUS_SUCCESS);
    expectMore(1);
    EXPECT_EQ(enableMemberships({kHome}), IXA_STATUS_NOT_READY) << "no client yet";
    EXPECT_EQ(disableMemberships({kHome}), IXA_STATUS_NOT_READY);
    EXPECT_EQ(enableAddresses({kKeys}), IXA_STATUS_NOT_READY);
    EXPECT_EQ(disableAddresses({kKeys}), IXA_STATUS_NOT_READY);
    EXPECT_EQ(ring({kKeys}), IXA_STATUS_NOT_READY);
    ASSERT_EQ(registerClient(), IXA_STATUS_SUCCESS);
    expectMore(1);
    EXPECT_TRUE(service().adapterInitialised());
    EXPECT_TRUE(service().clientRegistered());

    world().addTag(tagAt(kEddystone, kEddystoneAd));
    ASSERT_EQ(enableMemberships({kHome}), IXA_STATUS_SUCCESS);
    ASSERT_EQ(enableAddresses({kKeys}), IXA_STATUS_SUCCESS);
    ASSERT_EQ(ring({kKeys}), IXA_STATUS_SUCCESS);
    ASSERT_EQ(disableAddresses({kKeys}), IXA_STATUS_SUCCESS);
    ASSERT_TRUE(service().injectDistanceEvent({}));
    ASSERT_EQ(disableMemberships({kHome}), IXA_STATUS_SUCCESS);
    expectMore(6);
    EXPECT_EQ(events(), (Events{"initialized 0", "registered 0", "m+ 0a0b0c0d=0",
                                "a+ " + kKeys + "=0", "ring " + kKeys + "=0", "a- " + kKeys + "=0",
                                "distance 0 null null ad ", "m- 0a0b0c0d=0"}));
    for (std::thread::id thread : recorder().threads()) {
        EXPECT_NE(thread, std::this_thread::get_id());
    }
}

TEST_F(SimulatedInLoc, ResultsEchoWhatWasSentAndChangeWhatIsTracked) {
    ASSERT_NO_FATAL_FAILURE(ready());
    ASSERT_EQ(enableMemberships({kHome, {0x01}}), IXA_STATUS_SUCCESS);
    expectMore(1);
    EXPECT_EQ(last(), "m+ 0a0b0c0d=0 01=0");
    EXPECT_EQ(service().trackedMemberships(), (std::set<Bytes>{kHome, {0x01}}));
    ASSERT_EQ(disableMemberships({{0x01}}), IXA_STATUS_SUCCESS);
    expectMore(1);
    EXPECT_EQ(last(), "m- 01=0");
    EXPECT_EQ(service().trackedMemberships(), std::set<Bytes>{kHome});

    // Only six-byte addresses can be tracked; the others fail in their own entry.
    ASSERT_EQ(enableAddresses({kKeys, kShort, kFar + ":07"}), IXA_STATUS_SUCCESS);
    expectMore(1);
    EXPECT_EQ(last(), "a+ " + kKeys + "=0 " + kShort + "=4 " + kFar + ":07=4");
    EXPECT_EQ(service().trackedAddresses(), std::set<std::string>{kKeys});
    ASSERT_EQ(disableAddresses({kKeys}), IXA_STATUS_SUCCESS);
    expectMore(1);
    EXPECT_EQ(last(), "a- " + kKeys + "=0");
    EXPECT_TRUE(service().trackedAddresses().empty());
}

TEST_F(SimulatedInLoc, TrackedTagsInRangeAreReportedOncePerPeriod) {
    ASSERT_NO_FATAL_FAILURE(load(R"({"range": 200, "tags": [{"address": "C0:FF:EE:00:00:02",
        "advertisement": "02010605ff7101aabb", "distance": 4, "membership": "0a0b0c0d"}]})"));
    world().addTag(tagAt(kEddystone, kEddystoneAd, 2.5));
    world().addTag(tagAt(kOther, kOtherAd));                   // not tracked
    world().addTag(tagAt(kFar.c_str(), kOtherAd, 250.0));      // out of range
    world().addTag(tagAt(kDistant.c_str(), kOtherAd, 150.0));  // more than four samples hold
    ASSERT_NO_FATAL_FAILURE(ready());
    // The company's tag is tracked both ways and still reported once.
    ASSERT_EQ(enableAddresses({kKeys, kFar, kDistant, kCompany}), IXA_STATUS_SUCCESS);
    ASSERT_EQ(enableMemberships({kHome}), IXA_STATUS_SUCCESS);
    expectMore(2);

    settle(500ms);
    EXPECT_TRUE(reports().empty()) << "the first report comes after a period";
    settle(500ms);
    const std::string keys = "distance 0 " + kKeys + " null ad " + hex(kEddystoneAd) + " 250cm";
    const std::multiset<std::string> period = {
        keys, "distance 0 C0:FF:EE:00:00:02 0a0b0c0d ad " + hex(kCompanyAd) + " 400cm",
        "distance 0 " + kDistant + " null ad " + hex(kOtherAd) + " 15000cm"};
    EXPECT_EQ(reports(), period);
    settle();
    std::multiset<std::string> twice = period;
    twice.insert(period.begin(), period.end());
    EXPECT_EQ(reports(), twice);
    for (std::thread::id thread : recorder().threads()) {
        EXPECT_NE(thread, std::this_thread::get_id());
    }

    // Nothing tracked, nothing reported; tracked again, reports resume.
    ASSERT_EQ(disableAddresses({kKeys, kFar, kDistant, kCompany}), IXA_STATUS_SUCCESS);
    ASSERT_EQ(disableMemberships({kHome}), IXA_STATUS_SUCCESS);
    settle();
    settle();
    EXPECT_EQ(reports().size(), 6u);
    ASSERT_EQ(enableAddresses({kKeys}), IXA_STATUS_SUCCESS);
    settle();
    EXPECT_EQ(reports().size(), 7u);
    EXPECT_EQ(reports().count(keys), 3u);
}

TEST_F(SimulatedInLoc, WithoutTagsTheServiceIsQuietUntilOneIsAdded) {
    ASSERT_NO_FATAL_FAILURE(ready());
    ASSERT_EQ(enableAddresses({kKeys}), IXA_STATUS_SUCCESS);
    for (std::size_t round = 1; round <= 2; ++round) {
        settle();
        settle();
        settle(500ms);
        // Quiet, so the tag is first reported a whole period after it came, not on an old beat.
        world().addTag(tagAt(kEddystone, kEddystoneAd));
        settle(500ms);
        EXPECT_EQ(reports().size(), round - 1);
        settle(500ms);
        EXPECT_EQ(reports().size(), round);
        ASSERT_TRUE(world().removeTag(kKeys));
    }
}

TEST_F(SimulatedInLoc, AnAdapterThatStartsAgainForgetsItsClient) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    ASSERT_NO_FATAL_FAILURE(ready());
    ASSERT_EQ(enableAddresses({kKeys}), IXA_STATUS_SUCCESS);
    expectMore(1);

    // The ring's answer holds the client's table, so the next answer waits behind it.
    setGate(true);
    ASSERT_EQ(ring({kKeys}), IXA_STATUS_SUCCESS);
    ASSERT_TRUE(waitHolding());
    ASSERT_EQ(enableMemberships({kHome}), IXA_STATUS_SUCCESS);
    service().reportAdapterStatus(IXA_INLOC_ADAPTER_ENABLED);
    expectMore(1);
    EXPECT_EQ(last(), "status 1");
    EXPECT_FALSE(service().clientRegistered());
    EXPECT_TRUE(service().trackedAddresses().empty());
    EXPECT_TRUE(service().trackedMemberships().empty());
    EXPECT_EQ(enableAddresses({kKeys}), IXA_STATUS_NOT_READY);
    setGate(false);
    expectMore(1);
    settle();
    settle();
    EXPECT_EQ(events(), (Events{"initialized 0", "registered 0", "a+ " + kKeys + "=0", "status 1",
                                "ring " + kKeys + "=0"}))
        << "the queued answer and the reports are gone";

    // The client registers again and tracks again.
    ASSERT_EQ(registerClient(), IXA_STATUS_SUCCESS);
    ASSERT_EQ(enableAddresses({kKeys}), IXA_STATUS_SUCCESS);
    expectMore(2);
    settle();
    EXPECT_EQ(reports().size(), 1u);
}

}  // namespace
}  // namespace sim
}  // namespace tracker
