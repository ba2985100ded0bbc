#pragma once

#include <cstdint>
#include <vector>

#include <android/os/ParcelUuid.h>

namespace android {
namespace bluetooth {

class BluetoothUuid {
  public:
    BluetoothUuid() = delete;

    // A UUID from advertisement bytes, least significant byte first: 2 bytes (16-bit) and 4
    // bytes (32-bit) are placed into the base UUID, 16 bytes are the whole UUID. Any other length
    // gives the zero UUID.
    static os::ParcelUuid parseUuidFrom(const std::vector<uint8_t>& bytes);
};

}  // namespace bluetooth
}  // namespace android
