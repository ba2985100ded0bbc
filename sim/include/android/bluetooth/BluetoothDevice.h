#pragma once

#include <string>
#include <utility>

namespace android {
namespace bluetooth {

// A remote device, known by its address text ("AA:BB:CC:DD:EE:FF").
class BluetoothDevice {
  public:
    BluetoothDevice() = default;
    explicit BluetoothDevice(std::string address) : m_address(std::move(address)) {}

    const std::string& getAddress() const { return m_address; }

  private:
    std::string m_address;
};

}  // namespace bluetooth
}  // namespace android
