#include "tracker/bluetooth/BluetoothManagerClientInterface.h"

namespace tracker {
namespace util {
namespace bluetooth {

// A connector overrides what it cares about; the rest is ignored.

BluetoothManagerClientInterface::~BluetoothManagerClientInterface() = default;

void BluetoothManagerClientInterface::onInitializationSuccess() {}

void BluetoothManagerClientInterface::onInitializationFailure() {}

void BluetoothManagerClientInterface::onConnected(std::shared_ptr<TrackerDeviceAddr> /*addr*/,
                                                  unsigned long long /*connHandle*/) {}

void BluetoothManagerClientInterface::onDisconnected(std::shared_ptr<TrackerDeviceAddr> /*addr*/,
                                                     unsigned long long /*connHandle*/,
                                                     TrackerStatus /*status*/) {}

void BluetoothManagerClientInterface::onServicesDiscovered(
    unsigned long long /*connHandle*/, std::shared_ptr<TrackerGattServices> /*services*/) {}

void BluetoothManagerClientInterface::onServicesDiscoveryFailure(
    unsigned long long /*connHandle*/) {}

void BluetoothManagerClientInterface::onCharacteristicReadSuccess(
    unsigned long long /*connHandle*/, std::shared_ptr<TrackerCharacteristicValue> /*value*/) {}

void BluetoothManagerClientInterface::onCharacteristicReadFailure(
    unsigned long long /*connHandle*/) {}

void BluetoothManagerClientInterface::onCharacteristicWriteSuccess(
    unsigned long long /*connHandle*/) {}

void BluetoothManagerClientInterface::onCharacteristicWriteFailure(
    unsigned long long /*connHandle*/) {}

void BluetoothManagerClientInterface::onDescriptorWriteSuccess(
    unsigned long long /*connHandle*/, std::shared_ptr<TrackerCharacteristicValue> /*value*/) {}

void BluetoothManagerClientInterface::onDescriptorWriteFailure(unsigned long long /*connHandle*/) {}

void BluetoothManagerClientInterface::onCharacteristicChanged(
    unsigned long long /*connHandle*/, std::shared_ptr<TrackerCharacteristicValue> /*value*/) {}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
