#pragma once

#include <memory>

#include "tracker/bluetooth/BluetoothManager.h"

namespace tracker {
namespace util {
namespace bluetooth {

// The manager that BluetoothManagerInterface::getInstance() made (s_instance), or null before
// the first call. Set once and never destroyed; read from any thread, the platform's included,
// without the lock an atomic shared_ptr load would take for every scan result.
BluetoothManager* managerInstance();

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
