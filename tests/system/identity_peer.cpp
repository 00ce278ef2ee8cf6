// identity_peer pcid <a> <b>          prints ZrSystem::GetPCID(a, b)
// identity_peer read <path> <key>     prints the key as this process's QSettings reads it
#include <ZrUtils/ZrSystem.h>

#include <QCoreApplication>
#include <QSettings>
#include <QStandardPaths>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    const QStringList args = app.arguments();
    if (args.size() != 4)
        return 2;
    const QString out = args.at(1) == "pcid"
        ? ZrUtils::ZrSystem::GetPCID(args.at(2), args.at(3))
        : QSettings(args.at(2), QSettings::NativeFormat).value(args.at(3)).toString();
    std::printf("%s", qPrintable(out));
}
