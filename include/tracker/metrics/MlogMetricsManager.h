#pragma once

#include <memory>

#include "tracker/metrics/MetricsManager.h"

namespace orvane {
namespace metricutils {

// Makes MlogMetricsTransports, which write to the platform metrics log. Stateless.
class MlogMetricsManager : public MetricsManager {
  public:
    std::shared_ptr<MetricsTransport> createTransport(const char* programId,
                                                      const char* schemaId) override;
};

}  // namespace metricutils
}  // namespace orvane
