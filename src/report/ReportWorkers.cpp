#include "report/ReportWorkers.h"

#include "logservice/CurlGlobal.h"

#include <chrono>

namespace ZrUtils
{
namespace Internal
{

namespace
{
// A post ends by itself within its 20-second limit and the time to build it.
constexpr int ExitWaitMs = 25000;
} // namespace

ReportWorkers::Ticket::Ticket(std::shared_ptr<State> state)
    : m_state(std::move(state))
{
    std::lock_guard<std::mutex> lock(m_state->mutex);
    ++m_state->running;
}

ReportWorkers::Ticket::~Ticket()
{
    if (!m_state)
        return; // moved from
    std::lock_guard<std::mutex> lock(m_state->mutex);
    if (--m_state->running == 0)
        m_state->idle.notify_all();
}

ReportWorkers::ReportWorkers()
    : m_state(std::make_shared<State>())
{
    // Exit undoes start-up in reverse order. With libcurl and the TLS library set up
    // before this object exists, its destructor waits for the workers before the TLS
    // library is cleaned up, and no worker sets it up while the process exits.
    ensureCurlReady();
}

ReportWorkers::~ReportWorkers()
{
    std::lock_guard<std::mutex> lock(m_hooksMutex);
    for (const auto& hook : m_beforeWait)
        hook();
    waitIdle(ExitWaitMs);
    for (const auto& hook : m_afterWait)
        hook();
}

void ReportWorkers::addExitHooks(std::function<void()> beforeWait, std::function<void()> afterWait)
{
    std::lock_guard<std::mutex> lock(m_hooksMutex);
    if (beforeWait)
        m_beforeWait.push_back(std::move(beforeWait));
    if (afterWait)
        m_afterWait.push_back(std::move(afterWait));
}

ReportWorkers& ReportWorkers::instance()
{
    static ReportWorkers workers;
    return workers;
}

ReportWorkers::Ticket ReportWorkers::start()
{
    return Ticket(m_state);
}

int ReportWorkers::running() const
{
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->running;
}

bool ReportWorkers::waitIdle(int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(m_state->mutex);
    return m_state->idle.wait_for(
        lock, std::chrono::milliseconds(timeoutMs), [this] { return m_state->running == 0; });
}

} // namespace Internal
} // namespace ZrUtils
