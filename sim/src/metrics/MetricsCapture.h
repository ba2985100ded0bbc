#pragma once

#include <string>
#include <vector>

#include "capture/Capture.h"

namespace tracker {
namespace sim {

// One record as the simulated platform metrics log received it.
struct MetricRecord {
    int priority;
    std::string tag;
    std::string programId;
    std::string schemaId;
    int count;
    std::string record;
};

// Every record written to the simulated metrics log while it exists. Thread-safety as for
// Capture.
class MetricsCapture : public Capture<MetricRecord> {
  public:
    std::vector<MetricRecord> records() const { return entries(); }
};

}  // namespace sim
}  // namespace tracker
