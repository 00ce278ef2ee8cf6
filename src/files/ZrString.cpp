#include <ZrUtils/ZrString.h>

#include <algorithm>

namespace ZrUtils
{

QString ZrString::MaskEmailString(const QString& email, int keep)
{
    const int k = std::max(keep, 0);
    const int at = email.indexOf(QLatin1Char('@'), 0, Qt::CaseSensitive);
    // Also covers a text without "@" (at is -1).
    if (at <= k)
        return email;
    return email.left(k) + QString(at - k, QLatin1Char('*')) + email.mid(at);
}

QString ZrString::MaskPhoneString(const QString& phone, int keepHead, int keepTail)
{
    const qint64 h = std::max(keepHead, 0);
    const qint64 t = std::max(keepTail, 0);
    // 64-bit sum: two huge keep counts must not wrap into masking.
    if (phone.length() <= h + t)
        return phone;
    return phone.left(int(h)) + QString(int(phone.length() - h - t), QLatin1Char('*')) + phone.right(int(t));
}

} // namespace ZrUtils
