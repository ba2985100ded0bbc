#include "tracker/metrics/MetricsManager.h"

#include "tracker/metrics/MlogMetricsManager.h"

namespace orvane {
namespace metricutils {

MetricsManager::~MetricsManager() = default;

std::shared_ptr<MetricsManager> MetricsManager::getInstance() {
    static std::shared_ptr<MetricsManager> instance;
    if (!instance) {
        instance = std::make_shared<MlogMetricsManager>();
    }
    return instance;
}

}  // namespace metricutils
}  // namespace orvane
