#include "tracker/metrics/BluetoothStartFailureMetric.h"

#include <string>

namespace orvane {
namespace metricutils {

namespace trackerservice {

namespace {
constexpr const char* kProgramId = "k3vd8qps";
constexpr const char* kSchemaId = "m5r1/2/07214590";
constexpr const char* kMetricName = "BluetoothStartFailure";
// _buildType, _deviceType, _marketPlaceId, _platform, _softwareVersion.
constexpr unsigned int kPredefinedKeys = (1u << VELDARA_BUILD_TYPE) | (1u << VELDARA_DEVICE_TYPE) |
                                         (1u << VELDARA_MARKETPLACE_ID) | (1u << VELDARA_PLATFORM) |
                                         (1u << VELDARA_SOFTWARE_VERSION);
static_assert(kPredefinedKeys == 3233, "the metric's predefined keys");
}  // namespace

BluetoothStartFailureMetric::BluetoothStartFailureMetric(
    const std::shared_ptr<MetricsManager>& manager)
    : VeldaraMetric(manager, kProgramId, kSchemaId, kMetricName, kPredefinedKeys) {}

VeldaraMetric& BluetoothStartFailureMetric::addReason(int reason) {
    return forward(&MetricsTransport::addInt32, std::string("FailureReason"), reason);
}

}  // namespace trackerservice

}  // namespace metricutils
}  // namespace orvane
