// Bluetooth values from outside: address and UUID text (configuration, back-end answers) through
// the parsers, and advertisement data matched against a filter and mask, all carved from the
// input.

#include <android/os/ParcelUuid.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tracker/bluetooth/BleUtils.h"

using namespace tracker::util::bluetooth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);

    const std::string text = input.ConsumeRandomLengthString();
    const auto address = BleUtils::stringToTrackerDeviceAddr(text.c_str());
    if (address == nullptr || address->addr.size() != 6) {
        __builtin_trap();
    }
    BleUtils::getObfuscatedAddress(text);
    android::os::ParcelUuid::fromString(text);
    // A printed address reads back as itself.
    if (BleUtils::stringToTrackerDeviceAddr(BleUtils::getBleAddress(*address).c_str())->addr !=
        address->addr) {
        __builtin_trap();
    }

    const std::vector<uint8_t> filterData =
        input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, 32));
    const std::vector<uint8_t> mask =
        input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, 32));
    const std::vector<uint8_t> payload = input.ConsumeRemainingBytes<uint8_t>();
    BleUtils::matchMaskedData(payload, filterData, mask);
    BleUtils::matchUuidFilter({filterData, mask}, TrackerUuid{payload});
    BleUtils::matchManuDataFilter({filterData, mask}, TrackerManuData{payload});
    // Data always matches itself, under any mask that covers it.
    if (!payload.empty() && mask.size() >= payload.size() &&
        !BleUtils::matchMaskedData(payload, payload, mask)) {
        __builtin_trap();
    }
    return 0;
}
