#include "tracker/bluetooth/BluetoothManager.h"

#include <gtest/gtest.h>

#include <future>
#include <set>

#include "bluetooth/ManagerFixture.h"

namespace tracker {
namespace testing {
namespace {

using namespace std::chrono_literals;
using namespace sim::testtags;
using sim::ProxyCall;
using Events = std::vector<std::string>;

// The Eddystone tag's service, as a filter.
TrackerScanFilter eddystoneFilter() {
    return uuidFilter({0xFE, 0xAA});
}

TEST_F(ManagerTest, TheScanWaitsForEveryClientAndAnyStopEndsItForAll) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    auto first = client({eddystoneFilter()});
    auto second = client({markerFilter()});

    EXPECT_TRUE(manager()->start(first));
    EXPECT_TRUE(logged('I', "start: deferring startup"));
    EXPECT_FALSE(manager()->start(first));
    EXPECT_TRUE(logged('E', "start, client already started"));
    EXPECT_TRUE(scanRequests().empty());

    EXPECT_TRUE(manager()->start(second));
    ASSERT_TRUE(awaitScanStarted());
    EXPECT_EQ(scanRequests(), Events{"start 2"});
    settle();
    ASSERT_TRUE(first->log.waitFor(std::string("result ") + kEddystone));

    // One client's stop ends the scan for both, though the other is still started.
    EXPECT_TRUE(manager()->stop(first));
    EXPECT_TRUE(logged('I', "Submitted request to stop beacon scan, scanInstance = 0"));
    EXPECT_FALSE(world().scanning());
    EXPECT_FALSE(manager()->stop(first));
    EXPECT_TRUE(logged('E', "stop, client already stopped"));
    EXPECT_TRUE(manager()->stop(second));
    EXPECT_TRUE(logged('I', "stop: scanning already stopped"));

    // Started again, both: the scan comes back.
    m_log.clear();
    EXPECT_TRUE(manager()->start(first));
    EXPECT_TRUE(manager()->start(second));
    ASSERT_TRUE(awaitScanStarted());
    EXPECT_EQ(scanRequests(), (Events{"start 2", "stop", "start 2"}));
    EXPECT_TRUE(world().scanning());
}

TEST_F(ManagerTest, ClientsRegisterOnceAndStrangersAreRefused) {
    auto known = client({eddystoneFilter()});
    EXPECT_FALSE(manager()->registerConnector(known));
    EXPECT_TRUE(logged('E', "registerConnector, client already registered"));
    EXPECT_FALSE(manager()->registerConnector(nullptr));
    EXPECT_TRUE(logged('E', "registerConnector, invalid client"));

    auto stranger = std::make_shared<RecordingClient>();
    EXPECT_FALSE(manager()->start(stranger));
    EXPECT_FALSE(manager()->stop(stranger));
    EXPECT_FALSE(manager()->reload(stranger));
    EXPECT_FALSE(manager()->start(nullptr));
    for (const char* operation : {"start", "stop", "reload"}) {
        EXPECT_TRUE(logged('E', std::string(operation) + ", client not registered")) << operation;
    }
    EXPECT_TRUE(scanRequests().empty());
}

TEST_F(ManagerTest, ReloadRestartsTheScanWhateverTheClientsState) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    auto stopped = client({eddystoneFilter()});
    EXPECT_TRUE(manager()->reload(stopped));
    EXPECT_TRUE(logged('I', "reload: reloading scan filters..."));
    ASSERT_TRUE(awaitScanStarted());
    m_log.clear();
    EXPECT_TRUE(manager()->reload(stopped));
    EXPECT_TRUE(logged('E', "reload, Stopping beacon scanning before reload."));
    ASSERT_TRUE(awaitScanStarted());
    EXPECT_EQ(scanRequests(), (Events{"start 1", "stop", "start 1"}));

    // A stop the platform refuses fails the reload, and leaves the scan running.
    world().failNext(ProxyCall::StopScan);
    EXPECT_FALSE(manager()->reload(stopped));
    EXPECT_TRUE(logged('E', "Stop beacon scan request failed"));
    EXPECT_TRUE(logged('E', "reload, failed to stop scanning"));
    EXPECT_TRUE(world().scanning());
}

TEST_F(ManagerTest, InitialisationRetriesThenLeavesTheUninitialisedManagerBehind) {
    world().failNext(ProxyCall::Initialize, 3);
    EXPECT_EQ(Manager::getInstance(), nullptr);
    EXPECT_EQ(m_clock->sleeps(), (std::vector<util::Clock::Duration>{300s, 600s}));
    EXPECT_EQ(count('D', "initializeWithRetrySync: waiting to retry"), 2u);
    EXPECT_EQ(count('D', "initializeWithRetrySync: retrying"), 2u);
    EXPECT_EQ(count('E', "Initializing Android Bluetooth Proxy Manager failed"), 3u);
    EXPECT_TRUE(logged('E', "initializeWithRetrySync: Reached max retries"));
    EXPECT_TRUE(logged('E', "getInstance, failed to initialize BluetoothManager"));

    // Later calls return the manager as it is, without trying again.
    const std::shared_ptr<Manager> later = Manager::getInstance();
    EXPECT_NE(later, nullptr);
    EXPECT_EQ(Manager::getInstance(), later);
    EXPECT_EQ(world().calls(ProxyCall::Initialize), 3);
    EXPECT_FALSE(world().proxyReady());
}

TEST_F(ManagerTest, InitialisationSucceedsOnTheThirdAttempt) {
    world().failNext(ProxyCall::Initialize, 2);
    EXPECT_NE(manager(), nullptr);
    EXPECT_EQ(m_clock->sleeps(), (std::vector<util::Clock::Duration>{300s, 600s}));
    EXPECT_EQ(count('D', "Intializing BluetoothManager"), 3u);
    EXPECT_EQ(world().calls(ProxyCall::RegisterForProxyDeath), 1);
    EXPECT_FALSE(logged('E', "initializeWithRetrySync: Reached max retries"));
}

TEST_F(ManagerTest, FirstCallsOnSeveralThreadsMakeOneManager) {
    std::promise<void> go;
    std::shared_future<void> ready = go.get_future().share();
    std::vector<std::future<std::shared_ptr<Manager>>> callers;
    for (int caller = 0; caller < 4; ++caller) {
        callers.push_back(std::async(std::launch::async, [ready] {
            ready.wait();
            return Manager::getInstance();
        }));
    }
    go.set_value();
    std::set<Manager*> made;
    for (auto& caller : callers) {
        made.insert(caller.get().get());
    }
    EXPECT_EQ(made.size(), 1u);
    EXPECT_NE(*made.begin(), nullptr);
    EXPECT_EQ(world().calls(ProxyCall::Initialize), 1);
}

TEST_F(ManagerTest, AProxyDeathReinitialisesAndTellsTheClientsButDoesNotRescan) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    auto only = client({eddystoneFilter()});
    ASSERT_TRUE(manager()->start(only));
    ASSERT_TRUE(awaitScanStarted());

    world().killProxy();
    settle();
    ASSERT_TRUE(only->log.waitFor("init ok"));
    EXPECT_TRUE(world().proxyReady());
    EXPECT_EQ(world().calls(ProxyCall::Initialize), 2);
    EXPECT_EQ(world().calls(ProxyCall::RegisterForProxyDeath), 2);
    EXPECT_FALSE(world().scanning()) << "discovery is not restarted";
    EXPECT_EQ(scanRequests(), Events{"start 1"});

    // A second death with the proxy refusing to come back: three attempts, then the clients
    // hear of the failure. The death registration may fail on its own, too.
    world().failNext(ProxyCall::RegisterForProxyDeath);
    world().failNext(ProxyCall::Initialize, 2);
    world().killProxy();
    settle();
    ASSERT_TRUE(only->log.waitFor("init failed"));
    ASSERT_TRUE(awaitLine('E', "handleAndroidBtProxyDeath: Failed to re-init"));
    EXPECT_TRUE(logged('E', "initialize: Failed to register for proxy death"));
    EXPECT_EQ(only->log.events(), (Events{"init ok", "init failed"}));
    EXPECT_EQ(m_clock->sleeps(), (std::vector<util::Clock::Duration>{300s, 600s}));

    // A client that wants to scan again reloads.
    EXPECT_TRUE(proxy().initialize(300));
    m_log.clear();
    EXPECT_TRUE(manager()->reload(only));
    ASSERT_TRUE(awaitScanStarted());
}

TEST_F(ManagerTest, UnsupportedOperationsOnlyLog) {
    auto only = client({});
    std::vector<uint8_t> beacon = {0x01};
    EXPECT_TRUE(manager()->setScanPeriod(only, 10, 20));
    EXPECT_FALSE(manager()->cancelConnect(nullptr, only));
    manager()->startBroadcastingIBeacons(beacon, only);
    manager()->stopBroadcastingIBeacons(only);
    manager()->cleanup();
    for (const std::string& expected :
         {line('E', "scan period not supported on KOS"), line('E', "not supported"),
          line('D', "startBroadcastingIBeacons"), line('D', "stopBroadcastingIBeacons"),
          line('D', "cleanup")}) {
        EXPECT_TRUE(m_log.contains(expected)) << expected;
    }
    EXPECT_TRUE(scanRequests().empty());
}

}  // namespace
}  // namespace testing
}  // namespace tracker
