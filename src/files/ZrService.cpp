#include <ZrUtils/ZrService.h>

#include <utility>

namespace ZrUtils
{

ZrService::ZrService(std::wstring name)
    : m_name(std::move(name))
{
}

} // namespace ZrUtils
