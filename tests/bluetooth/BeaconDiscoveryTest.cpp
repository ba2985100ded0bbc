#include <gtest/gtest.h>

#include <climits>
#include <future>

#include "bluetooth/ManagerFixture.h"
#include "support/Waits.h"

namespace tracker {
namespace testing {
namespace {

using namespace std::chrono_literals;
using namespace sim::testtags;
using sim::ProxyCall;
using util::bluetooth::BluetoothManagerClientInterface;
using Events = std::vector<std::string>;

// The Eddystone tag's service, and a tag that lists service 0x180F beside company 0x0171's data.
TrackerScanFilter eddystoneFilter() {
    return uuidFilter({0xFE, 0xAA});
}
TrackerScanFilter companyFilter() {
    return manuFilter({0x01, 0x71, 0xAA}, {0xFF, 0xFF, 0xFF});
}
constexpr const char* kMixed = "C0:FF:EE:00:00:04";
const Bytes kMixedAd = {0x03, 0x03, 0x0F, 0x18, 0x05, 0xFF, 0x71, 0x01, 0xAA, 0xCC};

class BeaconDiscovery : public ManagerTest {
  protected:
    // Starts every client given and waits until the scan is running.
    void startAll(const std::vector<std::shared_ptr<RecordingClient>>& clients, int retries = 0) {
        for (const auto& each : clients) {
            ASSERT_TRUE(manager()->start(each));
        }
        ASSERT_TRUE(awaitScanStarted(retries));
    }
    // Lets the tags advertise for a while, then returns once the manager has routed all of it:
    // one marker advertisement, heard after everything else, is routed after it too.
    void advertiseFor(util::Clock::Duration time, RecordingClient& marker) {
        // In steps of the advertising interval: each advertisement schedules the next.
        for (util::Clock::Duration passed{}; passed < time; passed += 100ms) {
            settle(100ms);
        }
        const std::size_t before = marker.log.events().size();
        ASSERT_TRUE(world().injectAdvertisement(kMarker, kMarkerAd, -50));
        settle(0s);
        ASSERT_TRUE(marker.log.waitForCount(before + 1));
    }
    static std::size_t received(RecordingClient& client, const std::string& address) {
        const Events events = client.log.events();
        return static_cast<std::size_t>(
            std::count(events.begin(), events.end(), "result " + address));
    }
    static bool before(const std::shared_ptr<RecordingClient>& a,
                       const std::shared_ptr<RecordingClient>& b) {
        return std::less<std::shared_ptr<BluetoothManagerClientInterface>>()(a, b);
    }
};

TEST_F(BeaconDiscovery, EachResultReachesExactlyOneClientTheFirstThatMatches) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    world().addTag(tagAt(kCompany, kCompanyAd));
    world().addTag(tagAt(kMixed, kMixedAd));
    auto twin = client({eddystoneFilter()});
    auto otherTwin = client({eddystoneFilter()});
    auto company = client({companyFilter()});
    auto marker = client({markerFilter()});
    startAll({twin, otherTwin, company, marker});
    EXPECT_EQ(scanRequests(), Events{"start 4"});
    advertiseFor(2s, *marker);

    // Two clients with the same filter: the first in registry order gets every result.
    RecordingClient& first = before(twin, otherTwin) ? *twin : *otherTwin;
    RecordingClient& second = before(twin, otherTwin) ? *otherTwin : *twin;
    EXPECT_GE(received(first, kEddystone), 10u);
    EXPECT_TRUE(second.log.events().empty());
    // Manufacturer data routes a result whose service UUID matches no client.
    EXPECT_GE(received(*company, kCompany), 10u);
    EXPECT_GE(received(*company, kMixed), 10u);
    EXPECT_EQ(company->log.events().size(),
              received(*company, kCompany) + received(*company, kMixed));

    // What travels beside the record.
    const RecordingClient::Extra eddystone = first.extras().front();
    EXPECT_EQ(util::bluetooth::BleUtils::getUuidString(eddystone.uuid),
              "0000feaa-0000-1000-8000-00805f9b34fb");
    EXPECT_EQ(eddystone.serviceData, (Bytes{0x10, 0x20}));
    ASSERT_EQ(eddystone.manuData.size(), 1u);
    EXPECT_TRUE(eddystone.manuData[0].data.empty());
    EXPECT_EQ(eddystone.extraValue, INT32_MIN);
    const RecordingClient::Extra fromCompany = company->extras().front();
    EXPECT_TRUE(fromCompany.uuid.uuid.empty()) << "no service UUID, none passed on";
    EXPECT_TRUE(fromCompany.serviceData.empty());
    EXPECT_EQ(hexOf(fromCompany.manuData.at(0).data), hexOf({0x01, 0x71, 0xAA, 0xBB}));

    // The path's own lines, addresses obfuscated.
    for (const std::string& expected :
         {line('I', "startBeaconDiscovery: starting beacon scanner"),
          line('D', "buildScanFilterLocked: building scan filter"),
          line('D', "startBeaconDiscovery: scanFilterSize = 4"), line('D', "scanResultCb"),
          line('D',
               "processScanResult: scanInstance = 0, address=MAC:00:01, "
               "serviceUUID=0000feaa-0000-1000-8000-00805f9b34fb"),
          line('D', "processScanResult: scanInstance = 0, address=MAC:00:02, serviceUUID="),
          line('D', "notifyOnBeaconScanResult")}) {
        EXPECT_TRUE(m_log.contains(expected)) << expected;
    }
}

TEST_F(BeaconDiscovery, AReloadRebuildsButTheFirstBuildsPairsKeepPrecedence) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    auto changing = client({eddystoneFilter()});
    auto marker = client({markerFilter()});
    startAll({changing, marker});
    advertiseFor(1s, *marker);
    ASSERT_GT(received(*changing, kEddystone), 0u);

    // Now both ask for the marker's service. The pairs of the first build stay in front, so
    // the marker's results still go to the marker client, and each only once.
    changing->setFilters({markerFilter()});
    m_log.clear();
    ASSERT_TRUE(manager()->reload(changing));
    ASSERT_TRUE(awaitScanStarted());
    EXPECT_EQ(scanRequests(), (Events{"start 2", "stop", "start 2"}));
    const std::size_t markersBefore = received(*marker, kMarker);
    const std::size_t eddystoneBefore = received(*changing, kEddystone);
    for (int round = 0; round < 5; ++round) {
        advertiseFor(0s, *marker);
    }
    EXPECT_EQ(received(*marker, kMarker), markersBefore + 5);
    EXPECT_EQ(received(*changing, kMarker), 0u);
    EXPECT_EQ(received(*changing, kEddystone), eddystoneBefore) << "no longer scanned for";
}

TEST_F(BeaconDiscovery, AStartWhileTheScanRunsReplacesIt) {
    auto first = client({eddystoneFilter()});
    ASSERT_TRUE(manager()->start(first));
    ASSERT_TRUE(awaitScanStarted());
    // A client that joins later: the scan restarts with both clients' filters.
    auto late = client({companyFilter()});
    m_log.clear();
    ASSERT_TRUE(manager()->start(late));
    ASSERT_TRUE(awaitScanStarted());
    EXPECT_EQ(scanRequests(), (Events{"start 1", "stop", "start 2"}));

    // Two reloads in a row queue two starts before either has run: the second replaces the
    // first's scan rather than have the platform refuse it.
    m_log.clear();
    ASSERT_TRUE(manager()->reload(first));
    ASSERT_TRUE(manager()->reload(late));
    ASSERT_TRUE(awaitScanStarted());
    ASSERT_TRUE(eventually([&] { return count('I', "beacon scan started after 0 retries") == 2; }));
    EXPECT_EQ(count('E', "unable to start discovery, retrying after 2 seconds"), 0u);
    EXPECT_TRUE(world().scanning());
    const Events requests = scanRequests();
    EXPECT_EQ(std::count(requests.begin(), requests.end(), "start 2"), 3);
    EXPECT_EQ(requests.back(), "start 2");
}

// A client whose filters take until the test lets them go: it holds the start task mid-build.
class SlowFilters : public RecordingClient {
  public:
    explicit SlowFilters(std::vector<TrackerScanFilter> filters)
        : RecordingClient(std::move(filters)) {}
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override {
        if (!announced.exchange(true)) {
            building.set_value();
        }
        released.wait_for(kEventLimit);
        return RecordingClient::getScanFilter();
    }
    std::atomic<bool> announced{false};
    std::promise<void> building;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
};

TEST_F(BeaconDiscovery, AStopThatComesWhileAStartIsUnderWayWins) {
    // Stopped before the start task got to the platform: it gives way.
    auto slow = std::make_shared<SlowFilters>(std::vector<TrackerScanFilter>{eddystoneFilter()});
    ASSERT_TRUE(manager()->registerConnector(slow));
    ASSERT_TRUE(manager()->start(slow));
    ASSERT_EQ(slow->building.get_future().wait_for(kEventLimit), std::future_status::ready);
    EXPECT_TRUE(manager()->stop(slow));
    EXPECT_TRUE(logged('I', "stop: scanning already stopped"));
    slow->release.set_value();
    ASSERT_TRUE(awaitLine(
        'I', "startBeaconDiscovery: discovery stopped meanwhile, do not start beacon discovery."));
    EXPECT_TRUE(scanRequests().empty());

    // A client joins a running scan, and another client stops while the join's start task
    // builds: the scan stays stopped.
    auto steady = client({companyFilter()});
    m_log.clear();
    ASSERT_TRUE(manager()->start(slow));
    ASSERT_TRUE(manager()->start(steady));
    ASSERT_TRUE(awaitScanStarted());
    auto joiner = std::make_shared<SlowFilters>(std::vector<TrackerScanFilter>{markerFilter()});
    ASSERT_TRUE(manager()->registerConnector(joiner));
    ASSERT_TRUE(manager()->start(joiner));
    ASSERT_EQ(joiner->building.get_future().wait_for(kEventLimit), std::future_status::ready);
    EXPECT_TRUE(manager()->stop(steady));
    joiner->release.set_value();
    ASSERT_TRUE(awaitLine(
        'I', "startBeaconDiscovery: discovery stopped meanwhile, do not start beacon discovery."));
    EXPECT_FALSE(world().scanning());
    EXPECT_EQ(scanRequests(), (Events{"start 2", "stop"}));
}

TEST_F(BeaconDiscovery, NothingToScanForIsNotAFailure) {
    // An address filter is not for the platform scan: nothing is started, and that is success.
    auto byAddress = client({addressFilter({0xC0, 0xFF, 0xEE, 0x00, 0x00, 0x01})});
    ASSERT_TRUE(manager()->start(byAddress));
    ASSERT_TRUE(awaitLine('I', "beacon scan started after 0 retries"));
    EXPECT_TRUE(logged('E',
                       "startBeaconDiscovery: Empty android supported scan filter, do not start "
                       "beacon discovery."));
    EXPECT_TRUE(logged('E', "buildScanFilterLocked, filter type not supported"));
    EXPECT_TRUE(
        m_log.contains("W TrackerD-AndroidBLEBridge: toAndroidBLEScanFilters, "
                       "Unsupported filter type"));

    // No filters at all, or no holder: the same, without a conversion.
    byAddress->setFilters({}, true);
    auto empty = client({});
    m_log.clear();
    ASSERT_TRUE(manager()->start(empty));
    ASSERT_TRUE(awaitLine('I', "beacon scan started after 0 retries"));
    EXPECT_TRUE(
        logged('I', "startBeaconDiscovery: Empty scan filter, do not start beacon discovery."));
    EXPECT_TRUE(logged('W', "buildScanFilterLocked, client has no scan filter"));
    EXPECT_TRUE(scanRequests().empty());
    EXPECT_TRUE(m_clock->sleeps().empty()) << "no retry";
    EXPECT_TRUE(m_metrics.records().empty());
}

TEST_F(BeaconDiscovery, FiveFailedStartsBackOffAndReportOnce) {
    world().failNextScanStarts(5);
    auto only = client({eddystoneFilter()});
    ASSERT_TRUE(manager()->start(only));
    ASSERT_TRUE(awaitLine('E', "operator(): unable to start discovery after 5 retries; giving up"));
    // The metric follows the line.
    ASSERT_TRUE(m_metrics.waitFor([](const sim::MetricRecord&) { return true; }, kEventLimit));
    EXPECT_EQ(m_clock->sleeps(), (std::vector<util::Clock::Duration>{2s, 4s, 6s, 8s}));
    for (int seconds : {2, 4, 6, 8}) {
        EXPECT_EQ(count('E', "unable to start discovery, retrying after " +
                                 std::to_string(seconds) + " seconds"),
                  1u);
    }
    const std::vector<sim::MetricRecord> records = m_metrics.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(
        records[0].record.rfind("MetricName=BluetoothStartFailure;SY,FailureReason=-1;IN,", 0), 0u);
    EXPECT_EQ(scanRequests(), Events(5, "start 1"));
    EXPECT_FALSE(world().scanning());
    EXPECT_TRUE(eventually([&] { return count('E', "operator(): Beacon scan failed") == 5; }));

    // Discovery stays off until the next start or reload; the flag says so too.
    m_log.clear();
    ASSERT_TRUE(manager()->reload(only));
    ASSERT_TRUE(awaitScanStarted());
    EXPECT_FALSE(logged('E', "reload, Stopping beacon scanning before reload."));
}

TEST_F(BeaconDiscovery, AStartThatSucceedsOnTheThirdAttempt) {
    world().failNextScanStarts(2);
    auto only = client({eddystoneFilter()});
    startAll({only}, 2);
    EXPECT_EQ(m_clock->sleeps(), (std::vector<util::Clock::Duration>{2s, 4s}));
    EXPECT_EQ(scanRequests(), Events(3, "start 1"));
    EXPECT_TRUE(logged('E', "unable to start discovery, retrying after 2 seconds"));
    EXPECT_TRUE(logged('E', "unable to start discovery, retrying after 4 seconds"));
    EXPECT_FALSE(logged('E', "unable to start discovery, retrying after 6 seconds"));
    EXPECT_TRUE(m_metrics.records().empty());
    EXPECT_TRUE(world().scanning());
}

TEST_F(BeaconDiscovery, PlatformScanFailuresAreOnlyLogged) {
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    world().failNextScanStarts(1, sim::ScanStartFailure::Callback);
    auto only = client({eddystoneFilter()});
    startAll({only});
    ASSERT_TRUE(awaitLine('E', "scanFailureCb: errorCode=2"));
    EXPECT_FALSE(world().scanning());

    // The manager still counts the scan as running: the next reload stops it, then starts.
    m_log.clear();
    ASSERT_TRUE(manager()->reload(only));
    EXPECT_TRUE(logged('E', "reload, Stopping beacon scanning before reload."));
    ASSERT_TRUE(awaitScanStarted());
    settle();
    ASSERT_TRUE(only->log.waitFor(std::string("result ") + kEddystone));
    world().reportScanFailure(3);
    ASSERT_TRUE(awaitLine('E', "scanFailureCb: errorCode=3"));
    EXPECT_EQ(scanRequests(), (Events{"start 1", "stop", "start 1"}));
}

TEST_F(BeaconDiscovery, ResultsNoFilterMatchesAreDropped) {
    // Without a manager, a platform result is dropped.
    util::bluetooth::processScanResult(android::bluetooth::le::ScanResult(
        android::bluetooth::BluetoothDevice(kCompany),
        android::bluetooth::le::ScanRecord::parseFromBytes(kCompanyAd), -40));

    // The platform passes company 0x0171 with any payload; the library's filter, with no mask,
    // asks for the id alone and nothing after it.
    world().addTag(tagAt(kCompany, kCompanyAd));
    auto strict = client({manuFilter({0x01, 0x71})});
    auto marker = client({markerFilter()});
    startAll({strict, marker});
    advertiseFor(1s, *marker);
    EXPECT_TRUE(strict->log.events().empty());
    EXPECT_TRUE(logged('E', "notifyOnBeaconScanResult: Can not locate connector for the beacon"));
}

}  // namespace
}  // namespace testing
}  // namespace tracker
