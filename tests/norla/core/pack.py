"""Prints REPEATED, COUNT times, packed by each of the ENCODINGS in turn, as a web server does; made by the libraries that
the encodings come from."""
import ctypes
import sys
import zlib


def gzip(data):
    packer = zlib.compressobj(wbits=31)
    return packer.compress(data) + packer.flush()


def brotli(data):
    packed = ctypes.create_string_buffer(len(data) + 1000)
    size = ctypes.c_size_t(len(packed))
    if not ctypes.CDLL("libbrotlienc.so.1").BrotliEncoderCompress(
            5, 22, 0, ctypes.c_size_t(len(data)), data, ctypes.byref(size), packed):
        sys.exit("brotli failed")
    return packed.raw[:size.value]


def zstd(data):
    library = ctypes.CDLL("libzstd.so.1")
    library.ZSTD_compress.restype = ctypes.c_size_t
    packed = ctypes.create_string_buffer(len(data) + 1000)
    size = library.ZSTD_compress(packed, ctypes.c_size_t(len(packed)), data, ctypes.c_size_t(len(data)), 3)
    if size > len(packed):
        sys.exit("zstd failed")
    return packed.raw[:size]


ENCODERS = {"gzip": gzip, "deflate": zlib.compress, "br": brotli, "zstd": zstd}
repeated, count, *encodings = sys.argv[1:]
data = repeated.encode() * int(count)
for encoding in encodings:
    data = ENCODERS[encoding](data)
sys.stdout.buffer.write(data)
