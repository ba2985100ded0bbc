#include <android/bluetooth/BluetoothUuid.h>
#include <gtest/gtest.h>

#include "scenario/Scenario.h"
#include "sim/SimTags.h"
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
using namespace testtags;

const ScanSettings kSettings(2, 1, 0, 0, 1, 3);

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

TEST_F(SimulatedScan, AFailureEndsTheScanAndStartsFailEitherWay) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    ScanRecorder scan;
    ASSERT_TRUE(scan.start({}));
    settle();
    ASSERT_GT(scan.log.events().size(), 0u);
    EXPECT_FALSE(scan.start({})) << "a stack refuses a scan that is already running";

    // The failure callback ends the scan: nothing more is heard, and a new start works.
    world().reportScanFailure(2);
    settle();
    const std::vector<std::string> heard = scan.log.events();
    ASSERT_EQ(heard.back(), "failure 2");
    EXPECT_FALSE(world().scanning());
    settle();
    EXPECT_EQ(scan.log.events().size(), heard.size());

    // Failing starts: refused outright, or accepted and then failed through the callback.
    world().failNextScanStarts(1);
    EXPECT_FALSE(scan.start({}));
    world().failNextScanStarts(1, ScanStartFailure::Callback);
    EXPECT_TRUE(scan.start({}));
    settle();
    EXPECT_EQ(scan.log.events().back(), "failure 2");
    EXPECT_FALSE(world().scanning());
    ASSERT_TRUE(scan.start({}));
    ASSERT_TRUE(proxy().stopBLEScan(0));

    // Every start and stop is on record with what it asked for and what it got.
    const std::vector<ScanRequest> requests = world().scanRequests();
    ASSERT_EQ(requests.size(), 6u);
    std::string summary;
    for (const ScanRequest& request : requests) {
        summary += std::string(request.start ? "start" : "stop") + (request.accepted ? "+ " : "- ");
    }
    EXPECT_EQ(summary, "start+ start- start- start+ start+ stop+ ");
    EXPECT_EQ(requests[0].settings->getScanMode(), 2);
    EXPECT_FALSE(requests.back().settings.has_value());
    EXPECT_EQ(world().calls(ProxyCall::StartScan), 5);
}

TEST_F(SimulatedScan, TheProxyDiesAndEveryCallCanBeMadeToFail) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    ScanRecorder scan;
    ASSERT_TRUE(scan.start({}));
    EventLog deaths;
    auto recipient = std::make_shared<FrameworkLinkDeathRecipient>([&] { deaths.add("died"); });
    ASSERT_TRUE(proxy().registerForProxyDeath(recipient));
    world().killProxy();
    ASSERT_TRUE(deaths.waitFor("died"));
    EXPECT_NE(deaths.threads()[0], std::this_thread::get_id());
    EXPECT_FALSE(world().scanning());
    EXPECT_FALSE(scan.start({}));
    EXPECT_FALSE(proxy().stopBLEScan(0));

    world().failNext(ProxyCall::Initialize);
    EXPECT_FALSE(proxy().initialize(300));
    EXPECT_TRUE(proxy().initialize(300));

    // While the proxy lives, each call fails on its own, once.
    const auto failOnce = [&](ProxyCall call, const std::function<bool()>& make) {
        world().failNext(call);
        EXPECT_FALSE(make()) << static_cast<int>(call);
        EXPECT_TRUE(make()) << static_cast<int>(call);
    };
    failOnce(ProxyCall::StartScan, [&] { return scan.start({}); });
    failOnce(ProxyCall::StopScan, [&] { return proxy().stopBLEScan(0); });
    failOnce(ProxyCall::RegisterForProxyDeath,
             [&] { return proxy().registerForProxyDeath(recipient); });
    std::vector<RemoteDeviceAdapter> devices;
    failOnce(ProxyCall::GetPairedDevices, [&] { return proxy().getPairedRemoteDevices(devices); });
    world().failNext(ProxyCall::GetPairedDevices, World::kEveryCall);
    EXPECT_FALSE(proxy().getPairedRemoteDevices(devices));
    EXPECT_FALSE(proxy().getPairedRemoteDevices(devices));
    world().failNext(ProxyCall::GetPairedDevices, 0);
    EXPECT_TRUE(proxy().getPairedRemoteDevices(devices));
    EXPECT_EQ(world().calls(ProxyCall::Initialize), 3) << "the fixture's, the failed one, the last";
}

TEST_F(SimulatedScan, CallbacksOnDifferentObjectsRunSideBySide) {
    // A scan result that waits for a pairing event finishes only if the platform delivers the
    // pairing event on another thread meanwhile.
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    class Pairing : public IConnectivityEventCallback {
      public:
        void onPairStateChanged(const RemoteDeviceAdapter&, int) override { paired.set_value(); }
        std::promise<void> paired;
    };
    auto pairing = std::make_shared<Pairing>();
    std::shared_future<void> paired = pairing->paired.get_future().share();
    ASSERT_TRUE(proxy().registerConnectivityCallback(pairing));
    std::atomic<int> results{0};
    std::atomic<bool> sawPairing{false};
    const std::vector<ScanFilter> none;
    ASSERT_TRUE(proxy().startBLEScan(
        &none, kSettings, nullptr, nullptr,
        [&](int, const ScanResult&) {
            if (results++ == 0) {
                sawPairing = paired.wait_for(testing::kEventLimit) == std::future_status::ready;
            }
        },
        0));
    ASSERT_TRUE(world().advertiseOnce(kEddystone));
    ASSERT_TRUE(world().setPairState(kEddystone, 12));
    settle();
    EXPECT_TRUE(sawPairing);
    EXPECT_TRUE(proxy().stopBLEScan(0));
}

TEST(SimulatedPlatformExit, AProcessMayExitWhileTagsAdvertise) {
    // On real time, with the platform's threads busy delivering, exit tears the process down.
    for (int round = 0; round < 5; ++round) {
        EXPECT_EXIT(
            {
                World& world = World::instance();
                world.reset();
                ASSERT_TRUE(world.initialize(300));
                for (int tag = 0; tag < 20; ++tag) {
                    TagSpec next = tagAt("C0:FF:EE:00:01:00", kEddystoneAd);
                    next.address[16] = static_cast<char>('A' + tag % 6);
                    next.address[15] = static_cast<char>('0' + tag / 6);
                    next.interval = std::chrono::milliseconds(1);
                    world.addTag(next);
                }
                std::promise<void> busy;
                std::atomic<int> results{0};
                const std::vector<ScanFilter> none;
                world.startScan(
                    &none, kSettings, nullptr, nullptr,
                    [&](int, const ScanResult&) {
                        if (++results == 100) {
                            busy.set_value();
                        }
                    },
                    0);
                busy.get_future().wait();
                std::exit(0);
            },
            ::testing::ExitedWithCode(0), "");
    }
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
    world().failNext(ProxyCall::GetPairedDevices);
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
         "tags[0].gatt[0].uuid: expected a UUID like 180f or 0000180f-0000-1000-8000-00805f9b34fb"},
        {"{\"faults\": {\"failScanStarts\": \"two\"}}",
         "faults.failScanStarts: expected an integer"},
        {"{\"tags\": [{\"address\": \"C0:FF:EE:00:00:08\", \"advertisement\": \"00\", "
         "\"intervalMS\": 5}]}",
         "tags[0].intervalMS: unknown field"},
        {"{\"range\": -1}", "range: expected a value of 0 or more"},
        {"{\"tags\": [{\"address\": \"C0:FF:EE:00:00:08\", \"advertisement\": \"00\", "
         "\"distance\": [[500, 1], [100, 2]]}]}",
         "tags[0].distance[1][0]: expected times of 0 or more, in ascending order"},
        {"{\"tags\": [{\"address\": \"C0:FF:EE:00:00:08\", \"advertisement\": \"00\", "
         "\"txPower\": -2147483648}]}",
         "tags[0].txPower: expected a value from -127 to 20"},
        {"{\"tags\": [{\"address\": \"C0:FF:EE:00:00:08\", \"advertisement\": \"00\", "
         "\"distance\": 1e300}]}",
         "tags[0].distance: expected at most 100000 metres"},
        {"{\"tags\": [", "offset 10: Invalid value."},
        {"[]", "scenario: expected an object"},
    };
    for (const auto& [json, message] : refused) {
        EXPECT_FALSE(loadScenario(json, world(), &error)) << json;
        EXPECT_EQ(error, message);
    }
    EXPECT_FALSE(world().advertiseOnce("C0:FF:EE:00:00:08")) << "a refused scenario adds nothing";
    // Nesting too deep to be any world is refused where it passes the limit, without recursion.
    EXPECT_FALSE(loadScenario(std::string(300000, '['), world(), &error));
    EXPECT_EQ(error, "offset 512: Nesting deeper than 512.");
    EXPECT_FALSE(loadScenarioFile("/nonexistent/world.json", world(), &error));
    EXPECT_EQ(error, "/nonexistent/world.json: No such file or directory");
    // Neither a device that never ends nor a directory is read.
    EXPECT_FALSE(loadScenarioFile("/dev/zero", world(), &error));
    EXPECT_EQ(error, "/dev/zero: not a regular file");
    EXPECT_FALSE(loadScenarioFile("/tmp", world(), &error));
    EXPECT_EQ(error, "/tmp: not a regular file");
}

}  // namespace
}  // namespace sim
}  // namespace tracker
