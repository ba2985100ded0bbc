#include "delivery/DeliveryPool.h"

#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace tracker {
namespace sim {

namespace {

// The pool whose thread this is, if any, and when the call it runs was due.
thread_local const DeliveryPool* t_pool = nullptr;
thread_local DeliveryPool::TimePoint t_runningDue;

// Live pools, stopped at exit. Never destroyed: exit runs handlers and destructors in turn.
std::mutex& liveMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}
std::vector<DeliveryPool*>& livePools() {
    static auto* pools = new std::vector<DeliveryPool*>;
    return *pools;
}

void stopLivePools() {
    std::lock_guard<std::mutex> lock(liveMutex());
    for (DeliveryPool* pool : livePools()) {
        pool->stop();
    }
}

}  // namespace

DeliveryPool::DeliveryPool(int threads) {
    static std::once_flag registered;
    // Exit runs handlers and static destructors in the reverse order of their registration and
    // construction: registered with the first pool, the handler stops the threads before the
    // statics made before it go, the library's among them.
    std::call_once(registered, [] { std::atexit(stopLivePools); });
    {
        std::lock_guard<std::mutex> lock(liveMutex());
        livePools().push_back(this);
    }
    for (int index = 0; index < threads; ++index) {
        m_threads.emplace_back([this] {
            t_pool = this;
            run();
        });
        const std::string name = "sim-binder:" + std::to_string(index);
        pthread_setname_np(m_threads.back().native_handle(), name.c_str());
    }
}

DeliveryPool::~DeliveryPool() {
    {
        std::lock_guard<std::mutex> lock(liveMutex());
        auto& pools = livePools();
        pools.erase(std::remove(pools.begin(), pools.end(), this), pools.end());
    }
    stop();
}

void DeliveryPool::post(Key key, TimePoint due, std::function<void()> action) {
    const TimePoint now = util::Clock::current()->now();
    std::function<void()> refused;  // dies after the lock, whatever it holds
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stopping) {
        refused = std::move(action);
        return;
    }
    if (due <= now) {
        // What a call posts for now counts as due when that call was, so that a barrier
        // covering the call covers it too, however much real time has passed.
        if (t_pool == this) {
            due = std::min(due, t_runningDue);
        }
        // Anything of this key that fell due earlier goes first.
        promoteDueLocked(now);
        if (appendDueLocked(key, Call{due, std::move(action)})) {
            wakeForReadyLocked();
        }
        return;
    }
    const bool earliest = m_timed.empty() || due < m_timed.begin()->first.first;
    m_timed.emplace(std::make_pair(due, m_sequence++), std::make_pair(key, std::move(action)));
    if (!m_timekeeping) {
        m_work.notify_one();
    } else if (earliest) {
        m_timer.notify_one();
    }
}

void DeliveryPool::postAfter(Key key, util::Clock::Duration delay, std::function<void()> action) {
    post(key, util::Clock::current()->now() + delay, std::move(action));
}

void DeliveryPool::wakeForReadyLocked() {
    if (m_idleThreads > 0) {
        m_work.notify_one();
    } else if (m_timekeeping) {
        // Every other thread is busy: the one keeping time takes it.
        m_timer.notify_one();
    }
}

void DeliveryPool::promoteDueLocked(TimePoint now) {
    while (!m_timed.empty() && m_timed.begin()->first.first <= now) {
        auto first = m_timed.begin();
        appendDueLocked(first->second.first,
                        Call{first->first.first, std::move(first->second.second)});
        m_timed.erase(first);
    }
}

bool DeliveryPool::appendDueLocked(Key key, Call call) {
    Line& line = m_lines[key];
    const bool idle = line.due.empty() && !line.running;
    line.due.push_back(std::move(call));
    if (idle) {
        m_ready.push_back(key);
    }
    return idle;
}

bool DeliveryPool::pendingByLocked(TimePoint time) const {
    if (!m_timed.empty() && m_timed.begin()->first.first <= time) {
        return true;
    }
    for (const auto& entry : m_lines) {
        for (const Call& call : entry.second.due) {
            if (call.due <= time) {
                return true;
            }
        }
    }
    return std::any_of(m_running.begin(), m_running.end(),
                       [time](TimePoint due) { return due <= time; });
}

void DeliveryPool::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        // Read each time round: a test may have installed another clock.
        const std::shared_ptr<util::Clock> clock = util::Clock::current();
        promoteDueLocked(clock->now());
        if (!m_ready.empty()) {
            const Key key = m_ready.front();
            m_ready.pop_front();
            Line& line = m_lines[key];
            Call call = std::move(line.due.front());
            line.due.pop_front();
            line.running = true;
            m_running.push_back(call.due);
            // While this thread delivers, another takes the next line or keeps time.
            if (!m_ready.empty()) {
                wakeForReadyLocked();
            } else if (!m_timed.empty() && !m_timekeeping) {
                m_work.notify_one();
            }
            lock.unlock();
            t_runningDue = call.due;
            call.action();
            call.action = nullptr;
            lock.lock();
            m_running.erase(std::find(m_running.begin(), m_running.end(), call.due));
            Line& after = m_lines[key];
            after.running = false;
            if (!after.due.empty()) {
                m_ready.push_back(key);
            } else {
                m_lines.erase(key);
            }
            m_finished.notify_all();
            continue;
        }
        if (!m_timed.empty() && !m_timekeeping) {
            m_timekeeping = true;
            clock->waitUntil(m_timer, lock, m_timed.begin()->first.first);
            m_timekeeping = false;
            continue;
        }
        ++m_idleThreads;
        m_work.wait(lock);
        --m_idleThreads;
    }
}

void DeliveryPool::clear() {
    std::vector<std::function<void()>> dropped;
    std::unique_lock<std::mutex> lock(m_mutex);
    const std::size_t own = t_pool == this ? 1 : 0;
    for (;;) {
        for (auto& entry : m_timed) {
            dropped.push_back(std::move(entry.second.second));
        }
        m_timed.clear();
        for (auto line = m_lines.begin(); line != m_lines.end();) {
            for (Call& call : line->second.due) {
                dropped.push_back(std::move(call.action));
            }
            line->second.due.clear();
            line = line->second.running ? std::next(line) : m_lines.erase(line);
        }
        m_ready.clear();
        // A call still running may post more; drop that too once it has finished.
        if (m_running.size() <= own || m_stopping) {
            break;
        }
        m_finished.wait(lock);
    }
    lock.unlock();
    dropped.clear();
}

bool DeliveryPool::barrier(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    const std::shared_ptr<util::Clock> clock = util::Clock::current();
    std::unique_lock<std::mutex> lock(m_mutex);
    const TimePoint target = clock->now();
    for (;;) {
        promoteDueLocked(clock->now());
        if (!pendingByLocked(target)) {
            return true;
        }
        if (m_stopping) {
            return false;
        }
        if (!m_ready.empty()) {
            m_work.notify_one();
        }
        if (m_finished.wait_until(lock, deadline) == std::cv_status::timeout) {
            return !pendingByLocked(target);
        }
    }
}

void DeliveryPool::stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopping) {
            return;
        }
        m_stopping = true;
    }
    m_work.notify_all();
    m_timer.notify_all();
    m_finished.notify_all();
    for (std::thread& thread : m_threads) {
        // exit() called from a delivery cannot wait for itself.
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

}  // namespace sim
}  // namespace tracker
