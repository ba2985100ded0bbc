#include "tracker/metrics/VeldaraMetric.h"

namespace orvane {
namespace metricutils {

VeldaraMetric::VeldaraMetric(const std::shared_ptr<MetricsManager>& manager, const char* programId,
                             const char* schemaId, const char* metricName,
                             unsigned int predefinedKeys)
    : m_predefinedKeys(predefinedKeys),
      m_transport(manager ? manager->createTransport(programId, schemaId) : nullptr) {
    addString("MetricName", metricName != nullptr ? metricName : "");
}

VeldaraMetric::~VeldaraMetric() = default;

VeldaraMetric& VeldaraMetric::operator=(VeldaraMetric&& other) {
    if (this != &other) {
        m_transport = std::move(other.m_transport);
        other.m_transport.reset();
    }
    return *this;
}

VeldaraMetric& VeldaraMetric::addString(const std::string& key, const std::string& value) {
    return forward(&MetricsTransport::addString, key, value);
}

VeldaraMetric& VeldaraMetric::addInt32(const std::string& key, int value) {
    return forward(&MetricsTransport::addInt32, key, value);
}

VeldaraMetric& VeldaraMetric::addInt64(const std::string& key, long long value) {
    return forward(&MetricsTransport::addInt64, key, value);
}

VeldaraMetric& VeldaraMetric::addBoolean(const std::string& key, bool value) {
    return forward(&MetricsTransport::addBoolean, key, value);
}

void VeldaraMetric::log() {
    if (m_transport) {
        m_transport->recordMetricEvent(m_predefinedKeys);
    }
}
}  // namespace metricutils
}  // namespace orvane
