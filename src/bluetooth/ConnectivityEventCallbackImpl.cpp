#include "tracker/bluetooth/ConnectivityEventCallbackImpl.h"

#include "tracker/bluetooth/RemoteDeviceImpl.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace bluetooth {

namespace {
const Log& kLog = *new Log("ConnectivityEventCallbackImpl");
}  // namespace

IConnectivityEventCallback::~IConnectivityEventCallback() = default;

ConnectivityEventCallbackImpl::ConnectivityEventCallbackImpl(
    std::shared_ptr<tracker::util::bluetooth::IConnectivityEventCallback> callback)
    : m_callback(std::move(callback)) {}

void ConnectivityEventCallbackImpl::onPairStateChanged(
    const com::orvane::frameworklink::interfaces::RemoteDeviceAdapter& device, int state) {
    kLog.d("onPairStateChanged");
    m_callback->onPairStateChanged(RemoteDeviceImpl::create(device), state);
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
