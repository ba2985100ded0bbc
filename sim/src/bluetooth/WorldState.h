#pragma once

// The simulated world's state, shared by its source files. Everything here is guarded by
// World::m_mutex.

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bluetooth/World.h"

namespace tracker {
namespace sim {

struct World::Tag {
    TagSpec tagSpec;  // its address upper case
    util::Clock::TimePoint added;
    std::optional<double> fixedDistance;
};

// The callbacks of one scan, as the one callback object a device's scanner calls: deliveries
// for the scan are keyed by it.
struct ScanCallbacks {
    World::BatchCallback batch;
    std::function<void(int)> failure;
    World::ResultCallback result;
};

struct World::Scan {
    int instance;
    std::vector<android::bluetooth::le::ScanFilter> filters;
    android::bluetooth::le::ScanSettings settings;
    std::shared_ptr<ScanCallbacks> callbacks;
};

struct World::Connection {
    enum class Link { Connecting, Connected, Down };

    std::string address;  // upper case
    std::shared_ptr<Gatt> callback;
    Link link = Link::Connecting;
    // Connecting: the connection answer is on its way; and when the stack gives up.
    bool connectAnswered = false;
    util::Clock::TimePoint connectDeadline;
    // The disconnection was delivered: nothing more is.
    bool downReported = false;
    bool discovered = false;
    // The request the stack waits on (0: none); a stack runs one at a time per connection.
    uint64_t outstanding = 0;
    std::vector<android::bluetooth::BluetoothGattService> services;
    std::set<int> notifying;  // instance ids of characteristics with notifications on
};

struct World::Faults {
    // Calls to fail, by operation (kEveryCall: all).
    std::map<ProxyCall, int> failing;
    ScanStartFailure scanStartFailure = ScanStartFailure::Refused;
    std::map<GattAnswer, int> status;
    // nullopt: drop the answer; a duration: deliver it that late.
    std::map<GattAnswer, std::optional<util::Clock::Duration>> delivery;
    std::set<GattAnswer> duplicate;
    std::map<GattAnswer, Missing> missing;
    std::optional<int> nextConnectionId;
};

struct World::State {
    bool ready = false;
    int deaths = 0;
    std::map<ProxyCall, int> calls;
    double range = 30.0;
    std::map<std::string, std::shared_ptr<Tag>> tags;  // by upper-case address
    std::optional<Scan> scan;
    std::vector<ScanRequest> scanRequests;
    // Bumped whenever the scan starts, stops or the world resets: advertisements scheduled
    // under an older generation are dropped.
    uint64_t generation = 0;
    std::map<int, Connection> connections;
    int nextConnectionId = 1;
    int nextInstanceId = 1;
    uint64_t nextRequest = 1;
    std::vector<std::weak_ptr<DeathRecipient>> deathRecipients;
    std::vector<std::shared_ptr<Connectivity>> connectivity;
    std::shared_ptr<std::function<void(const android::bluetooth::le::ScanResult&)>> radioTap;
    Faults faults;
    uint32_t noise = 12345;  // a small deterministic generator for RSSI noise
};

// Addresses are compared upper case, as the platform prints them.
std::string normalisedAddress(const std::string& address);

}  // namespace sim
}  // namespace tracker
