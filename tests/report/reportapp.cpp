// Sends one report and quits at once, without running an event loop, so the report is
// still in flight while the process tears down. Prints the order in which the manager's
// two reports are destroyed (during static destruction, or with the application object
// when that is the manager's parent).
//   reportapp zr <endpoint> <key id> <key>
//   reportapp ga <collection host> <catalogue file with "open_file"> [app-parent]
#include <ZrUtils/CGoogleAnalytics.h>
#include <ZrUtils/CReportManager.h>

#include <QCoreApplication>

#include <cstdio>

using namespace ZrUtils;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IONBF, 0); // the order shows even when the process dies
    const QStringList args = app.arguments();
    if (args.size() < 4)
        return 2;
    CReportManager* manager = CReportManager::getInstance(args.value(4) == "app-parent" ? &app : nullptr);
    for (QObject* child : manager->children()) {
        const char* name = child->metaObject()->className();
        QObject::connect(child, &QObject::destroyed, [name] { std::printf("destroyed %s\n", name); });
    }
    if (args.at(1) == "zr") {
        manager->InitZrData("quitter", args.at(2), args.at(3), args.value(4), "proj", "usage", {{"k", "v"}});
        manager->SendZrReport("quit_now");
    } else {
        CGoogleAnalytics::SetCollectionHost(args.at(2));
        manager->InitGaData(args.at(3), "c", "hang", "s");
        manager->SendGaReport("open_file", QString(), false);
    }
    return 0;
}
