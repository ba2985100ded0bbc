#pragma once

#include <string>
#include <vector>

namespace com {
namespace orvane {
namespace frameworklink {
namespace interfaces {

// A classic Bluetooth device as the platform reports it, copied by value.
struct RemoteDeviceAdapter {
    std::string mAddress;
    std::string mDSN;  // the device serial number
    int mPairedState = 0;
    std::vector<int> mCategory;
    std::string mInputDescriptor;
};

}  // namespace interfaces
}  // namespace frameworklink
}  // namespace orvane
}  // namespace com
