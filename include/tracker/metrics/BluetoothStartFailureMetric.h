#pragma once

#include <memory>

#include "tracker/metrics/VeldaraMetric.h"

namespace orvane {
namespace metricutils {
namespace trackerservice {

// "BluetoothStartFailure": logged when the beacon scan could not be started. Its predefined
// keys are _buildType, _deviceType, _marketPlaceId, _platform and _softwareVersion.
class BluetoothStartFailureMetric : public VeldaraMetric {
  public:
    explicit BluetoothStartFailureMetric(const std::shared_ptr<MetricsManager>& manager);

    // "FailureReason=<reason>;IN".
    VeldaraMetric& addReason(int reason);
};

}  // namespace trackerservice
}  // namespace metricutils
}  // namespace orvane
