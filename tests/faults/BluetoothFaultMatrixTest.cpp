// The Bluetooth manager under the platform's faults: each fault at each moment it can strike,
// and what the client must see then. Nothing may crash, hang or be lost: after the fault and
// the recovery the client's results and GATT answers come again, a refused request is reported
// once, and nothing reaches a client for a connection it was told is over.

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <tuple>

#include "bluetooth/GattFixture.h"
#include "faults/Gate.h"
#include "tracker/bluetooth/IConnectivityEventCallback.h"
#include "tracker/bluetooth/IRemoteDevice.h"

namespace tracker {
namespace testing {
namespace {

using namespace gatt;
using sim::ScanStartFailure;
using util::bluetooth::TrackerDeviceAddr;
using util::bluetooth::TrackerScanRecord;
using util::bluetooth::TrackerStatus;
using Sleeps = std::vector<util::Clock::Duration>;

TrackerScanFilter eddystoneFilter() {
    return uuidFilter({0xFE, 0xAA});
}
TrackerScanFilter companyFilter() {
    return manuFilter({0x01, 0x71, 0xAA}, {0xFF, 0xFF, 0xFF});
}
const std::string kEddystoneResult = std::string("result ") + kEddystone;
const std::string kCompanyResult = std::string("result ") + kCompany;

// A fixture with a wait for scan results.
template <typename Fixture>
class WithResults : public Fixture {
  protected:
    // Lets the tags advertise for a second, in steps of their interval; true once the client
    // has had a new `result`. Results are routed on the manager's executor, after the world.
    ::testing::AssertionResult hears(RecordingClient& client, const std::string& result) {
        const std::size_t before = occurrences(client.log.events(), result);
        for (int step = 0; step < 10; ++step) {
            this->settle(100ms);
        }
        if (eventually([&] { return occurrences(client.log.events(), result) > before; })) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "no new " << result;
    }
};

// The GATT tags of GattConnection, and the helpers every fault here needs.
class BluetoothFaults : public WithResults<GattConnection> {
  protected:
    // The request on the connection that the answer ends.
    bool ask(unsigned long long h, GattAnswer answer) {
        switch (answer) {
            case GattAnswer::Discover:
                return manager()->discoverAllServices(h);
            case GattAnswer::Read:
                return manager()->readCharacteristic(h, kBattery, kLevel);
            case GattAnswer::Write:
                return manager()->writeCharacteristic(h, kBattery, kLevel, {0x32});
            case GattAnswer::DescriptorWrite:
                return manager()->setCharacteristicNotification(h, kBattery, kLevel, true);
            default:
                ADD_FAILURE() << "no request ends with this answer";
                return false;
        }
    }
    // What the client hears when that request succeeds on the Eddystone tag.
    static std::string answered(unsigned long long h, GattAnswer answer) {
        const std::string id = std::to_string(h);
        switch (answer) {
            case GattAnswer::Discover:
                return "discovered " + id + " 1";
            case GattAnswer::Read:
                return "read " + id + " 64";
            case GattAnswer::Write:
                return "write " + id;
            default:
                return "descriptor " + id + " 64 from=1 on=1";
        }
    }
    // A new session on the tag works to the end of a read.
    void aNewSessionWorks() {
        const unsigned long long h = discovered(kEddystone);
        ASSERT_TRUE(manager()->readCharacteristic(h, kBattery, kLevel));
        EXPECT_EQ(next(), "read " + std::to_string(h) + " 64");
    }
};

const char* answerName(GattAnswer answer) {
    static const char* const kNames[] = {"Connect",         "Discover",   "Read",        "Write",
                                         "DescriptorWrite", "Disconnect", "Notification"};
    return kNames[static_cast<int>(answer)];
}

// A client whose filter build stops at its gate: a start task holds there, before its platform
// call.
class GatedFilters : public RecordingClient {
  public:
    using RecordingClient::RecordingClient;
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override {
        gate.pass();
        return RecordingClient::getScanFilter();
    }
    Gate gate;
};

// --- The proxy dies around the scan's start ------------------------------------------------

enum class ScanMoment {
    BeforeTheFirstStart,
    WhileTheStartBuildsFilters,
    DuringTheBackOff,
    Scanning
};

const char* const kScanMoments[] = {"BeforeTheFirstStart", "WhileTheStartBuildsFilters",
                                    "DuringTheBackOff", "Scanning"};

class ProxyDeathAroundTheScan : public WithResults<ManagerTest>,
                                public ::testing::WithParamInterface<ScanMoment> {};

// Whenever the proxy dies, the client hears once that it is back, the manager does not scan on
// its own, and a start or reload brings the tag's results back. A start task caught by the death
// spends its attempts on the dead proxy: the recovery runs after it on the same executor.
TEST_P(ProxyDeathAroundTheScan, TheClientHearsTheProxyIsBackAndResultsComeAgain) {
    const ScanMoment moment = GetParam();
    if (moment == ScanMoment::DuringTheBackOff) {
        // The back-off's sleeps block until the test moves the time past them.
        m_clock = std::make_shared<util::ManualClock>(util::ManualClock::SleepMode::Block);
        util::Clock::install(m_clock);
        world().failNextScanStarts(1);
    }
    world().addTag(tagAt(kEddystone, kEddystoneAd));
    auto only = std::make_shared<GatedFilters>(std::vector<TrackerScanFilter>{eddystoneFilter()});
    ASSERT_TRUE(manager()->registerConnector(only));
    if (moment != ScanMoment::WhileTheStartBuildsFilters) {
        only->gate.open();
    }
    if (moment != ScanMoment::BeforeTheFirstStart) {
        ASSERT_TRUE(manager()->start(only));
    }
    switch (moment) {
        case ScanMoment::BeforeTheFirstStart:
            break;
        case ScanMoment::WhileTheStartBuildsFilters:
            ASSERT_TRUE(only->gate.awaitArrival());
            break;
        case ScanMoment::DuringTheBackOff:
            ASSERT_TRUE(m_clock->waitForSleeps(1, kEventLimit));
            break;
        case ScanMoment::Scanning:
            ASSERT_TRUE(awaitScanStarted());
            ASSERT_TRUE(hears(*only, kEddystoneResult));
            break;
    }
    world().killProxy();
    settle(0s);
    only->gate.open();
    if (moment == ScanMoment::DuringTheBackOff) {
        for (int retry = 1; retry < util::bluetooth::BluetoothManager::k_startDiscoveryRetries;
             ++retry) {
            ASSERT_TRUE(m_clock->waitForSleeps(static_cast<std::size_t>(retry), kEventLimit));
            m_clock->advance(std::chrono::seconds(2 * retry));
        }
    }
    ASSERT_TRUE(only->log.waitFor("init ok"));
    EXPECT_EQ(occurrences(only->log.events(), "init ok"), 1u);
    EXPECT_EQ(occurrences(only->log.events(), "init failed"), 0u);
    EXPECT_FALSE(world().scanning());
    EXPECT_EQ(world().calls(ProxyCall::Initialize), 2);

    m_log.clear();
    if (moment == ScanMoment::BeforeTheFirstStart) {
        ASSERT_TRUE(manager()->start(only));
    } else {
        ASSERT_TRUE(manager()->reload(only));
    }
    ASSERT_TRUE(awaitScanStarted());
    EXPECT_TRUE(hears(*only, kEddystoneResult));
}

INSTANTIATE_TEST_SUITE_P(Moments, ProxyDeathAroundTheScan,
                         ::testing::Values(ScanMoment::BeforeTheFirstStart,
                                           ScanMoment::WhileTheStartBuildsFilters,
                                           ScanMoment::DuringTheBackOff, ScanMoment::Scanning),
                         [](const auto& test) {
                             return std::string(kScanMoments[static_cast<int>(test.param)]);
                         });

// --- The proxy dies during a GATT session --------------------------------------------------

class ProxyDeathInAGattSession : public BluetoothFaults,
                                 public ::testing::WithParamInterface<GattAnswer> {};

// Whatever the connection was waiting for (its connection, or a request's answer delayed past
// the death), the client hears one disconnection with an error and that the proxy is back; the
// pending answer never comes, the handle is forgotten, and a new session works.
TEST_P(ProxyDeathInAGattSession, OneDisconnectionAndNothingForWhatWasPending) {
    const GattAnswer pending = GetParam();
    unsigned long long h = 0;
    if (pending == GattAnswer::Connect) {
        // An absent tag: the platform keeps trying for 30 s.
        ASSERT_TRUE(manager()->connect(address(kOther), m_client));
        ASSERT_EQ(world().openConnections().size(), 1u);
        h = static_cast<unsigned long long>(world().openConnections().front());
    } else {
        h = pending == GattAnswer::Discover ? open(kEddystone) : discovered(kEddystone);
        world().delayNext(pending, 5s);
        ASSERT_TRUE(ask(h, pending));
    }
    EXPECT_TRUE(quiet(1s));
    world().killProxy();
    settle();
    ASSERT_TRUE(m_client->log.waitForCount(m_taken + 2));
    Events events = m_client->log.events();
    events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(m_taken));
    std::sort(events.begin(), events.end());
    EXPECT_EQ(events, (Events{"disconnected " + std::to_string(h) + " -1", "init ok"}));
    m_taken += 2;
    EXPECT_TRUE(quiet(10s)) << "the delayed answer was due meanwhile";
    EXPECT_FALSE(manager()->readCharacteristic(h, kBattery, kLevel));
    aNewSessionWorks();
}

INSTANTIATE_TEST_SUITE_P(Pending, ProxyDeathInAGattSession,
                         ::testing::Values(GattAnswer::Connect, GattAnswer::Discover,
                                           GattAnswer::Read, GattAnswer::Write,
                                           GattAnswer::DescriptorWrite),
                         [](const auto& test) { return std::string(answerName(test.param)); });

// --- Scan starts that fail a number of times -----------------------------------------------

class FailingScanStarts : public BluetoothFaults,
                          public ::testing::WithParamInterface<std::tuple<ScanStartFailure, int>> {
};

// A refused start is retried at once with a linear back-off (2 s more each time) and the scan
// runs after the last refusal. A start the platform accepts and then fails through its callback
// is not retried: only the client's reloads start it again. Either way the results come once a
// start succeeds, and no start-failure metric is logged.
TEST_P(FailingScanStarts, ResultsArriveOnceAStartSucceeds) {
    const auto [how, failures] = GetParam();
    m_client->setFilters({eddystoneFilter()});
    world().failNextScanStarts(failures, how);
    if (how == ScanStartFailure::Refused) {
        ASSERT_TRUE(manager()->start(m_client));
        ASSERT_TRUE(awaitScanStarted(failures));
        Sleeps backOff;
        for (int retry = 1; retry <= failures; ++retry) {
            backOff.push_back(std::chrono::seconds(2 * retry));
        }
        EXPECT_EQ(m_clock->sleeps(), backOff);
    } else {
        for (int attempt = 0; attempt < failures; ++attempt) {
            m_log.clear();
            ASSERT_TRUE(attempt == 0 ? manager()->start(m_client) : manager()->reload(m_client));
            ASSERT_TRUE(awaitScanStarted());
            settle(0s);
            ASSERT_TRUE(awaitLine('E', "scanFailureCb: errorCode=2"));
            EXPECT_FALSE(world().scanning());
        }
        EXPECT_TRUE(quiet(2s)) << "no results without a scan";
        EXPECT_TRUE(m_clock->sleeps().empty()) << "no retry";
        m_log.clear();
        ASSERT_TRUE(manager()->reload(m_client));
        ASSERT_TRUE(awaitScanStarted());
    }
    EXPECT_EQ(occurrences(scanRequests(), "start 1"), static_cast<std::size_t>(failures + 1));
    EXPECT_TRUE(world().scanning());
    EXPECT_TRUE(hears(*m_client, kEddystoneResult));
    EXPECT_TRUE(m_metrics.records().empty());
}

// Refused once, twice (BeaconDiscovery's third-attempt case) and five times (its give-up case)
// are covered there; a failure through the callback once, too.
INSTANTIATE_TEST_SUITE_P(Refused, FailingScanStarts,
                         ::testing::Combine(::testing::Values(ScanStartFailure::Refused),
                                            ::testing::Values(1, 3, 4)),
                         [](const auto& test) {
                             return "Refused" + std::to_string(std::get<1>(test.param));
                         });
INSTANTIATE_TEST_SUITE_P(ThroughTheCallback, FailingScanStarts,
                         ::testing::Combine(::testing::Values(ScanStartFailure::Callback),
                                            ::testing::Values(2, 3, 4, 5)),
                         [](const auto& test) {
                             return "Callback" + std::to_string(std::get<1>(test.param));
                         });

// --- GATT answers that never come, come late, or come twice --------------------------------

class AnAnswerThatNeverComes : public BluetoothFaults,
                               public ::testing::WithParamInterface<GattAnswer> {};

// The stack gives up after 30 s: an unanswered connection with 133, an unanswered request by
// dropping the link with 22. Both are errors to the client, which hears the disconnection and
// nothing else: no failure of the request besides it.
TEST_P(AnAnswerThatNeverComes, TheClientHearsOnlyTheDisconnection) {
    const GattAnswer dropped = GetParam();
    unsigned long long h = 0;
    if (dropped == GattAnswer::Connect) {
        world().dropNext(dropped);
        ASSERT_TRUE(manager()->connect(address(kEddystone), m_client));
        ASSERT_EQ(world().openConnections().size(), 1u);
        h = static_cast<unsigned long long>(world().openConnections().front());
    } else {
        h = dropped == GattAnswer::Discover ? open(kEddystone) : discovered(kEddystone);
        world().dropNext(dropped);
        ASSERT_TRUE(ask(h, dropped));
    }
    EXPECT_TRUE(quiet(28s));
    EXPECT_EQ(next(3s), "disconnected " + std::to_string(h) + " -1");
    EXPECT_TRUE(quiet(5s));
    EXPECT_TRUE(forgotten(h));
    aNewSessionWorks();
}

INSTANTIATE_TEST_SUITE_P(Dropped, AnAnswerThatNeverComes,
                         ::testing::Values(GattAnswer::Connect, GattAnswer::Discover,
                                           GattAnswer::Read, GattAnswer::Write,
                                           GattAnswer::DescriptorWrite),
                         [](const auto& test) { return std::string(answerName(test.param)); });

class AnAnswerDelayedPastTheDisconnection
    : public BluetoothFaults,
      public ::testing::WithParamInterface<std::tuple<GattAnswer, bool>> {};

// Whether the client or the tag ends the link while a request's answer is on its way, the
// client hears the disconnection once and then nothing: not the late answer, and not what the
// platform sends unasked for a connection it still holds because its close failed.
TEST_P(AnAnswerDelayedPastTheDisconnection, NeverReachesTheClient) {
    const auto [late, byTheClient] = GetParam();
    const unsigned long long h = discovered(kEddystone);
    const std::string id = std::to_string(h);
    world().delayNext(late, 5s);
    ASSERT_TRUE(ask(h, late));
    world().failNext(ProxyCall::Close);
    if (byTheClient) {
        ASSERT_TRUE(manager()->disconnect(h));
        EXPECT_EQ(next(), "disconnected " + id + " 0");
    } else {
        ASSERT_TRUE(world().peerDisconnect(kEddystone));
        EXPECT_EQ(next(), "disconnected " + id + " -1");
    }
    EXPECT_TRUE(quiet(10s));
    EXPECT_TRUE(world().sendUnsolicited(static_cast<int>(h), late));
    EXPECT_TRUE(quiet(1s));
    EXPECT_TRUE(forgotten(h));
}

INSTANTIATE_TEST_SUITE_P(Late, AnAnswerDelayedPastTheDisconnection,
                         ::testing::Combine(::testing::Values(GattAnswer::Discover,
                                                              GattAnswer::Read, GattAnswer::Write,
                                                              GattAnswer::DescriptorWrite),
                                            ::testing::Bool()),
                         [](const auto& test) {
                             return std::string(answerName(std::get<0>(test.param))) +
                                    (std::get<1>(test.param) ? "ClientDisconnects"
                                                             : "PeerDisconnects");
                         });

// A repeated connection report or answer is passed on as it comes (as GattConnection's read
// twice is); a repeated disconnection is reported, closed and forgotten once.
TEST_F(BluetoothFaults, RepeatedReportsArePassedOnButTheDisconnectionComesOnce) {
    world().duplicateNext(GattAnswer::Connect);
    const unsigned long long h = open(kEddystone);
    EXPECT_EQ(next(0s), "connected " + std::to_string(h));
    for (GattAnswer twice :
         {GattAnswer::Discover, GattAnswer::Write, GattAnswer::DescriptorWrite}) {
        world().duplicateNext(twice);
        ASSERT_TRUE(ask(h, twice));
        // The write before the descriptor's set the level to 32.
        const std::string expected = twice == GattAnswer::DescriptorWrite
                                         ? "descriptor " + std::to_string(h) + " 32 from=1 on=1"
                                         : answered(h, twice);
        EXPECT_EQ(next(), expected);
        EXPECT_EQ(next(0s), expected);
    }
    world().duplicateNext(GattAnswer::Disconnect);
    ASSERT_TRUE(manager()->disconnect(h));
    EXPECT_EQ(next(), "disconnected " + std::to_string(h) + " 0");
    EXPECT_TRUE(quiet(5s));
    EXPECT_TRUE(forgotten(h));
    EXPECT_EQ(world().calls(ProxyCall::Close), 1);
}

// --- Every platform call refused once ------------------------------------------------------

class PairingListener : public util::bluetooth::IConnectivityEventCallback {
  public:
    void onPairStateChanged(std::shared_ptr<util::bluetooth::IRemoteDevice> device,
                            int state) override {
        log.add(device->getAddress() + " " + std::to_string(state));
    }
    EventLog log;
};

// clang-format off
const char* const kProxyCalls[] = {
    "Initialize", "RegisterForProxyDeath", "StartScan", "StopScan", "ConnectGatt", "Disconnect",
    "DiscoverServices", "GetServices", "Close", "ReadCharacteristic", "WriteCharacteristic",
    "SetCharacteristicNotification", "RegisterConnectivity", "DeregisterConnectivity",
    "GetPairedDevices"};
// clang-format on

class EveryProxyCall : public BluetoothFaults, public ::testing::WithParamInterface<ProxyCall> {};

// The client sees the failure the manager's interface promises for the operation that made the
// call (a false result, a failure callback, or a recovery that takes its 300 s retry), exactly
// once, and the next attempt works.
TEST_P(EveryProxyCall, ARefusalIsReportedOnceAndTheNextAttemptWorks) {
    const ProxyCall call = GetParam();
    auto listener = std::make_shared<PairingListener>();
    std::vector<std::shared_ptr<util::bluetooth::IRemoteDevice>> devices;
    switch (call) {
        case ProxyCall::Initialize:
        case ProxyCall::RegisterForProxyDeath:
            // Made by the recovery after a death: its first attempt fails, its second works.
            world().failNext(call);
            world().killProxy();
            settle();
            ASSERT_TRUE(m_client->log.waitForCount(1));
            EXPECT_EQ(next(0s), "init ok");
            EXPECT_EQ(m_clock->sleeps(), Sleeps{300s});
            aNewSessionWorks();
            break;
        case ProxyCall::StartScan:
            m_client->setFilters({eddystoneFilter()});
            world().failNext(call);
            ASSERT_TRUE(manager()->start(m_client));
            ASSERT_TRUE(awaitScanStarted(1));
            EXPECT_TRUE(hears(*m_client, kEddystoneResult));
            break;
        case ProxyCall::StopScan:
            // The client counts as stopped though the scan runs on: it has to start again
            // before its stop can go through.
            m_client->setFilters({eddystoneFilter()});
            ASSERT_TRUE(manager()->start(m_client));
            ASSERT_TRUE(awaitScanStarted());
            world().failNext(call);
            EXPECT_FALSE(manager()->stop(m_client));
            EXPECT_TRUE(world().scanning());
            EXPECT_FALSE(manager()->stop(m_client));
            m_log.clear();
            ASSERT_TRUE(manager()->start(m_client));
            ASSERT_TRUE(awaitScanStarted());
            EXPECT_TRUE(manager()->stop(m_client));
            EXPECT_FALSE(world().scanning());
            break;
        case ProxyCall::ConnectGatt:
            world().failNext(call);
            EXPECT_FALSE(manager()->connect(address(kEddystone), m_client));
            EXPECT_TRUE(quiet(1s));
            aNewSessionWorks();
            break;
        case ProxyCall::Disconnect: {
            const unsigned long long h = open(kEddystone);
            world().failNext(call);
            EXPECT_FALSE(manager()->disconnect(h));
            EXPECT_TRUE(quiet(1s));
            ASSERT_TRUE(manager()->disconnect(h));
            EXPECT_EQ(next(), "disconnected " + std::to_string(h) + " 0");
            break;
        }
        case ProxyCall::Close: {
            const unsigned long long h = open(kEddystone);
            world().failNext(call);
            ASSERT_TRUE(manager()->disconnect(h));
            EXPECT_EQ(next(), "disconnected " + std::to_string(h) + " 0");
            EXPECT_TRUE(forgotten(h));
            EXPECT_TRUE(quiet(2s));
            aNewSessionWorks();
            break;
        }
        case ProxyCall::GetServices: {
            const unsigned long long h = open(kEddystone);
            world().failNext(call);
            ASSERT_TRUE(manager()->discoverAllServices(h));
            EXPECT_EQ(next(), "discovery failed " + std::to_string(h));
            EXPECT_TRUE(quiet(1s));
            ASSERT_TRUE(manager()->discoverAllServices(h));
            EXPECT_EQ(next(), answered(h, GattAnswer::Discover));
            break;
        }
        case ProxyCall::DiscoverServices:
        case ProxyCall::ReadCharacteristic:
        case ProxyCall::WriteCharacteristic:
        case ProxyCall::SetCharacteristicNotification: {
            const GattAnswer answer = call == ProxyCall::DiscoverServices     ? GattAnswer::Discover
                                      : call == ProxyCall::ReadCharacteristic ? GattAnswer::Read
                                      : call == ProxyCall::WriteCharacteristic
                                          ? GattAnswer::Write
                                          : GattAnswer::DescriptorWrite;
            const unsigned long long h =
                answer == GattAnswer::Discover ? open(kEddystone) : discovered(kEddystone);
            world().failNext(call);
            EXPECT_FALSE(ask(h, answer));
            EXPECT_TRUE(quiet(1s)) << "a refused request has no answer besides its result";
            ASSERT_TRUE(ask(h, answer));
            EXPECT_EQ(next(), answered(h, answer));
            break;
        }
        case ProxyCall::RegisterConnectivity:
            world().failNext(call);
            EXPECT_FALSE(manager()->registerConnectivityCallback(listener));
            ASSERT_TRUE(manager()->registerConnectivityCallback(listener));
            ASSERT_TRUE(world().setPairState(kCompany, 12));
            settle();
            ASSERT_TRUE(listener->log.waitForCount(1));
            EXPECT_EQ(listener->log.events(), Events{std::string(kCompany) + " 12"});
            break;
        case ProxyCall::DeregisterConnectivity:
            ASSERT_TRUE(manager()->registerConnectivityCallback(listener));
            world().failNext(call);
            EXPECT_FALSE(manager()->deregisterConnectivityCallback(listener));
            ASSERT_TRUE(manager()->deregisterConnectivityCallback(listener));
            ASSERT_TRUE(world().setPairState(kCompany, 12));
            settle();
            EXPECT_TRUE(listener->log.events().empty());
            break;
        case ProxyCall::GetPairedDevices:
            ASSERT_TRUE(world().setPairState(kCompany, 12));
            world().failNext(call);
            EXPECT_FALSE(manager()->getPairedRemoteDevices(devices));
            EXPECT_TRUE(devices.empty());
            ASSERT_TRUE(manager()->getPairedRemoteDevices(devices));
            ASSERT_EQ(devices.size(), 1u);
            EXPECT_EQ(devices[0]->getAddress(), kCompany);
            break;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Calls, EveryProxyCall,
    ::testing::Values(ProxyCall::Initialize, ProxyCall::RegisterForProxyDeath, ProxyCall::StartScan,
                      ProxyCall::StopScan, ProxyCall::ConnectGatt, ProxyCall::Disconnect,
                      ProxyCall::DiscoverServices, ProxyCall::GetServices, ProxyCall::Close,
                      ProxyCall::ReadCharacteristic, ProxyCall::WriteCharacteristic,
                      ProxyCall::SetCharacteristicNotification, ProxyCall::RegisterConnectivity,
                      ProxyCall::DeregisterConnectivity, ProxyCall::GetPairedDevices),
    [](const auto& test) { return std::string(kProxyCalls[static_cast<int>(test.param)]); });

// --- Slow clients, and clients that call back into the manager -----------------------------

// A client whose onBeaconScanResult stops at its gate.
class GatedResults : public RecordingClient {
  public:
    using RecordingClient::RecordingClient;
    void onBeaconScanResult(std::shared_ptr<TrackerScanRecord> record, Extra extra) override {
        gate.pass();
        RecordingClient::onBeaconScanResult(std::move(record), std::move(extra));
    }
    Gate gate;
};

// While one client sits in onBeaconScanResult, the other clients' results wait behind it, but a
// GATT session goes on to its disconnection meanwhile; once it returns, every result the radio
// heard reaches its client.
TEST_F(BluetoothFaults, ASlowClientDelaysOtherResultsButLosesNoneAndGattGoesOn) {
    auto heard = std::make_shared<std::map<std::string, int>>();
    auto heardMutex = std::make_shared<std::mutex>();
    world().setRadioTap([heard, heardMutex](const android::bluetooth::le::ScanResult& result) {
        std::lock_guard<std::mutex> lock(*heardMutex);
        ++(*heard)["result " + result.getDevice().getAddress()];
    });
    const auto heardOf = [heard, heardMutex](const std::string& result) {
        std::lock_guard<std::mutex> lock(*heardMutex);
        return static_cast<std::size_t>((*heard)[result]);
    };
    auto slow = std::make_shared<GatedResults>(std::vector<TrackerScanFilter>{eddystoneFilter()});
    ASSERT_TRUE(manager()->registerConnector(slow));
    auto other = client({companyFilter()});
    for (const std::shared_ptr<RecordingClient>& each :
         std::vector<std::shared_ptr<RecordingClient>>{slow, other, m_client}) {
        ASSERT_TRUE(manager()->start(each));
    }
    ASSERT_TRUE(awaitScanStarted());
    for (int step = 0; step < 10; ++step) {
        settle(100ms);
    }
    ASSERT_TRUE(slow->gate.awaitArrival());

    const unsigned long long h = discovered(kCompany);
    ASSERT_TRUE(manager()->readCharacteristic(h, kBattery, kLevel));
    EXPECT_EQ(next(), "read " + std::to_string(h) + " 64");
    ASSERT_TRUE(manager()->disconnect(h));
    EXPECT_EQ(next(), "disconnected " + std::to_string(h) + " 0");
    EXPECT_LT(occurrences(other->log.events(), kCompanyResult), heardOf(kCompanyResult));

    slow->gate.open();
    EXPECT_TRUE(eventually([&] {
        return occurrences(other->log.events(), kCompanyResult) == heardOf(kCompanyResult) &&
               occurrences(slow->log.events(), kEddystoneResult) == heardOf(kEddystoneResult);
    }));
    EXPECT_TRUE(forgotten(h));
}

// A client that calls the manager from inside its callbacks, as a connector may: it connects
// to the first tag it hears, disconnects as soon as it is connected, reloads its scan when told
// of the disconnection, and stops it from a result of the new scan.
class CallingBack : public RecordingClient {
  public:
    using RecordingClient::RecordingClient;
    void onBeaconScanResult(std::shared_ptr<TrackerScanRecord> record, Extra extra) override {
        const std::string address = util::bluetooth::BleUtils::getBleAddress(record->address);
        RecordingClient::onBeaconScanResult(std::move(record), std::move(extra));
        if (!connecting.exchange(true)) {
            connected = manager->connect(
                util::bluetooth::BleUtils::stringToTrackerDeviceAddr(address.c_str()), self.lock());
        } else if (sim::World::instance().scanRequests().size() == 3 && !stopping.exchange(true)) {
            stopped = manager->stop(self.lock());
        }
    }
    void onConnected(std::shared_ptr<TrackerDeviceAddr> addr, unsigned long long h) override {
        RecordingClient::onConnected(std::move(addr), h);
        disconnected = manager->disconnect(h);
    }
    void onDisconnected(std::shared_ptr<TrackerDeviceAddr> addr, unsigned long long h,
                        TrackerStatus status) override {
        RecordingClient::onDisconnected(std::move(addr), h, status);
        reloaded = manager->reload(self.lock());
    }

    std::shared_ptr<util::bluetooth::BluetoothManagerInterface> manager;
    std::weak_ptr<CallingBack> self;
    std::atomic<bool> connecting{false};
    std::atomic<bool> stopping{false};
    std::atomic<bool> connected{false};
    std::atomic<bool> disconnected{false};
    std::atomic<bool> reloaded{false};
    std::atomic<bool> stopped{false};
};

TEST_F(BluetoothFaults, CallsFromInsideCallbacksTakeEffect) {
    auto calling = std::make_shared<CallingBack>(std::vector<TrackerScanFilter>{eddystoneFilter()});
    calling->manager = manager();
    calling->self = calling;
    ASSERT_TRUE(manager()->registerConnector(calling));
    ASSERT_TRUE(manager()->start(m_client));
    ASSERT_TRUE(manager()->start(calling));
    ASSERT_TRUE(awaitScanStarted());
    // Each step of the chain runs on the manager's threads and needs the world's time to move.
    ASSERT_TRUE(eventually([&] {
        settle(100ms);
        return calling->stopped.load();
    }));
    EXPECT_TRUE(calling->connected);
    EXPECT_TRUE(calling->disconnected);
    EXPECT_TRUE(calling->reloaded);
    Events gatt;
    for (const std::string& event : calling->log.events()) {
        if (event.rfind("result ", 0) != 0) {
            gatt.push_back(event);
        }
    }
    EXPECT_EQ(gatt, (Events{"connected 1", "disconnected 1 0"}));
    EXPECT_EQ(scanRequests(), (Events{"start 1", "stop", "start 1", "stop"}));
    EXPECT_FALSE(world().scanning());
    EXPECT_TRUE(forgotten(1));
}

// A pairing listener that deregisters itself from inside its first event.
class Deregistering : public PairingListener {
  public:
    void onPairStateChanged(std::shared_ptr<util::bluetooth::IRemoteDevice> device,
                            int state) override {
        const bool deregistered = manager->deregisterConnectivityCallback(self.lock());
        log.add(device->getAddress() + " " + std::to_string(state) +
                " deregistered=" + std::to_string(deregistered));
    }
    std::shared_ptr<util::bluetooth::BluetoothManagerInterface> manager;
    std::weak_ptr<Deregistering> self;
};

TEST_F(BluetoothFaults, AListenerMayDeregisterFromItsOwnCallback) {
    auto listener = std::make_shared<Deregistering>();
    listener->manager = manager();
    listener->self = listener;
    ASSERT_TRUE(manager()->registerConnectivityCallback(listener));
    ASSERT_TRUE(world().setPairState(kCompany, 12));
    settle();
    ASSERT_TRUE(listener->log.waitForCount(1));
    ASSERT_TRUE(world().setPairState(kCompany, 10));
    settle();
    EXPECT_EQ(listener->log.events(), Events{std::string(kCompany) + " 12 deregistered=1"});
}

}  // namespace
}  // namespace testing
}  // namespace tracker
