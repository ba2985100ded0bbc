#pragma once

#include <string>

#include "tracker/metrics/MetricsTransport.h"

namespace orvane {
namespace metricutils {

// Builds the record as one line of "key=value;TT" fields joined by "," (TT: SY string, IN int32,
// FL int64, BO boolean; predefined keys are written "key=;SY") and sends it to the platform
// metrics log under the tag "TrackerService". Keys and values are written raw, unescaped.
//
// The identifiers are not owned: callers pass string literals. Not thread-safe.
class MlogMetricsTransport : public MetricsTransport {
  public:
    MlogMetricsTransport(const char* programId, const char* schemaId);

    void addString(const std::string& key, const std::string& value) override;
    void addInt32(const std::string& key, int value) override;
    void addInt64(const std::string& key, long long value) override;
    void addBoolean(const std::string& key, bool value) override;
    // Predefined keys 0 to 13 in ascending order; bits 14 and above are ignored. Each call sends
    // the whole record so far, which keeps growing.
    void recordMetricEvent(unsigned int predefinedKeys) override;

    // The key string of a predefined key; anything outside 1 to 14 gives "_buildType".
    static std::string getPredefinedKeyString(veldaraPredefinedKey_t key);

  private:
    void addField(const std::string& key, const std::string& value, const char* tag);

    const char* m_programId;
    const char* m_schemaId;
    std::string m_record;
};

}  // namespace metricutils
}  // namespace orvane
