#include <ZrUtils/ZrUtils.h>

#include <QCoreApplication>
#include <QJsonObject>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QJsonObject params;
    params.insert(QStringLiteral("a"), 1);
    const QString signature = ZrUtils::ZrHttpRequest::SignObject(params, QStringLiteral("s"));
    if (signature != ZrUtils::ZrHttpRequest::GetStringMd5(QStringLiteral("a=1s")))
        return 1;
    std::printf("consumer ok\n");
    return 0;
}
