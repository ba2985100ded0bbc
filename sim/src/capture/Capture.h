#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

namespace tracker {
namespace sim {

// Records every Entry the simulated platform publishes while the capture exists: log lines,
// metric records. Several captures may be alive at once; each sees every entry. Tests read them
// back or wait for one that another thread publishes.
//
// Thread-safety: entries may be published on any thread; every member may be called from any
// thread. m_mutex guards m_entries; the registry's mutex guards the list of live captures and is
// held while an entry is handed to them, so a capture never receives after its destructor.
template <typename Entry>
class Capture {
  public:
    Capture() {
        Registry& live = registry();
        std::lock_guard<std::mutex> lock(live.mutex);
        live.captures.push_back(this);
        live.count = live.captures.size();
    }
    ~Capture() {
        Registry& live = registry();
        std::lock_guard<std::mutex> lock(live.mutex);
        live.captures.erase(std::remove(live.captures.begin(), live.captures.end(), this),
                            live.captures.end());
        live.count = live.captures.size();
    }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // Whether any capture would receive an entry now; cheap enough to ask before building one.
    static bool anyLive() { return registry().count.load(std::memory_order_relaxed) > 0; }

    // Hands one entry to every live capture; the platform side calls this.
    static void publish(const Entry& entry) {
        Registry& live = registry();
        std::lock_guard<std::mutex> lock(live.mutex);
        for (Capture* capture : live.captures) {
            capture->record(entry);
        }
    }

    std::vector<Entry> entries() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_entries;
    }
    void clear() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.clear();
    }
    // Waits until some entry satisfies `match`, for at most `limit`.
    bool waitFor(const std::function<bool(const Entry&)>& match,
                 std::chrono::milliseconds limit) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_arrived.wait_for(
            lock, limit, [&] { return std::any_of(m_entries.begin(), m_entries.end(), match); });
    }

  private:
    struct Registry {
        std::mutex mutex;
        std::vector<Capture*> captures;
        std::atomic<std::size_t> count{0};  // captures.size(), readable without the mutex
    };
    // Never destroyed: entries may still be published while other statics are torn down.
    static Registry& registry() {
        static auto* instance = new Registry;
        return *instance;
    }
    void record(const Entry& entry) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_entries.push_back(entry);
        }
        m_arrived.notify_all();
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_arrived;
    std::vector<Entry> m_entries;
};

}  // namespace sim
}  // namespace tracker
