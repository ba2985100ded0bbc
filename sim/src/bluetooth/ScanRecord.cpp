// Advertisement parsing as a device's Bluetooth stack does it: a sequence of AD structures, each
// one length byte (covering type and data), one type byte and the data.
//
// The device's parser trusts the lengths and reads what each type needs, from wherever that
// lands: a UUID list of odd length reads on into the next structure, a flags structure without
// data reads the next length byte. Only a read beyond the last byte fails, and then the whole
// record is given up: no UUIDs, names, manufacturer or service data, only the raw bytes. A
// structure of a type it does not read may claim more bytes than are left without harm.

#include <android/bluetooth/BluetoothUuid.h>
#include <android/bluetooth/le/ScanRecord.h>

#include <cstddef>

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
    kTxPowerLevel = 0x0A,
    kSolicitation16 = 0x14,
    kSolicitation128 = 0x15,
    kServiceData16 = 0x16,
    kSolicitation32 = 0x1F,
    kServiceData32 = 0x20,
    kServiceData128 = 0x21,
    kManufacturerData = 0xFF,
};

using Bytes = std::vector<uint8_t>;

// Reads from the advertisement as the device's parser does; a read beyond the end marks the
// whole parse failed and yields zeros, which the caller then throws away.
class Reader {
  public:
    explicit Reader(const Bytes& bytes) : m_bytes(bytes) {}

    bool failed() const { return m_failed; }
    uint8_t at(std::size_t position) {
        if (position >= m_bytes.size()) {
            m_failed = true;
            return 0;
        }
        return m_bytes[position];
    }
    // `length` bytes from `position`; a negative length fails like a read past the end.
    Bytes slice(std::size_t position, std::ptrdiff_t length) {
        if (length < 0 || position > m_bytes.size() ||
            static_cast<std::size_t>(length) > m_bytes.size() - position) {
            m_failed = true;
            return {};
        }
        return Bytes(m_bytes.begin() + static_cast<std::ptrdiff_t>(position),
                     m_bytes.begin() + static_cast<std::ptrdiff_t>(position) + length);
    }
    // UUIDs of `width` bytes for as long as the structure's data lasts, the last possibly
    // reaching into the next structure.
    void uuids(std::size_t position, std::ptrdiff_t dataLength, std::size_t width,
               std::vector<os::ParcelUuid>& out) {
        for (; dataLength > 0 && !m_failed; dataLength -= static_cast<std::ptrdiff_t>(width)) {
            out.push_back(
                BluetoothUuid::parseUuidFrom(slice(position, static_cast<std::ptrdiff_t>(width))));
            position += width;
        }
    }

  private:
    const Bytes& m_bytes;
    bool m_failed = false;
};

std::size_t uuidWidth(uint8_t type) {
    switch (type) {
        case kUuid16Partial:
        case kUuid16Complete:
        case kSolicitation16:
        case kServiceData16:
            return 2;
        case kUuid32Partial:
        case kUuid32Complete:
        case kSolicitation32:
        case kServiceData32:
            return 4;
        default:
            return 16;
    }
}

}  // namespace

ScanRecord ScanRecord::parseFromBytes(const std::vector<uint8_t>& bytes) {
    ScanRecord record;
    Reader reader(bytes);
    std::size_t position = 0;
    while (position < bytes.size() && !reader.failed()) {
        const std::size_t length = reader.at(position++);
        // A zero length ends the significant part; the rest is padding.
        if (length == 0) {
            break;
        }
        const std::ptrdiff_t dataLength = static_cast<std::ptrdiff_t>(length) - 1;
        const uint8_t type = reader.at(position++);
        switch (type) {
            case kFlags:
                record.m_flags = reader.at(position);
                break;
            case kUuid16Partial:
            case kUuid16Complete:
            case kUuid32Partial:
            case kUuid32Complete:
            case kUuid128Partial:
            case kUuid128Complete:
                reader.uuids(position, dataLength, uuidWidth(type), record.m_serviceUuids);
                break;
            case kSolicitation16:
            case kSolicitation32:
            case kSolicitation128:
                reader.uuids(position, dataLength, uuidWidth(type), record.m_solicitationUuids);
                break;
            case kNameShort:
            case kNameComplete: {
                const Bytes name = reader.slice(position, dataLength);
                record.m_deviceName.assign(name.begin(), name.end());
                break;
            }
            case kTxPowerLevel:
                record.m_txPowerLevel = static_cast<int8_t>(reader.at(position));
                break;
            case kServiceData16:
            case kServiceData32:
            case kServiceData128: {
                const std::size_t width = uuidWidth(type);
                const os::ParcelUuid uuid = BluetoothUuid::parseUuidFrom(
                    reader.slice(position, static_cast<std::ptrdiff_t>(width)));
                Bytes data =
                    reader.slice(position + width, dataLength - static_cast<std::ptrdiff_t>(width));
                record.m_serviceData[uuid] = std::move(data);
                break;
            }
            case kManufacturerData: {
                // The company id comes first, least significant byte first.
                const int company = reader.at(position + 1) << 8 | reader.at(position);
                record.m_manufacturerData[company] = reader.slice(position + 2, dataLength - 2);
                break;
            }
            default:
                break;
        }
        position += static_cast<std::size_t>(dataLength);
    }
    if (reader.failed()) {
        ScanRecord raw;
        raw.m_bytes = bytes;
        return raw;
    }
    record.m_bytes = bytes;
    return record;
}

}  // namespace le
}  // namespace bluetooth
}  // namespace android
