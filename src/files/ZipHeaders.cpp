#include "ZipHeaders.h"

#include <QByteArray>
#include <QIODevice>
#include <QtEndian>

namespace ZrUtils
{
namespace Internal
{

namespace
{

constexpr int EndRecordSize = 22;
constexpr int MaxCommentSize = 0xffff;
constexpr int Zip64LocatorSize = 20;
constexpr int Zip64EndRecordSize = 56;
constexpr int CentralHeaderSize = 46;
constexpr int LocalHeaderSize = 30;
constexpr quint32 EndRecordSignature = 0x06054b50;
constexpr quint32 Zip64LocatorSignature = 0x07064b50;
constexpr quint32 Zip64EndRecordSignature = 0x06064b50;
constexpr quint32 CentralHeaderSignature = 0x02014b50;
constexpr quint32 LocalHeaderSignature = 0x04034b50;
constexpr quint16 Zip64ExtraId = 0x0001;
constexpr quint16 DataDescriptorFlag = 0x0008;
constexpr quint32 Escape32 = 0xffffffff;

quint16 u16At(const QByteArray& data, int at)
{
    return qFromLittleEndian<quint16>(data.constData() + at);
}

quint32 u32At(const QByteArray& data, int at)
{
    return qFromLittleEndian<quint32>(data.constData() + at);
}

quint64 u64At(const QByteArray& data, int at)
{
    return qFromLittleEndian<quint64>(data.constData() + at);
}

bool readAt(QIODevice& device, qint64 offset, qint64 size, QByteArray& out)
{
    if (offset < 0 || !device.seek(offset))
        return false;
    out = device.read(size);
    return out.size() == size;
}

// The fields that ZIP64 moves into an extra record when their 32-bit form is all ones.
struct Sizes {
    quint64 uncompressed = 0;
    quint64 compressed = 0;
    quint64 offset = 0;
};

// Replaces the escaped fields of @p sizes, in their fixed order, from the ZIP64 record
// of @p extra. @p withOffset: central records may move the offset too.
bool resolveZip64(const QByteArray& extra, Sizes& sizes, bool withOffset)
{
    const bool wantUncompressed = sizes.uncompressed == Escape32;
    const bool wantCompressed = sizes.compressed == Escape32;
    const bool wantOffset = withOffset && sizes.offset == Escape32;
    if (!wantUncompressed && !wantCompressed && !wantOffset)
        return true;
    for (int at = 0; at + 4 <= extra.size();) {
        const quint16 id = u16At(extra, at);
        const int size = u16At(extra, at + 2);
        if (at + 4 + size > extra.size())
            return false;
        if (id == Zip64ExtraId) {
            int field = at + 4;
            const auto take = [&](quint64& value) {
                if (field + 8 > at + 4 + size)
                    return false;
                value = u64At(extra, field);
                field += 8;
                return true;
            };
            return (!wantUncompressed || take(sizes.uncompressed))
                && (!wantCompressed || take(sizes.compressed)) && (!wantOffset || take(sizes.offset));
        }
        at += 4 + size;
    }
    return false;
}

struct Directory {
    quint64 count = 0;
    quint64 size = 0;
    quint64 offset = 0;
};

bool readDirectoryPosition(QIODevice& device, Directory& directory)
{
    const qint64 fileSize = device.size();
    if (fileSize < EndRecordSize)
        return false;
    const qint64 tailSize = qMin<qint64>(fileSize, EndRecordSize + MaxCommentSize);
    QByteArray tail;
    if (!readAt(device, fileSize - tailSize, tailSize, tail))
        return false;
    // The last end record whose comment fits in the file; searching backwards skips
    // signatures that merely appear inside a comment.
    int end = -1;
    for (int at = tail.size() - EndRecordSize; at >= 0 && end < 0; --at) {
        if (u32At(tail, at) == EndRecordSignature && at + EndRecordSize + u16At(tail, at + 20) <= tail.size())
            end = at;
    }
    if (end < 0)
        return false;
    directory.count = u16At(tail, end + 10);
    directory.size = u32At(tail, end + 12);
    directory.offset = u32At(tail, end + 16);
    if (directory.count != 0xffff && directory.size != Escape32 && directory.offset != Escape32)
        return true;

    // ZIP64: a locator right before the end record points at the larger end record.
    const qint64 locatorAt = fileSize - tailSize + end - Zip64LocatorSize;
    QByteArray locator, record;
    if (!readAt(device, locatorAt, Zip64LocatorSize, locator) || u32At(locator, 0) != Zip64LocatorSignature)
        return false;
    const quint64 recordAt = u64At(locator, 8);
    if (recordAt > quint64(fileSize) || !readAt(device, qint64(recordAt), Zip64EndRecordSize, record)
        || u32At(record, 0) != Zip64EndRecordSignature)
        return false;
    directory.count = u64At(record, 32);
    directory.size = u64At(record, 40);
    directory.offset = u64At(record, 48);
    return true;
}

bool localHeaderAgrees(QIODevice& device, const QByteArray& central, const QByteArray& name,
    const QByteArray& extra, quint64 fileSize)
{
    Sizes expected;
    expected.compressed = u32At(central, 20);
    expected.uncompressed = u32At(central, 24);
    expected.offset = u32At(central, 42);
    if (!resolveZip64(extra, expected, true) || expected.offset > fileSize)
        return false;

    QByteArray local;
    if (!readAt(device, qint64(expected.offset), LocalHeaderSize, local)
        || u32At(local, 0) != LocalHeaderSignature)
        return false;
    const int nameLength = u16At(local, 26);
    const int extraLength = u16At(local, 28);
    QByteArray localName, localExtra;
    if (!readAt(device, qint64(expected.offset) + LocalHeaderSize, nameLength + extraLength, localName))
        return false;
    localExtra = localName.mid(nameLength);
    localName.truncate(nameLength);
    if (localName != name || u16At(local, 8) != u16At(central, 10))
        return false;
    // With a data descriptor the local checksum and sizes come after the data.
    if (u16At(local, 6) & DataDescriptorFlag)
        return true;
    Sizes found;
    found.compressed = u32At(local, 18);
    found.uncompressed = u32At(local, 22);
    return u32At(local, 14) == u32At(central, 16) && resolveZip64(localExtra, found, false)
        && found.compressed == expected.compressed && found.uncompressed == expected.uncompressed;
}

} // namespace

bool localHeadersAgree(QIODevice& device, quint64& entryCount)
{
    Directory directory;
    if (!readDirectoryPosition(device, directory))
        return false;
    const quint64 fileSize = quint64(device.size());
    if (directory.offset > fileSize || directory.size > fileSize - directory.offset)
        return false;
    entryCount = directory.count;
    quint64 at = directory.offset;
    const quint64 end = directory.offset + directory.size;
    for (quint64 i = 0; i < directory.count; ++i) {
        QByteArray central, variable;
        if (end - at < quint64(CentralHeaderSize) || !readAt(device, qint64(at), CentralHeaderSize, central)
            || u32At(central, 0) != CentralHeaderSignature)
            return false;
        const int nameLength = u16At(central, 28);
        const int extraLength = u16At(central, 30);
        const int commentLength = u16At(central, 32);
        const quint64 recordSize = quint64(CentralHeaderSize) + nameLength + extraLength + commentLength;
        if (end - at < recordSize
            || !readAt(device, qint64(at) + CentralHeaderSize, nameLength + extraLength, variable))
            return false;
        if (!localHeaderAgrees(
                device, central, variable.left(nameLength), variable.mid(nameLength), fileSize))
            return false;
        at += recordSize;
    }
    return true;
}

} // namespace Internal
} // namespace ZrUtils
