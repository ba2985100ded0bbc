// The simulated world's GATT side: connections to tags and the answers a stack gives.

#include <algorithm>

#include <frameworklink/interfaces/ParcelByteArray.h>

#include "bluetooth/World.h"
#include "bluetooth/WorldState.h"

namespace tracker {
namespace sim {

namespace {

using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattDescriptor;
using android::bluetooth::BluetoothGattService;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using Gatt = com::orvane::frameworklink::managers::IAndroidBTGattCallback;

// How long a tag takes to answer a GATT request.
constexpr std::chrono::milliseconds kGattLatency{10};
// Platform statuses the world answers with.
constexpr int kGattError = 133;
constexpr int kConnectionTimeout = 8;
const ParcelUuid kConfigurationDescriptor =
    ParcelUuid::fromString("00002902-0000-1000-8000-00805f9b34fb");

}  // namespace

int World::takeStatusLocked(GattAnswer answer, int normal) {
    auto& statuses = m_state->faults.status;
    const auto found = statuses.find(answer);
    if (found == statuses.end()) {
        return normal;
    }
    const int status = found->second;
    statuses.erase(found);
    return status;
}

void World::answerLocked(GattAnswer answer, int connId, std::function<void(Connection&)> update,
                         std::function<void(Gatt&)> call) {
    auto& delivery = m_state->faults.delivery;
    util::Clock::Duration delay = kGattLatency;
    const auto found = delivery.find(answer);
    if (found != delivery.end()) {
        const std::optional<util::Clock::Duration> chosen = found->second;
        delivery.erase(found);
        if (!chosen) {
            return;  // dropped: the answer never comes, and the connection stays busy
        }
        delay = *chosen;
    }
    Connection* connection = connectionLocked(connId);
    const std::shared_ptr<Gatt> callback = connection->callback;
    const bool linkAnswer = answer == GattAnswer::Connect || answer == GattAnswer::Disconnect;
    m_loop.postAfter(delay, [this, connId, callback, linkAnswer, update, call] {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            Connection* current = connectionLocked(connId);
            if (current == nullptr || current->callback != callback) {
                return;  // closed meanwhile: no callback follows a close
            }
            current->busy = false;
            const std::shared_ptr<Tag> tag = findTagLocked(current->address);
            if (!linkAnswer && current->connected && !(tag && inRangeLocked(*tag))) {
                loseLinkLocked(*current);
                return;
            }
            if (update) {
                update(*current);
            }
        }
        call(*callback);
    });
}

void World::loseLinkLocked(Connection& connection) {
    connection.connected = false;
    connection.busy = false;
    const std::shared_ptr<Gatt> callback = connection.callback;
    m_loop.postAfter(util::Clock::Duration::zero(), [callback] {
        callback->onConnectionStateChange(kConnectionTimeout, Gatt::STATE_DISCONNECTED);
    });
}

World::Connection* World::connectionLocked(int connId) {
    const auto found = m_state->connections.find(connId);
    return found != m_state->connections.end() ? &found->second : nullptr;
}

World::Connection* World::takeForRequestLocked(int connId) {
    Connection* connection = connectionLocked(connId);
    if (!m_state->ready || connection == nullptr || !connection->connected || connection->busy) {
        return nullptr;
    }
    connection->busy = true;
    return connection;
}

BluetoothGattCharacteristic* World::findCharacteristicLocked(
    int connId, const BluetoothGattCharacteristic& wanted) {
    Connection* connection = connectionLocked(connId);
    if (connection == nullptr) {
        return nullptr;
    }
    // The instance id names one characteristic; without one, the first with the UUID.
    for (BluetoothGattService& service : connection->services) {
        for (BluetoothGattCharacteristic& candidate : service.characteristics()) {
            const bool same = wanted.getInstanceId() != 0
                                  ? candidate.getInstanceId() == wanted.getInstanceId()
                                  : candidate.getUuid() == wanted.getUuid();
            if (same) {
                return &candidate;
            }
        }
    }
    return nullptr;
}

bool World::connectGatt(const std::string& address, std::shared_ptr<Gatt> callback, int& connId) {
    std::optional<Connection> replaced;  // a reused id's old connection dies after the lock
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_state->ready || !callback) {
        return false;
    }
    Faults& faults = m_state->faults;
    connId = faults.nextConnectionId.value_or(m_state->nextConnectionId++);
    faults.nextConnectionId.reset();
    const std::shared_ptr<Tag> tag = findTagLocked(address);
    const bool reachable = tag && tag->tagSpec.connectable && inRangeLocked(*tag);
    const int status = takeStatusLocked(GattAnswer::Connect, reachable ? 0 : kGattError);
    const int newState = status == 0 ? Gatt::STATE_CONNECTED : Gatt::STATE_DISCONNECTED;
    Connection connection;
    connection.address = normalisedAddress(address);
    connection.callback = callback;
    Connection& slot = m_state->connections[connId];
    replaced = std::move(slot);
    slot = std::move(connection);
    answerLocked(
        GattAnswer::Connect, connId,
        [newState](Connection& current) { current.connected = newState == Gatt::STATE_CONNECTED; },
        [status, newState](Gatt& gatt) { gatt.onConnectionStateChange(status, newState); });
    return true;
}

bool World::disconnect(int connId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (!m_state->ready || connection == nullptr) {
        return false;
    }
    const int status = takeStatusLocked(GattAnswer::Disconnect, 0);
    answerLocked(
        GattAnswer::Disconnect, connId, [](Connection& current) { current.connected = false; },
        [status](Gatt& gatt) { gatt.onConnectionStateChange(status, Gatt::STATE_DISCONNECTED); });
    return true;
}

bool World::close(int connId) {
    std::optional<Connection> closed;  // dies after the lock: it holds the library's callback
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_state->connections.find(connId);
    if (found == m_state->connections.end()) {
        return false;
    }
    closed = std::move(found->second);
    m_state->connections.erase(found);
    return true;
}

bool World::discoverServices(int connId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = takeForRequestLocked(connId);
    if (connection == nullptr) {
        return false;
    }
    const int status = takeStatusLocked(GattAnswer::Discover, 0);
    answerLocked(
        GattAnswer::Discover, connId,
        [this, status](Connection& current) {
            if (status != 0) {
                return;
            }
            const std::shared_ptr<Tag> tag = findTagLocked(current.address);
            current.services = tag ? tag->tagSpec.gatt : std::vector<BluetoothGattService>();
            // The stack numbers what it found, so equal UUIDs stay apart.
            for (BluetoothGattService& service : current.services) {
                for (BluetoothGattCharacteristic& characteristic : service.characteristics()) {
                    characteristic.setInstanceId(m_state->nextInstanceId++);
                }
            }
            current.discovered = true;
        },
        [status](Gatt& gatt) { gatt.onServicesDiscovered(status); });
    return true;
}

bool World::getServices(int connId, std::vector<BluetoothGattService>& out) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (!m_state->ready || connection == nullptr || !connection->discovered) {
        return false;
    }
    out = connection->services;
    return true;
}

bool World::readCharacteristic(int connId, const BluetoothGattCharacteristic& characteristic) {
    std::lock_guard<std::mutex> lock(m_mutex);
    BluetoothGattCharacteristic* target = findCharacteristicLocked(connId, characteristic);
    if (target == nullptr || takeForRequestLocked(connId) == nullptr) {
        return false;
    }
    BluetoothGattCharacteristic answer = *target;
    // A characteristic without a value reads as empty bytes.
    if (!answer.getValue()) {
        answer.setValue(std::make_shared<ParcelByteArray>());
    }
    const int status = takeStatusLocked(GattAnswer::Read, 0);
    answerLocked(GattAnswer::Read, connId, nullptr,
                 [answer, status](Gatt& gatt) { gatt.onCharacteristicRead(answer, status); });
    return true;
}

bool World::writeCharacteristic(int connId, const BluetoothGattCharacteristic& characteristic) {
    std::lock_guard<std::mutex> lock(m_mutex);
    BluetoothGattCharacteristic* target = findCharacteristicLocked(connId, characteristic);
    if (target == nullptr || takeForRequestLocked(connId) == nullptr) {
        return false;
    }
    const int status = takeStatusLocked(GattAnswer::Write, 0);
    if (status == 0 && characteristic.getValue()) {
        target->setValue(std::make_shared<ParcelByteArray>(*characteristic.getValue()));
    }
    const BluetoothGattCharacteristic answer = *target;
    answerLocked(GattAnswer::Write, connId, nullptr,
                 [answer, status](Gatt& gatt) { gatt.onCharacteristicWrite(answer, status); });
    return true;
}

bool World::setCharacteristicNotification(int connId,
                                          const BluetoothGattCharacteristic& characteristic,
                                          bool enable) {
    std::lock_guard<std::mutex> lock(m_mutex);
    BluetoothGattCharacteristic* target = findCharacteristicLocked(connId, characteristic);
    if (target == nullptr) {
        return false;
    }
    const auto& descriptors = target->getDescriptors();
    const auto configuration = std::find_if(
        descriptors.begin(), descriptors.end(),
        [](const BluetoothGattDescriptor& d) { return d.getUuid() == kConfigurationDescriptor; });
    // Without its configuration descriptor a characteristic cannot notify.
    if (configuration == descriptors.end() || takeForRequestLocked(connId) == nullptr) {
        return false;
    }
    const int status = takeStatusLocked(GattAnswer::DescriptorWrite, 0);
    const int instanceId = target->getInstanceId();
    BluetoothGattDescriptor written = *configuration;
    written.setValue(std::make_shared<ParcelByteArray>(
        std::vector<uint8_t>{static_cast<uint8_t>(enable ? 0x01 : 0x00), 0x00}));
    written.setCharacteristic(std::make_shared<BluetoothGattCharacteristic>(*target));
    answerLocked(
        GattAnswer::DescriptorWrite, connId,
        [status, enable, instanceId](Connection& current) {
            if (status != 0) {
                return;
            }
            if (enable) {
                current.notifying.insert(instanceId);
            } else {
                current.notifying.erase(instanceId);
            }
        },
        [written, status](Gatt& gatt) { gatt.onDescriptorWrite(written, status); });
    return true;
}

bool World::notifyValue(const std::string& address, const ParcelUuid& service,
                        const ParcelUuid& characteristic, std::vector<uint8_t> value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::string tag = normalisedAddress(address);
    bool sent = false;
    for (auto& entry : m_state->connections) {
        Connection& connection = entry.second;
        if (connection.address != tag || !connection.connected) {
            continue;
        }
        for (BluetoothGattService& known : connection.services) {
            if (known.getUuid() != service) {
                continue;
            }
            for (BluetoothGattCharacteristic& candidate : known.characteristics()) {
                if (candidate.getUuid() != characteristic ||
                    connection.notifying.count(candidate.getInstanceId()) == 0) {
                    continue;
                }
                candidate.setValue(std::make_shared<ParcelByteArray>(value));
                const BluetoothGattCharacteristic changed = candidate;
                const std::shared_ptr<Gatt> callback = connection.callback;
                const int connId = entry.first;
                m_loop.postAfter(kGattLatency, [this, connId, callback, changed] {
                    {
                        std::lock_guard<std::mutex> inner(m_mutex);
                        Connection* current = connectionLocked(connId);
                        if (current == nullptr || current->callback != callback) {
                            return;
                        }
                    }
                    callback->onCharacteristicChanged(changed);
                });
                sent = true;
            }
        }
    }
    return sent;
}

}  // namespace sim
}  // namespace tracker
