// The InLoc manager under the service's faults: an adapter that starts again or fails at each
// moment of a session, each service call failing, and clients that are slow or call back in.
// After each fault and its recovery the tags' distance events reach their client again.

#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "faults/Gate.h"
#include "inloc/InLocFixture.h"
#include "tracker/inloc/IxaInLocBridge.h"

namespace tracker {
namespace testing {
namespace {

using namespace std::chrono_literals;
using sim::InLocCall;
using Events = std::vector<std::string>;

const std::vector<uint8_t> kHome = {0x0a, 0x0b, 0x0c, 0x0d};
// Tracked by address; the bag by its membership.
constexpr const char* kKeys = "C0:FF:EE:00:00:01";
constexpr const char* kBag = "C0:FF:EE:00:00:02";

class InLocFaults : public InLocTest {
  protected:
    void SetUp() override {
        InLocTest::SetUp();
        addTag(kKeys, {}, 3.0);
        addTag(kBag, kHome, 2.0);
    }
    // A client that tracks both tags.
    std::shared_ptr<InLocClient> tracking() {
        return client({membershipFilter(kHome), addressFilter(kKeys)});
    }
    static std::size_t eventsFor(InLocClient& client, const std::string& address) {
        const Events events = client.log.events();
        return static_cast<std::size_t>(
            std::count_if(events.begin(), events.end(), [&](const std::string& event) {
                return event.rfind("event " + address + " ", 0) == 0;
            }));
    }
    // Lets the service report for one period; true once the client had a new event of each tag.
    ::testing::AssertionResult hearsBoth(InLocClient& client) {
        const std::size_t keys = eventsFor(client, kKeys);
        const std::size_t bag = eventsFor(client, kBag);
        settle(1s);
        if (eventually(
                [&] { return eventsFor(client, kKeys) > keys && eventsFor(client, kBag) > bag; })) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "no new events of both tags";
    }
    static bool trackingBoth() {
        return service().trackedMemberships() == std::set<std::vector<uint8_t>>{kHome} &&
               service().trackedAddresses() == std::set<std::string>{kKeys};
    }
};

// --- The adapter starts again or fails during a session ------------------------------------

// The start that waits for a session whose initialisation failed gives up after its 10 s; the
// adapter that became ready meanwhile then opens the session, the client hears of it and its
// tags are tracked, without a second start.
TEST_F(InLocFaults, AnAdapterReadyAgainWhileAStartWaitsOpensTheSessionAfterIt) {
    service().setNextAnswer(InLocCall::AdapterInit, IXA_STATUS_FAILURE);
    auto only = tracking();
    auto started = std::async(std::launch::async, [&] { return manager()->start(only); });
    ASSERT_TRUE(awaitLine('E', "operator(): unsupported, status=1"));
    service().reportAdapterStatus(IXA_INLOC_ADAPTER_ENABLED);
    // The caller and the start operation both wait 10 s; the operation may begin its wait only
    // after the clock has moved.
    ASSERT_TRUE(eventually([&] {
        m_clock->advance(10s);
        return logged('E', "executeStart: timed out waiting for startup to complete");
    }));
    EXPECT_FALSE(started.get());
    ASSERT_TRUE(only->log.waitFor("success"));
    ASSERT_TRUE(eventually(trackingBoth));
    EXPECT_TRUE(hearsBoth(*only));
    EXPECT_EQ(occurrences(only->log.events(), "success"), 1u);
    EXPECT_EQ(occurrences(only->log.events(), "failure"), 0u);
}

// The session reopens under tracking that is in full flow: the client hears of it again, and
// the events that follow, by membership and by address, still reach it.
TEST_F(InLocFaults, EventsAfterTheAdapterIsReadyAgainStillReachTheClient) {
    auto only = tracking();
    ASSERT_TRUE(manager()->start(only));
    ASSERT_TRUE(hearsBoth(*only));
    service().reportAdapterStatus(IXA_INLOC_ADAPTER_ENABLED);
    ASSERT_TRUE(eventually([&] { return occurrences(only->log.events(), "success") == 2; }));
    ASSERT_TRUE(eventually(trackingBoth));
    EXPECT_TRUE(hearsBoth(*only));
    EXPECT_TRUE(hearsBoth(*only));
    EXPECT_FALSE(
        logged('E', "notifyOnInLocTrackingResult: Can not locate connector for the beacon"));
}

class AReopeningThatFails : public InLocFaults, public ::testing::WithParamInterface<bool> {};

// The adapter starts again mid-session and the client's registration then fails (refused by
// the service, or answered with a failure): the client hears of the failure, nothing is tracked
// and a reload says so; a stop and a start open the session again and the events come back.
TEST_P(AReopeningThatFails, TellsTheClientAndAStartOpensTheSessionAgain) {
    auto only = tracking();
    ASSERT_TRUE(manager()->start(only));
    ASSERT_TRUE(hearsBoth(*only));
    if (GetParam()) {
        service().failNext(InLocCall::RegisterClient, IXA_STATUS_FAILURE);
    } else {
        service().setNextAnswer(InLocCall::RegisterClient, IXA_STATUS_FAILURE);
    }
    service().reportAdapterStatus(IXA_INLOC_ADAPTER_ENABLED);
    ASSERT_TRUE(only->log.waitFor("failure"));
    EXPECT_FALSE(manager()->reload(only));
    const std::size_t heard = only->events().size();
    settle(2s);
    EXPECT_EQ(only->events().size(), heard);

    // The stop finds nothing the service tracks any more: its result tells nothing here.
    manager()->stop(only);
    ASSERT_TRUE(manager()->start(only));
    EXPECT_TRUE(trackingBoth());
    // The clients hear of the session just after the start has been let go.
    EXPECT_TRUE(eventually([&] { return occurrences(only->log.events(), "success") == 2; }));
    EXPECT_TRUE(hearsBoth(*only));
}

INSTANTIATE_TEST_SUITE_P(Registration, AReopeningThatFails, ::testing::Bool(),
                         [](const auto& test) {
                             return std::string(test.param ? "Refused" : "AnsweredWithAFailure");
                         });

// --- Each service call failing once --------------------------------------------------------

// clang-format off
const char* const kInLocCalls[] = {
    "AdapterInit", "RegisterClient", "EnableMembership", "DisableMembership", "EnableAddress",
    "DisableAddress", "Ring"};
// clang-format on

class EveryInLocCall : public InLocFaults, public ::testing::WithParamInterface<InLocCall> {};

// The operation that made the call reports the failure the manager promises (a false result,
// onInitializationFailure, or a retry 2 s later for the adapter), and the client's next attempt
// works: both tags' events reach it.
TEST_P(EveryInLocCall, AFailureIsReportedAndTheNextAttemptWorks) {
    const InLocCall call = GetParam();
    auto only = tracking();
    switch (call) {
        case InLocCall::AdapterInit:
            service().failNext(call, IXA_STATUS_NOT_READY);
            EXPECT_TRUE(manager()->start(only));
            EXPECT_EQ(m_clock->sleeps(), std::vector<util::Clock::Duration>{2s});
            break;
        case InLocCall::RegisterClient:
            service().failNext(call, IXA_STATUS_FAILURE);
            EXPECT_FALSE(manager()->start(only));
            ASSERT_TRUE(only->log.waitFor("failure"));
            EXPECT_TRUE(manager()->stop(only));
            EXPECT_TRUE(manager()->start(only));
            EXPECT_TRUE(only->log.waitFor("success"));
            break;
        case InLocCall::EnableMembership:
        case InLocCall::EnableAddress:
            service().failNext(call, IXA_STATUS_FAILURE);
            EXPECT_FALSE(manager()->start(only));
            EXPECT_TRUE(manager()->stop(only));
            EXPECT_TRUE(manager()->start(only));
            break;
        case InLocCall::DisableMembership:
            ASSERT_TRUE(manager()->start(only));
            service().failNext(call, IXA_STATUS_FAILURE);
            EXPECT_FALSE(manager()->stop(only));
            ASSERT_TRUE(manager()->start(only));
            EXPECT_TRUE(manager()->stop(only));
            EXPECT_TRUE(service().trackedMemberships().empty());
            ASSERT_TRUE(manager()->start(only));
            break;
        case InLocCall::DisableAddress:
            // Dropping the address filter fails; the client puts it back.
            ASSERT_TRUE(manager()->start(only));
            only->setFilters({membershipFilter(kHome)});
            service().failNext(call, IXA_STATUS_FAILURE);
            EXPECT_FALSE(manager()->reload(only));
            only->setFilters({membershipFilter(kHome), addressFilter(kKeys)});
            EXPECT_TRUE(manager()->reload(only));
            break;
        case InLocCall::Ring: {
            ASSERT_TRUE(manager()->start(only));
            service().failNext(call, IXA_STATUS_FAILURE);
            EXPECT_FALSE(manager()->ringDeviceByAddress(only, deviceAddress(kKeys)));
            // A ring the service answers for the device with a failure reaches the client as it.
            service().setNextAnswer(call, IXA_STATUS_NOT_FOUND);
            ASSERT_TRUE(manager()->ringDeviceByAddress(only, deviceAddress(kKeys)));
            const std::string notFound =
                std::to_string(util::inloc::IxaInLocBridge::toTrackerStatus(IXA_STATUS_NOT_FOUND));
            EXPECT_TRUE(only->log.waitFor(std::string("ring ") + kKeys + " " + notFound));
            ASSERT_TRUE(manager()->ringDeviceByAddress(only, deviceAddress(kKeys)));
            EXPECT_TRUE(only->log.waitFor(std::string("ring ") + kKeys + " 0"));
            break;
        }
    }
    EXPECT_TRUE(trackingBoth());
    EXPECT_TRUE(hearsBoth(*only));
}

INSTANTIATE_TEST_SUITE_P(Calls, EveryInLocCall,
                         ::testing::Values(InLocCall::AdapterInit, InLocCall::RegisterClient,
                                           InLocCall::EnableMembership,
                                           InLocCall::DisableMembership, InLocCall::EnableAddress,
                                           InLocCall::DisableAddress, InLocCall::Ring),
                         [](const auto& test) {
                             return std::string(kInLocCalls[static_cast<int>(test.param)]);
                         });

// A reload's changes that the service refused are not forgotten: the next reload, with the same
// filters, makes them, both the tracking to start and the tracking to end.
TEST_F(InLocFaults, TheNextReloadRetriesTheChangesARefusedReloadLeft) {
    auto only = client({membershipFilter(kHome)});
    ASSERT_TRUE(manager()->start(only));
    const std::vector<uint8_t> other = {0x1a, 0x1b};
    only->setFilters({membershipFilter(kHome), membershipFilter(other), addressFilter(kKeys)});
    service().failNext(InLocCall::EnableMembership, IXA_STATUS_FAILURE);
    service().failNext(InLocCall::EnableAddress, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->reload(only));
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_EQ(service().trackedMemberships(), (std::set<std::vector<uint8_t>>{kHome, other}));
    EXPECT_EQ(service().trackedAddresses(), std::set<std::string>{kKeys});
    EXPECT_TRUE(hearsBoth(*only));

    only->setFilters({membershipFilter(kHome)});
    service().failNext(InLocCall::DisableMembership, IXA_STATUS_FAILURE);
    service().failNext(InLocCall::DisableAddress, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->reload(only));
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_EQ(service().trackedMemberships(), std::set<std::vector<uint8_t>>{kHome});
    EXPECT_TRUE(service().trackedAddresses().empty());
}

// The service answers for each address on its own: after a reload it partly refused, the next
// reload settles each address by what happened to it, whatever the client changed meanwhile.
TEST_F(InLocFaults, APartlyRefusedReloadIsSettledAddressByAddress) {
    constexpr const char* kWallet = "C0:FF:EE:00:00:03";
    addTag(kWallet, {}, 1.0);
    using Tracked = std::set<std::string>;
    auto only = client({addressFilter(kKeys)});
    ASSERT_TRUE(manager()->start(only));
    // The bag's start is refused, the wallet's goes through; then the client drops the wallet.
    only->setFilters({addressFilter(kKeys), addressFilter(kBag), addressFilter(kWallet)});
    service().failNext(InLocCall::EnableAddress, IXA_STATUS_FAILURE, 1);
    EXPECT_FALSE(manager()->reload(only));
    only->setFilters({addressFilter(kKeys), addressFilter(kBag)});
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_EQ(service().trackedAddresses(), (Tracked{kKeys, kBag}));

    // The keys' stop is refused, the bag's goes through; then the client takes the bag back.
    only->setFilters({});
    service().failNext(InLocCall::DisableAddress, IXA_STATUS_FAILURE, 1);
    EXPECT_FALSE(manager()->reload(only));
    only->setFilters({addressFilter(kBag)});
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_EQ(service().trackedAddresses(), Tracked{kBag});
}

// A membership whose start a reload could not make is started by the duty cycle's resume, and
// a later reload that drops it ends its tracking.
TEST_F(InLocFaults, AMembershipARefusedReloadLeftIsSettledByTheDutyCycle) {
    const std::vector<uint8_t> other = {0x1a, 0x1b};
    using Tracked = std::set<std::vector<uint8_t>>;
    auto only = client({membershipFilter(kHome)});
    ASSERT_TRUE(manager()->setScanPeriod(only, 10s, 10s));
    ASSERT_TRUE(manager()->start(only));
    only->setFilters({membershipFilter(kHome), membershipFilter(other)});
    service().failNext(InLocCall::EnableMembership, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->reload(only));
    // Paused now, resumed 10 s later.
    manager()->onPeriodicScanTimer();
    ASSERT_TRUE(awaitLine('I', "executeToggleScan: pausing beacon scan..."));
    ASSERT_TRUE(eventually([&] {
        settle(1s);
        return logged('I', "executeToggleScan: resuming beacon scan...");
    }));
    ASSERT_TRUE(eventually([&] { return service().trackedMemberships() == Tracked{kHome, other}; }));
    only->setFilters({membershipFilter(kHome)});
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_EQ(service().trackedMemberships(), Tracked{kHome});
}

// What refusals leave due is settled by what the service tracks: a reopened session tracks
// nothing, a filter never tracked needs no stop, and a tracking under new keys is not ended by
// the stop of the old ones that is still due.
TEST_F(InLocFaults, RefusalsAreSettledByWhatTheServiceTracks) {
    using Tracked = std::set<std::string>;
    // The keys are dropped, their stop refused; the adapter starts again; they are taken back.
    auto only = tracking();
    ASSERT_TRUE(manager()->start(only));
    only->setFilters({membershipFilter(kHome)});
    service().failNext(InLocCall::DisableAddress, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->reload(only));
    service().reportAdapterStatus(IXA_INLOC_ADAPTER_ENABLED);
    ASSERT_TRUE(eventually([&] {
        const Events events = only->log.events();
        return std::count(events.begin(), events.end(), "success") == 2;
    }));
    only->setFilters({membershipFilter(kHome), addressFilter(kKeys)});
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_TRUE(trackingBoth());

    // The keys under new key data: the old filter's stop is refused, the new one started.
    TrackerScanFilter rekeyed = addressFilter(kKeys);
    rekeyed.addressFilter.bytesC = {0x01};
    rekeyed.addressFilter.bytesD = {0x01};
    only->setFilters({membershipFilter(kHome), rekeyed});
    service().failNext(InLocCall::DisableAddress, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->reload(only));
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_EQ(service().trackedAddresses(), Tracked{kKeys});

    // A membership whose start was refused, then a refused stop and a refused start.
    const std::vector<uint8_t> other = {0x1a, 0x1b};
    only->setFilters({membershipFilter(kHome), membershipFilter(other), rekeyed});
    service().failNext(InLocCall::EnableMembership, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->reload(only));
    service().failNext(InLocCall::DisableMembership, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->stop(only));
    service().failNext(InLocCall::EnableMembership, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->start(only));
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_EQ(service().trackedMemberships(), (std::set<std::vector<uint8_t>>{kHome, other}));
    EXPECT_TRUE(hearsBoth(*only));
}

// --- Slow clients, and calls from inside a callback ----------------------------------------

// A client whose onInLocTrackingResult stops at its gate.
class GatedEvents : public InLocClient {
  public:
    using InLocClient::InLocClient;
    void onInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent> event) override {
        gate.pass();
        InLocClient::onInLocTrackingResult(std::move(event));
    }
    Gate gate;
};

// While one client sits in its event callback, another's events wait behind it and none is
// lost, and the other's stop and start, which do not need the callback executor, go through.
TEST_F(InLocFaults, ASlowClientDelaysOtherEventsButLosesNone) {
    auto slow =
        std::make_shared<GatedEvents>(std::vector<TrackerScanFilter>{membershipFilter(kHome)});
    ASSERT_TRUE(manager()->registerConnector(slow));
    auto other = client({addressFilter(kKeys)});
    ASSERT_TRUE(manager()->start(slow));
    ASSERT_TRUE(manager()->start(other));
    settle(1s);
    ASSERT_TRUE(slow->gate.awaitArrival());

    EXPECT_TRUE(manager()->stop(other));
    EXPECT_TRUE(manager()->start(other));
    const std::size_t before = eventsFor(*other, kKeys);
    for (int period = 0; period < 3; ++period) {
        settle(1s);
    }
    EXPECT_EQ(eventsFor(*other, kKeys), before);
    slow->gate.open();
    EXPECT_TRUE(eventually([&] { return eventsFor(*other, kKeys) >= before + 3; }));
    EXPECT_TRUE(eventually([&] { return eventsFor(*slow, kBag) >= 4; }));
}

// A client that, from inside its first event, rings the device and tries to change its scan
// period: the ring goes out and its result comes back; the period is refused, as the client is
// started.
class CallingBack : public InLocClient {
  public:
    using InLocClient::InLocClient;
    void onInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent> event) override {
        const auto address = event->deviceAddr;
        InLocClient::onInLocTrackingResult(std::move(event));
        if (!called.exchange(true)) {
            periodRefused = !InLocManager::getInstance()->setScanPeriod(
                self.lock(), InLocManager::Seconds(5), InLocManager::Seconds(20));
            rang = InLocManager::getInstance()->ringDeviceByAddress(self.lock(), address);
        }
    }
    std::weak_ptr<CallingBack> self;
    std::atomic<bool> called{false};
    std::atomic<bool> periodRefused{false};
    std::atomic<bool> rang{false};
};

TEST_F(InLocFaults, ARingFromInsideAnEventCallbackIsAnswered) {
    auto calling =
        std::make_shared<CallingBack>(std::vector<TrackerScanFilter>{addressFilter(kKeys)});
    calling->self = calling;
    ASSERT_TRUE(manager()->registerConnector(calling));
    ASSERT_TRUE(manager()->start(calling));
    settle(1s);
    ASSERT_TRUE(calling->log.waitFor(std::string("ring ") + kKeys + " 0"));
    // The result may come before the call that asked for it has returned.
    EXPECT_TRUE(eventually([&] { return calling->rang.load(); }));
    EXPECT_TRUE(calling->periodRefused);
    const std::size_t keys = eventsFor(*calling, kKeys);
    settle(1s);
    EXPECT_TRUE(eventually([&] { return eventsFor(*calling, kKeys) > keys; }));
}

}  // namespace
}  // namespace testing
}  // namespace tracker
