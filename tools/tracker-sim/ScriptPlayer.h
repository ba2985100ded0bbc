#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BluetoothConnector.h"
#include "InLocConnector.h"
#include "RunDescription.h"
#include "Timeline.h"
#include "tracker/util/Executor.h"

namespace tracker {
namespace sim {
class World;
}

namespace trackersim {

// Plays a run's script on a thread of its own, one step at a time in the order queued: the
// connectors' set-up, then each step as the run's time reaches it. Manager calls may wait for
// minutes of virtual time (an initialisation, a session opening), and only the thread that moves
// the time can end those waits, so that thread never makes them itself.
//
// Lifetime: a step may be waiting inside a manager when the run ends, so a player lives as long
// as the process and is never destroyed.
//
// Thread-safety: play() and setUp() are called from the thread that moves the time. Everything
// else, the connectors included, belongs to the script thread, except the world's own steps.
class ScriptPlayer {
  public:
    ScriptPlayer(std::vector<ConnectorSetup> connectors, Timeline& timeline, sim::World& world);

    // Queues the set-up: the managers, every connector created, registered and started.
    void setUp();
    // A step that acts on the simulated world only (a tag moves or notifies, the proxy dies,
    // scan starts will fail, ...) runs at once on the calling thread, so that it happens at its
    // time even while the script thread waits in a manager; any other step is queued.
    void play(const ScriptStep& step);

  private:
    void createConnectors();
    static bool actsOnTheWorldOnly(const ScriptStep& step);
    void performOnTheWorld(const ScriptStep& step);
    void perform(const ScriptStep& step);
    void startOrStop(const ScriptStep& step);
    void reload(const ScriptStep& step);
    void listPairedDevices();
    void runDutyCycle(const ScriptStep& step);
    // A timeline entry of the script itself.
    void report(const std::string& event, const std::string& detail, bool failure = false,
                const std::string& address = {});

    const std::vector<ConnectorSetup> m_setups;
    Timeline& m_timeline;
    sim::World& m_world;
    util::Executor m_thread;
    std::map<std::string, std::shared_ptr<BluetoothConnector>> m_bluetooth;
    std::map<std::string, std::shared_ptr<InLocConnector>> m_inloc;
    std::shared_ptr<util::bluetooth::IConnectivityEventCallback> m_pairingWatch;
};

}  // namespace trackersim
}  // namespace tracker
