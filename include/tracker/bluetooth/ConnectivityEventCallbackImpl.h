#pragma once

#include <memory>

#include <frameworklink/interfaces/RemoteDeviceAdapter.h>
#include <frameworklink/managers/IConnectivityEventCallback.h>

#include "tracker/bluetooth/IConnectivityEventCallback.h"

namespace tracker {
namespace util {
namespace bluetooth {

// What the manager registers with the platform for one client callback: it turns the
// platform's pairing events into the client's, on the platform thread that delivers them. Logs
// under "TrackerD-ConnectivityEventCallbackImpl".
class ConnectivityEventCallbackImpl
    : public com::orvane::frameworklink::managers::IConnectivityEventCallback {
  public:
    explicit ConnectivityEventCallbackImpl(
        std::shared_ptr<tracker::util::bluetooth::IConnectivityEventCallback> callback);

    void onPairStateChanged(
        const com::orvane::frameworklink::interfaces::RemoteDeviceAdapter& device,
        int state) override;

  private:
    const std::shared_ptr<tracker::util::bluetooth::IConnectivityEventCallback> m_callback;
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
