#include <future>

#include "inloc/InLocFixture.h"

namespace tracker {
namespace testing {
namespace {

using namespace std::chrono_literals;
using Requests = std::vector<std::string>;

const std::vector<uint8_t> kHome = {0x0a, 0x0b, 0x0c, 0x0d};
const std::vector<uint8_t> kWork = {0x1a, 0x1b};
constexpr const char* kKeys = "C0:FF:EE:00:00:01";

TEST_F(InLocTest, TheSessionOpensOnlyOnceTheLastClientStarts) {
    auto first = client({membershipFilter(kHome)});
    auto second = client({addressFilter(kKeys)});

    EXPECT_TRUE(manager()->start(first));
    EXPECT_TRUE(logged('I', "executeStart: deferring startup"));
    EXPECT_TRUE(asked().empty());
    EXPECT_FALSE(manager()->start(first)) << "a client starts once";
    EXPECT_TRUE(logged('E', "setClientState: client already started"));

    EXPECT_TRUE(manager()->start(second));
    EXPECT_EQ(asked(), (Requests{"init", "register", "enable-membership 0a0b0c0d",
                                 "enable-address C0:FF:EE:00:00:01"}));
    for (const auto& connector : {first, second}) {
        ASSERT_TRUE(connector->log.waitForCount(1));
        EXPECT_EQ(connector->log.events(), Requests{"success"});
    }
    EXPECT_TRUE(logged('I', "setStartupState: completing startup; result=1"));
    EXPECT_TRUE(logged('I', "executeStart: session startup complete; start scanning..."));
    EXPECT_TRUE(logged('D', "start: start complete: result=1"));
    EXPECT_TRUE(logged('I', "startTrackingByAddressLocked: addr=MAC:00:01"));

    // A client started again after a stop finds the session open.
    EXPECT_TRUE(manager()->stop(first));
    EXPECT_TRUE(manager()->start(first));
    EXPECT_TRUE(logged('I', "executeStart: restart scanning..."));
    EXPECT_EQ(service().calls(sim::InLocCall::AdapterInit), 1);
}

TEST_F(InLocTest, AnAdapterThatNeverInitialisesGivesUpAfterThirtyAttempts) {
    service().failNext(sim::InLocCall::AdapterInit, IXA_STATUS_NOT_READY, 30);
    auto only = client({membershipFilter(kHome)});

    // The retries' 58 s outlast the caller's 10 s: it gives up first, and they run on.
    EXPECT_FALSE(manager()->start(only));
    ASSERT_TRUE(awaitLine('E', "executeStart: startup failed"));
    EXPECT_EQ(service().calls(sim::InLocCall::AdapterInit), 30);
    EXPECT_EQ(m_clock->sleeps(), std::vector<util::Clock::Duration>(29, 2s));
    EXPECT_TRUE(logged('E', "startSessionLocked: unable to open InLoc session, status=2"));
    EXPECT_TRUE(logged('I', "startSessionLocked: will retry InLoc open session after 2 seconds"));
    EXPECT_TRUE(logged(
        'E', "startSessionLocked: unable to open InLoc session after 60 seconds; giving up"));
    EXPECT_EQ(service().calls(sim::InLocCall::RegisterClient), 0);
}

TEST_F(InLocTest, AFailedInitialisationLeavesTheStartToTimeOut) {
    service().setNextAnswer(sim::InLocCall::AdapterInit, IXA_STATUS_FAILURE);
    auto only = client({membershipFilter(kHome)});

    const util::Clock::TimePoint deadline = m_clock->now() + 10s;
    auto started = std::async(std::launch::async, [&] { return manager()->start(only); });
    ASSERT_TRUE(awaitLine('E', "operator(): unsupported, status=1"));
    ASSERT_TRUE(m_clock->waitForDeadline(deadline, kEventLimit));
    // The caller and the start operation both wait 10 s; the operation may begin its wait only
    // after the clock has moved, so time moves on until it has given up too.
    ASSERT_TRUE(eventually([&] {
        m_clock->advance(10s);
        return logged('E', "executeStart: timed out waiting for startup to complete");
    }));
    EXPECT_FALSE(started.get());
    EXPECT_EQ(service().calls(sim::InLocCall::RegisterClient), 0);
    EXPECT_TRUE(only->log.events().empty());
}

TEST_F(InLocTest, ARegistrationThatFailsFailsTheStartAndTellsTheClients) {
    service().setNextAnswer(sim::InLocCall::RegisterClient, IXA_STATUS_FAILURE);
    auto only = client({membershipFilter(kHome)});

    EXPECT_FALSE(manager()->start(only));
    EXPECT_TRUE(logged('E', "operator(): InLoc client registration failed; status=1"));
    EXPECT_TRUE(logged('E', "executeStart: startup failed"));
    ASSERT_TRUE(only->log.waitForCount(1));
    EXPECT_EQ(only->log.events(), Requests{"failure"});

    // A registration the service refuses outright is reported the same way.
    service().reset();
    auto later = std::make_shared<InLocClient>();
    service().failNext(sim::InLocCall::RegisterClient, IXA_STATUS_NOT_READY);
    EXPECT_TRUE(manager()->registerConnector(later));
    EXPECT_FALSE(manager()->start(later)) << "the session is not open yet";
    EXPECT_TRUE(logged('E',
                       "registerClient: failed to submit inLoc client registration to inLoc "
                       "service; status=2"));
}

TEST_F(InLocTest, AStartThatWaitsTooLongReturnsFalseButStillCompletes) {
    auto only = client({membershipFilter(kHome)});
    // The session opens late: two attempts fail, and their 2 s retry waits block.
    auto blocking = std::make_shared<util::ManualClock>(util::ManualClock::SleepMode::Block);
    util::Clock::install(blocking);
    service().failNext(sim::InLocCall::AdapterInit, IXA_STATUS_NOT_READY, 2);

    const util::Clock::TimePoint deadline = blocking->now() + 10s;
    auto started = std::async(std::launch::async, [&] { return manager()->start(only); });
    ASSERT_TRUE(blocking->waitForSleeps(1, kEventLimit));
    ASSERT_TRUE(blocking->waitForDeadline(deadline, kEventLimit));
    blocking->advance(10s);
    EXPECT_FALSE(started.get());
    EXPECT_TRUE(logged('E', "start: timed out waiting for start"));
    ASSERT_TRUE(blocking->waitForSleeps(2, kEventLimit));
    blocking->advance(2s);
    // The operation went on, opened the session and enabled tracking.
    ASSERT_TRUE(only->log.waitForCount(1));
    ASSERT_TRUE(eventually([] { return !service().trackedMemberships().empty(); }));
}

// A client whose first event callback blocks until the test lets it go, holding the manager's
// callback executor meanwhile.
class SlowClient : public InLocClient {
  public:
    using InLocClient::InLocClient;
    void onInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent> event) override {
        if (!blocked.exchange(true)) {
            entered.set_value();
            released.wait_for(kEventLimit);
        }
        InLocClient::onInLocTrackingResult(std::move(event));
    }
    std::atomic<bool> blocked{false};
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
};

TEST_F(InLocTest, ASessionThatOpensAfterItsStartGaveUpStillTracks) {
    auto slow =
        std::make_shared<SlowClient>(std::vector<TrackerScanFilter>{membershipFilter(kHome)});
    ASSERT_TRUE(manager()->registerConnector(slow));
    ASSERT_TRUE(manager()->start(slow));
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
    ASSERT_EQ(slow->entered.get_future().wait_for(kEventLimit), std::future_status::ready);

    // The adapter starts again; its answers queue behind the slow callback, and the reopening
    // start gives up after 10 s.
    settle();
    const util::Clock::TimePoint deadline = m_clock->now() + 10s;
    service().reportAdapterStatus(IXA_INLOC_ADAPTER_ENABLED);
    ASSERT_TRUE(m_clock->waitForDeadline(deadline, kEventLimit));
    m_clock->advance(10s);
    ASSERT_TRUE(awaitLine('E', "executeStart: timed out waiting for startup to complete"));
    EXPECT_TRUE(service().trackedMemberships().empty());

    slow->release.set_value();
    ASSERT_TRUE(eventually([] { return service().trackedMemberships().size() == 1; }));
}

TEST_F(InLocTest, AReloadAppliesOnlyWhatChanged) {
    auto only = client({membershipFilter(kHome), addressFilter(kKeys)});
    EXPECT_FALSE(manager()->reload(only)) << "no session yet";
    EXPECT_TRUE(logged('E', "executeReload: session not started; ignoring reload"));
    EXPECT_TRUE(logged('D', "reload: reload complete: result=0"));

    ASSERT_TRUE(manager()->start(only));
    const std::size_t before = service().requests().size();
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_EQ(service().requests().size(), before) << "an unchanged list calls nothing";

    only->setFilters({membershipFilter(kWork), addressFilter(kKeys)});
    EXPECT_TRUE(manager()->reload(only));
    const Requests requests = asked();
    EXPECT_EQ(Requests(requests.begin() + static_cast<std::ptrdiff_t>(before), requests.end()),
              (Requests{"disable-membership 0a0b0c0d", "enable-membership 1a1b"}));
    EXPECT_EQ(service().trackedMemberships(), (std::set<std::vector<uint8_t>>{kWork}));

    // A filter that another client still holds stays when one client drops it.
    auto other = client({membershipFilter(kWork)});
    ASSERT_TRUE(manager()->start(other));
    only->setFilters({addressFilter(kKeys)});
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_EQ(service().trackedMemberships(), (std::set<std::vector<uint8_t>>{kWork}));
    only->setFilters({membershipFilter(kWork), addressFilter(kKeys)});
    EXPECT_TRUE(manager()->reload(only));

    // A removed address filter ends address tracking, and a failure is reported.
    only->setFilters({membershipFilter(kWork)});
    service().failNext(sim::InLocCall::DisableAddress, IXA_STATUS_FAILURE);
    EXPECT_FALSE(manager()->reload(only));
    EXPECT_TRUE(logged('E', "stopTrackingByAddressLocked: error from ILS:1"));
    EXPECT_TRUE(logged('E', "executeReload: failed to stop scanning"));
}

TEST_F(InLocTest, AStopEndsMembershipTrackingOnly) {
    auto only = client({membershipFilter(kHome), addressFilter(kKeys)});
    ASSERT_TRUE(manager()->start(only));
    EXPECT_TRUE(manager()->stop(only));
    EXPECT_TRUE(service().trackedMemberships().empty());
    EXPECT_EQ(service().trackedAddresses(), std::set<std::string>{kKeys});
    EXPECT_TRUE(logged('D', "stopTrackingByMembershipLocked: Submitted request to stop tracking"));
    EXPECT_FALSE(manager()->stop(only));
    EXPECT_TRUE(logged('E', "setClientState: client already stopped"));

    auto stranger = std::make_shared<InLocClient>();
    EXPECT_FALSE(manager()->start(stranger));
    EXPECT_TRUE(logged('E', "setClientState: client not registered"));
    EXPECT_FALSE(manager()->registerConnector(only));
    EXPECT_TRUE(logged('E', "registerConnector: client already registered"));
    EXPECT_FALSE(manager()->registerConnector(nullptr));
}

TEST_F(InLocTest, AnAdapterThatIsReadyAgainReopensTheSession) {
    auto only = client({membershipFilter(kHome), addressFilter(kKeys)});
    ASSERT_TRUE(manager()->start(only));
    ASSERT_TRUE(only->log.waitForCount(1));

    service().reportAdapterStatus(IXA_INLOC_ADAPTER_ENABLED);
    ASSERT_TRUE(only->log.waitForCount(2));
    ASSERT_TRUE(eventually([] {
        return service().trackedMemberships().size() == 1 &&
               service().trackedAddresses().size() == 1;
    }));
    EXPECT_EQ(service().calls(sim::InLocCall::AdapterInit), 2);
    EXPECT_EQ(service().calls(sim::InLocCall::RegisterClient), 2);
    EXPECT_EQ(only->log.events(), (Requests{"success", "success"}));

    // Any other state is only logged.
    service().reportAdapterStatus(IXA_INLOC_ADAPTER_DISABLED);
    settle();
    EXPECT_EQ(service().calls(sim::InLocCall::AdapterInit), 2);
}

TEST_F(InLocTest, AClientWithoutFiltersStartsNothing) {
    auto only = client({});
    EXPECT_TRUE(manager()->start(only));
    EXPECT_TRUE(logged('I', "executeStart: empty scan filter; not starting scan"));
    EXPECT_EQ(asked(), (Requests{"init", "register"}));

    // Unsupported kinds are kept in the merged list but never reach the platform.
    TrackerScanFilter uuid;
    uuid.type = util::bluetooth::TYPE_UUID;
    uuid.uuidFilter.uuid = kWork;
    only->setFilters({uuid});
    EXPECT_TRUE(manager()->reload(only));
    EXPECT_TRUE(logged('E', "updateScanFilter: filter type not supported"));
    EXPECT_EQ(asked(), (Requests{"init", "register"}));
}

}  // namespace
}  // namespace testing
}  // namespace tracker
