"""Pictures for the recipes in Python: PNG files in and out, the drawn scene of the recipes in C."""
import struct
import sys
import zlib

import numpy as np
import zori


def scene():
    """320 x 240 pixels: a sheet with lines of writing, discs of several colours, a shaded ground."""
    y, x = np.mgrid[:240, :320]
    p = np.dstack([70 + x // 4, 90 + y // 4, 120 + (x + y) // 8]).astype(np.uint8)
    zori.set([236, 230, 214], p[30:200, 30:190])
    for line in range(9):
        for word in range(4):
            top, left, width = 45 + 16 * line, 40 + 36 * word, 20 + (line * 7 + word * 11) % 12
            zori.set([44, 40, 60], p[top:top + 5, left:left + width])
    for x0, y0, radius, colour in ((245, 70, 34, (200, 60, 44)), (270, 150, 26, (40, 90, 190)),
                                   (220, 190, 18, (60, 150, 80))):
        p[(x - x0) ** 2 + (y - y0) ** 2 <= radius * radius] = colour
    return p


def opened(channels):
    """The file that the command line names, or the scene, with one or three channels; grey is the green channel."""
    p = read(sys.argv[1]) if len(sys.argv) > 1 else scene()
    if p.ndim == 2:
        return p if channels == 1 else np.dstack([p] * 3)
    return np.ascontiguousarray(p[:, :, 1] if channels == 1 else p[:, :, :3])


def saved(p, name):
    write(sys.argv[2] if len(sys.argv) > 2 else f"{name}.png", p)


def framed(p, margin):
    """The picture with its edge repeated on every side."""
    out = np.empty((p.shape[0] + 2 * margin, p.shape[1] + 2 * margin) + p.shape[2:], p.dtype)
    return zori.copy_replicate_border(p, margin, margin, out)


def read(path):
    """A PNG of 8 bits a channel, not interlaced."""
    data, at, chunks = open(path, "rb").read(), 8, {}
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        chunks[kind] = chunks.get(kind, b"") + data[at + 8:at + 8 + length]
        at += 12 + length
    width, height, depth, colours, _, _, interlaced = struct.unpack(">IIBBBBB", chunks[b"IHDR"])
    channels = {0: 1, 2: 3, 4: 2, 6: 4}.get(colours)
    if depth != 8 or interlaced or not channels:
        sys.exit(f"{path}: only grey and colour of 8 bits, not interlaced")
    rows = np.frombuffer(zlib.decompress(chunks[b"IDAT"]), np.uint8).reshape(height, 1 + width * channels)
    out = np.zeros((height + 1, width + 1, channels), np.uint8)  # a row above and a pixel before, for the prediction
    for y, row in enumerate(rows, 1):
        kind, values, above = row[0], row[1:].reshape(width, channels), out[y - 1].astype(int)
        for x, value in enumerate(values.astype(int), 1):
            left, up, corner = out[y, x - 1].astype(int), above[x], above[x - 1]
            a, b, c = abs(up - corner), abs(left - corner), abs(left + up - 2 * corner)
            nearest = np.where((a <= b) & (a <= c), left, np.where(b <= c, up, corner))
            out[y, x] = (value + (0, left, up, (left + up) // 2, nearest)[kind]) & 255
    return np.ascontiguousarray(out[1:, 1:].squeeze())


def write(path, p):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    height, width = p.shape[:2]
    head = struct.pack(">IIBBBBB", width, height, 8, 0 if p.ndim == 2 else 2, 0, 0, 0)
    rows = b"".join(b"\0" + row.tobytes() for row in p)
    with open(path, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))
