#pragma once

#include <frameworklink/interfaces/RemoteDeviceAdapter.h>

namespace com {
namespace orvane {
namespace frameworklink {
namespace managers {

// Pairing changes, called on a platform thread.
class IConnectivityEventCallback {
  public:
    virtual ~IConnectivityEventCallback() = default;
    virtual void onPairStateChanged(const interfaces::RemoteDeviceAdapter& device, int state) = 0;
};

}  // namespace managers
}  // namespace frameworklink
}  // namespace orvane
}  // namespace com
