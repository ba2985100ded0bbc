#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include "bluetooth/GattFixture.h"

namespace tracker {
namespace testing {
namespace {

using namespace gatt;
using util::bluetooth::TrackerDeviceAddr;
using util::bluetooth::TrackerStatus;

// A client that connects again from onDisconnected, and discovers from onConnected: both are
// allowed from inside callbacks. It discovers before it records the connection, so that a test
// that has seen the record knows the request was made; it records the disconnection before it
// reconnects, as the new connection's report could otherwise overtake the record, so a test
// waits for the reconnection request itself.
class Reconnecting : public RecordingClient {
  public:
    void onConnected(std::shared_ptr<TrackerDeviceAddr> addr, unsigned long long h) override {
        discovering = manager->discoverAllServices(h);
        RecordingClient::onConnected(addr, h);
    }
    void onDisconnected(std::shared_ptr<TrackerDeviceAddr> addr, unsigned long long h,
                        TrackerStatus status) override {
        RecordingClient::onDisconnected(addr, h, status);
        if (reconnect.exchange(false)) {
            manager->connect(addr, self.lock());
        }
    }

    std::shared_ptr<util::bluetooth::BluetoothManagerInterface> manager;
    std::weak_ptr<RecordingClient> self;
    std::atomic<bool> reconnect{true};
    std::atomic<bool> discovering{false};
};

TEST_F(GattConnection, AReconnectionThatGetsTheSameIdKeepsIt) {
    auto client = std::make_shared<Reconnecting>();
    client->manager = manager();
    client->self = client;
    // The platform hands out id 7 twice: to the first connection, and to the one the client
    // opens as it hears that the first is over.
    world().setNextConnectionId(7);
    ASSERT_TRUE(manager()->connect(address(kEddystone), client));
    settle();
    ASSERT_TRUE(client->log.waitForCount(1));
    settle();
    ASSERT_TRUE(client->log.waitForCount(2));
    EXPECT_TRUE(client->discovering) << "the handle was usable from onConnected";
    world().setNextConnectionId(7);
    ASSERT_TRUE(world().peerDisconnect(kEddystone));
    settle();
    ASSERT_TRUE(client->log.waitForCount(3));
    // The client reconnects after recording; its request must be in before time moves on.
    ASSERT_TRUE(eventually([] { return world().calls(sim::ProxyCall::ConnectGatt) == 2; }));
    settle();
    ASSERT_TRUE(client->log.waitForCount(4));
    settle();
    ASSERT_TRUE(client->log.waitForCount(5));
    EXPECT_EQ(client->log.events(), (Events{"connected 7", "discovered 7 1", "disconnected 7 -1",
                                            "connected 7", "discovered 7 1"}));
    // The ended connection's clean-up left the new one alone.
    ASSERT_TRUE(manager()->readCharacteristic(7, kBattery, kLevel));
    settle();
    ASSERT_TRUE(client->log.waitForCount(6));
    EXPECT_EQ(client->log.events().back(), "read 7 64");
    EXPECT_EQ(world().openConnections(), std::vector<int>{7});
}

// A client whose onConnected waits until the test lets it go, holding its connection's
// executor meanwhile.
class Slow : public RecordingClient {
  public:
    void onConnected(std::shared_ptr<TrackerDeviceAddr> addr, unsigned long long h) override {
        RecordingClient::onConnected(addr, h);
        released.wait_for(kEventLimit);
    }
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
};

TEST_F(GattConnection, ALateDisconnectionLeavesTheConnectionThatTookItsIdAlone) {
    auto slow = std::make_shared<Slow>();
    world().setNextConnectionId(5);
    ASSERT_TRUE(manager()->connect(address(kEddystone), slow));
    settle();
    ASSERT_TRUE(slow->log.waitForCount(1));
    // Its disconnection is reported while onConnected still runs; meanwhile the manager closes
    // every connection, and the platform gives id 5 to another.
    ASSERT_TRUE(world().peerDisconnect(kEddystone));
    settle();
    concrete()->runFullConnectionDBClean();
    world().setNextConnectionId(5);
    const unsigned long long taken = open(kCompany);
    EXPECT_EQ(taken, 5u);
    slow->release.set_value();
    ASSERT_TRUE(slow->log.waitForCount(2));
    EXPECT_EQ(slow->log.events().back(), "disconnected 5 -1");
    // The late report neither closed nor forgot the new connection 5.
    settle();
    EXPECT_EQ(world().openConnections(), std::vector<int>{5});
    ASSERT_TRUE(manager()->discoverAllServices(5));
    EXPECT_EQ(next(), "discovered 5 2");
    EXPECT_EQ(world().calls(ProxyCall::Close), 1);
}

TEST_F(GattConnection, TheProxysDeathEndsEveryConnectionForItsClient) {
    const unsigned long long first = open(kEddystone);
    const unsigned long long second = open(kCompany);
    world().killProxy();
    settle();
    // Both connections end with an error, and the client hears the proxy is back, in whatever
    // order the connections' executors and the manager's run.
    ASSERT_TRUE(m_client->log.waitForCount(m_taken + 3));
    Events events = m_client->log.events();
    events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(m_taken));
    std::sort(events.begin(), events.end());
    EXPECT_EQ(events, (Events{"disconnected " + std::to_string(first) + " -1",
                              "disconnected " + std::to_string(second) + " -1", "init ok"}));
    m_taken += 3;
    EXPECT_FALSE(manager()->discoverAllServices(first));
    EXPECT_FALSE(manager()->discoverAllServices(second));
    // The manager connects again.
    EXPECT_GT(open(kEddystone), second);
}

TEST_F(GattConnection, AnAddressThatIsNotSixBytesIsRefused) {
    for (const std::vector<uint8_t>& bytes :
         {std::vector<uint8_t>{}, std::vector<uint8_t>{0xC0, 0xFF, 0xEE},
          std::vector<uint8_t>(7, 0x01)}) {
        EXPECT_FALSE(manager()->connect(
            std::make_shared<TrackerDeviceAddr>(TrackerDeviceAddr{bytes}), m_client));
    }
    EXPECT_EQ(count('E', "connect: invalid parameters"), 3u);
    EXPECT_EQ(world().calls(ProxyCall::ConnectGatt), 0);
}

}  // namespace
}  // namespace testing
}  // namespace tracker
