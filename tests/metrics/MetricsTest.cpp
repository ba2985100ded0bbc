#include <gtest/gtest.h>

#include <type_traits>

#include "metrics/MetricsCapture.h"
#include "tracker/metrics/BluetoothStartFailureMetric.h"
#include "tracker/metrics/MetricsManager.h"
#include "tracker/metrics/MlogMetricsTransport.h"
#include "tracker/metrics/VeldaraMetric.h"

namespace orvane {
namespace metricutils {
namespace {

using tracker::sim::MetricRecord;
using tracker::sim::MetricsCapture;

std::vector<std::string> recordsOf(const MetricsCapture& capture) {
    std::vector<std::string> records;
    for (const MetricRecord& record : capture.records()) {
        records.push_back(record.record);
    }
    return records;
}

TEST(Metrics, BluetoothStartFailureRecordToTheLetter) {
    MetricsCapture capture;
    trackerservice::BluetoothStartFailureMetric metric(MetricsManager::getInstance());
    metric.addReason(-1);
    metric.log();

    const std::vector<MetricRecord> records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].priority, 4);
    EXPECT_EQ(records[0].tag, "TrackerService");
    EXPECT_EQ(records[0].programId, "k3vd8qps");
    EXPECT_EQ(records[0].schemaId, "m5r1/2/07214590");
    EXPECT_EQ(records[0].count, 100);
    EXPECT_EQ(records[0].record,
              "MetricName=BluetoothStartFailure;SY,FailureReason=-1;IN,_buildType=;SY,"
              "_deviceType=;SY,_marketPlaceId=;SY,_platform=;SY,_softwareVersion=;SY");
}

TEST(Metrics, FieldsKeepTheirTagsAndTheRecordGrowsWithEveryLog) {
    MetricsCapture capture;
    VeldaraMetric metric(MetricsManager::getInstance(), "p", "s", "Example", 0);
    metric.log();
    metric.addString("text", "a,b=c;d")
        .addInt32("i", -7)
        .addInt64("wide", -5)
        .addBoolean("on", true)
        .addBoolean("off", false);
    // Bit 14 and above emit nothing; bit 2 is _customerId.
    metric.log();
    VeldaraMetric masked(MetricsManager::getInstance(), "p", "s", "Masked",
                         (1u << 2) | (1u << 14) | (1u << 31));
    masked.log();
    masked.log();
    EXPECT_EQ(recordsOf(capture),
              (std::vector<std::string>{
                  "MetricName=Example;SY",
                  "MetricName=Example;SY,text=a,b=c;d;SY,i=-7;IN,wide=-5;FL,on=1;BO,off=0;BO",
                  "MetricName=Masked;SY,_customerId=;SY",
                  "MetricName=Masked;SY,_customerId=;SY,_customerId=;SY",
              }));
}

// Only assignment moves a metric: a move-constructed one would have no mask of its own to keep.
static_assert(std::is_move_assignable_v<VeldaraMetric> &&
                  !std::is_move_constructible_v<VeldaraMetric> &&
                  !std::is_copy_assignable_v<VeldaraMetric>,
              "VeldaraMetric moves by assignment only");

TEST(Metrics, MoveAssignmentTakesTheTransportButNotTheMask) {
    MetricsCapture capture;
    VeldaraMetric target(MetricsManager::getInstance(), "p", "s", "Target", 1u << VELDARA_MODEL);
    VeldaraMetric source(MetricsManager::getInstance(), "p", "s", "Source", 1u << VELDARA_HARDWARE);
    source.addInt32("n", 1);
    target = std::move(source);
    target.log();
    // The moved-from metric has no transport: it records and sends nothing, and does not crash.
    source.addInt32("ignored", 2).log();
    VeldaraMetric& same = target;
    target = std::move(same);
    target.log();
    EXPECT_EQ(recordsOf(capture),
              (std::vector<std::string>{"MetricName=Source;SY,n=1;IN,_model=;SY",
                                        "MetricName=Source;SY,n=1;IN,_model=;SY,_model=;SY"}));
}

TEST(Metrics, PredefinedKeyNamesAndTheSingleton) {
    EXPECT_EQ(MlogMetricsTransport::getPredefinedKeyString(VELDARA_BUILD_TYPE), "_buildType");
    EXPECT_EQ(MlogMetricsTransport::getPredefinedKeyString(VELDARA_COUNTRY_OF_RESIDENCE),
              "_countryOfResidence");
    EXPECT_EQ(MlogMetricsTransport::getPredefinedKeyString(VELDARA_MARKETPLACE_ID),
              "_marketPlaceId");
    EXPECT_EQ(MlogMetricsTransport::getPredefinedKeyString(VELDARA_OS_FILE), "_osFile");
    EXPECT_EQ(MlogMetricsTransport::getPredefinedKeyString(VELDARA_NONE), "");
    // Outside 1 to 14: valid values of the type (it is int-based), and all "_buildType".
    for (int outside : {15, 100, -1}) {
        EXPECT_EQ(MlogMetricsTransport::getPredefinedKeyString(
                      static_cast<veldaraPredefinedKey_t>(outside)),
                  "_buildType")
            << outside;
    }
    EXPECT_EQ(MetricsManager::getInstance(), MetricsManager::getInstance());
}

}  // namespace
}  // namespace metricutils
}  // namespace orvane
