// zr_work: what a consumer does in the steady state, so many times each. Run under an instruction
// counter by instruction_guard.sh, which knows the functions below by name.

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <acquisition.h>
#include <camera_features.h>
#include <virtual_bus.h>

namespace {

constexpr int kTimes = 200;
constexpr size_t kBuffers = 4;
constexpr uint64_t kVirtualRegister = 0x80100;
constexpr uint64_t kNoRegister = 0x12345;
constexpr uint64_t kImageTimeout = 60000; // ms; under the counter everything is slow

void Need(GC_ERROR status, const char* call)
{
    if (status != GC_ERR_SUCCESS) {
        std::fprintf(stderr, "%s answered %d\n", call, status);
        std::_Exit(1);
    }
}

// What the functions below use, looked up beforehand.
struct Handles
{
    const consumer::Producer& gentl;
    PORT_HANDLE camera;
    DS_HANDLE stream;
    BUFFER_HANDLE buffer;
    EVENT_HANDLE event;
};

} // namespace

// Known by name, and not to be merged with their callers.
#define GUARDED extern "C" __attribute__((noinline, visibility("default"))) void

GUARDED guarded_camera_register(const Handles& handles);
GUARDED guarded_virtual_register(const Handles& handles);
GUARDED guarded_buffer_query(const Handles& handles);
GUARDED guarded_failing_call(const Handles& handles);
GUARDED guarded_image(const Handles& handles);

GUARDED guarded_camera_register(const Handles& handles)
{
    uint32_t value = 0;
    size_t size = sizeof(value);
    Need(handles.gentl.GCReadPort(handles.camera, camera_features::kWidth, &value, &size),
         "GCReadPort");
}

GUARDED guarded_virtual_register(const Handles& handles)
{
    uint32_t value = 0;
    size_t size = sizeof(value);
    Need(handles.gentl.GCReadPort(handles.stream, kVirtualRegister, &value, &size), "GCReadPort");
}

GUARDED guarded_buffer_query(const Handles& handles)
{
    size_t value = 0;
    size_t size = sizeof(value);
    INFO_DATATYPE type = 0;
    Need(handles.gentl.DSGetBufferInfo(handles.stream, handles.buffer, BUFFER_INFO_SIZE, &type,
                                       &value, &size),
         "DSGetBufferInfo");
}

GUARDED guarded_failing_call(const Handles& handles)
{
    uint32_t value = 0;
    size_t size = sizeof(value);
    if (handles.gentl.GCReadPort(handles.stream, kNoRegister, &value, &size) !=
        GC_ERR_NOT_IMPLEMENTED) {
        std::_Exit(1);
    }
}

// The consumer's part of an image; the library's threads are counted by their own functions.
GUARDED guarded_image(const Handles& handles)
{
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    Need(handles.gentl.EventGetData(handles.event, &data, &size, kImageTimeout), "EventGetData");
    Need(handles.gentl.DSQueueBuffer(handles.stream, data.BufferHandle), "DSQueueBuffer");
}

static void Work(const char* file)
{
    const vusb::Camera device("width=64,height=48,pattern=still");
    const consumer::Producer producer(file);
    const consumer::Session session(producer, {.cameras = 1});
    const consumer::Camera camera(session, session.CameraIds().at(0));
    const consumer::DataStream stream(camera);
    consumer::Acquisition images(stream, device.PayloadSize(), kBuffers,
                                 consumer::BufferMemory::OfProducer);
    const Handles handles{producer, camera.Port(), stream.Handle(), images.Buffers()[1],
                          images.NewBufferEvent()};
    for (int i = 0; i < kTimes; ++i) {
        guarded_camera_register(handles);
        guarded_virtual_register(handles);
        guarded_buffer_query(handles);
        guarded_failing_call(handles);
    }
    camera.Write<uint32_t>(camera_features::kTriggerMode, 1);
    images.Start();
    for (int i = 0; i < kTimes; ++i) {
        device.Poke<uint32_t>(camera_features::kTriggerSoftware, 1);
        guarded_image(handles);
    }
    // For the stop, which waits for the transfer in flight.
    camera.Write<uint32_t>(camera_features::kTriggerMode, 0);
}

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: %s <cti>\n", arguments[0]);
        return 2;
    }
    if (std::freopen("/dev/null", "w", stdout) == nullptr) { // the library's own texts
        return 2;
    }
    vusb_reset();
    vusb_journal_limit(16);
    try {
        Work(arguments[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
