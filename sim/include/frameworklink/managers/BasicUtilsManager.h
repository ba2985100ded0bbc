#pragma once

#include <memory>
#include <string>

namespace com {
namespace orvane {
namespace frameworklink {
namespace managers {

// Host stand-in for the platform's account utilities. Thread-safe.
class BasicUtilsManager {
  public:
    // The process-wide manager.
    static std::shared_ptr<BasicUtilsManager> getManager();

    // The registered account's preferred marketplace and customer identifiers; "" without an
    // account.
    std::string getPreferredMarketplace();
    std::string getCustomerAccountId();
};

}  // namespace managers
}  // namespace frameworklink
}  // namespace orvane
}  // namespace com
