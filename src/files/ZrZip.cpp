#include <ZrUtils/ZrZip.h>

namespace ZrUtils
{

ZrZip::ZrZip(QObject* parent)
    : QObject(parent)
{
}

ZrZip::~ZrZip() = default;

bool ZrZip::ZipDir(const QString& dirPath, const QStringList& nameFilters)
{
    return zipWriter(dirPath, nameFilters);
}

bool ZrZip::UnzipFile(const QString& zipPath, QString destDir)
{
    return zipReader(zipPath, destDir);
}

} // namespace ZrUtils
