#include "tracker/bluetooth/TrackerBleTypes.h"

namespace tracker {
namespace util {
namespace bluetooth {

const uint64_t g_scanId = 0;

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
