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
// How often the stack looks at a pending or established link.
constexpr std::chrono::seconds kSupervisionInterval{1};
// How long the stack waits for a connection to be established or a request to be answered.
constexpr std::chrono::seconds kStackTimeout{30};
// Platform statuses the world answers with.
constexpr int kGattError = 133;
constexpr int kLinkTimeout = 8;
constexpr int kLocalHostTerminated = 22;

const ParcelUuid kConfigurationDescriptor =
    ParcelUuid::fromString("00002902-0000-1000-8000-00805f9b34fb");

bool allows(const BluetoothGattCharacteristic& characteristic, int properties) {
    return (characteristic.getProperties() & properties) != 0;
}

const BluetoothGattDescriptor* configurationOf(const BluetoothGattCharacteristic& c) {
    const auto& descriptors = c.getDescriptors();
    const auto found = std::find_if(
        descriptors.begin(), descriptors.end(),
        [](const BluetoothGattDescriptor& d) { return d.getUuid() == kConfigurationDescriptor; });
    return found != descriptors.end() ? &*found : nullptr;
}

// Notifications switch on with 01 00; a characteristic that can only indicate takes 02 00.
std::vector<uint8_t> configurationValue(const BluetoothGattCharacteristic& c, bool enable) {
    if (!enable) {
        return {0x00, 0x00};
    }
    return {
        static_cast<uint8_t>(allows(c, BluetoothGattCharacteristic::PROPERTY_NOTIFY) ? 0x01 : 0x02),
        0x00};
}

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

void World::answerLocked(GattAnswer answer, int connId, uint64_t request,
                         std::function<void(Connection&)> update, std::function<void(Gatt&)> call) {
    Faults& faults = m_state->faults;
    util::Clock::Duration delay = kGattLatency;
    const auto chosen = faults.delivery.find(answer);
    if (chosen != faults.delivery.end()) {
        const std::optional<util::Clock::Duration> delivery = chosen->second;
        faults.delivery.erase(chosen);
        if (!delivery) {
            return;  // dropped: the answer never comes
        }
        delay = *delivery;
    }
    const bool twice = faults.duplicate.erase(answer) > 0;
    const std::shared_ptr<Gatt>& callback = connectionLocked(connId)->callback;
    const auto deliver = [this, connId, weak = std::weak_ptr<Gatt>(callback), call](
                             uint64_t ends, std::function<void(Connection&)> apply) {
        return [this, connId, ends, weak, call, apply] {
            std::shared_ptr<Gatt> target;
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                Connection* current = currentLocked(connId, weak);
                // Closed, replaced, or its disconnection already reported: nothing follows.
                if (current == nullptr || current->downReported) {
                    return;
                }
                if (ends != 0) {
                    // The stack gave up on the request (a time-out, a disconnection).
                    if (current->outstanding != ends) {
                        return;
                    }
                    current->outstanding = 0;
                }
                if (apply) {
                    apply(*current);
                }
                target = current->callback;
            }
            call(*target);
        };
    };
    m_deliveries.postAfter(callback.get(), delay, deliver(request, std::move(update)));
    if (twice) {
        // The stack's state changed with the first; the second only repeats the call.
        m_deliveries.postAfter(callback.get(), delay, deliver(0, nullptr));
    }
}

void World::linkDownLocked(int connId, int status) {
    Connection* connection = connectionLocked(connId);
    connection->link = Connection::Link::Down;
    connection->outstanding = 0;
    m_deliveries.postAfter(
        connection->callback.get(), util::Clock::Duration::zero(),
        [this, connId, status, weak = std::weak_ptr<Gatt>(connection->callback)] {
            std::shared_ptr<Gatt> target;
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                Connection* current = currentLocked(connId, weak);
                if (current == nullptr || current->downReported) {
                    return;
                }
                current->downReported = true;
                target = current->callback;
            }
            target->onConnectionStateChange(status, Gatt::STATE_DISCONNECTED);
        });
}

void World::superviseLocked(int connId) {
    const std::shared_ptr<Gatt>& callback = connectionLocked(connId)->callback;
    m_deliveries.postAfter(callback.get(), kSupervisionInterval,
                           [this, connId, weak = std::weak_ptr<Gatt>(callback)] {
                               std::lock_guard<std::mutex> lock(m_mutex);
                               Connection* current = currentLocked(connId, weak);
                               if (current == nullptr || current->link == Connection::Link::Down) {
                                   return;
                               }
                               if (current->link == Connection::Link::Connecting) {
                                   if (util::Clock::current()->now() >= current->connectDeadline) {
                                       linkDownLocked(connId, kGattError);
                                       return;
                                   }
                                   tryConnectLocked(connId);
                               } else {
                                   const std::shared_ptr<Tag> tag = findTagLocked(current->address);
                                   if (!(tag && inRangeLocked(*tag))) {
                                       linkDownLocked(connId, kLinkTimeout);
                                       return;
                                   }
                               }
                               superviseLocked(connId);
                           });
}

void World::tryConnectLocked(int connId) {
    Connection* connection = connectionLocked(connId);
    if (connection->link != Connection::Link::Connecting || connection->connectAnswered) {
        return;
    }
    const std::shared_ptr<Tag> tag = findTagLocked(connection->address);
    if (!(tag && tag->tagSpec.connectable && inRangeLocked(*tag))) {
        return;  // the stack keeps trying until its time-out
    }
    connection->connectAnswered = true;
    // The attempt is a request of its own: a time-out or a disconnection ends it, and an answer
    // that comes later is dropped.
    const uint64_t attempt = m_state->nextRequest++;
    connection->outstanding = attempt;
    const int status = takeStatusLocked(GattAnswer::Connect, 0);
    const int newState = status == 0 ? Gatt::STATE_CONNECTED : Gatt::STATE_DISCONNECTED;
    answerLocked(
        GattAnswer::Connect, connId, attempt,
        [status](Connection& current) {
            if (current.link == Connection::Link::Connecting) {
                current.link = status == 0 ? Connection::Link::Connected : Connection::Link::Down;
            }
            current.downReported = status != 0;
        },
        [status, newState](Gatt& gatt) { gatt.onConnectionStateChange(status, newState); });
}

World::Connection* World::connectionLocked(int connId) {
    const auto found = m_state->connections.find(connId);
    return found != m_state->connections.end() ? &found->second : nullptr;
}

World::Connection* World::currentLocked(int connId, const std::weak_ptr<Gatt>& callback) {
    Connection* connection = connectionLocked(connId);
    // Compared by owner, without lock(): a locked copy could be the last reference to a
    // replaced connection's callback and die here, under the mutex.
    const bool same = connection != nullptr && !callback.owner_before(connection->callback) &&
                      !connection->callback.owner_before(callback);
    return same ? connection : nullptr;
}

uint64_t World::startRequestLocked(int connId) {
    Connection* connection = connectionLocked(connId);
    if (connection == nullptr || connection->link != Connection::Link::Connected ||
        connection->outstanding != 0) {
        return 0;
    }
    const uint64_t request = m_state->nextRequest++;
    connection->outstanding = request;
    m_deliveries.postAfter(
        connection->callback.get(), kStackTimeout,
        [this, connId, request, weak = std::weak_ptr<Gatt>(connection->callback)] {
            std::lock_guard<std::mutex> lock(m_mutex);
            Connection* current = currentLocked(connId, weak);
            if (current != nullptr && current->outstanding == request &&
                current->link == Connection::Link::Connected) {
                linkDownLocked(connId, kLocalHostTerminated);
            }
        });
    return request;
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
    if (!admitLocked(ProxyCall::ConnectGatt) || !callback) {
        return false;
    }
    Faults& faults = m_state->faults;
    connId = faults.nextConnectionId.value_or(m_state->nextConnectionId++);
    faults.nextConnectionId.reset();
    Connection connection;
    connection.address = normalisedAddress(address);
    connection.callback = std::move(callback);
    connection.connectDeadline = util::Clock::current()->now() + kStackTimeout;
    Connection& slot = m_state->connections[connId];
    replaced = std::move(slot);
    slot = std::move(connection);
    tryConnectLocked(connId);
    superviseLocked(connId);
    return true;
}

bool World::disconnect(int connId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (!admitLocked(ProxyCall::Disconnect) || connection == nullptr) {
        return false;
    }
    if (connection->link == Connection::Link::Down) {
        return true;  // already down: the stack has nothing more to report
    }
    // A pending connection is cancelled, an established one closed; either is reported once.
    connection->link = Connection::Link::Down;
    connection->outstanding = 0;
    const int status = takeStatusLocked(GattAnswer::Disconnect, 0);
    answerLocked(
        GattAnswer::Disconnect, connId, 0, [](Connection& current) { current.downReported = true; },
        [status](Gatt& gatt) { gatt.onConnectionStateChange(status, Gatt::STATE_DISCONNECTED); });
    return true;
}

bool World::close(int connId) {
    std::optional<Connection> closed;  // dies after the lock: it holds the library's callback
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_state->connections.find(connId);
    if (!admitLocked(ProxyCall::Close) || found == m_state->connections.end()) {
        return false;
    }
    closed = std::move(found->second);
    m_state->connections.erase(found);
    return true;
}

bool World::discoverServices(int connId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!admitLocked(ProxyCall::DiscoverServices)) {
        return false;
    }
    const uint64_t request = startRequestLocked(connId);
    if (request == 0) {
        return false;
    }
    const int status = takeStatusLocked(GattAnswer::Discover, 0);
    answerLocked(
        GattAnswer::Discover, connId, request,
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
    if (!admitLocked(ProxyCall::GetServices) || connection == nullptr || !connection->discovered) {
        return false;
    }
    out = connection->services;
    return true;
}

bool World::readCharacteristic(int connId, const BluetoothGattCharacteristic& characteristic) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!admitLocked(ProxyCall::ReadCharacteristic)) {
        return false;
    }
    BluetoothGattCharacteristic* target = findCharacteristicLocked(connId, characteristic);
    if (target == nullptr || !allows(*target, BluetoothGattCharacteristic::PROPERTY_READ)) {
        return false;
    }
    const uint64_t request = startRequestLocked(connId);
    if (request == 0) {
        return false;
    }
    BluetoothGattCharacteristic answer = *target;
    // A characteristic without a value reads as empty bytes.
    if (!answer.getValue()) {
        answer.setValue(std::make_shared<ParcelByteArray>());
    }
    if (m_state->faults.missing.erase(GattAnswer::Read) > 0) {
        answer.setValue(nullptr);
    }
    const int status = takeStatusLocked(GattAnswer::Read, 0);
    answerLocked(GattAnswer::Read, connId, request, nullptr,
                 [answer, status](Gatt& gatt) { gatt.onCharacteristicRead(answer, status); });
    return true;
}

bool World::writeCharacteristic(int connId, const BluetoothGattCharacteristic& characteristic) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!admitLocked(ProxyCall::WriteCharacteristic)) {
        return false;
    }
    BluetoothGattCharacteristic* target = findCharacteristicLocked(connId, characteristic);
    if (target == nullptr ||
        !allows(*target, BluetoothGattCharacteristic::PROPERTY_WRITE |
                             BluetoothGattCharacteristic::PROPERTY_WRITE_NO_RESPONSE)) {
        return false;
    }
    const uint64_t request = startRequestLocked(connId);
    if (request == 0) {
        return false;
    }
    const int status = takeStatusLocked(GattAnswer::Write, 0);
    if (status == 0 && characteristic.getValue()) {
        target->setValue(std::make_shared<ParcelByteArray>(*characteristic.getValue()));
    }
    const BluetoothGattCharacteristic answer = *target;
    answerLocked(GattAnswer::Write, connId, request, nullptr,
                 [answer, status](Gatt& gatt) { gatt.onCharacteristicWrite(answer, status); });
    return true;
}

bool World::setCharacteristicNotification(int connId,
                                          const BluetoothGattCharacteristic& characteristic,
                                          bool enable) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!admitLocked(ProxyCall::SetCharacteristicNotification)) {
        return false;
    }
    BluetoothGattCharacteristic* target = findCharacteristicLocked(connId, characteristic);
    const BluetoothGattDescriptor* configuration =
        target != nullptr ? configurationOf(*target) : nullptr;
    if (configuration == nullptr ||
        !allows(*target, BluetoothGattCharacteristic::PROPERTY_NOTIFY |
                             BluetoothGattCharacteristic::PROPERTY_INDICATE)) {
        return false;
    }
    const uint64_t request = startRequestLocked(connId);
    if (request == 0) {
        return false;
    }
    const int status = takeStatusLocked(GattAnswer::DescriptorWrite, 0);
    const int instanceId = target->getInstanceId();
    BluetoothGattDescriptor written = *configuration;
    written.setValue(std::make_shared<ParcelByteArray>(configurationValue(*target, enable)));
    written.setCharacteristic(std::make_shared<BluetoothGattCharacteristic>(*target));
    const auto missing = m_state->faults.missing.find(GattAnswer::DescriptorWrite);
    if (missing != m_state->faults.missing.end()) {
        if (missing->second == Missing::Value) {
            written.setValue(nullptr);
        } else {
            written.setCharacteristic(nullptr);
        }
        m_state->faults.missing.erase(missing);
    }
    answerLocked(
        GattAnswer::DescriptorWrite, connId, request,
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
        if (connection.address != tag || connection.link != Connection::Link::Connected) {
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
                BluetoothGattCharacteristic changed = candidate;
                if (m_state->faults.missing.erase(GattAnswer::Notification) > 0) {
                    changed.setValue(nullptr);
                }
                answerLocked(GattAnswer::Notification, entry.first, 0, nullptr,
                             [changed](Gatt& gatt) { gatt.onCharacteristicChanged(changed); });
                sent = true;
            }
        }
    }
    return sent;
}

bool World::peerDisconnect(const std::string& address, int status) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::string tag = normalisedAddress(address);
    bool ended = false;
    for (auto& entry : m_state->connections) {
        if (entry.second.address == tag && entry.second.link == Connection::Link::Connected) {
            linkDownLocked(entry.first, status);
            ended = true;
        }
    }
    return ended;
}

bool World::sendUnsolicited(int connId, GattAnswer answer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Connection* connection = connectionLocked(connId);
    if (connection == nullptr) {
        return false;
    }
    switch (answer) {
        case GattAnswer::Connect:
            answerLocked(answer, connId, 0, nullptr, [](Gatt& gatt) {
                gatt.onConnectionStateChange(0, Gatt::STATE_CONNECTED);
            });
            return true;
        case GattAnswer::Disconnect:
            linkDownLocked(connId, 0);
            return true;
        case GattAnswer::Discover:
            answerLocked(answer, connId, 0, nullptr,
                         [](Gatt& gatt) { gatt.onServicesDiscovered(0); });
            return true;
        default:
            break;
    }
    // The first characteristic the answer can be about, from what discovery found or else from
    // the tag's own database.
    const std::shared_ptr<Tag> tag = findTagLocked(connection->address);
    const std::vector<BluetoothGattService>& services =
        connection->discovered || !tag ? connection->services : tag->tagSpec.gatt;
    const int wanted = answer == GattAnswer::Read    ? BluetoothGattCharacteristic::PROPERTY_READ
                       : answer == GattAnswer::Write ? BluetoothGattCharacteristic::PROPERTY_WRITE
                                                     : BluetoothGattCharacteristic::PROPERTY_NOTIFY;
    for (const BluetoothGattService& service : services) {
        for (const BluetoothGattCharacteristic& candidate : service.getCharacteristics()) {
            if (!allows(candidate, wanted)) {
                continue;
            }
            const BluetoothGattCharacteristic about = candidate;
            if (answer == GattAnswer::Read) {
                answerLocked(answer, connId, 0, nullptr,
                             [about](Gatt& gatt) { gatt.onCharacteristicRead(about, 0); });
            } else if (answer == GattAnswer::Write) {
                answerLocked(answer, connId, 0, nullptr,
                             [about](Gatt& gatt) { gatt.onCharacteristicWrite(about, 0); });
            } else if (answer == GattAnswer::Notification) {
                answerLocked(answer, connId, 0, nullptr,
                             [about](Gatt& gatt) { gatt.onCharacteristicChanged(about); });
            } else {
                const BluetoothGattDescriptor* configuration = configurationOf(about);
                if (configuration == nullptr) {
                    continue;
                }
                BluetoothGattDescriptor written = *configuration;
                written.setValue(
                    std::make_shared<ParcelByteArray>(configurationValue(about, true)));
                written.setCharacteristic(std::make_shared<BluetoothGattCharacteristic>(about));
                answerLocked(answer, connId, 0, nullptr,
                             [written](Gatt& gatt) { gatt.onDescriptorWrite(written, 0); });
            }
            return true;
        }
    }
    return false;
}

}  // namespace sim
}  // namespace tracker
