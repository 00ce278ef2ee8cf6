// The telemetry posts running on detached threads, counted so that tests can wait
// for them and so that process exit waits for them: a post that outlived the
// library's static data (the error words of the log-service client among them)
// would read freed memory.
#ifndef ZRUTILS_REPORT_REPORTWORKERS_H
#define ZRUTILS_REPORT_REPORTWORKERS_H

#include <ZrUtils/zrutils_export.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace ZrUtils
{
namespace Internal
{

class ZRUTILS_TESTS_EXPORT ReportWorkers
{
public:
    struct State {
        std::mutex mutex;
        std::condition_variable idle;
        int running = 0;
    };

    // Held by a worker for its whole life; the count drops when it is destroyed.
    class Ticket
    {
    public:
        explicit Ticket(std::shared_ptr<State> state);
        ~Ticket();
        Ticket(Ticket&& other) noexcept = default;
        Ticket(const Ticket&) = delete;
        Ticket& operator=(const Ticket&) = delete;
        Ticket& operator=(Ticket&&) = delete;

    private:
        std::shared_ptr<State> m_state;
    };

    // The process-wide counter; created on first use, it waits at exit.
    static ReportWorkers& instance();

    Ticket start();
    int running() const;
    // Waits until no post runs, at most @p timeoutMs; true when none runs.
    bool waitIdle(int timeoutMs) const;
    // At exit, @p beforeWait runs before the posts are waited for (to start no new one)
    // and @p afterWait once they are done (to write down what they left).
    void addExitHooks(std::function<void()> beforeWait, std::function<void()> afterWait);

    ~ReportWorkers();

private:
    ReportWorkers();
    std::shared_ptr<State> m_state;
    std::mutex m_hooksMutex;
    std::vector<std::function<void()>> m_beforeWait;
    std::vector<std::function<void()>> m_afterWait;
};

} // namespace Internal
} // namespace ZrUtils

#endif
