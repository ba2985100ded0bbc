#pragma once

#include <string>

namespace tracker {
namespace util {

// The device account's identifiers, as the platform's account utilities report them; "" when no
// account is registered. Stateless; callable from any thread.
class AccountInfo {
  public:
    AccountInfo() = delete;

    static std::string getMarketplaceId();
    static std::string getCustomerId();
};

}  // namespace util
}  // namespace tracker
