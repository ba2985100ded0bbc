#pragma once

#include <memory>
#include <utility>

namespace android {

// Host stand-in for the platform's strong reference: as much of it as the library uses.
template <typename T>
class sp {
  public:
    sp() = default;
    explicit sp(std::shared_ptr<T> object) : m_object(std::move(object)) {}

    T* operator->() const { return m_object.get(); }
    T* get() const { return m_object.get(); }
    explicit operator bool() const { return static_cast<bool>(m_object); }
    // Releases this reference.
    void clear() { m_object.reset(); }

  private:
    std::shared_ptr<T> m_object;
};

}  // namespace android
