#ifndef ZRUTILS_ZRSTRING_H
#define ZRUTILS_ZRSTRING_H

#include <ZrUtils/zrutils_export.h>

#include <QString>

namespace ZrUtils
{

/** Masks personal data for display with "*". Static functions; none fails. */
class ZRUTILS_EXPORT ZrString
{
public:
    /**
     * @p email with all but the first @p keep characters before the first "@" masked
     * ("al***@example.com"); unchanged when there is no "@" or nothing to mask. A
     * negative @p keep counts as 0.
     */
    static QString MaskEmailString(const QString& email, int keep);
    /**
     * @p phone with all but the first @p keepHead and the last @p keepTail characters
     * masked ("138****5678"); unchanged when it is no longer than both together.
     * Negative counts count as 0.
     */
    static QString MaskPhoneString(const QString& phone, int keepHead, int keepTail);
};

} // namespace ZrUtils

#endif
