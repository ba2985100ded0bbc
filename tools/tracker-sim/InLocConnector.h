#pragma once

#include <memory>
#include <vector>

#include "ConnectorContext.h"
#include "tracker/inloc/InLocManagerClientInterface.h"

namespace tracker {
namespace trackersim {

// A connector of the InLoc manager, as a service's would be: it tracks tags by membership or by
// device address and reports their distances and ring results to the timeline.
//
// Threads: the manager calls it as its client interface says; setFilters() comes from the run's
// script thread.
class InLocConnector : public util::inloc::InLocManagerClientInterface {
  public:
    using TrackerScanFilter = util::bluetooth::TrackerScanFilter;

    InLocConnector(ConnectorContext context, std::vector<TrackerScanFilter> filters);

    const ConnectorContext& context() const { return m_context; }
    void setFilters(std::vector<TrackerScanFilter> filters);

    void onInitializationSuccess() override;
    void onInitializationFailure() override;
    void onInLocTrackingResult(
        std::shared_ptr<util::inloc::TrackerInLocDistanceEvent> event) override;
    void onRingDeviceResult(const std::shared_ptr<util::bluetooth::TrackerDeviceAddr>& addr,
                            util::bluetooth::TrackerStatus status) override;
    std::shared_ptr<util::bluetooth::BluetoothManagerScanFilter> getScanFilter() override;

  private:
    const ConnectorContext m_context;
    ConnectorFilters m_filters;
};

}  // namespace trackersim
}  // namespace tracker
