#include "tracker/metrics/MlogMetricsTransport.h"

#include <metrics/metrics_log.h>

namespace orvane {
namespace metricutils {

namespace {

constexpr int kMetricsPriority = 4;
constexpr const char* kMetricsTag = "TrackerService";
// Passed through to the metrics service as the platform expects it.
constexpr int kMetricsCount = 100;
constexpr unsigned int kPredefinedKeysEmitted = 14;  // keys 0 to 13

}  // namespace

MetricsTransport::~MetricsTransport() = default;

MlogMetricsTransport::MlogMetricsTransport(const char* programId, const char* schemaId)
    : m_programId(programId), m_schemaId(schemaId) {}

void MlogMetricsTransport::addField(const std::string& key, const std::string& value,
                                    const char* tag) {
    if (!m_record.empty()) {
        m_record += ',';
    }
    m_record += key;
    m_record += '=';
    m_record += value;
    m_record += tag;
}

void MlogMetricsTransport::addString(const std::string& key, const std::string& value) {
    addField(key, value, ";SY");
}

void MlogMetricsTransport::addInt32(const std::string& key, int value) {
    addField(key, std::to_string(value), ";IN");
}

// The receiving schema expects 64-bit integers under the tag FL.
void MlogMetricsTransport::addInt64(const std::string& key, long long value) {
    addField(key, std::to_string(value), ";FL");
}

void MlogMetricsTransport::addBoolean(const std::string& key, bool value) {
    addField(key, std::to_string(static_cast<int>(value)), ";BO");
}

void MlogMetricsTransport::recordMetricEvent(unsigned int predefinedKeys) {
    for (unsigned int key = 0; key < kPredefinedKeysEmitted; ++key) {
        if ((predefinedKeys & (1u << key)) != 0) {
            addField(getPredefinedKeyString(static_cast<veldaraPredefinedKey_t>(key)), "", ";SY");
        }
    }
    __metrics_log_print_v2(kMetricsPriority, kMetricsTag, m_programId, m_schemaId, kMetricsCount,
                           "%s", m_record.c_str());
}

std::string MlogMetricsTransport::getPredefinedKeyString(veldaraPredefinedKey_t key) {
    static const char* const kKeys[] = {
        "_buildType",  "_countryOfResidence", "_customerId",    "_deviceId", "_deviceLanguage",
        "_deviceType", "_hardware",           "_marketPlaceId", "_model",    "_otaGroupName",
        "_platform",   "_softwareVersion",    "_timeZone",      "_osFile",   "",
    };
    const int index = static_cast<int>(key);
    return index >= 1 && index <= VELDARA_NONE ? kKeys[index] : kKeys[VELDARA_BUILD_TYPE];
}

}  // namespace metricutils
}  // namespace orvane
