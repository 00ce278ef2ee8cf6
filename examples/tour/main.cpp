#include "Tour.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QStandardPaths>
#include <cstdio>
#include <unistd.h>

int main(int argc, char** argv)
{
    // The tour needs no display; images are drawn off-screen.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Qt wants a private runtime folder; give it one when the session has none.
    if (!qEnvironmentVariableIsSet("XDG_RUNTIME_DIR")) {
        const QByteArray runtime
            = QDir::tempPath().toLocal8Bit() + "/zrutils-tour-runtime-" + QByteArray::number(getuid());
        QDir().mkpath(QString::fromLocal8Bit(runtime));
        QFile::setPermissions(
            QString::fromLocal8Bit(runtime), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("XDG_RUNTIME_DIR", runtime);
    }
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zrutils-tour"));
    // Settings and caches the tour writes go to a throw-away test location.
    QStandardPaths::setTestModeEnabled(true);

    std::printf("libZrUtils tour: each step talks to servers on 127.0.0.1 only.\n");
    Tour tour;
    tourLogging(tour);
    tourHttp(tour);
    tourDownloads(tour);
    tourLogService(tour);
    tourLogAdmin(tour);
    tourReporting(tour);
    tourReportingPrivacy(tour);
    tourSystem(tour);
    tourFiles(tour);
    tourCrypto(tour);

    std::printf("\n%s\n",
        tour.failures() == 0 ? "Tour finished: every step worked." : "Tour finished with failures.");
    return tour.failures() == 0 ? 0 : 1;
}
