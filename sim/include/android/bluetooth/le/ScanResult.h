#pragma once

#include <utility>

#include <android/bluetooth/BluetoothDevice.h>
#include <android/bluetooth/le/ScanRecord.h>

namespace android {
namespace bluetooth {
namespace le {

// One received advertisement: who sent it, how strong, and what it said.
class ScanResult {
  public:
    ScanResult(BluetoothDevice device, ScanRecord record, int rssi)
        : m_device(std::move(device)), m_record(std::move(record)), m_rssi(rssi) {}

    const BluetoothDevice& getDevice() const { return m_device; }
    const ScanRecord& getScanRecord() const { return m_record; }
    int getRssi() const { return m_rssi; }

  private:
    BluetoothDevice m_device;
    ScanRecord m_record;
    int m_rssi;
};

}  // namespace le
}  // namespace bluetooth
}  // namespace android
