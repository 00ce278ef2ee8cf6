// Machine identity timings (target: GetPCID on a warm identity file under 1 ms median).
//   warm   GetPCID when the file already holds the id (the normal start-up call)
//   cold   GetPCID with no file: machine id, interfaces, two MD5s and the write
// The identity file goes to a throw-away configuration folder.
#include "MedianTime.h"

#include <ZrUtils/ZrSystem.h>

#include <QCoreApplication>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

using ZrUtils::ZrSystem;

int main(int argc, char** argv)
{
    QTemporaryDir home;
    qputenv("HOME", QFile::encodeName(home.path())); // test mode writes under $HOME
    QCoreApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    const QString a = QStringLiteral("bench."), b = QStringLiteral("identity");
    const QString file = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/com.bench.identity.info.plist");

    const QString id = ZrSystem::GetPCID(a, b);
    bool stable = true;
    const double warm = medianMicroseconds(2001, [&] { stable = stable && ZrSystem::GetPCID(a, b) == id; });
    const double cold = medianMicroseconds(201, [&] {
        QFile::remove(file);
        ZrSystem::GetPCID(a, b);
    });
    std::printf(
        "GetPCID warm file: median %.1f us (target < 1000 us) %s\n", warm, warm < 1000 ? "ok" : "MISSED");
    std::printf("GetPCID no file:   median %.1f us\n", cold);
    std::printf("id stable over the warm calls: %s\n", stable ? "yes" : "NO");
    return warm < 1000 && stable ? 0 : 1;
}
