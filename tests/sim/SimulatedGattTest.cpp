#include <gtest/gtest.h>

#include <cstdio>

#include "sim/SimTags.h"
#include "support/SimBluetooth.h"

namespace tracker {
namespace sim {
namespace {

using android::bluetooth::BluetoothDevice;
using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattDescriptor;
using android::bluetooth::BluetoothGattService;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using com::orvane::frameworklink::managers::IAndroidBTGattCallback;
using testing::EventLog;
using testing::SimulatedBluetooth;
using namespace testtags;
using namespace std::chrono_literals;
using Events = std::vector<std::string>;

// Records the answers of one GATT connection.
class GattRecorder : public IAndroidBTGattCallback {
  public:
    void onConnectionStateChange(int status, int newState) override {
        log.add("state " + std::to_string(status) + " " + std::to_string(newState));
    }
    void onServicesDiscovered(int status) override {
        log.add("discovered " + std::to_string(status));
    }
    void onCharacteristicRead(const BluetoothGattCharacteristic& c, int status) override {
        log.add("read " + std::to_string(status) + " " + valueOf(c.getValue()));
    }
    void onCharacteristicWrite(const BluetoothGattCharacteristic& c, int status) override {
        log.add("write " + std::to_string(status) + " " + valueOf(c.getValue()));
    }
    void onCharacteristicChanged(const BluetoothGattCharacteristic& c) override {
        log.add("changed " + valueOf(c.getValue()));
    }
    void onDescriptorRead(const BluetoothGattDescriptor&, int status) override {
        log.add("descriptor read " + std::to_string(status));
    }
    void onDescriptorWrite(const BluetoothGattDescriptor& d, int status) override {
        log.add("descriptor " + d.getUuid().toString().substr(4, 4) + " " + std::to_string(status) +
                " " + valueOf(d.getValue()) +
                (d.getCharacteristic()
                     ? " of " + d.getCharacteristic()->getUuid().toString().substr(4, 4)
                     : ""));
    }
    static std::string valueOf(const BluetoothGattCharacteristic::Value& value) {
        std::string text;
        for (uint8_t byte : value ? value->getBytes() : Bytes{}) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02x", byte);
            text += digits;
        }
        return value ? text : "null";
    }
    EventLog log;
};

constexpr int kRead = BluetoothGattCharacteristic::PROPERTY_READ;
constexpr int kWrite = BluetoothGattCharacteristic::PROPERTY_WRITE;
constexpr int kNotify = BluetoothGattCharacteristic::PROPERTY_NOTIFY;
constexpr int kIndicate = BluetoothGattCharacteristic::PROPERTY_INDICATE;
constexpr const char* kBattery = "0000180f-0000-1000-8000-00805f9b34fb";
constexpr const char* kLevel = "00002a19-0000-1000-8000-00805f9b34fb";
constexpr const char* kAlert = "00002a06-0000-1000-8000-00805f9b34fb";
constexpr const char* kConfiguration = "00002902-0000-1000-8000-00805f9b34fb";

BluetoothGattCharacteristic characteristic(const char* uuid, int properties,
                                           bool configurable = false) {
    BluetoothGattCharacteristic result(ParcelUuid::fromString(uuid), properties);
    if (configurable) {
        result.addDescriptor(BluetoothGattDescriptor(ParcelUuid::fromString(kConfiguration)));
    }
    return result;
}

// A tag with a battery service: the level (read, write, notify, 0x64) and an alert level that
// can only be written.
class SimulatedGatt : public SimulatedBluetooth {
  protected:
    void SetUp() override {
        SimulatedBluetooth::SetUp();
        TagSpec tag = tagAt(kEddystone, kEddystoneAd);
        BluetoothGattService battery(ParcelUuid::fromString(kBattery));
        BluetoothGattCharacteristic level = characteristic(kLevel, kRead | kWrite | kNotify, true);
        level.setValue(std::make_shared<ParcelByteArray>(Bytes{0x64}));
        battery.addCharacteristic(level);
        battery.addCharacteristic(characteristic(kAlert, kWrite));
        tag.gatt = {battery};
        world().addTag(tag);
    }
    int connect(const char* address) {
        int connId = 0;
        EXPECT_TRUE(proxy().connectGatt(std::make_shared<BluetoothDevice>(address), false, gatt, 0,
                                        connId));
        settle();
        return connId;
    }
    // Connected and discovered.
    int ready() {
        const int connId = connect(kEddystone);
        EXPECT_TRUE(proxy().discoverServices(connId));
        settle();
        return connId;
    }
    static BluetoothGattCharacteristic named(const char* uuid) {
        return BluetoothGattCharacteristic(ParcelUuid::fromString(uuid), 0);
    }
    bool notify(std::vector<uint8_t> value) {
        return world().notifyValue(kEddystone, ParcelUuid::fromString(kBattery),
                                   ParcelUuid::fromString(kLevel), std::move(value));
    }

    std::shared_ptr<GattRecorder> gatt = std::make_shared<GattRecorder>();
};

TEST_F(SimulatedGatt, AnswersInTheOrderAStackDoes) {
    const int connId = connect(kEddystone);
    std::vector<BluetoothGattService> services;
    EXPECT_FALSE(proxy().getServices(connId, services)) << "nothing before discovery";
    EXPECT_FALSE(proxy().readCharacteristic(connId, named(kLevel))) << "nothing to read yet";
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    ASSERT_TRUE(proxy().getServices(connId, services));
    ASSERT_EQ(services.size(), 1u);
    EXPECT_EQ(services[0].getUuid().toString(), kBattery);

    ASSERT_TRUE(proxy().readCharacteristic(connId, named(kLevel)));
    settle();
    BluetoothGattCharacteristic written = named(kLevel);
    written.setValue(std::make_shared<ParcelByteArray>(Bytes{0x32}));
    ASSERT_TRUE(proxy().writeCharacteristic(connId, written));
    EXPECT_FALSE(proxy().readCharacteristic(connId, named(kLevel))) << "one request at a time";
    settle();
    ASSERT_TRUE(proxy().readCharacteristic(connId, named(kLevel)));
    settle();
    ASSERT_TRUE(proxy().setCharacteristicNotification(connId, named(kLevel), true));
    settle();
    ASSERT_TRUE(notify({0x31}));
    settle();
    ASSERT_TRUE(proxy().setCharacteristicNotification(connId, named(kLevel), false));
    settle();
    EXPECT_FALSE(notify({0x30}));
    ASSERT_TRUE(proxy().disconnect(connId));
    settle();
    EXPECT_TRUE(proxy().close(connId));
    EXPECT_FALSE(proxy().getServices(connId, services));

    EXPECT_EQ(gatt->log.events(),
              (Events{"state 0 2", "discovered 0", "read 0 64", "write 0 32", "read 0 32",
                      "descriptor 2902 0 0100 of 2a19", "changed 31",
                      "descriptor 2902 0 0000 of 2a19", "state 0 0"}));
}

TEST_F(SimulatedGatt, AConnectionWaitsForItsTagAndGivesUpAfterThirtySeconds) {
    // Out of range: pending until the tag comes back.
    world().moveTag(kEddystone, 50.0);
    const int waiting = connect(kEddystone);
    settle(10s);
    EXPECT_TRUE(gatt->log.events().empty());
    world().moveTag(kEddystone, 1.0);
    settle();
    settle();
    EXPECT_EQ(gatt->log.events(), Events{"state 0 2"});
    EXPECT_TRUE(proxy().close(waiting));

    // Absent: the stack gives up after 30 s with status 133, once.
    auto absent = std::make_shared<GattRecorder>();
    int connId = 0;
    ASSERT_TRUE(
        proxy().connectGatt(std::make_shared<BluetoothDevice>(kOther), false, absent, 0, connId));
    settle(29s);
    EXPECT_TRUE(absent->log.events().empty());
    settle(1s);
    settle(30s);
    EXPECT_EQ(absent->log.events(), Events{"state 133 0"});

    // A pending connection that is disconnected is cancelled, and reported once.
    world().moveTag(kEddystone, 50.0);
    auto cancelled = std::make_shared<GattRecorder>();
    ASSERT_TRUE(proxy().connectGatt(std::make_shared<BluetoothDevice>(kEddystone), false, cancelled,
                                    0, connId));
    ASSERT_TRUE(proxy().disconnect(connId));
    settle(40s);
    EXPECT_EQ(cancelled->log.events(), Events{"state 0 0"});
}

TEST_F(SimulatedGatt, ChosenStatusesDelaysAndConnectionIds) {
    world().setNextConnectionId(-1);
    EXPECT_EQ(connect(kEddystone), -1);
    const int connId = connect("c0:ff:ee:00:00:01");  // either case names the tag
    world().setNextStatus(GattAnswer::Discover, 133);
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    world().setNextStatus(GattAnswer::Read, 137);
    ASSERT_TRUE(proxy().readCharacteristic(connId, named(kLevel)));
    settle();
    world().delayNext(GattAnswer::Write, 5s);
    ASSERT_TRUE(proxy().writeCharacteristic(connId, named(kLevel)));
    settle();
    const std::size_t beforeDelay = gatt->log.events().size();
    settle(5s);
    EXPECT_EQ(gatt->log.events().size(), beforeDelay + 1);
    world().setNextStatus(GattAnswer::Connect, 147);
    connect(kEddystone);
    EXPECT_EQ(gatt->log.events(),
              (Events{"state 0 2", "state 0 2", "discovered 133", "discovered 0", "read 137 64",
                      "write 0 64", "state 147 0"}));
}

TEST_F(SimulatedGatt, AnUnansweredRequestDropsTheLinkAfterThirtySeconds) {
    const int connId = ready();
    world().dropNext(GattAnswer::Read);
    ASSERT_TRUE(proxy().readCharacteristic(connId, named(kLevel)));
    settle(29s);
    EXPECT_FALSE(proxy().readCharacteristic(connId, named(kLevel))) << "still waiting";
    settle(1s);
    EXPECT_EQ(gatt->log.events().back(), "state 22 0");

    // An answer later than the stack waits comes too late: the link is gone first.
    auto late = std::make_shared<GattRecorder>();
    int second = 0;
    ASSERT_TRUE(
        proxy().connectGatt(std::make_shared<BluetoothDevice>(kEddystone), false, late, 0, second));
    settle();
    world().delayNext(GattAnswer::Discover, 40s);
    ASSERT_TRUE(proxy().discoverServices(second));
    settle(30s);
    settle(10s);
    EXPECT_EQ(late->log.events(), (Events{"state 0 2", "state 22 0"}));
    EXPECT_FALSE(proxy().discoverServices(second));
}

TEST_F(SimulatedGatt, AnswersTheStackGaveUpOnNeverCome) {
    // Later than the stack waits, and the time passes in one step: the time-out wins.
    const int connId = connect(kEddystone);
    world().delayNext(GattAnswer::Discover, 31s);
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle(40s);
    EXPECT_EQ(gatt->log.events(), (Events{"state 0 2", "state 22 0"}));

    auto late = std::make_shared<GattRecorder>();
    int second = 0;
    world().delayNext(GattAnswer::Connect, 35s);
    ASSERT_TRUE(
        proxy().connectGatt(std::make_shared<BluetoothDevice>(kEddystone), false, late, 0, second));
    settle(40s);
    EXPECT_EQ(late->log.events(), Events{"state 133 0"});
}

TEST_F(SimulatedGatt, ALinkGoesDownOnceAndNothingFollowsItsReport) {
    const int connId = ready();
    world().delayNext(GattAnswer::Read, 5s);
    ASSERT_TRUE(proxy().readCharacteristic(connId, named(kLevel)));
    ASSERT_TRUE(world().peerDisconnect(kEddystone));
    settle();
    // Every later way down finds it down already.
    EXPECT_TRUE(proxy().disconnect(connId));
    world().moveTag(kEddystone, 80.0);
    EXPECT_FALSE(world().peerDisconnect(kEddystone));
    EXPECT_FALSE(notify({0x01}));
    settle(10s);
    EXPECT_EQ(gatt->log.events(), (Events{"state 0 2", "discovered 0", "state 19 0"}));

    // After close nothing arrives, not even what was already on its way; nor after death.
    world().moveTag(kEddystone, 1.0);
    const int second = ready();
    ASSERT_TRUE(proxy().readCharacteristic(second, named(kLevel)));
    EXPECT_TRUE(proxy().close(second));
    EXPECT_FALSE(proxy().close(second));
    settle();
    const int third = ready();
    ASSERT_TRUE(proxy().readCharacteristic(third, named(kLevel)));
    world().killProxy();
    settle();
    EXPECT_TRUE(world().openConnections().empty());
    EXPECT_FALSE(proxy().discoverServices(third));
    EXPECT_EQ(gatt->log.events().size(), 7u);
}

TEST_F(SimulatedGatt, ATagThatDriftsAwayDropsAnIdleLink) {
    TagSpec leaving = tagAt(kCompany, kCompanyAd);
    leaving.distance = {{0ms, 1.0}, {10s, 100.0}};
    world().addTag(leaving);
    const int connId = connect(kCompany);
    for (int second = 0; second < 5; ++second) {
        settle();
    }
    EXPECT_EQ(gatt->log.events(), (Events{"state 0 2", "state 8 0"}));
    EXPECT_FALSE(proxy().discoverServices(connId));
}

TEST_F(SimulatedGatt, CharacteristicPropertiesAreHonoured) {
    TagSpec tag = tagAt(kCompany, kCompanyAd);
    BluetoothGattService service(ParcelUuid::fromString(kBattery));
    service.addCharacteristic(characteristic(kLevel, kRead));
    service.addCharacteristic(characteristic(kAlert, kIndicate, true));
    tag.gatt = {service};
    world().addTag(tag);
    const int connId = connect(kCompany);
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    EXPECT_FALSE(proxy().writeCharacteristic(connId, named(kLevel))) << "read-only";
    EXPECT_FALSE(proxy().setCharacteristicNotification(connId, named(kLevel), true))
        << "no configuration descriptor";
    EXPECT_FALSE(proxy().readCharacteristic(connId, named(kAlert))) << "indicate-only";
    ASSERT_TRUE(proxy().setCharacteristicNotification(connId, named(kAlert), true));
    settle();
    ASSERT_TRUE(proxy().setCharacteristicNotification(connId, named(kAlert), false));
    settle();
    EXPECT_EQ(gatt->log.events(),
              (Events{"state 0 2", "discovered 0", "descriptor 2902 0 0200 of 2a06",
                      "descriptor 2902 0 0000 of 2a06"}));
}

TEST_F(SimulatedGatt, AnswersMayLackPartsComeTwiceOrComeUnasked) {
    const int connId = ready();
    world().stripNext(GattAnswer::Read, Missing::Value);
    ASSERT_TRUE(proxy().readCharacteristic(connId, named(kLevel)));
    settle();
    world().stripNext(GattAnswer::DescriptorWrite, Missing::Characteristic);
    ASSERT_TRUE(proxy().setCharacteristicNotification(connId, named(kLevel), true));
    settle();
    world().stripNext(GattAnswer::Notification, Missing::Value);
    ASSERT_TRUE(notify({0x01}));
    settle();
    world().stripNext(GattAnswer::DescriptorWrite, Missing::Value);
    ASSERT_TRUE(proxy().setCharacteristicNotification(connId, named(kLevel), true));
    settle();
    world().duplicateNext(GattAnswer::Read);
    ASSERT_TRUE(proxy().readCharacteristic(connId, named(kLevel)));
    settle();
    EXPECT_TRUE(world().sendUnsolicited(connId, GattAnswer::Write));
    EXPECT_TRUE(world().sendUnsolicited(connId, GattAnswer::DescriptorWrite));
    EXPECT_FALSE(world().sendUnsolicited(99, GattAnswer::Read));
    settle();
    EXPECT_EQ(gatt->log.events(),
              (Events{"state 0 2", "discovered 0", "read 0 null", "descriptor 2902 0 0100",
                      "changed null", "descriptor 2902 0 null of 2a19", "read 0 01", "read 0 01",
                      "write 0 01", "descriptor 2902 0 0100 of 2a19"}));
}

TEST_F(SimulatedGatt, CharacteristicsSharingAUuidStayApart) {
    // Two services with the same UUID, each with the level characteristic; only the second
    // can be written and notify. Characteristics without a value read as empty bytes.
    TagSpec twin = tagAt(kCompany, kCompanyAd);
    BluetoothGattService first(ParcelUuid::fromString(kBattery));
    first.addCharacteristic(characteristic(kLevel, kRead));
    BluetoothGattService second(ParcelUuid::fromString(kBattery));
    second.addCharacteristic(characteristic(kLevel, kWrite | kNotify, true));
    twin.gatt = {first, second};
    world().addTag(twin);
    const int connId = connect(kCompany);
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    std::vector<BluetoothGattService> services;
    ASSERT_TRUE(proxy().getServices(connId, services));
    const BluetoothGattCharacteristic& inSecond = services[1].getCharacteristics()[0];
    EXPECT_NE(inSecond.getInstanceId(), services[0].getCharacteristics()[0].getInstanceId());

    BluetoothGattCharacteristic written = inSecond;
    written.setValue(std::make_shared<ParcelByteArray>(Bytes{0x07}));
    ASSERT_TRUE(proxy().writeCharacteristic(connId, written));
    settle();
    ASSERT_TRUE(proxy().readCharacteristic(connId, services[0].getCharacteristics()[0]));
    settle();
    ASSERT_TRUE(proxy().setCharacteristicNotification(connId, inSecond, true));
    settle();
    EXPECT_TRUE(world().notifyValue(kCompany, ParcelUuid::fromString(kBattery),
                                    ParcelUuid::fromString(kLevel), {0x08}));
    settle();
    EXPECT_EQ(gatt->log.events(), (Events{"state 0 2", "discovered 0", "write 0 07", "read 0 ",
                                          "descriptor 2902 0 0100 of 2a19", "changed 08"}));
}

TEST_F(SimulatedGatt, EveryGattCallCanBeMadeToFailOnce) {
    const int connId = ready();
    const auto failOnce = [&](ProxyCall call, const std::function<bool()>& make) {
        world().failNext(call);
        EXPECT_FALSE(make()) << static_cast<int>(call);
        EXPECT_TRUE(make()) << static_cast<int>(call);
        settle();
    };
    std::vector<BluetoothGattService> services;
    failOnce(ProxyCall::GetServices, [&] { return proxy().getServices(connId, services); });
    failOnce(ProxyCall::DiscoverServices, [&] { return proxy().discoverServices(connId); });
    failOnce(ProxyCall::ReadCharacteristic,
             [&] { return proxy().readCharacteristic(connId, named(kLevel)); });
    failOnce(ProxyCall::WriteCharacteristic,
             [&] { return proxy().writeCharacteristic(connId, named(kLevel)); });
    failOnce(ProxyCall::SetCharacteristicNotification,
             [&] { return proxy().setCharacteristicNotification(connId, named(kLevel), true); });
    failOnce(ProxyCall::Disconnect, [&] { return proxy().disconnect(connId); });
    failOnce(ProxyCall::Close, [&] { return proxy().close(connId); });
    int another = 0;
    failOnce(ProxyCall::ConnectGatt, [&] {
        return proxy().connectGatt(std::make_shared<BluetoothDevice>(kEddystone), false, gatt, 0,
                                   another);
    });
    EXPECT_EQ(world().calls(ProxyCall::Close), 2);
}

}  // namespace
}  // namespace sim
}  // namespace tracker
