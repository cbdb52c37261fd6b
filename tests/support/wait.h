// Waiting in tests. For a condition or for a thread to be asleep, with a limit that only a fault
// reaches; for a fixed time only on purpose, with the reason in the test.
#ifndef ZR_TESTS_WAIT_H
#define ZR_TESTS_WAIT_H

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#include <unistd.h>

namespace zr_test {

// False when the condition has not come true within the limit.
template <class Condition>
bool WaitUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::minutes(1))
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Time in which something must not happen, or that the test takes for itself: why, the caller says.
// Returns how long it was in fact: on a busy machine it may be much more.
template <class Duration>
std::chrono::milliseconds LetPass(Duration duration, const char* /*why*/)
{
    const auto begin = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(duration);
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

// Whether a thread of this process sleeps in the kernel. Its state stands behind its name, which is
// in brackets.
inline bool IsAsleep(const std::string& thread)
{
    std::ifstream file("/proc/self/task/" + thread + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t name = line.rfind(')');
    return name != std::string::npos && line.compare(name, 3, ") S") == 0;
}

// Until a condition has held so often in a row that it was no chance: a lock on its way takes less.
template <class Condition>
bool WaitUntilSteady(Condition condition)
{
    int looks = 0;
    return WaitUntil([&] {
        looks = condition() ? looks + 1 : 0;
        return looks >= 5;
    });
}

// Until every other thread of the process sleeps: the library's own have no names here.
inline bool WaitUntilOthersSleep()
{
    return WaitUntilSteady([] {
        const std::string self = std::to_string(gettid());
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
            const std::string thread = entry.path().filename();
            if (thread != self && !IsAsleep(thread)) {
                return false;
            }
        }
        return true;
    });
}

// A thread that can be seen waiting; joined at the end.
class WatchedThread
{
public:
    template <class Body>
    explicit WatchedThread(Body body)
        : m_thread([this, body = std::move(body)]() mutable {
              m_id = gettid();
              body();
              m_ended = true;
          })
    {
    }
    ~WatchedThread() { Join(); }
    WatchedThread(const WatchedThread&) = delete;
    WatchedThread& operator=(const WatchedThread&) = delete;

    void Join()
    {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    bool HasEnded() const { return m_ended; }

    // Until it sleeps in the kernel, or has ended.
    bool UntilAsleep() const
    {
        return WaitUntilSteady([this] { return m_ended || IsAsleep(std::to_string(m_id)); });
    }

private:
    std::atomic<pid_t> m_id{0};
    std::atomic<bool> m_ended{false};
    std::thread m_thread; // last: it uses the others from its first moment
};

} // namespace zr_test

#endif
