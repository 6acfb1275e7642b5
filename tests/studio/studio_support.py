"""Shared pieces of the studio tests: a studio server in a child process,
HTTP requests on the loopback address, and readers of the PNG files the
tool and the server write (8- and 16-bit grey, no interlace) and of the
BMP pictures the page shows."""
import os
import re
import signal
import struct
import subprocess
import time
import urllib.error
import urllib.request
import zlib

TOOL = os.environ.get("KXFREQ_TOOL", "")
DATA = os.environ.get("KXFREQ_TEST_DATA", "")


class Studio:
    """`kxfreq studio IMAGE --port 0` running until stop()."""

    def __init__(self, image, cwd, extra=()):
        self.process = subprocess.Popen([TOOL, "studio", image, "--port", "0", *extra], cwd=cwd,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()   # the server prints its address once it listens
        match = re.search(r"http://127\.0\.0\.1:(\d+)/", line)
        if not match:
            self.process.kill()
            raise AssertionError("no address from the studio: %r %r" % (line, self.process.stderr.read()))
        self.port = int(match.group(1))
        self.url = "http://127.0.0.1:%d" % self.port

    def get(self, path, headers=None, timeout=30):
        """(status, headers, body bytes) of a GET."""
        request = urllib.request.Request(self.url + path, headers=headers or {})
        try:
            with urllib.request.urlopen(request, timeout=timeout) as response:
                return response.status, dict(response.headers), response.read()
        except urllib.error.HTTPError as error:
            return error.code, dict(error.headers), error.read()

    def stop(self):
        """Ctrl-C, then the exit status and what was printed."""
        self.process.send_signal(signal.SIGINT)
        out, err = self.process.communicate(timeout=20)
        return self.process.returncode, out, err


def run_tool(*args, cwd=None):
    return subprocess.run([TOOL, *args], cwd=cwd, capture_output=True, text=True, timeout=60)


def read_png(data):
    """(width, height, bits, rows as lists of ints) of a grey PNG."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG"
    pos, idat, header = 8, b"", None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    width, height, bits, colour, _, _, interlace = header
    assert colour == 0 and interlace == 0 and bits in (8, 16), "only grey, non-interlaced PNG"
    size = bits // 8
    stride = width * size
    raw = zlib.decompress(idat)
    rows, previous = [], bytearray(stride)
    for y in range(height):
        kind = raw[y * (stride + 1)]
        line = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - size] if i >= size else 0
            b = previous[i]
            c = previous[i - size] if i >= size else 0
            if kind == 1:
                line[i] = (line[i] + a) & 255
            elif kind == 2:
                line[i] = (line[i] + b) & 255
            elif kind == 3:
                line[i] = (line[i] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[i] = (line[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        rows.append(list(line) if size == 1 else [line[2 * i] << 8 | line[2 * i + 1] for i in range(width)])
        previous = line
    return width, height, bits, rows


def read_bmp(data):
    """(width, height, 8, rows) of the 8-bit grey BMP the studio shows."""
    assert data[:2] == b"BM", "not a BMP"
    offset, = struct.unpack("<I", data[10:14])
    width, height, planes, bits = struct.unpack("<iiHH", data[18:30])
    assert planes == 1 and bits == 8 and height > 0
    palette = [data[54 + 4 * i] for i in range(256)]
    assert palette == list(range(256)), "not a grey palette"
    stride = (width + 3) // 4 * 4
    rows = [list(data[offset + stride * (height - 1 - y):offset + stride * (height - 1 - y) + width])
            for y in range(height)]
    return width, height, 8, rows


def read_png_file(path):
    with open(path, "rb") as f:
        return read_png(f.read())


def wait_for(predicate, seconds, what):
    """Polls until predicate() is true; fails after `seconds`."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        value = predicate()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError("timed out after %g s waiting for %s" % (seconds, what))


def read_tiff(data, numpy):
    """The pixels of an 8- or 16-bit grey TIFF as the tool writes it (deflate
    strips, no predictor) as a numpy array."""
    order = {b"II": "<", b"MM": ">"}[data[:2]]
    offset, = struct.unpack(order + "I", data[4:8])
    count, = struct.unpack(order + "H", data[offset:offset + 2])
    sizes = {3: ("H", 2), 4: ("I", 4)}
    tags = {}
    for i in range(count):
        entry = data[offset + 2 + 12 * i:offset + 14 + 12 * i]
        tag, kind, n = struct.unpack(order + "HHI", entry[:8])
        code, size = sizes.get(kind, ("I", 4))
        where = entry[8:12] if n * size <= 4 else data[struct.unpack(order + "I", entry[8:12])[0]:][:n * size]
        tags[tag] = struct.unpack(order + code * n, where[:n * size])
    width, height, bits = tags[256][0], tags[257][0], tags[258][0]
    assert tags[259][0] in (8, 32946) and tags.get(277, (1,))[0] == 1 and tags.get(317, (1,))[0] == 1
    raw = b"".join(zlib.decompress(data[o:o + n]) for o, n in zip(tags[273], tags[279]))
    dtype = numpy.uint8 if bits == 8 else numpy.dtype(order + "u2")
    return numpy.frombuffer(raw, dtype=dtype).reshape(height, width)
