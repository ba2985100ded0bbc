#pragma once

#include <memory>
#include <string>

#include "tracker/metrics/MetricsManager.h"
#include "tracker/metrics/MetricsTransport.h"

namespace orvane {
namespace metricutils {

// One metric: built, filled, log()ged once, destroyed. Every record begins with
// "MetricName=<name>;SY"; log() appends the predefined keys of the mask and sends it.
// Destruction never logs. Not thread-safe: one thread builds and logs a metric.
class VeldaraMetric {
  public:
    VeldaraMetric(const std::shared_ptr<MetricsManager>& manager, const char* programId,
                  const char* schemaId, const char* metricName, unsigned int predefinedKeys);
    virtual ~VeldaraMetric();
    // Takes the source's transport (the source keeps none) and drops this one's; the
    // predefined-key mask is deliberately not taken: the target keeps its own.
    VeldaraMetric& operator=(VeldaraMetric&& other);
    // Deleted: a new metric has no mask of its own to keep, so a move here could not match the
    // assignment. Copies are not possible either.
    VeldaraMetric(VeldaraMetric&&) = delete;

    virtual VeldaraMetric& addString(const std::string& key, const std::string& value);
    virtual VeldaraMetric& addInt32(const std::string& key, int value);
    virtual VeldaraMetric& addInt64(const std::string& key, long long value);
    virtual VeldaraMetric& addBoolean(const std::string& key, bool value);

    void log();

  protected:
    // Hands one field to the transport; a metric whose transport was moved away ignores it.
    template <typename Value, typename Arg>
    VeldaraMetric& forward(void (MetricsTransport::*add)(const std::string&, Value),
                           const std::string& key, const Arg& value) {
        if (m_transport) {
            ((*m_transport).*add)(key, value);
        }
        return *this;
    }

  private:
    unsigned int m_predefinedKeys;
    std::shared_ptr<MetricsTransport> m_transport;
};

}  // namespace metricutils
}  // namespace orvane
