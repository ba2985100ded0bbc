#pragma once

#include <string>
#include <vector>

namespace tracker {
namespace util {
namespace bluetooth {

// A classic Bluetooth device paired with this one, as the platform reports it. Immutable; may
// be read from any thread.
class IRemoteDevice {
  public:
    virtual ~IRemoteDevice();
    virtual const std::string& getAddress() const = 0;
    // The serial number the platform reports for the device.
    virtual const std::string& getDSN() const = 0;
    // The platform's category codes, passed through unchanged.
    virtual const std::vector<int>& getCategory() const = 0;
    // Whether the device can be made to ring (category 14).
    virtual bool isRingableDevice() const = 0;
    virtual std::string toString() const = 0;
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
