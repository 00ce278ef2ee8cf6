// A tiny application for the lifecycle tests: it sends one report and quits at
// once, without running an event loop, so the report is still in flight while the
// process tears down. It prints the order in which the manager's two reports are
// destroyed (that happens during static destruction, or with the application
// object when that is the manager's parent).
//
//   reportapp zr <endpoint> <key id> <key>
//   reportapp ga <collection host> <catalogue file> [app-parent]
#include <ZrUtils/CGaReport.h>
#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CReportManager.h>
#include <ZrUtils/CZrReport.h>

#include <QCoreApplication>

#include <cstdio>

using namespace ZrUtils;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 4)
        return 2;

    const bool appParent = args.value(4) == QLatin1String("app-parent");
    CReportManager* manager = CReportManager::getInstance(appParent ? &app : nullptr);
    for (QObject* child : manager->children()) {
        const char* name = child->metaObject()->className();
        QObject::connect(child, &QObject::destroyed, [name] {
            std::printf("destroyed %s\n", name);
            std::fflush(stdout);
        });
    }

    if (args.at(1) == QLatin1String("zr")) {
        manager->InitZrData(QStringLiteral("quitter"), args.at(2), args.at(3), args.value(4),
            QStringLiteral("proj"), QStringLiteral("usage"), {{"k", "v"}});
        manager->SendZrReport(QStringLiteral("quit_now"));
    } else {
        CGoogleAnalytics::SetCollectionHost(args.at(2));
        manager->InitGaData(args.at(3), QStringLiteral("c"), QStringLiteral("hang"), QStringLiteral("s"));
        manager->SendGaReport(QStringLiteral("start"), QString(), false);
    }
    return 0;
}
