#include "tracker/bluetooth/RemoteDeviceImpl.h"

#include <algorithm>
#include <sstream>

namespace tracker {
namespace util {
namespace bluetooth {

namespace {
// The category of a device that can be made to ring.
constexpr int kRingableCategory = 14;
}  // namespace

IRemoteDevice::~IRemoteDevice() = default;

std::shared_ptr<IRemoteDevice> RemoteDeviceImpl::create(
    const com::orvane::frameworklink::interfaces::RemoteDeviceAdapter& device) {
    return std::make_shared<RemoteDeviceImpl>(device);
}

RemoteDeviceImpl::RemoteDeviceImpl(
    com::orvane::frameworklink::interfaces::RemoteDeviceAdapter device)
    : m_device(std::move(device)) {}

const std::string& RemoteDeviceImpl::getAddress() const {
    return m_device.mAddress;
}

const std::string& RemoteDeviceImpl::getDSN() const {
    return m_device.mDSN;
}

const std::vector<int>& RemoteDeviceImpl::getCategory() const {
    return m_device.mCategory;
}

bool RemoteDeviceImpl::isRingableDevice() const {
    const std::vector<int>& categories = m_device.mCategory;
    return std::find(categories.begin(), categories.end(), kRingableCategory) != categories.end();
}

std::string RemoteDeviceImpl::toString() const {
    std::ostringstream text;
    text << "{mAddress=" << m_device.mAddress << ",mDSN=" << m_device.mDSN
         << ",mPairedState=" << m_device.mPairedState << ",mCategory=[";
    for (std::size_t i = 0; i < m_device.mCategory.size(); ++i) {
        text << (i > 0 ? "," : "") << m_device.mCategory[i];
    }
    text << "],mInputDescriptor=" << m_device.mInputDescriptor << "}";
    return text.str();
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
