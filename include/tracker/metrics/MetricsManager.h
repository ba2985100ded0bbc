#pragma once

#include <memory>

#include "tracker/metrics/MetricsTransport.h"

namespace orvane {
namespace metricutils {

// Makes the transports that metrics record through.
class MetricsManager {
  public:
    virtual std::shared_ptr<MetricsTransport> createTransport(const char* programId,
                                                              const char* schemaId) = 0;
    virtual ~MetricsManager();

    // The process-wide manager (an MlogMetricsManager), made on the first call. That first call
    // is expected during start-up on one thread: it takes no lock.
    static std::shared_ptr<MetricsManager> getInstance();
};

}  // namespace metricutils
}  // namespace orvane
