#include "InLocConnector.h"

#include <cstdio>
#include <string>

#include "tracker/bluetooth/BleUtils.h"

namespace tracker {
namespace trackersim {

using namespace util::bluetooth;
using util::inloc::TrackerInLocDistanceEvent;

InLocConnector::InLocConnector(ConnectorContext context, std::vector<TrackerScanFilter> filters)
    : m_context(std::move(context)), m_filters(std::move(filters)) {}

void InLocConnector::setFilters(std::vector<TrackerScanFilter> filters) {
    m_filters.set(std::move(filters));
}

std::shared_ptr<BluetoothManagerScanFilter> InLocConnector::getScanFilter() {
    return m_filters.holder();
}

void InLocConnector::onInitializationSuccess() {
    m_context.report("initialised", nullptr);
}

void InLocConnector::onInitializationFailure() {
    m_context.report("initialisation failed", nullptr, {}, true);
}

void InLocConnector::onInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent> event) {
    TimelineEvent entry;
    entry.connector = m_context.name;
    entry.event = "distance";
    entry.address = obfuscated(*event->deviceAddr);
    entry.device = BleUtils::getBleAddress(event->deviceAddr);
    switch (event->distanceType) {
        case util::inloc::DISTANCE_TYPE_MEASURED:
            entry.metres = event->distance / 100.0;
            break;
        case util::inloc::DISTANCE_TYPE_RANGE_BUCKET: {
            char bucket[48];
            if (event->maxDistance == TrackerInLocDistanceEvent::kMaxDistance) {
                std::snprintf(bucket, sizeof bucket, "beyond %.1f m", event->minDistance / 100.0);
            } else {
                std::snprintf(bucket, sizeof bucket, "bucket %.1f-%.1f m",
                              event->minDistance / 100.0, event->maxDistance / 100.0);
                entry.metres = event->maxDistance / 100.0;
            }
            entry.detail = bucket;
            break;
        }
        case util::inloc::DISTANCE_TYPE_NONE:
            entry.detail = "no distance";
            break;
    }
    if (!event->membership.empty()) {
        entry.detail += (entry.detail.empty() ? "" : ", ") + std::string("membership ") +
                        hex(event->membership);
    }
    m_context.timeline.add(std::move(entry));
}

void InLocConnector::onRingDeviceResult(const std::shared_ptr<TrackerDeviceAddr>& addr,
                                        TrackerStatus status) {
    m_context.report("rang", addr.get(),
                     status == TRACKER_SUCCESS ? "success" : "status " + std::to_string(status),
                     status != TRACKER_SUCCESS);
}

}  // namespace trackersim
}  // namespace tracker
