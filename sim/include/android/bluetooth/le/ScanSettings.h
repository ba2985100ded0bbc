#pragma once

namespace android {
namespace bluetooth {
namespace le {

// How a scan runs and reports, as the platform's constructor takes it.
class ScanSettings {
  public:
    ScanSettings(int scanMode, int callbackType, int scanResultType, long long reportDelayMillis,
                 int matchMode, int numOfMatches)
        : m_scanMode(scanMode),
          m_callbackType(callbackType),
          m_scanResultType(scanResultType),
          m_reportDelayMillis(reportDelayMillis),
          m_matchMode(matchMode),
          m_numOfMatches(numOfMatches) {}

    int getScanMode() const { return m_scanMode; }
    int getCallbackType() const { return m_callbackType; }
    int getScanResultType() const { return m_scanResultType; }
    long long getReportDelayMillis() const { return m_reportDelayMillis; }
    int getMatchMode() const { return m_matchMode; }
    int getNumOfMatches() const { return m_numOfMatches; }

  private:
    int m_scanMode;
    int m_callbackType;
    int m_scanResultType;
    long long m_reportDelayMillis;
    int m_matchMode;
    int m_numOfMatches;
};

}  // namespace le
}  // namespace bluetooth
}  // namespace android
