#ifndef ZRUTILS_REPORTCONSENT_H
#define ZRUTILS_REPORTCONSENT_H

#include <ZrUtils/zrutils_export.h>

#include <QObject>

namespace ZrUtils
{

/**
 * Whether the person using the application lets it send usage reports: one
 * process-wide switch over CGoogleAnalytics, CGaReport, CReportManager and CZrReport.
 *
 * Reporting is allowed until the application says otherwise. While it is denied,
 * those classes open no connection and start no thread: CGoogleAnalytics's
 * synchronous call returns false and its asynchronous call ends in
 * SignalRequestCancel(); the others drop the report as when they are not
 * configured. Reports already on their way when it is denied are let finish. The
 * switch is not stored: the application keeps its user's choice and sets it at
 * start-up. Every function is thread-safe.
 */
class ZRUTILS_EXPORT ReportConsent : public QObject
{
    Q_OBJECT
public:
    enum State { Allowed, Denied };
    Q_ENUM(State)

    /** The object that emits stateChanged(); it lives as long as the process. */
    static ReportConsent* instance();

    static State state();
    static bool isAllowed() { return state() == Allowed; }
    /** Sets the switch; stateChanged() follows when the state changes. */
    static void setState(State state);

Q_SIGNALS:
    /** Emitted on the thread that changed the state; queued to receivers on other threads. */
    void stateChanged(ZrUtils::ReportConsent::State state);

private:
    ReportConsent();
};

} // namespace ZrUtils

#endif
