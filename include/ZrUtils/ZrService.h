#ifndef ZRUTILS_ZRSERVICE_H
#define ZRUTILS_ZRSERVICE_H

#include <ZrUtils/zrutils_export.h>

#include <string>

namespace ZrUtils
{

/** Holds the name of a system service; it has no other operation on this platform. */
class ZRUTILS_EXPORT ZrService
{
public:
    explicit ZrService(std::wstring name);

private:
    std::wstring m_name;
};

} // namespace ZrUtils

#endif
