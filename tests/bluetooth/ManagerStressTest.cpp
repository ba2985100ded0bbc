#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <thread>

#include <frameworklink/interfaces/ParcelByteArray.h>
#include "bluetooth/ManagerFixture.h"

#include "tracker/bluetooth/AndroidBLEBridge.h"

namespace tracker {
namespace testing {
namespace {

using namespace std::chrono_literals;
using namespace sim::testtags;
using util::bluetooth::AndroidBLEBridge;
using util::bluetooth::TrackerUuid;

// Three kinds of advertisement, one client each; addresses end in the kind's number.
const std::vector<std::vector<uint8_t>> kAdvertisements = {
    {0x03, 0x03, 0xAA, 0xFE},                                // service 0xFEAA
    {0x05, 0xFF, 0x71, 0x01, 0xAA, 0xBB},                    // company 0x0171
    {0x03, 0x03, 0x0F, 0x18, 0x04, 0xFF, 0x4C, 0x00, 0x01},  // service 0x180F
};

// A client that checks every result it gets is of its own kind.
class KindClient : public RecordingClient {
  public:
    KindClient(int kind, std::vector<TrackerScanFilter> filters)
        : RecordingClient(std::move(filters)), m_kind(kind) {}
    void onBeaconScanResult(std::shared_ptr<util::bluetooth::TrackerScanRecord> record,
                            Extra extra) override {
        if (record->address->addr.back() % 3 != m_kind) {
            ++misrouted;
        }
        ++received;
        RecordingClient::onBeaconScanResult(std::move(record), std::move(extra));
    }
    std::atomic<int> received{0};
    std::atomic<int> misrouted{0};

  private:
    const int m_kind;
};

TEST_F(ManagerTest, ResultsReloadsAndGattSessionsAllAtOnce) {
    // Real time: the platform answers on its own schedule while everything else runs.
    util::Clock::install(nullptr);
    sim::TagSpec tag = tagAt(kEddystone, kEddystoneAd);
    android::bluetooth::BluetoothGattService battery(
        AndroidBLEBridge::toParcelUuid(TrackerUuid{{0x18, 0x0F}}));
    android::bluetooth::BluetoothGattCharacteristic level(
        AndroidBLEBridge::toParcelUuid(TrackerUuid{{0x2A, 0x19}}),
        android::bluetooth::BluetoothGattCharacteristic::PROPERTY_READ);
    level.setValue(std::make_shared<com::orvane::frameworklink::interfaces::ParcelByteArray>(
        std::vector<uint8_t>{0x64}));
    battery.addCharacteristic(level);
    tag.gatt = {battery};
    tag.interval = 1h;  // it only answers GATT here
    world().addTag(tag);
    std::vector<std::shared_ptr<KindClient>> clients = {
        std::make_shared<KindClient>(0, std::vector<TrackerScanFilter>{uuidFilter({0xFE, 0xAA})}),
        std::make_shared<KindClient>(
            1, std::vector<TrackerScanFilter>{manuFilter({0x01, 0x71, 0xAA}, {0xFF, 0xFF, 0x00})}),
        std::make_shared<KindClient>(2, std::vector<TrackerScanFilter>{uuidFilter({0x18, 0x0F})}),
    };
    for (const auto& each : clients) {
        ASSERT_TRUE(manager()->registerConnector(each));
    }
    for (const auto& each : clients) {
        ASSERT_TRUE(manager()->start(each));
    }
    ASSERT_TRUE(awaitScanStarted());

    std::array<std::atomic<int>, 3> heard{};
    std::vector<std::thread> threads;
    for (int injector = 0; injector < 2; ++injector) {
        threads.emplace_back([&, injector] {
            for (int n = 0; n < 300; ++n) {
                const int kind = (n + injector) % 3;
                char address[18];
                std::snprintf(address, sizeof address, "C0:FF:EE:%02X:%02X:%02X", injector,
                              n / 3 % 256, kind + 3 * (n % 80));
                if (world().injectAdvertisement(address, kAdvertisements[kind], -60)) {
                    ++heard[kind];
                }
                if (n % 16 == 0) {
                    std::this_thread::yield();
                }
            }
        });
    }
    threads.emplace_back([&] {
        for (int round = 0; round < 20; ++round) {
            manager()->reload(clients[round % 3]);
            std::this_thread::yield();
        }
    });
    // GATT sessions on one tag while all that goes on.
    auto gatt = std::make_shared<RecordingClient>();
    threads.emplace_back([&] {
        const auto address = util::bluetooth::BleUtils::stringToTrackerDeviceAddr(kEddystone);
        for (int session = 0; session < 8; ++session) {
            const std::size_t start = gatt->log.events().size();
            ASSERT_TRUE(manager()->connect(address, gatt));
            ASSERT_TRUE(gatt->log.waitForCount(start + 1));
            const unsigned long long h = std::stoull(gatt->log.events()[start].substr(10));
            ASSERT_TRUE(manager()->discoverAllServices(h));
            ASSERT_TRUE(gatt->log.waitForCount(start + 2));
            ASSERT_TRUE(manager()->readCharacteristic(h, TrackerUuid{{0x18, 0x0F}},
                                                      TrackerUuid{{0x2A, 0x19}}));
            ASSERT_TRUE(gatt->log.waitForCount(start + 3));
            ASSERT_TRUE(manager()->disconnect(h));
            ASSERT_TRUE(gatt->log.waitForCount(start + 4));
            const std::string id = std::to_string(h);
            const std::vector<std::string> events = gatt->log.events();
            EXPECT_EQ(
                std::vector<std::string>(events.begin() + start, events.end()),
                (std::vector<std::string>{"connected " + id, "discovered " + id + " 1",
                                          "read " + id + " 64", "disconnected " + id + " 0"}));
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }

    // Once the routing has caught up (a last result for each client comes after all else),
    // every result went to its own client, none twice.
    ASSERT_TRUE(manager()->reload(clients[0]));
    for (int kind = 0; kind < 3; ++kind) {
        const int before = clients[kind]->received;
        char address[18];
        std::snprintf(address, sizeof address, "C0:FF:EE:FF:FF:%02X", kind);
        ASSERT_TRUE(eventually([&] {
            if (world().injectAdvertisement(address, kAdvertisements[kind], -60)) {
                ++heard[kind];
            }
            return clients[kind]->received > before;
        }));
    }
    for (int kind = 0; kind < 3; ++kind) {
        EXPECT_EQ(clients[kind]->misrouted, 0) << kind;
        EXPECT_GT(clients[kind]->received, 0) << kind;
        EXPECT_LE(clients[kind]->received, heard[kind]) << kind;
    }
    EXPECT_FALSE(logged('E', "notifyOnBeaconScanResult: Can not locate connector for the beacon"));
    EXPECT_TRUE(world().openConnections().empty());
}

// Holds the routing in its first result until exit has begun.
class HeldClient : public RecordingClient {
  public:
    using RecordingClient::RecordingClient;
    void onBeaconScanResult(std::shared_ptr<util::bluetooth::TrackerScanRecord> record,
                            Extra extra) override {
        if (!m_held.exchange(true)) {
            entered.set_value();
            release().get_future().wait();
        }
        RecordingClient::onBeaconScanResult(std::move(record), std::move(extra));
    }
    static std::promise<void>& release() {
        static auto* promise = new std::promise<void>;
        return *promise;
    }
    std::promise<void> entered;

  private:
    std::atomic<bool> m_held{false};
};

TEST(ManagerExit, AProcessMayExitWhileResultsAreStillRouted) {
    // On real time: the manager's executor goes on routing thousands of queued results while
    // the process tears its statics down.
    EXPECT_EXIT(
        {
            sim::World::instance().reset();
            const auto manager = util::bluetooth::BluetoothManagerInterface::getInstance();
            auto held = std::make_shared<HeldClient>(
                std::vector<TrackerScanFilter>{uuidFilter({0xFE, 0xAA})});
            manager->registerConnector(held);
            manager->start(held);
            if (!eventually([] { return sim::World::instance().scanning(); })) {
                std::exit(2);
            }
            sim::World::instance().injectAdvertisement(kEddystone, kEddystoneAd, -50);
            held->entered.get_future().wait();
            for (int result = 0; result < 3000; ++result) {
                sim::World::instance().injectAdvertisement(kEddystone, kEddystoneAd, -50);
            }
            sim::World::instance().barrier(kEventLimit);
            std::atexit([] { HeldClient::release().set_value(); });
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace testing
}  // namespace tracker
