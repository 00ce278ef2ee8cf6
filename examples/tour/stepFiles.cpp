#include "Tour.h"

#include <ZrUtils/ZrFilePath.h>
#include <ZrUtils/ZrJsonReader.h>
#include <ZrUtils/ZrString.h>
#include <ZrUtils/ZrZip.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

using ZrUtils::ZrFilePath;
using ZrUtils::ZrJsonReader;

namespace
{

QByteArray randomBytes(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(bytes.data()), size / 4);
    return bytes;
}

} // namespace

void tourFiles(Tour& tour)
{
    tour.section(QStringLiteral("Files: sizes and durations as text, encrypted JSON, zip"));
    tour.say(QStringLiteral("1536 bytes = %1, 5 GiB = %2, 3725 s = %3")
                 .arg(ZrFilePath::FormatFileSize(1536), ZrFilePath::FormatFileSize(qint64(5) << 30),
                     ZrFilePath::FormatTimeDuration(3725)));
    tour.check(ZrFilePath::FormatFileSize(1536) == QStringLiteral("1.50 KB")
            && ZrFilePath::FormatTimeDuration(3725) == QStringLiteral("01:02:05"),
        QStringLiteral("sizes and durations read as a person would write them"));
    tour.say(QStringLiteral("masked for display: %1, %2")
                 .arg(ZrUtils::ZrString::MaskEmailString(QStringLiteral("alice@example.com"), 2),
                     ZrUtils::ZrString::MaskPhoneString(QStringLiteral("13812345678"), 3, 4)));

    // The application supplies key and IV; the library has none of its own.
    const QString key = QString::fromLatin1(randomBytes(32).toBase64());
    const QString iv = QString::fromLatin1(randomBytes(16).toBase64());
    const QJsonObject settings {{QStringLiteral("user"), QStringLiteral("alice")},
        {QStringLiteral("vip"), true}, {QStringLiteral("launches"), 12}};
    const QString secret = tour.scratchPath(QStringLiteral("settings.dat"));
    ZrJsonReader::CryptSaveJsonFile(secret, settings, key, iv);
    tour.say(QStringLiteral("settings.dat holds %1, %2 bytes of base64 ciphertext")
                 .arg(ZrFilePath::ReadFileData(secret).left(24) + QStringLiteral("..."))
                 .arg(QFileInfo(secret).size()));
    tour.check(ZrJsonReader::DecryptParseJsonFile(secret, key, iv) == settings,
        QStringLiteral("the encrypted JSON file reads back as the same object"));
    const QString otherKey = QString::fromLatin1(randomBytes(32).toBase64());
    tour.check(ZrJsonReader::DecryptParseJsonFile(secret, otherKey, iv).isEmpty(),
        QStringLiteral("with another key it reads as an empty object"));

    const QString logs = tour.scratchPath(QStringLiteral("logs"));
    QDir().mkpath(logs);
    ZrFilePath::WriteFileData(logs + QStringLiteral("/app.log"), QStringLiteral("started\nstopped\n"));
    ZrFilePath::WriteFileData(logs + QStringLiteral("/crash.log"), QString(20000, QLatin1Char('#')));
    const bool zipped = ZrUtils::zipWriter(logs, {QStringLiteral("*.log")});
    const QString archive = logs + QStringLiteral("/logs.zip");
    tour.say(QStringLiteral("zipped the folder into %1 (%2)").arg(archive, ZrFilePath::GetFileSize(archive)));
    const QString unpacked = tour.scratchPath(QStringLiteral("unpacked"));
    const bool unzipped = ZrUtils::zipReader(archive, unpacked);
    tour.check(zipped && unzipped
            && ZrFilePath::GetFileMd5(unpacked + QStringLiteral("/crash.log"))
                == ZrFilePath::GetFileMd5(logs + QStringLiteral("/crash.log")),
        QStringLiteral("the folder zips and unzips to the same bytes"));
}
