"""Writes zip archives byte by byte, so that each can lie in exactly one way.

Usage: zipcraft.py <kind> <archive path>, one kind below. Every archive holds a
good entry "good.txt" first, so a reader that stops at the bad one has already
written something that it must take back.
"""
import struct
import sys
import zlib


def entry(name, data, *, deflate=False, declared=None, local_declared=None, crc=None, zip64=False):
    return dict(name=name.encode(), data=data, deflate=deflate, declared=declared,
                local_declared=local_declared, crc=crc, zip64=zip64)


def archive(entries):
    out = bytearray()
    central = bytearray()
    for e in entries:
        if e['deflate']:
            c = zlib.compressobj(6, zlib.DEFLATED, -15)
            payload = c.compress(e['data']) + c.flush()
        else:
            payload = e['data']
        size = len(e['data']) if e['declared'] is None else e['declared']
        local_size = size if e['local_declared'] is None else e['local_declared']
        crc = zlib.crc32(e['data']) if e['crc'] is None else e['crc']
        method = 8 if e['deflate'] else 0
        offset = len(out)
        if e['zip64']:
            local_extra = struct.pack('<HHQQ', 1, 16, local_size, len(payload))
            central_extra = struct.pack('<HHQQQ', 1, 24, size, len(payload), offset)
            sizes, local_sizes, central_offset, version = (0xffffffff,) * 2, (0xffffffff,) * 2, 0xffffffff, 45
        else:
            local_extra = central_extra = b''
            sizes, local_sizes, central_offset, version = (len(payload), size), (len(payload), local_size), offset, 20
        out += struct.pack('<IHHHHHIIIHH', 0x04034b50, version, 0, method, 0, 0x21,
                           crc, local_sizes[0], local_sizes[1], len(e['name']), len(local_extra))
        out += e['name'] + local_extra + payload
        central += struct.pack('<IHHHHHHIIIHHHHHII', 0x02014b50, (3 << 8) | version, version, 0, method, 0,
                               0x21, crc, sizes[0], sizes[1], len(e['name']), len(central_extra), 0, 0, 0,
                               0o100644 << 16, central_offset)
        central += e['name'] + central_extra
    start = len(out)
    out += central
    out += struct.pack('<IHHHHIIH', 0x06054b50, 0, 0, len(entries), len(entries), len(central), start, 0)
    return bytes(out)


GOOD = [entry('good.txt', b'new\n' * 100), entry('made/deep/new.txt', b'new', deflate=True)]
KINDS = {
    # The stored checksum is not the data's.
    'crc': GOOD + [entry('bad.txt', b'x' * 5000, deflate=True, crc=0x12345678)],
    # The local header claims another size than the central directory.
    'local-size': GOOD + [entry('bad.txt', b'y' * 5000, local_declared=10)],
    # Both headers agree on 1000 bytes; the data inflates to a megabyte.
    'inflates-beyond': GOOD + [entry('bad.bin', bytes(1 << 20), deflate=True, declared=1000)],
    # A petabyte declared in ZIP64 fields over a few deflated bytes.
    'petabyte': GOOD + [entry('huge.bin', bytes(1000), deflate=True, declared=1 << 50, local_declared=1 << 50,
                              zip64=True)],
}

if __name__ == '__main__':
    kind, path = sys.argv[1], sys.argv[2]
    with open(path, 'wb') as f:
        f.write(archive(KINDS[kind]))
