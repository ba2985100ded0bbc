#pragma once

#include <memory>

#include "tracker/bluetooth/BluetoothManager.h"

namespace tracker {
namespace util {
namespace bluetooth {

// The manager that BluetoothManagerInterface::getInstance() made (s_instance), or empty before
// the first call. Set once; read from any thread, the platform's included.
std::shared_ptr<BluetoothManager> managerInstance();

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
