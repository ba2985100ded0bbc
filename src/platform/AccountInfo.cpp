#include "tracker/platform/AccountInfo.h"

#include <frameworklink/managers/BasicUtilsManager.h>

#include "tracker/util/Log.h"

namespace tracker {
namespace util {

namespace {
const Log& kLog = *new Log("PresenceNetworkInfo");
using com::orvane::frameworklink::managers::BasicUtilsManager;
}  // namespace

std::string AccountInfo::getMarketplaceId() {
    kLog.d("getMarketplaceId");
    return BasicUtilsManager::getManager()->getPreferredMarketplace();
}

std::string AccountInfo::getCustomerId() {
    kLog.d("getCustomerId");
    return BasicUtilsManager::getManager()->getCustomerAccountId();
}

}  // namespace util
}  // namespace tracker
