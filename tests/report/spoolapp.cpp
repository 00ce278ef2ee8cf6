// spoolapp report <spool folder> <endpoint> <first number>
//     reports events numbered from the first, with the spool on, until it is killed,
//     saying "reported <n>" once each report has returned
// spoolapp drain <spool folder> <endpoint>
//     sends what the spool holds and says "drained <dropped>" when it is empty
#include <ZrUtils/CZrReport.h>
#include <ZrUtils/ReportSpool.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

#include <cstdio>

using namespace ZrUtils;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 4 || !ReportSpool::enable(args.at(2)))
        return 2;
    CZrReport report;
    const auto configure = [&](int number) {
        report.InitData(
            "spoolapp", args.at(3), "key-id", "secret", "p", "l", {{"n", QString::number(number)}});
    };
    if (args.at(1) == "drain") {
        configure(-1);
        ReportSpool::flush();
        for (QDeadlineTimer deadline(60000); ReportSpool::pendingCount() > 0 && !deadline.hasExpired();)
            QThread::msleep(10);
        std::printf("drained %d\n", ReportSpool::pendingCount());
        return 0;
    }
    for (int number = args.value(4).toInt();; ++number) {
        configure(number);
        report.ReportZrData("e");
        std::printf("reported %d\n", number);
        std::fflush(stdout);
        QThread::msleep(1); // let the sender take turns with the reports
    }
}
