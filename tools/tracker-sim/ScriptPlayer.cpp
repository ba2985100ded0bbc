#include "ScriptPlayer.h"

#include <set>

#include "bluetooth/World.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/bluetooth/IRemoteDevice.h"
#include "tracker/inloc/InLocManager.h"

namespace tracker {
namespace trackersim {

using namespace util::bluetooth;
using util::inloc::InLocManager;

namespace {

// The script thread goes back to the pool after this much idleness.
constexpr std::chrono::seconds kIdleThread{5};

// Reports pairing changes to the timeline, as a service's pairing code would hear them.
class PairingWatch : public IConnectivityEventCallback {
  public:
    explicit PairingWatch(Timeline& timeline) : m_timeline(timeline) {}
    void onPairStateChanged(std::shared_ptr<IRemoteDevice> device, int state) override {
        TimelineEvent event;
        event.connector = "pairing";
        event.event = "pair state";
        event.address = BleUtils::getObfuscatedAddress(device->getAddress());
        event.detail = "state " + std::to_string(state);
        if (!device->getDSN().empty()) {
            event.detail += ", " + device->getDSN();
        }
        m_timeline.add(std::move(event));
    }

  private:
    Timeline& m_timeline;
};

android::os::ParcelUuid parcelUuid(const TrackerUuid& uuid) {
    return android::os::ParcelUuid::fromString(BleUtils::getUuidString(uuid));
}

}  // namespace

ScriptPlayer::ScriptPlayer(std::vector<ConnectorSetup> connectors, Timeline& timeline,
                           sim::World& world)
    : m_setups(std::move(connectors)),
      m_timeline(timeline),
      m_world(world),
      m_thread(kIdleThread) {}

void ScriptPlayer::setUp() {
    m_thread.post(false, [this] {
        const Timeline::RunThread script;
        createConnectors();
    });
}

void ScriptPlayer::play(const ScriptStep& step) {
    if (actsOnTheWorldOnly(step)) {
        performOnTheWorld(step);
        return;
    }
    m_thread.post(false, [this, step] {
        const Timeline::RunThread script;
        perform(step);
    });
}

bool ScriptPlayer::actsOnTheWorldOnly(const ScriptStep& step) {
    static const std::set<std::string> kWorldActions = {
        "notify", "move", "remove", "inject", "failScanStarts", "killProxy", "pair"};
    return kWorldActions.count(step.action) > 0;
}

void ScriptPlayer::report(const std::string& event, const std::string& detail, bool failure,
                          const std::string& address) {
    TimelineEvent entry;
    entry.connector = "script";
    entry.event = event;
    entry.detail = detail;
    entry.failure = failure;
    entry.address = address.empty() ? std::string() : BleUtils::getObfuscatedAddress(address);
    m_timeline.add(std::move(entry));
}

void ScriptPlayer::createConnectors() {
    const auto later = [this](std::function<void()> call) {
        m_thread.post(false, [call] {
            const Timeline::RunThread script;
            call();
        });
    };
    std::shared_ptr<BluetoothManagerInterface> bluetooth;
    std::shared_ptr<InLocManager> inloc;
    for (const ConnectorSetup& setup : m_setups) {
        const bool isBluetooth = setup.kind == ConnectorSetup::Kind::Bluetooth;
        ConnectorContext context{setup.name, m_timeline, later};
        m_timeline.declareConnector(setup.name, isBluetooth ? "bluetooth" : "inloc",
                                    describeFilters(setup.filters));
        bool registered = false;
        if (isBluetooth) {
            // Waits for the proxy's initialisation, with its retries, the first time.
            bluetooth = bluetooth ? bluetooth : BluetoothManagerInterface::getInstance();
            if (bluetooth) {
                auto connector =
                    std::make_shared<BluetoothConnector>(context, setup.filters, bluetooth);
                registered = bluetooth->registerConnector(connector);
                m_bluetooth.emplace(setup.name, connector);
            }
        } else {
            inloc = inloc ? inloc : InLocManager::getInstance();
            if (inloc) {
                auto connector = std::make_shared<InLocConnector>(context, setup.filters);
                registered = inloc->registerConnector(connector);
                m_inloc.emplace(setup.name, connector);
            }
        }
        context.report(registered ? "registered" : "registration failed", nullptr,
                       describeFilters(setup.filters), !registered);
    }
    if (bluetooth) {
        m_pairingWatch = std::make_shared<PairingWatch>(m_timeline);
        bluetooth->registerConnectivityCallback(m_pairingWatch);
    }
    for (const ConnectorSetup& setup : m_setups) {
        ScriptStep start;
        start.action = "start";
        start.connector = setup.name;
        startOrStop(start);
    }
}

void ScriptPlayer::startOrStop(const ScriptStep& step) {
    const bool start = step.action == "start";
    bool done = false;
    if (const auto found = m_bluetooth.find(step.connector); found != m_bluetooth.end()) {
        const auto manager = BluetoothManagerInterface::getInstance();
        done = start ? manager->start(found->second) : manager->stop(found->second);
    } else if (const auto other = m_inloc.find(step.connector); other != m_inloc.end()) {
        const auto manager = InLocManager::getInstance();
        done = start ? manager->start(other->second) : manager->stop(other->second);
    }
    TimelineEvent event;
    event.connector = step.connector;
    event.event = done ? (start ? "started" : "stopped") : step.action + " refused";
    event.failure = !done;
    m_timeline.add(std::move(event));
}

void ScriptPlayer::reload(const ScriptStep& step) {
    bool done = false;
    if (step.hasFilters) {
        const bool bluetooth = m_bluetooth.count(step.connector) > 0;
        m_timeline.declareConnector(step.connector, bluetooth ? "bluetooth" : "inloc",
                                    describeFilters(step.filters));
    }
    if (const auto found = m_bluetooth.find(step.connector); found != m_bluetooth.end()) {
        if (step.hasFilters) {
            found->second->setFilters(step.filters);
        }
        done = BluetoothManagerInterface::getInstance()->reload(found->second);
    } else if (const auto other = m_inloc.find(step.connector); other != m_inloc.end()) {
        if (step.hasFilters) {
            other->second->setFilters(step.filters);
        }
        done = InLocManager::getInstance()->reload(other->second);
    }
    TimelineEvent event;
    event.connector = step.connector;
    event.event = done ? "reloaded" : "reload refused";
    event.detail = step.hasFilters ? describeFilters(step.filters) : std::string();
    event.failure = !done;
    m_timeline.add(std::move(event));
}

void ScriptPlayer::listPairedDevices() {
    std::vector<std::shared_ptr<IRemoteDevice>> devices;
    const auto manager = BluetoothManagerInterface::getInstance();
    if (!manager || !manager->getPairedRemoteDevices(devices)) {
        TimelineEvent event;
        event.connector = "pairing";
        event.event = "paired devices";
        event.detail = "query failed";
        event.failure = true;
        m_timeline.add(std::move(event));
        return;
    }
    std::string list;
    for (const std::shared_ptr<IRemoteDevice>& device : devices) {
        list += (list.empty() ? "" : ", ") + BleUtils::getObfuscatedAddress(device->getAddress());
        if (!device->getDSN().empty()) {
            list += " " + device->getDSN();
        }
    }
    TimelineEvent event;
    event.connector = "pairing";
    event.event = "paired devices";
    event.detail = std::to_string(devices.size()) + (list.empty() ? "" : ": " + list);
    m_timeline.add(std::move(event));
}

void ScriptPlayer::runDutyCycle(const ScriptStep& step) {
    const auto found = m_inloc.find(step.connector);
    if (found == m_inloc.end()) {
        return;
    }
    // Periods can only change while the connector is stopped; the cycle's first step is the
    // caller's to take once it has started again.
    const std::shared_ptr<InLocManager> manager = InLocManager::getInstance();
    ScriptStep again = step;
    again.action = "stop";
    startOrStop(again);
    const bool set = manager->setScanPeriod(found->second, InLocManager::Seconds(step.active),
                                            InLocManager::Seconds(step.inactive));
    TimelineEvent event;
    event.connector = step.connector;
    event.event = set ? "scan period" : "scan period refused";
    event.detail =
        std::to_string(step.active) + " s on, " + std::to_string(step.inactive) + " s off";
    event.failure = !set;
    m_timeline.add(std::move(event));
    again.action = "start";
    startOrStop(again);
    if (set) {
        manager->onPeriodicScanTimer();
    }
}

void ScriptPlayer::performOnTheWorld(const ScriptStep& step) {
    const std::string& action = step.action;
    if (action == "notify") {
        const bool sent = m_world.notifyValue(step.address, parcelUuid(step.service),
                                              parcelUuid(step.notify), step.value);
        report("tag notifies", hex(step.value), !sent, step.address);
    } else if (action == "move") {
        char metres[32];
        std::snprintf(metres, sizeof metres, "to %.1f m", step.metres);
        report("tag moves", metres, !m_world.moveTag(step.address, step.metres), step.address);
    } else if (action == "remove") {
        report("tag leaves", {}, !m_world.removeTag(step.address), step.address);
    } else if (action == "inject") {
        const bool heard = m_world.injectAdvertisement(step.address, step.value, step.rssi);
        report("advertisement injected", heard ? "heard" : "not heard", false, step.address);
    } else if (action == "failScanStarts") {
        m_world.failNextScanStarts(step.count, step.throughCallback
                                                   ? sim::ScanStartFailure::Callback
                                                   : sim::ScanStartFailure::Refused);
        report("scan starts will fail", std::to_string(step.count) + "x");
    } else if (action == "killProxy") {
        report("proxy dies", {});
        m_world.killProxy();
    } else if (action == "pair") {
        report("pairing changes", "state " + std::to_string(step.state),
               !m_world.setPairState(step.address, step.state), step.address);
    }
}

void ScriptPlayer::perform(const ScriptStep& step) {
    const std::string& action = step.action;
    if (action == "start" || action == "stop") {
        startOrStop(step);
    } else if (action == "reload") {
        reload(step);
    } else if (action == "gatt") {
        const auto found = m_bluetooth.find(step.connector);
        if (found != m_bluetooth.end()) {
            found->second->beginSession({BleUtils::stringToTrackerDeviceAddr(step.address.c_str()),
                                         step.service, step.read, step.notify, step.notifications});
        }
    } else if (action == "pairedDevices") {
        listPairedDevices();
    } else if (action == "ring") {
        const auto found = m_inloc.find(step.connector);
        const bool asked =
            found != m_inloc.end() &&
            InLocManager::getInstance()->ringDeviceByAddress(
                found->second, BleUtils::stringToTrackerDeviceAddr(step.address.c_str()));
        TimelineEvent event;
        event.connector = step.connector;
        event.event = asked ? "ringing" : "ring refused";
        event.address = BleUtils::getObfuscatedAddress(step.address);
        event.failure = !asked;
        m_timeline.add(std::move(event));
    } else if (action == "scanPeriod") {
        runDutyCycle(step);
    }
}

}  // namespace trackersim
}  // namespace tracker
