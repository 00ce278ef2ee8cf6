// Arbitrary bytes into the check that every local header of an archive agrees with
// its central directory record, the first thing zipReader does with an archive.
//
// Properties: no read outside the bytes; an archive passed as agreeing has as many
// central records as it claims, each at least a fixed-size record within the bytes;
// the answer does not depend on where the device was left.
#include "files/ZipHeaders.h"

#include <QBuffer>
#include <QByteArray>

namespace
{

[[noreturn]] void violated()
{
    __builtin_trap();
}

constexpr quint64 CentralHeaderSize = 46;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));
    QBuffer device;
    device.setData(bytes);
    if (!device.open(QIODevice::ReadOnly))
        return 0;
    quint64 count = 0;
    const bool agree = ZrUtils::Internal::localHeadersAgree(device, count);
    if (agree && count > quint64(size) / CentralHeaderSize)
        violated();

    device.seek(qint64(size / 2));
    quint64 again = 0;
    if (ZrUtils::Internal::localHeadersAgree(device, again) != agree || (agree && again != count))
        violated();
    return 0;
}
