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

struct World::Scan {
    int instance;
    std::vector<android::bluetooth::le::ScanFilter> filters;
    android::bluetooth::le::ScanSettings settings;
    BatchCallback batch;
    std::function<void(int)> failure;
    ResultCallback result;
};

struct World::Connection {
    std::string address;  // upper case
    std::shared_ptr<Gatt> callback;
    bool connected = false;
    bool discovered = false;
    // A stack runs one request per connection at a time; another is refused until it answers.
    bool busy = false;
    std::vector<android::bluetooth::BluetoothGattService> services;
    std::set<int> notifying;  // instance ids of characteristics with notifications on
};

struct World::Faults {
    int failInitializations = 0;
    int failScanStarts = 0;
    std::map<GattAnswer, int> status;
    // nullopt: drop the answer; a duration: deliver it that late.
    std::map<GattAnswer, std::optional<util::Clock::Duration>> delivery;
    std::optional<int> nextConnectionId;
    bool failPairedDeviceQuery = false;
};

struct World::State {
    bool ready = false;
    int initializeCalls = 0;
    double range = 30.0;
    std::map<std::string, std::shared_ptr<Tag>> tags;  // by upper-case address
    std::optional<Scan> scan;
    // Bumped whenever the scan starts, stops or the world resets: advertisements scheduled
    // under an older generation are dropped.
    uint64_t generation = 0;
    std::map<int, Connection> connections;
    int nextConnectionId = 1;
    int nextInstanceId = 1;
    std::vector<std::weak_ptr<DeathRecipient>> deathRecipients;
    std::vector<std::shared_ptr<Connectivity>> connectivity;
    Faults faults;
    uint32_t noise = 12345;  // a small deterministic generator for RSSI noise
};

// Addresses are compared upper case, as the platform prints them.
std::string normalisedAddress(const std::string& address);

}  // namespace sim
}  // namespace tracker
