#include <gtest/gtest.h>

#include <algorithm>

#include <frameworklink/interfaces/ParcelByteArray.h>

#include "bluetooth/GattFixture.h"
#include "support/Waits.h"
#include "tracker/bluetooth/AndroidBLEBridge.h"

namespace tracker {
namespace testing {
namespace {

using namespace gatt;

TEST_F(GattConnection, AFullSessionWithNotificationsAndIndications) {
    const unsigned long long h = open(kEddystone);
    const std::string id = std::to_string(h);
    EXPECT_TRUE(logged('D', "connect: macAddr = MAC:00:01"));
    EXPECT_TRUE(m_log.contains(handlerLine('D', "operator(): Connected to C0:FF:EE:00:00:01")));
    ASSERT_TRUE(manager()->discoverAllServices(h));
    EXPECT_EQ(next(), "discovered " + id + " 1");
    ASSERT_TRUE(manager()->readCharacteristic(h, kBattery, kLevel));
    EXPECT_EQ(next(), "read " + id + " 64");
    ASSERT_TRUE(manager()->writeCharacteristic(h, kBattery, kLevel, {0x32}));
    EXPECT_EQ(next(), "write " + id);

    // The configuration descriptor's value sets the flags: 01 00 on, 00 00 off, 02 00 (an
    // indication) neither, and only the first two are logged.
    ASSERT_TRUE(manager()->setCharacteristicNotification(h, kBattery, kLevel, true));
    EXPECT_EQ(next(), "descriptor " + id + " 32 from=1 on=1");
    ASSERT_TRUE(world().notifyValue(kEddystone, AndroidBLEBridge::toParcelUuid(kBattery),
                                    AndroidBLEBridge::toParcelUuid(kLevel), {0x31}));
    EXPECT_EQ(next(), "changed " + id + " 31");
    ASSERT_TRUE(manager()->setCharacteristicNotification(h, kBattery, kLevel, false));
    EXPECT_EQ(next(), "descriptor " + id + " 31 from=1 on=0");
    ASSERT_TRUE(manager()->setCharacteristicNotification(h, kBattery, kAlert, true));
    EXPECT_EQ(next(), "descriptor " + id + " 01 from=1 on=0");
    const Events texts = m_log.texts();
    EXPECT_EQ(std::count(texts.begin(), texts.end(),
                         handlerLine('D', "onDescriptorWrite: notificationOn")),
              1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(),
                         handlerLine('D', "onDescriptorWrite: notificationOff")),
              1);

    for (const char* expected :
         {"onConnectionStateChange, status=0, newState=2", "onServicesDiscovered=0",
          "readCharacteristic, found characteristic", "onCharacteristicRead=0",
          "writeCharacteristic, found characteristic", "onCharacteristicWrite=0",
          "setCharacteristicNotification, found characteristic",
          "onDescriptorWrite: onDescriptorWrite=0", "onCharacteristicChanged"}) {
        EXPECT_TRUE(m_log.contains(handlerLine('D', expected))) << expected;
    }
    const Events lines = m_log.texts();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& text) {
        return text.rfind(handlerLine('D', "readCharacteristic, BluetoothGattCharacteristic{"),
                          0) == 0;
    }));

    ASSERT_TRUE(manager()->disconnect(h));
    EXPECT_EQ(next(), "disconnected " + id + " 0");
    EXPECT_TRUE(m_log.contains(handlerLine('D', "onConnectionStateChange, status=0, newState=0")));
    EXPECT_TRUE(m_log.contains(handlerLine('D', "operator(): Disonnected to C0:FF:EE:00:00:01")));
    EXPECT_TRUE(forgotten(h));
    EXPECT_EQ(world().calls(ProxyCall::Close), 1);
    EXPECT_TRUE(world().openConnections().empty());
}

TEST_F(GattConnection, LookupsFailBeforeDiscoveryOnStrangersAndForUnknownHandles) {
    const unsigned long long h = open(kCompany);
    EXPECT_FALSE(manager()->readCharacteristic(h, kBattery, kLevel));
    EXPECT_FALSE(manager()->writeCharacteristic(h, kBattery, kLevel, {0x01}));
    EXPECT_FALSE(manager()->setCharacteristicNotification(h, kBattery, kLevel, true));
    for (const char* operation :
         {"readCharacteristic", "writeCharacteristic", "setCharacteristicNotification"}) {
        EXPECT_TRUE(m_log.contains(
            handlerLine('E', std::string(operation) + ", Can not find service or characteristic")))
            << operation;
    }
    ASSERT_TRUE(manager()->discoverAllServices(h));
    EXPECT_EQ(next(), "discovered " + std::to_string(h) + " 2");
    // Two services share the UUID: the name is only in the second, and still found.
    ASSERT_TRUE(manager()->readCharacteristic(h, kBattery, kName));
    EXPECT_EQ(next(), "read " + std::to_string(h) + " 41");
    // A UUID of no valid length names nothing.
    m_log.clear();
    EXPECT_FALSE(manager()->readCharacteristic(h, kBattery, TrackerUuid{{0x2A, 0x19, 0x00}}));
    EXPECT_TRUE(m_log.contains(
        handlerLine('E', "readCharacteristic, Can not find service or characteristic")));

    // Unknown handles: the requests say so, disconnect and discovery only log their name.
    const unsigned long long unknown = 99;
    m_log.clear();
    EXPECT_FALSE(manager()->readCharacteristic(unknown, kBattery, kLevel));
    EXPECT_FALSE(manager()->writeCharacteristic(unknown, kBattery, kLevel, {}));
    EXPECT_FALSE(manager()->setCharacteristicNotification(unknown, kBattery, kLevel, false));
    EXPECT_FALSE(manager()->disconnect(unknown));
    EXPECT_FALSE(manager()->discoverAllServices(unknown));
    EXPECT_EQ(m_log.texts(),
              (Events{line('E', "readCharacteristic: No client found for connHandle=99"),
                      line('E', "writeCharacteristic: No client found for connHandle=99"),
                      line('E', "setCharacteristicNotification: No client found for connHandle=99"),
                      line('D', "disconnect"), line('D', "discoverAllServices")}));
}

TEST_F(GattConnection, HandlesAreTheSignExtendedConnectionIds) {
    // -2 becomes 0xFFFFFFFFFFFFFFFE, and goes back to the platform as -2.
    world().setNextConnectionId(-2);
    const unsigned long long h = open(kEddystone);
    EXPECT_EQ(h, 0xFFFFFFFFFFFFFFFEULL);
    ASSERT_TRUE(manager()->discoverAllServices(h));
    EXPECT_EQ(next(), "discovered 18446744073709551614 1");

    // -1 is the handle a handler has before it is set: its state changes are ignored.
    world().setNextConnectionId(-1);
    ASSERT_TRUE(manager()->connect(address(kCompany), m_client));
    settle();
    ASSERT_TRUE(m_log.waitFor(handlerLine('E', "m_connHandle not set."), kEventLimit));
    ASSERT_TRUE(manager()->disconnect(~0ULL));
    settle();
    EXPECT_TRUE(eventually([&] {
        const Events texts = m_log.texts();
        return std::count(texts.begin(), texts.end(), handlerLine('E', "m_connHandle not set.")) ==
               2;
    }));
    EXPECT_EQ(m_client->log.events(),
              (Events{"connected 18446744073709551614", "discovered 18446744073709551614 1"}));
}

TEST_F(GattConnection, TheCleanUpClosesConnectionsTenMinutesOld) {
    const util::Clock::TimePoint start = m_clock->now();
    manager();
    // The clean-up's schedule counts from when its thread begins: wait for it before time moves.
    ASSERT_TRUE(m_clock->waitForDeadline(start + 10min, kEventLimit));
    const unsigned long long old = open(kEddystone);  // made at start
    const unsigned long long young = open(kCompany);  // made 1 s later
    // The clean-up runs 10 minutes after initialisation, and every 10 minutes after a run.
    m_clock->advance(start + 10min - m_clock->now());
    ASSERT_TRUE(m_clock->waitForDeadline(start + 20min, kEventLimit));
    EXPECT_TRUE(logged('D', "runGattDbCleanupTask"));
    EXPECT_TRUE(logged('D', "Deleting connection handle = " + std::to_string(old)));
    EXPECT_FALSE(logged('D', "Deleting connection handle = " + std::to_string(young)));
    EXPECT_EQ(world().openConnections(), std::vector<int>{static_cast<int>(young)});
    EXPECT_FALSE(manager()->discoverAllServices(old));

    m_clock->advance(10min);
    ASSERT_TRUE(m_clock->waitForDeadline(start + 30min, kEventLimit));
    EXPECT_TRUE(logged('D', "Deleting connection handle = " + std::to_string(young)));
    EXPECT_TRUE(world().openConnections().empty());
    // A forced close is not reported to the client.
    EXPECT_EQ(m_client->log.events().size(), 2u);
}

// A client that, told of a disconnection, forgets every connection at once: the handler that
// is calling it loses its last reference outside its own executor's task.
class ForgetfulClient : public RecordingClient {
  public:
    void onDisconnected(std::shared_ptr<util::bluetooth::TrackerDeviceAddr> addr,
                        unsigned long long h, util::bluetooth::TrackerStatus status) override {
        manager->runFullConnectionDBClean();
        RecordingClient::onDisconnected(std::move(addr), h, status);
    }
    std::shared_ptr<util::bluetooth::BluetoothManager> manager;
};

TEST_F(GattConnection, AHandlerDroppedFromItsOwnCallbackGoesQuietly) {
    auto forgetful = std::make_shared<ForgetfulClient>();
    forgetful->manager = concrete();
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(manager()->connect(address(kEddystone), forgetful));
        settle();
        ASSERT_TRUE(forgetful->log.waitForCount(2 * round + 1));
        ASSERT_TRUE(world().peerDisconnect(kEddystone));
        settle();
        ASSERT_TRUE(forgetful->log.waitForCount(2 * round + 2));
    }
    EXPECT_EQ(forgetful->log.events(),
              (Events{"connected 1", "disconnected 1 -1", "connected 2", "disconnected 2 -1",
                      "connected 3", "disconnected 3 -1"}));
    EXPECT_TRUE(world().openConnections().empty());
}

TEST_F(GattConnection, ConnectionsThatFailOrEndAreReportedOnceWithTheirStatus) {
    EXPECT_FALSE(manager()->connect(nullptr, m_client));
    EXPECT_FALSE(manager()->connect(address(kEddystone), nullptr));
    EXPECT_EQ(count('E', "connect: invalid parameters"), 2u);
    world().failNext(ProxyCall::ConnectGatt);
    EXPECT_FALSE(manager()->connect(address(kEddystone), m_client));
    EXPECT_TRUE(logged('E', "unableToConnectToPeripheral"));

    // An absent tag: the stack gives up after 30 s; 133 is an error to the client.
    ASSERT_TRUE(manager()->connect(address(kOther), m_client));
    EXPECT_TRUE(quiet(29s));
    EXPECT_EQ(next(), "disconnected 1 -1");
    EXPECT_TRUE(m_log.contains(
        handlerLine('E', "connection/disconnection request failed, status=133, newState=0")));
    // Statuses 62 and 147 are failures; a peer's 19 is an error.
    world().setNextStatus(GattAnswer::Connect, 62);
    ASSERT_TRUE(manager()->connect(address(kEddystone), m_client));
    EXPECT_EQ(next(), "disconnected 2 1");
    const unsigned long long h = open(kEddystone);
    world().failNext(ProxyCall::Close);
    ASSERT_TRUE(world().peerDisconnect(kEddystone));
    EXPECT_EQ(next(), "disconnected " + std::to_string(h) + " -1");
    EXPECT_TRUE(m_log.contains(handlerLine(
        'E', "operator(): Failed to close Gatt client for connHandle=" + std::to_string(h))));
    EXPECT_TRUE(forgotten(h));
    // Nothing more for it, even with the platform's connection still open.
    EXPECT_TRUE(quiet(5s));
}

TEST_F(GattConnection, FailedAndRefusedRequestsReachTheClientAsFailures) {
    const unsigned long long h = open(kEddystone);
    const std::string id = std::to_string(h);
    world().setNextStatus(GattAnswer::Discover, 133);
    ASSERT_TRUE(manager()->discoverAllServices(h));
    EXPECT_EQ(next(), "discovery failed " + id);
    EXPECT_TRUE(m_log.contains(handlerLine('E', "onServicesDiscovered failed, status=133")));
    world().failNext(ProxyCall::GetServices);
    ASSERT_TRUE(manager()->discoverAllServices(h));
    EXPECT_EQ(next(), "discovery failed " + id);
    EXPECT_TRUE(m_log.contains(handlerLine('E', "unableToGetDiscoveredServices")));
    ASSERT_TRUE(manager()->discoverAllServices(h));
    EXPECT_EQ(next(), "discovered " + id + " 1");

    world().setNextStatus(GattAnswer::Read, 137);
    ASSERT_TRUE(manager()->readCharacteristic(h, kBattery, kLevel));
    EXPECT_EQ(next(), "read failed " + id);
    EXPECT_TRUE(m_log.contains(handlerLine(
        'E', "ReadCharacteristicFailed, uuid=00002a19-0000-1000-8000-00805f9b34fb, status=137")));
    world().setNextStatus(GattAnswer::Write, 3);
    ASSERT_TRUE(manager()->writeCharacteristic(h, kBattery, kLevel, {0x01}));
    EXPECT_EQ(next(), "write failed " + id);
    world().setNextStatus(GattAnswer::DescriptorWrite, 133);
    ASSERT_TRUE(manager()->setCharacteristicNotification(h, kBattery, kLevel, true));
    EXPECT_EQ(next(), "descriptor failed " + id);

    // What the platform refuses outright: the alert can neither be read nor written.
    EXPECT_FALSE(manager()->readCharacteristic(h, kBattery, kAlert));
    EXPECT_FALSE(manager()->writeCharacteristic(h, kBattery, kAlert, {0x01}));
    world().failNext(ProxyCall::SetCharacteristicNotification);
    EXPECT_FALSE(manager()->setCharacteristicNotification(h, kBattery, kLevel, true));
    for (const char* refusal :
         {"readCharacteristic, unableToreadCharacteristic",
          "writeCharacteristic, unableTowriteCharacteristic",
          "setCharacteristicNotification, unableToSetCharacteristicNotification"}) {
        EXPECT_TRUE(m_log.contains(handlerLine('E', refusal))) << refusal;
    }
}

TEST_F(GattConnection, AnswersThatLackPartsComeTwiceOrComeUnasked) {
    const unsigned long long h = discovered(kEddystone);
    const std::string id = std::to_string(h);
    world().stripNext(GattAnswer::Read, sim::Missing::Value);
    ASSERT_TRUE(manager()->readCharacteristic(h, kBattery, kLevel));
    EXPECT_EQ(next(), "read failed " + id);
    world().stripNext(GattAnswer::DescriptorWrite, sim::Missing::Characteristic);
    ASSERT_TRUE(manager()->setCharacteristicNotification(h, kBattery, kLevel, true));
    EXPECT_EQ(next(), "descriptor failed " + id);
    EXPECT_TRUE(m_log.contains(
        handlerLine('E',
                    "onDescriptorWrite: BluetoothGattDescriptor has not set corresponding "
                    "BluetoothGattCharacteristic")));
    world().stripNext(GattAnswer::DescriptorWrite, sim::Missing::Value);
    ASSERT_TRUE(manager()->setCharacteristicNotification(h, kBattery, kLevel, true));
    EXPECT_EQ(next(), "descriptor failed " + id);
    EXPECT_TRUE(m_log.contains(
        handlerLine('E', "onDescriptorWrite: BluetoothGattDescriptor value is null")));

    // A notification without a value still reaches the client, empty.
    world().stripNext(GattAnswer::Notification, sim::Missing::Value);
    ASSERT_TRUE(world().notifyValue(kEddystone, AndroidBLEBridge::toParcelUuid(kBattery),
                                    AndroidBLEBridge::toParcelUuid(kLevel), {0x07}));
    EXPECT_EQ(next(), "changed " + id + " ");
    EXPECT_TRUE(m_log.contains(
        handlerLine('E', "onCharacteristicChanged: BluetoothGattCharacteristic has empty value")));

    // Twice, or never asked for: passed on as they come.
    world().duplicateNext(GattAnswer::Read);
    ASSERT_TRUE(manager()->readCharacteristic(h, kBattery, kLevel));
    EXPECT_EQ(next(), "read " + id + " 07");
    EXPECT_EQ(next(0s), "read " + id + " 07");
    ASSERT_TRUE(world().sendUnsolicited(static_cast<int>(h), GattAnswer::Write));
    EXPECT_EQ(next(), "write " + id);
    ASSERT_TRUE(world().sendUnsolicited(static_cast<int>(h), GattAnswer::Connect));
    EXPECT_EQ(next(), "connected " + id);
}

}  // namespace
}  // namespace testing
}  // namespace tracker
