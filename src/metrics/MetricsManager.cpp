#include "tracker/metrics/MetricsManager.h"

#include "tracker/metrics/MlogMetricsManager.h"

namespace orvane {
namespace metricutils {

MetricsManager::~MetricsManager() = default;

std::shared_ptr<MetricsManager> MetricsManager::getInstance() {
    // Never destroyed: a manager's thread may still record a metric while the process exits.
    static auto* instance = new std::shared_ptr<MetricsManager>();
    if (!*instance) {
        *instance = std::make_shared<MlogMetricsManager>();
    }
    return *instance;
}

}  // namespace metricutils
}  // namespace orvane
