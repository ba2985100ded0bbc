#pragma once

#include <memory>
#include <string>
#include <vector>

#include <frameworklink/interfaces/RemoteDeviceAdapter.h>

#include "tracker/bluetooth/IRemoteDevice.h"

namespace tracker {
namespace util {
namespace bluetooth {

// IRemoteDevice over a copy of the platform's record. Immutable.
class RemoteDeviceImpl : public IRemoteDevice {
  public:
    static std::shared_ptr<IRemoteDevice> create(
        const com::orvane::frameworklink::interfaces::RemoteDeviceAdapter& device);

    explicit RemoteDeviceImpl(com::orvane::frameworklink::interfaces::RemoteDeviceAdapter device);

    const std::string& getAddress() const override;
    const std::string& getDSN() const override;
    const std::vector<int>& getCategory() const override;
    bool isRingableDevice() const override;
    // "{mAddress=AA:BB:CC:DD:EE:FF,mDSN=G0001,mPairedState=12,mCategory=[3,14],
    // mInputDescriptor=}" (on one line).
    std::string toString() const override;

  private:
    const com::orvane::frameworklink::interfaces::RemoteDeviceAdapter m_device;
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
