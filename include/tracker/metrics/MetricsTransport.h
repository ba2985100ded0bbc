#pragma once

#include <string>

namespace orvane {
namespace metricutils {

// Keys whose values the platform metrics service fills in itself; bit n of a metric's
// predefined-key mask selects key n. The underlying type is fixed so that any int, such as -1 or
// 100, is a valid value of the type (getPredefinedKeyString() maps those to "_buildType").
enum veldaraPredefinedKey_t : int {
    VELDARA_BUILD_TYPE = 0,            // "_buildType"
    VELDARA_COUNTRY_OF_RESIDENCE = 1,  // "_countryOfResidence"
    VELDARA_CUSTOMER_ID = 2,           // "_customerId"
    VELDARA_DEVICE_ID = 3,             // "_deviceId"
    VELDARA_DEVICE_LANGUAGE = 4,       // "_deviceLanguage"
    VELDARA_DEVICE_TYPE = 5,           // "_deviceType"
    VELDARA_HARDWARE = 6,              // "_hardware"
    VELDARA_MARKETPLACE_ID = 7,        // "_marketPlaceId"
    VELDARA_MODEL = 8,                 // "_model"
    VELDARA_OTA_GROUP_NAME = 9,        // "_otaGroupName"
    VELDARA_PLATFORM = 10,             // "_platform"
    VELDARA_SOFTWARE_VERSION = 11,     // "_softwareVersion"
    VELDARA_TIME_ZONE = 12,            // "_timeZone"
    VELDARA_OS_FILE = 13,              // "_osFile"
    VELDARA_NONE = 14,                 // "" (never emitted)
};

// Accumulates the fields of one metric record and hands it to the platform.
// Not thread-safe: one thread builds and records a metric.
class MetricsTransport {
  public:
    virtual void addString(const std::string& key, const std::string& value) = 0;
    virtual void addInt32(const std::string& key, int value) = 0;
    virtual void addInt64(const std::string& key, long long value) = 0;
    virtual void addBoolean(const std::string& key, bool value) = 0;
    // Appends the predefined keys of the mask and sends the record; the record is kept.
    virtual void recordMetricEvent(unsigned int predefinedKeys) = 0;
    virtual ~MetricsTransport();
};

}  // namespace metricutils
}  // namespace orvane
