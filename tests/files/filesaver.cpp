// filesaver <plain|encrypted|text> <path> <first number>
// Saves the numbered objects first, first + 1, ... to path until it is killed, and
// says "saved" on its output after each save.
#include "SavedObjects.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 4 || !SavedObjects::FormNames.contains(args.at(1)))
        return 2;
    const auto form = SavedObjects::Form(SavedObjects::FormNames.indexOf(args.at(1)));
    for (int number = args.at(3).toInt();; ++number) {
        SavedObjects::save(form, args.at(2), SavedObjects::object(number));
        std::printf("saved\n");
        std::fflush(stdout);
    }
}
