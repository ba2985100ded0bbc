// Advertisement parsing as a device's Bluetooth stack does it: a sequence of AD structures, each
// one length byte (covering type and data), one type byte and the data.

#include <android/bluetooth/BluetoothUuid.h>
#include <android/bluetooth/le/ScanRecord.h>

namespace android {
namespace bluetooth {
namespace le {

namespace {

enum AdType : uint8_t {
    kFlags = 0x01,
    kUuid16Partial = 0x02,
    kUuid16Complete = 0x03,
    kUuid32Partial = 0x04,
    kUuid32Complete = 0x05,
    kUuid128Partial = 0x06,
    kUuid128Complete = 0x07,
    kNameShort = 0x08,
    kNameComplete = 0x09,
    kServiceData16 = 0x16,
    kServiceData32 = 0x20,
    kServiceData128 = 0x21,
    kManufacturerData = 0xFF,
};

using Bytes = std::vector<uint8_t>;

// Whole UUIDs of `width` bytes from data; a truncated one at the end is skipped.
void appendUuids(const uint8_t* data, std::size_t length, std::size_t width,
                 std::vector<os::ParcelUuid>& out) {
    for (std::size_t offset = 0; offset + width <= length; offset += width) {
        out.push_back(BluetoothUuid::parseUuidFrom(Bytes(data + offset, data + offset + width)));
    }
}

// A UUID of `width` bytes, then the data stored under it.
void addServiceData(const uint8_t* data, std::size_t length, std::size_t width,
                    ScanRecord::ServiceData& out) {
    if (length < width) {
        return;
    }
    out[BluetoothUuid::parseUuidFrom(Bytes(data, data + width))] =
        Bytes(data + width, data + length);
}

}  // namespace

ScanRecord ScanRecord::parseFromBytes(const std::vector<uint8_t>& bytes) {
    ScanRecord record;
    record.m_bytes = bytes;
    std::size_t position = 0;
    while (position < bytes.size()) {
        const std::size_t length = bytes[position];
        // A zero length ends the significant part (the rest is padding); a structure running
        // past the end is malformed and ends parsing too.
        if (length == 0 || position + 1 + length > bytes.size()) {
            break;
        }
        const uint8_t type = bytes[position + 1];
        const uint8_t* data = bytes.data() + position + 2;
        const std::size_t dataLength = length - 1;
        switch (type) {
            case kFlags:
                if (dataLength >= 1) {
                    record.m_flags = data[0];
                }
                break;
            case kUuid16Partial:
            case kUuid16Complete:
                appendUuids(data, dataLength, 2, record.m_serviceUuids);
                break;
            case kUuid32Partial:
            case kUuid32Complete:
                appendUuids(data, dataLength, 4, record.m_serviceUuids);
                break;
            case kUuid128Partial:
            case kUuid128Complete:
                appendUuids(data, dataLength, 16, record.m_serviceUuids);
                break;
            case kNameShort:
            case kNameComplete:
                record.m_deviceName.assign(data, data + dataLength);
                break;
            case kServiceData16:
                addServiceData(data, dataLength, 2, record.m_serviceData);
                break;
            case kServiceData32:
                addServiceData(data, dataLength, 4, record.m_serviceData);
                break;
            case kServiceData128:
                addServiceData(data, dataLength, 16, record.m_serviceData);
                break;
            case kManufacturerData:
                if (dataLength >= 2) {
                    record.m_manufacturerData[data[0] | (data[1] << 8)] =
                        Bytes(data + 2, data + dataLength);
                }
                break;
            default:
                break;
        }
        position += 1 + length;
    }
    return record;
}

}  // namespace le
}  // namespace bluetooth
}  // namespace android
