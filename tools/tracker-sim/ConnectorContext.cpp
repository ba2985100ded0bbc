#include "ConnectorContext.h"

#include <algorithm>

#include "tracker/bluetooth/BleUtils.h"
#include "tracker/util/StringUtils.h"

namespace tracker {
namespace trackersim {

using util::bluetooth::BleUtils;

std::string hex(std::vector<uint8_t> bytes) {
    return util::StringUtils::bytesToHexString(bytes);
}

void ConnectorContext::report(std::string event, const util::bluetooth::TrackerDeviceAddr* address,
                              std::string detail, bool failure) const {
    TimelineEvent entry;
    entry.connector = name;
    entry.event = std::move(event);
    entry.address = address != nullptr ? obfuscated(*address) : std::string();
    entry.detail = std::move(detail);
    entry.failure = failure;
    timeline.add(std::move(entry));
}

ConnectorFilters::ConnectorFilters(std::vector<util::bluetooth::TrackerScanFilter> filters)
    : m_filters(std::move(filters)) {}

void ConnectorFilters::set(std::vector<util::bluetooth::TrackerScanFilter> filters) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_filters = std::move(filters);
}

std::shared_ptr<util::bluetooth::BluetoothManagerScanFilter> ConnectorFilters::holder() const {
    auto holder = std::make_shared<util::bluetooth::BluetoothManagerScanFilter>();
    std::lock_guard<std::mutex> lock(m_mutex);
    holder->addScanFilters(m_filters);
    return holder;
}

std::string obfuscated(const util::bluetooth::TrackerDeviceAddr& address) {
    return BleUtils::getObfuscatedAddress(BleUtils::getBleAddress(address));
}

std::string shortUuid(const util::bluetooth::TrackerUuid& uuid) {
    if (uuid.uuid.empty()) {
        return "-";
    }
    const std::vector<uint8_t>& base = BleUtils::BASE_UUID;
    const std::vector<uint8_t>& bytes = uuid.uuid;
    if (bytes.size() == 16 && bytes[0] == 0 && bytes[1] == 0 &&
        std::equal(bytes.begin() + 4, bytes.end(), base.begin() + 4)) {
        return hex({bytes[2], bytes[3]});
    }
    return BleUtils::getUuidString(uuid);
}

std::string describeFilters(const std::vector<util::bluetooth::TrackerScanFilter>& filters) {
    using namespace util::bluetooth;
    std::string text;
    for (const TrackerScanFilter& filter : filters) {
        if (!text.empty()) {
            text += ", ";
        }
        switch (filter.type) {
            case TYPE_UUID:
                text += "uuid " + shortUuid({filter.uuidFilter.uuid});
                break;
            case TYPE_MANU_DATA:
                text += "manufacturer " + hex(filter.manuDataFilter.data);
                if (!filter.manuDataFilter.mask.empty()) {
                    text += "/" + hex(filter.manuDataFilter.mask);
                }
                break;
            case TYPE_MEMBERSHIP:
                text += "membership " + hex(filter.uuidFilter.uuid);
                break;
            case TYPE_ADDRESS:
                text += "address " + obfuscated({filter.addressFilter.bytesA});
                break;
        }
    }
    return text.empty() ? "none" : text;
}

}  // namespace trackersim
}  // namespace tracker
