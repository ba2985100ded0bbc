#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace tracker {
namespace util {

// The callable an Executor queues: like a move-only std::function<void()>, but one that keeps a
// callable of up to 48 bytes in itself, so that queueing a task with its promise costs no
// allocation of its own. Larger callables, and those that could throw while moving, go to the
// heap.
//
// Not thread-safe; one owner at a time. Calling an empty task is undefined.
class InlineTask {
  public:
    InlineTask() noexcept = default;
    template <typename F, typename = std::enable_if_t<!std::is_same_v<std::decay_t<F>, InlineTask>>>
    explicit InlineTask(F&& f) {
        using T = std::decay_t<F>;
        if constexpr (sizeof(T) <= kInline && alignof(T) <= alignof(std::max_align_t) &&
                      std::is_nothrow_move_constructible_v<T>) {
            new (m_storage) T(std::forward<F>(f));
            m_ops = &kInlineOps<T>;
        } else {
            new (m_storage) T*(new T(std::forward<F>(f)));
            m_ops = &kHeapOps<T>;
        }
    }
    InlineTask(InlineTask&& other) noexcept { take(other); }
    InlineTask& operator=(InlineTask&& other) noexcept {
        if (this != &other) {
            reset();
            take(other);
        }
        return *this;
    }
    InlineTask(const InlineTask&) = delete;
    InlineTask& operator=(const InlineTask&) = delete;
    ~InlineTask() { reset(); }

    explicit operator bool() const noexcept { return m_ops != nullptr; }
    void operator()() { m_ops->invoke(m_storage); }
    // Destroys the callable, and what it captured, now.
    void reset() noexcept {
        if (m_ops != nullptr) {
            m_ops->destroy(m_storage);
            m_ops = nullptr;
        }
    }

  private:
    static constexpr std::size_t kInline = 48;

    struct Ops {
        void (*invoke)(void* storage);
        void (*move)(void* from, void* to) noexcept;  // leaves `from` empty
        void (*destroy)(void* storage) noexcept;
    };
    template <typename T>
    static constexpr Ops kInlineOps = {
        [](void* storage) { (*std::launder(static_cast<T*>(storage)))(); },
        [](void* from, void* to) noexcept {
            T* const source = std::launder(static_cast<T*>(from));
            new (to) T(std::move(*source));
            source->~T();
        },
        [](void* storage) noexcept { std::launder(static_cast<T*>(storage))->~T(); }};
    template <typename T>
    static constexpr Ops kHeapOps = {
        [](void* storage) { (**std::launder(static_cast<T**>(storage)))(); },
        [](void* from, void* to) noexcept { new (to) T*(*std::launder(static_cast<T**>(from))); },
        [](void* storage) noexcept { delete *std::launder(static_cast<T**>(storage)); }};

    void take(InlineTask& other) noexcept {
        m_ops = other.m_ops;
        if (m_ops != nullptr) {
            m_ops->move(other.m_storage, m_storage);
            other.m_ops = nullptr;
        }
    }

    alignas(std::max_align_t) unsigned char m_storage[kInline];
    const Ops* m_ops = nullptr;
};

}  // namespace util
}  // namespace tracker
