// Machine identity timings (target: GetPCID on a warm identity file under 1 ms median).
//   warm   GetPCID when the file already holds the id (the normal start-up call)
//   cold   GetPCID with no file: machine id, interfaces, two MD5s and the write
// The identity file goes to a throw-away configuration folder.
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
using Clock = std::chrono::steady_clock;

namespace
{

template<typename Body> double medianMicroseconds(int runs, Body body)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        body();
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

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
