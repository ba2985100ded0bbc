#include <android/bluetooth/BluetoothUuid.h>
#include <gtest/gtest.h>

#include "bluetooth/Scenario.h"
#include "support/SimBluetooth.h"

namespace tracker {
namespace sim {
namespace {

using android::bluetooth::BluetoothDevice;
using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattDescriptor;
using android::bluetooth::BluetoothGattService;
using android::bluetooth::le::ScanFilter;
using android::bluetooth::le::ScanResult;
using android::bluetooth::le::ScanSettings;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using com::orvane::frameworklink::interfaces::RemoteDeviceAdapter;
using com::orvane::frameworklink::managers::FrameworkLinkDeathRecipient;
using com::orvane::frameworklink::managers::IAndroidBTGattCallback;
using com::orvane::frameworklink::managers::IConnectivityEventCallback;
using testing::EventLog;
using testing::SimulatedBluetooth;
using Bytes = std::vector<uint8_t>;

const char* const kEddystone = "C0:FF:EE:00:00:01";
const char* const kCompany = "C0:FF:EE:00:00:02";
const char* const kOther = "C0:FF:EE:00:00:03";
const ScanSettings kSettings(2, 1, 0, 0, 1, 3);

TagSpec tagAt(const char* address, Bytes advertisement, double metres = 1.0) {
    TagSpec tag;
    tag.address = address;
    tag.advertisement = std::move(advertisement);
    tag.distance = {{std::chrono::milliseconds(0), metres}};
    return tag;
}

// Flags, the 16-bit service 0xFEAA and service data for it.
const Bytes kEddystoneAd = {0x02, 0x01, 0x06, 0x03, 0x03, 0xAA, 0xFE,
                            0x05, 0x16, 0xAA, 0xFE, 0x10, 0x20};
// Manufacturer data of company 0x0171.
const Bytes kCompanyAd = {0x02, 0x01, 0x06, 0x05, 0xFF, 0x71, 0x01, 0xAA, 0xBB};
const Bytes kOtherAd = {0x03, 0x03, 0x0F, 0x18};

class ScanRecorder {
  public:
    bool start(const std::vector<ScanFilter>& filters) {
        return com::orvane::frameworklink::managers::AndroidBTProxyManager::getManager()
            ->startBLEScan(
                &filters, kSettings, nullptr,
                [this](int code) { log.add("failure " + std::to_string(code)); },
                [this](int, const ScanResult& result) {
                    log.add(result.getDevice().getAddress());
                    std::lock_guard<std::mutex> lock(mutex);
                    rssi[result.getDevice().getAddress()] = result.getRssi();
                },
                0);
    }
    EventLog log;
    std::mutex mutex;
    std::map<std::string, int> rssi;
};

class SimulatedScan : public SimulatedBluetooth {};

TEST_F(SimulatedScan, DeliversWhatPassesAnyFilterOnTheWorldsThread) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    world().addTag(tagAt(kCompany, kCompanyAd, 10.0));
    world().addTag(tagAt(kOther, kOtherAd));
    ScanFilter byService;
    byService.setServiceUuid(android::bluetooth::BluetoothUuid::parseUuidFrom({0xAA, 0xFE}));
    ScanFilter byCompany;
    byCompany.setManufacturerId(0x0171);
    byCompany.setManufacturerData(ParcelByteArray({0xAA}));
    ScanRecorder scan;
    ASSERT_TRUE(scan.start({byService, byCompany}));
    EXPECT_TRUE(world().scanning());
    EXPECT_EQ(world().scanFilters().size(), 2u);
    EXPECT_EQ(world().scanSettings()->getNumOfMatches(), 3);

    for (int second = 0; second < 3; ++second) {
        settle();
    }
    const std::vector<std::string> events = scan.log.events();
    EXPECT_GE(std::count(events.begin(), events.end(), kEddystone), 3);
    EXPECT_GE(std::count(events.begin(), events.end(), kCompany), 3);
    EXPECT_EQ(std::count(events.begin(), events.end(), kOther), 0);
    for (std::thread::id thread : scan.log.threads()) {
        EXPECT_NE(thread, std::this_thread::get_id());
    }
    // RSSI follows distance: about -59 dBm at 1 m, -79 dBm at 10 m, within the noise.
    EXPECT_NEAR(scan.rssi[kEddystone], -59, 2);
    EXPECT_NEAR(scan.rssi[kCompany], -79, 2);

    // Stopped, nothing more arrives; out of range, nothing is heard.
    ASSERT_TRUE(proxy().stopBLEScan(0));
    const std::size_t heard = scan.log.events().size();
    settle();
    EXPECT_EQ(scan.log.events().size(), heard);
    ASSERT_TRUE(scan.start({}));  // no filters: everything in range
    world().moveTag(kOther, 50.0);
    settle();
    const std::vector<std::string> unfiltered = scan.log.events();
    EXPECT_EQ(std::count(unfiltered.begin(), unfiltered.end(), kOther), 0);
    EXPECT_GT(std::count(unfiltered.begin(), unfiltered.end(), kCompany), 0);
    EXPECT_TRUE(proxy().stopBLEScan(0));
}

TEST_F(SimulatedScan, DelayedReportsArriveInBatches) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    EventLog batches;
    const std::vector<ScanFilter> none;
    ASSERT_TRUE(proxy().startBLEScan(
        &none, ScanSettings(2, 1, 0, 500, 1, 3),
        [&](const std::vector<ScanResult>& results) {
            batches.add(std::to_string(results.size()) + " " +
                        results.at(0).getDevice().getAddress());
        },
        nullptr, [&](int, const ScanResult&) { batches.add("single"); }, 0));
    settle();
    const std::vector<std::string> events = batches.events();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events[0], std::string("1 ") + kEddystone);
    EXPECT_EQ(std::count(events.begin(), events.end(), "single"), 0);
    EXPECT_TRUE(proxy().stopBLEScan(0));
}

TEST_F(SimulatedScan, ServiceMasksAndDataPrefixesAreHonoured) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    world().addTag(tagAt(kCompany, kCompanyAd));
    ScanFilter masked;  // only the top byte of the 16-bit UUID has to match: 0xFExx
    masked.setServiceUuid(android::bluetooth::BluetoothUuid::parseUuidFrom({0x00, 0xFE}));
    masked.setServiceMask(android::bluetooth::BluetoothUuid::parseUuidFrom({0x00, 0xFF}));
    ScanFilter wrongPrefix;
    wrongPrefix.setManufacturerId(0x0171);
    wrongPrefix.setManufacturerData(ParcelByteArray({0xAB}));
    ScanRecorder scan;
    ASSERT_TRUE(scan.start({masked, wrongPrefix}));
    settle();
    ASSERT_TRUE(world().advertiseOnce(kCompany));
    settle();
    const std::vector<std::string> events = scan.log.events();
    EXPECT_GT(std::count(events.begin(), events.end(), kEddystone), 0);
    EXPECT_EQ(std::count(events.begin(), events.end(), kCompany), 0);
    EXPECT_TRUE(proxy().stopBLEScan(0));
}

TEST_F(SimulatedScan, FaultsFailStartsReportFailuresAndKillTheProxy) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    ScanRecorder scan;
    world().failNextScanStarts(2);
    EXPECT_FALSE(scan.start({}));
    EXPECT_FALSE(scan.start({}));
    ASSERT_TRUE(scan.start({}));
    EXPECT_FALSE(scan.start({})) << "a stack refuses a scan that is already running";
    world().reportScanFailure(2);
    ASSERT_TRUE(scan.log.waitFor("failure 2"));

    EventLog deaths;
    auto recipient = std::make_shared<FrameworkLinkDeathRecipient>([&] { deaths.add("died"); });
    ASSERT_TRUE(proxy().registerForProxyDeath(recipient));
    world().killProxy();
    ASSERT_TRUE(deaths.waitFor("died"));
    EXPECT_NE(deaths.threads()[0], std::this_thread::get_id());
    EXPECT_FALSE(world().scanning());
    EXPECT_FALSE(scan.start({}));
    EXPECT_FALSE(proxy().stopBLEScan(0));

    world().failNextInitializations(1);
    EXPECT_FALSE(proxy().initialize(300));
    EXPECT_TRUE(proxy().initialize(300));
    EXPECT_TRUE(scan.start({}));
    EXPECT_TRUE(proxy().stopBLEScan(0));
}

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

class SimulatedGatt : public SimulatedBluetooth {
  protected:
    void SetUp() override {
        SimulatedBluetooth::SetUp();
        TagSpec tag = tagAt(kEddystone, kEddystoneAd);
        BluetoothGattService battery(ParcelUuid::fromString(kBattery));
        BluetoothGattCharacteristic level(ParcelUuid::fromString(kLevel), 0x12);
        level.setValue(std::make_shared<ParcelByteArray>(Bytes{0x64}));
        level.addDescriptor(BluetoothGattDescriptor(ParcelUuid::fromString(kConfiguration)));
        battery.addCharacteristic(level);
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
    BluetoothGattCharacteristic level() {
        return BluetoothGattCharacteristic(ParcelUuid::fromString(kLevel), 0);
    }

    static constexpr const char* kBattery = "0000180f-0000-1000-8000-00805f9b34fb";
    static constexpr const char* kLevel = "00002a19-0000-1000-8000-00805f9b34fb";
    static constexpr const char* kConfiguration = "00002902-0000-1000-8000-00805f9b34fb";
    std::shared_ptr<GattRecorder> gatt = std::make_shared<GattRecorder>();
};

TEST_F(SimulatedGatt, AnswersInTheOrderAStackDoes) {
    const int connId = connect(kEddystone);
    std::vector<BluetoothGattService> services;
    EXPECT_FALSE(proxy().getServices(connId, services)) << "nothing before discovery";
    EXPECT_FALSE(proxy().readCharacteristic(connId, level())) << "nothing to read yet";
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    ASSERT_TRUE(proxy().getServices(connId, services));
    ASSERT_EQ(services.size(), 1u);
    EXPECT_EQ(services[0].getUuid().toString(), kBattery);

    ASSERT_TRUE(proxy().readCharacteristic(connId, level()));
    settle();
    BluetoothGattCharacteristic written = level();
    written.setValue(std::make_shared<ParcelByteArray>(Bytes{0x32}));
    ASSERT_TRUE(proxy().writeCharacteristic(connId, written));
    EXPECT_FALSE(proxy().readCharacteristic(connId, level())) << "one request at a time";
    settle();
    ASSERT_TRUE(proxy().readCharacteristic(connId, level()));
    settle();
    ASSERT_TRUE(proxy().setCharacteristicNotification(connId, level(), true));
    settle();
    ASSERT_TRUE(world().notifyValue(kEddystone, ParcelUuid::fromString(kBattery),
                                    ParcelUuid::fromString(kLevel), {0x31}));
    settle();
    ASSERT_TRUE(proxy().setCharacteristicNotification(connId, level(), false));
    settle();
    EXPECT_FALSE(world().notifyValue(kEddystone, ParcelUuid::fromString(kBattery),
                                     ParcelUuid::fromString(kLevel), {0x30}));
    ASSERT_TRUE(proxy().disconnect(connId));
    settle();
    EXPECT_TRUE(proxy().close(connId));
    EXPECT_FALSE(proxy().getServices(connId, services));

    EXPECT_EQ(gatt->log.events(),
              (std::vector<std::string>{"state 0 2", "discovered 0", "read 0 64", "write 0 32",
                                        "read 0 32", "descriptor 2902 0 0100 of 2a19", "changed 31",
                                        "descriptor 2902 0 0000 of 2a19", "state 0 0"}));
}

TEST_F(SimulatedGatt, UnreachableTagsAndChosenFaults) {
    world().moveTag(kEddystone, 50.0);
    connect(kEddystone);
    connect(kOther);  // no such tag
    world().moveTag(kEddystone, 1.0);
    world().setNextConnectionId(-1);
    EXPECT_EQ(connect(kEddystone), -1);
    const int connId = connect("c0:ff:ee:00:00:01");  // either case names the tag
    world().setNextStatus(GattAnswer::Discover, 133);
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    world().setNextStatus(GattAnswer::Read, 137);
    ASSERT_TRUE(proxy().readCharacteristic(connId, level()));
    settle();
    world().delayNext(GattAnswer::Write, std::chrono::seconds(5));
    ASSERT_TRUE(proxy().writeCharacteristic(connId, level()));
    settle();
    const std::size_t beforeDelay = gatt->log.events().size();
    settle(std::chrono::seconds(5));
    EXPECT_EQ(gatt->log.events().size(), beforeDelay + 1);
    // A dropped answer never comes, and the connection stays busy, as a stuck stack would.
    world().dropNext(GattAnswer::Read);
    ASSERT_TRUE(proxy().readCharacteristic(connId, level()));
    settle();
    EXPECT_FALSE(proxy().readCharacteristic(connId, level()));
    // Walking out of range drops the connections with a time-out.
    world().moveTag(kEddystone, 80.0);
    settle();
    EXPECT_EQ(gatt->log.events(),
              (std::vector<std::string>{"state 133 0", "state 133 0", "state 0 2", "state 0 2",
                                        "discovered 133", "discovered 0", "read 137 64",
                                        "write 0 64", "state 8 0", "state 8 0"}));
}

TEST_F(SimulatedGatt, NothingFollowsACloseOrTheProxysDeath) {
    const int connId = connect(kEddystone);
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    ASSERT_TRUE(proxy().readCharacteristic(connId, level()));
    EXPECT_TRUE(proxy().close(connId));
    EXPECT_FALSE(proxy().close(connId));
    settle();

    const int second = connect(kEddystone);
    ASSERT_TRUE(proxy().discoverServices(second));
    world().killProxy();
    settle();
    EXPECT_TRUE(world().openConnections().empty());
    EXPECT_FALSE(proxy().discoverServices(second));
    EXPECT_EQ(gatt->log.events(),
              (std::vector<std::string>{"state 0 2", "discovered 0", "state 0 2"}));
}

TEST_F(SimulatedGatt, TagsThatDriftAwayDropTheirLinkAtTheNextAnswer) {
    TagSpec leaving = tagAt(kCompany, kCompanyAd);
    leaving.distance = {{std::chrono::milliseconds(0), 1.0}, {std::chrono::seconds(10), 100.0}};
    leaving.gatt = {BluetoothGattService(ParcelUuid::fromString(kBattery))};
    world().addTag(leaving);
    const int connId = connect(kCompany);
    settle(std::chrono::seconds(20));
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    EXPECT_EQ(gatt->log.events(), (std::vector<std::string>{"state 0 2", "state 8 0"}));
}

TEST_F(SimulatedGatt, CharacteristicsSharingAUuidStayApart) {
    // Two services with the same UUID, each with the level characteristic; only the second
    // can notify. Values without a value read as empty bytes.
    TagSpec twin = tagAt(kCompany, kCompanyAd);
    BluetoothGattService first(ParcelUuid::fromString(kBattery));
    first.addCharacteristic(BluetoothGattCharacteristic(ParcelUuid::fromString(kLevel), 0x02));
    BluetoothGattService second(ParcelUuid::fromString(kBattery));
    BluetoothGattCharacteristic notifying(ParcelUuid::fromString(kLevel), 0x12);
    notifying.addDescriptor(BluetoothGattDescriptor(ParcelUuid::fromString(kConfiguration)));
    second.addCharacteristic(notifying);
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
    EXPECT_EQ(gatt->log.events(),
              (std::vector<std::string>{"state 0 2", "discovered 0", "write 0 07", "read 0 ",
                                        "descriptor 2902 0 0100 of 2a19", "changed 08"}));
}

class Pairing : public IConnectivityEventCallback {
  public:
    void onPairStateChanged(const RemoteDeviceAdapter& device, int state) override {
        log.add(device.mAddress + " " + std::to_string(state));
    }
    EventLog log;
};

TEST_F(SimulatedScan, PairingEventsAndThePairedListComeFromTheWorld) {
    TagSpec paired = tagAt(kEddystone, kEddystoneAd);
    paired.pairing = RemoteDeviceAdapter{"", "G0001", 12, {3, 14}, ""};
    world().addTag(paired);
    world().addTag(tagAt(kCompany, kCompanyAd));
    std::vector<RemoteDeviceAdapter> devices;
    ASSERT_TRUE(proxy().getPairedRemoteDevices(devices));
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].mAddress, kEddystone);
    EXPECT_EQ(devices[0].mCategory, (std::vector<int>{3, 14}));

    auto callback = std::make_shared<Pairing>();
    ASSERT_TRUE(proxy().registerConnectivityCallback(callback));
    ASSERT_TRUE(world().setPairState(kCompany, 12));
    settle();
    ASSERT_TRUE(proxy().deregisterConnectivityCallback(callback));
    EXPECT_FALSE(proxy().deregisterConnectivityCallback(callback));
    ASSERT_TRUE(world().setPairState(kEddystone, 10));
    settle();
    EXPECT_EQ(callback->log.events(), std::vector<std::string>{std::string(kCompany) + " 12"});

    devices.clear();
    ASSERT_TRUE(proxy().getPairedRemoteDevices(devices));
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].mAddress, kCompany);
    world().failPairedDeviceQuery(true);
    EXPECT_FALSE(proxy().getPairedRemoteDevices(devices));
}

TEST_F(SimulatedScan, ScenariosLoadWholeOrNotAtAll) {
    std::string error;
    const std::string scenario = R"({
        "range": 20,
        "tags": [{"address": "C0:FF:EE:00:00:07", "advertisement": "0303aafe", "intervalMs": 50,
                  "distance": [[0, 1], [2000, 30]],
                  "gatt": [{"uuid": "0000180f-0000-1000-8000-00805f9b34fb",
                            "characteristics": [{"uuid": "00002a19-0000-1000-8000-00805f9b34fb",
                                                 "value": "64", "notify": true}]}],
                  "pairing": {"dsn": "G7", "state": 12, "category": [14]}}],
        "faults": {"failScanStarts": 1}
    })";
    ASSERT_TRUE(loadScenario(scenario, world(), &error)) << error;
    ScanRecorder scan;
    EXPECT_FALSE(scan.start({})) << "the scenario's fault";
    ASSERT_TRUE(scan.start({}));
    settle();
    EXPECT_GT(scan.log.events().size(), 0u);
    settle(std::chrono::seconds(2));  // walked beyond the 20 m range
    const std::size_t heard = scan.log.events().size();
    settle();
    EXPECT_EQ(scan.log.events().size(), heard);
    EXPECT_TRUE(proxy().stopBLEScan(0));
    std::vector<RemoteDeviceAdapter> devices;
    ASSERT_TRUE(proxy().getPairedRemoteDevices(devices));
    EXPECT_EQ(devices.at(0).mDSN, "G7");

    const std::pair<const char*, const char*> refused[] = {
        {"{\"tags\": [{\"advertisement\": \"00\"}]}", "tags[0].address: missing"},
        {"{\"tags\": [{\"address\": \"C0:FF\", \"advertisement\": \"00\"}]}",
         "tags[0].address: expected an address like C0:FF:EE:00:00:01"},
        {"{\"tags\": [{\"address\": \"C0:FF:EE:00:00:08\", \"advertisement\": \"0\"}]}",
         "tags[0].advertisement: expected an even number of hex digits"},
        {"{\"tags\": [{\"address\": \"C0:FF:EE:00:00:08\", \"advertisement\": \"00\", "
         "\"gatt\": [{\"uuid\": \"battery\"}]}]}",
         "tags[0].gatt[0].uuid: expected a UUID like 0000180f-0000-1000-8000-00805f9b34fb"},
        {"{\"faults\": {\"failScanStarts\": \"two\"}}",
         "faults.failScanStarts: expected an integer"},
        {"{\"tags\": [{\"address\": \"C0:FF:EE:00:00:08\", \"advertisement\": \"00\", "
         "\"intervalMS\": 5}]}",
         "tags[0].intervalMS: unknown field"},
        {"{\"range\": -1}", "range: expected a value of 0 or more"},
        {"{\"tags\": [{\"address\": \"C0:FF:EE:00:00:08\", \"advertisement\": \"00\", "
         "\"distance\": [[500, 1], [100, 2]]}]}",
         "tags[0].distance[1][0]: expected times of 0 or more, in ascending order"},
        {"{\"tags\": [", "offset 10: Invalid value."},
        {"[]", "scenario: expected an object"},
    };
    for (const auto& [json, message] : refused) {
        EXPECT_FALSE(loadScenario(json, world(), &error)) << json;
        EXPECT_EQ(error, message);
    }
    EXPECT_FALSE(world().advertiseOnce("C0:FF:EE:00:00:08")) << "a refused scenario adds nothing";
    EXPECT_FALSE(loadScenarioFile("/nonexistent/world.json", world(), &error));
    EXPECT_EQ(error, "/nonexistent/world.json: cannot be read");
}

}  // namespace
}  // namespace sim
}  // namespace tracker
