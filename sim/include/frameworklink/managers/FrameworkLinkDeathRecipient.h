#pragma once

#include <functional>
#include <utility>

namespace com {
namespace orvane {
namespace frameworklink {
namespace managers {

// Told, on a platform thread, when the proxy it was registered with dies.
class FrameworkLinkDeathRecipient {
  public:
    explicit FrameworkLinkDeathRecipient(std::function<void()> onDeath)
        : m_onDeath(std::move(onDeath)) {}

    void binderDied() {
        if (m_onDeath) {
            m_onDeath();
        }
    }

  private:
    std::function<void()> m_onDeath;
};

}  // namespace managers
}  // namespace frameworklink
}  // namespace orvane
}  // namespace com
