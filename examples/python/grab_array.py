#!/usr/bin/env python3
"""Grabs one image into an array, with nothing but Python's own ctypes.

    export ZR_U3V_EXACT_PATH=/usr/lib/x86_64-linux-gnu/gentlproducer-exact    (the package has set it already)
    python3 grab_array.py [image.pgm]

The producer is found the way every GenTL application finds it: the .cti files of the folders in
GENICAM_GENTL64_PATH; and in ZR_U3V_EXACT_PATH, where an installation leaves it beside the standard one. Everything is in this file, on purpose: it is to be copied.
"""
import array
import ctypes
import os
import sys
from ctypes import byref, c_char_p, c_int32, c_size_t, c_uint32, c_uint64, c_void_p, create_string_buffer
from pathlib import Path

FOLDERS = "GENICAM_GENTL64_PATH", "ZR_U3V_EXACT_PATH"
SUCCESS = 0
DISCOVERY_MS = 500
IMAGE_WAIT_MS = 5000
EXCLUSIVE = 4
EVENT_NEW_BUFFER = 1
DISCARD_ALL = 4
INFO_BASE, INFO_SIZE_FILLED, INFO_WIDTH, INFO_HEIGHT, INFO_PIXELFORMAT = 0, 9, 10, 11, 20
MONO8 = 0x01080001
ENDLESS = 2**64 - 1


class NewBuffer(ctypes.Structure):
    """What the new-buffer event carries; byte-packed like every record of GenTL."""
    _pack_ = 1
    _fields_ = [("buffer", c_void_p), ("user_pointer", c_void_p)]


def find_producer():
    for folder in ":".join(os.environ.get(name, "") for name in FOLDERS).split(":"):
        file = Path(folder) / "zr_u3v_tl.cti"
        if folder and file.exists():
            return str(file)
    sys.exit("zr_u3v_tl.cti is in no folder of " + ", ".join(FOLDERS))


class Producer:
    """Calls by name: producer.TLOpen(...) raises if the answer is not success."""

    def __init__(self, path):
        self._library = ctypes.CDLL(path)
        self.GCInitLib()

    def __getattr__(self, name):
        function = getattr(self._library, name)
        function.restype = c_int32

        def call(*arguments):
            status = function(*arguments)
            if status != SUCCESS:
                raise RuntimeError(f"{name}: {status} {self._last_error()}")
        return call

    def _last_error(self):
        code, text, size = c_int32(), create_string_buffer(1024), c_size_t(1024)
        self._library.GCGetLastError(byref(code), text, byref(size))
        return text.value.decode(errors="replace")

    def text(self, name, *arguments):
        """A query that ends in (char* text, size_t* size)."""
        text, size = create_string_buffer(1024), c_size_t(1024)
        getattr(self, name)(*arguments, text, byref(size))
        return text.value

    def register(self, port, address):
        value, size = c_uint64(), c_size_t(8)
        self.GCReadPort(port, c_uint64(address), byref(value), byref(size))
        return value.value

    def buffer_info(self, stream, buffer, command):
        kind, value, size = c_int32(), c_uint64(), c_size_t(8)
        self.DSGetBufferInfo(stream, buffer, c_int32(command), byref(kind), byref(value), byref(size))
        return value.value


def open_first_camera(producer, system, interface, device):
    """Lists are empty until they are updated, on the very interface that opens the camera."""
    producer.TLUpdateInterfaceList(system, None, c_uint64(DISCOVERY_MS))
    interface_id = producer.text("TLGetInterfaceID", system, c_uint32(0))
    producer.TLOpenInterface(system, c_char_p(interface_id), byref(interface))
    producer.IFUpdateDeviceList(interface, None, c_uint64(DISCOVERY_MS))
    camera_id = producer.text("IFGetDeviceID", interface, c_uint32(0))
    producer.IFOpenDevice(interface, c_char_p(camera_id), c_int32(EXCLUSIVE), byref(device))
    return camera_id.decode()


def payload_size(producer, device):
    """Bytes of an image, from the stream registers that every USB3 Vision camera has."""
    camera = c_void_p()
    producer.DevGetPort(device, byref(camera))
    stream_registers = producer.register(camera, producer.register(camera, 0x1D8) + 0x20)
    return producer.register(camera, stream_registers + 0x08)


def grab_one(producer, stream, size):
    """One image into memory of our own: (width, height, pixel format, array of bytes)."""
    memory = (ctypes.c_uint8 * size)()
    event, buffer = c_void_p(), c_void_p()
    producer.GCRegisterEvent(stream, c_int32(EVENT_NEW_BUFFER), byref(event))
    producer.DSAnnounceBuffer(stream, memory, c_size_t(size), None, byref(buffer))
    producer.DSQueueBuffer(stream, buffer)
    producer.DSStartAcquisition(stream, c_int32(0), c_uint64(ENDLESS))
    filled, filled_size = NewBuffer(), c_size_t(ctypes.sizeof(NewBuffer))
    producer.EventGetData(event, byref(filled), byref(filled_size), c_uint64(IMAGE_WAIT_MS))
    producer.DSStopAcquisition(stream, c_int32(0))
    info = [producer.buffer_info(stream, c_void_p(filled.buffer), command)
            for command in (INFO_WIDTH, INFO_HEIGHT, INFO_PIXELFORMAT, INFO_SIZE_FILLED)]
    producer.DSFlushQueue(stream, c_int32(DISCARD_ALL))
    producer.DSRevokeBuffer(stream, buffer, None, None)
    # One copy; where numpy is there, numpy.frombuffer(memory, numpy.uint8).reshape(height, width) makes none.
    return *info[:3], array.array("B", memoryview(memory).cast("B")[:info[3]])


def main():
    producer = Producer(find_producer())
    # Handles hold NULL before they are opened: several calls refuse a variable that looks taken.
    system, interface, device, stream = c_void_p(), c_void_p(), c_void_p(), c_void_p()
    try:
        producer.TLOpen(byref(system))
        print("camera", open_first_camera(producer, system, interface, device))
        producer.DevOpenDataStream(device, c_char_p(b"0"), byref(stream))
        width, height, pixel_format, pixels = grab_one(producer, stream, payload_size(producer, device))
    except RuntimeError as error:
        sys.exit(f"error: {error}")
    finally:
        producer.GCCloseLib()  # closes whatever is open
    print(f"image {width} x {height}, format {pixel_format:#010x}, {len(pixels)} bytes, "
          f"mean {sum(pixels) / len(pixels):.1f}")
    if len(sys.argv) > 1 and pixel_format == MONO8:
        Path(sys.argv[1]).write_bytes(b"P5 %d %d 255\n" % (width, height) + pixels.tobytes())


if __name__ == "__main__":
    main()
