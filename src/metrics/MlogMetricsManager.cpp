#include "tracker/metrics/MlogMetricsManager.h"

#include "tracker/metrics/MlogMetricsTransport.h"

namespace orvane {
namespace metricutils {

std::shared_ptr<MetricsTransport> MlogMetricsManager::createTransport(const char* programId,
                                                                      const char* schemaId) {
    return std::make_shared<MlogMetricsTransport>(programId, schemaId);
}

}  // namespace metricutils
}  // namespace orvane
