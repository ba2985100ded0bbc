#pragma once

#include <memory>

#include "tracker/bluetooth/IRemoteDevice.h"

namespace tracker {
namespace util {
namespace bluetooth {

// Implemented by a client that wants to hear of pairing changes
// (BluetoothManagerInterface::registerConnectivityCallback). Called on a platform thread, possibly
// at the same time as other callbacks: implementations must be thread-safe.
class IConnectivityEventCallback {
  public:
    virtual ~IConnectivityEventCallback();
    // state is the platform's pairing state, passed through unchanged.
    virtual void onPairStateChanged(std::shared_ptr<IRemoteDevice> device, int state) = 0;
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
