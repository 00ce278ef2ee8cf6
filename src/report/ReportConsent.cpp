#include <ZrUtils/ReportConsent.h>

#include <atomic>

namespace ZrUtils
{

namespace
{
std::atomic<int> consentState {ReportConsent::Allowed};
} // namespace

ReportConsent::ReportConsent() = default;

ReportConsent* ReportConsent::instance()
{
    // Never deleted: reports may consult it while the process exits.
    static ReportConsent* const object = new ReportConsent;
    return object;
}

ReportConsent::State ReportConsent::state()
{
    return State(consentState.load(std::memory_order_acquire));
}

void ReportConsent::setState(State state)
{
    if (consentState.exchange(state, std::memory_order_acq_rel) != state)
        Q_EMIT instance()->stateChanged(state);
}

} // namespace ZrUtils
