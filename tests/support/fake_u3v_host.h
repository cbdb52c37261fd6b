#pragma once

// A stand-in for the camera side of the standard producer, behind the headers that u3v_host/
// offers: cameras that a test plugs, with registers in memory, and images that the test sends. No
// USB, no thread of its own: what a real camera does by itself, the test does by a call.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "camera.h"
#include "camera_list.h"
#include "stream_receiver.h"

namespace fake_host {

class Receiver;

// What the next calls of a kind throw; empty: they succeed.
using Failure = std::optional<u3v_host::Error>;

// A camera as the test has made it. Members may be changed while it is open, by one thread.
struct Camera
{
    u3v_host::CameraInfo info;
    u3v_host::AccessStatus access = u3v_host::AccessStatus::ReadWrite;
    std::vector<uint8_t> memory = std::vector<uint8_t>(0x10000); // from address 0 on
    std::vector<u3v_host::DescriptionFile> files;
    uint64_t payloadSize = 64;
    uint32_t streams = 1;
    uint64_t speed = 625000000;
    bool hasEvents = true;
    size_t depth = 2; // targets that the receiver takes ahead
    uint64_t deviceMemory = 0;

    Failure openFailure;
    Failure accessFailure; // of reads and writes, after `bytesBeforeFailure`
    size_t bytesBeforeFailure = 0;
    Failure startFailure;
    Failure eventsFailure;
    bool noMemory = false;

    // ---- while it is open; set by the stand-in
    std::optional<u3v_host::OpenMode> mode;
    bool isGone = false;
    std::function<void(const u3v_host::CameraEvent&)> eventListener;
    std::function<void()> goneListener;
    Receiver* receiver = nullptr;

    // ---- what the camera does
    void Leave();
    void SendEvent(uint16_t id, const std::vector<uint8_t>& data);
};

// The receiver of a camera's stream. Images come when the test sends them.
class Receiver final : public u3v_host::StreamReceiver
{
public:
    Receiver(Camera& camera, u3v_host::ImageSink& sink);
    ~Receiver() override;

    void Start() override;
    void Stop(bool kill) override;
    bool IsRunning() const override;
    void TargetsAvailable() override;
    void CameraHasLeft() override;
    u3v_host::StreamStatistics Statistics() const override;

    // An image with these bytes comes. False when there was no memory for it: the camera waits.
    bool Send(const std::vector<uint8_t>& bytes, u3v_host::Image image = SomeImage());
    // So many images are lost.
    void Lose(uint64_t images);
    // The system refuses every transfer.
    void Fail(const u3v_host::Error& error);
    // A complete Mono8 image of 8x4; `filled` and `dataSize` are Send's.
    static u3v_host::Image SomeImage();

    size_t Held() const;
    unsigned starts = 0;
    unsigned kills = 0;
    unsigned stops = 0;
    unsigned wakes = 0; // calls of TargetsAvailable

private:
    void _fill();
    void _giveAllBack();

    Camera& m_camera;
    u3v_host::ImageSink& m_sink;
    mutable std::mutex m_mutex;
    std::deque<u3v_host::Target> m_targets;
    uint64_t m_started = 0;
    bool m_running = false;
};

// The bus with its cameras.
class Bus
{
public:
    // A camera with that id, unknown until somebody looks.
    Camera& Plug(const std::string& id);
    void Unplug(const std::string& id);
    // What libusb tells at once.
    void TellChange();

    // Looks at the bus so far. With `isSlow` a look takes until LetGo.
    unsigned looks = 0;
    void Hold();
    void LetGo();
    Failure initFailure;

    // ---- the stand-in's side
    std::vector<std::shared_ptr<Camera>> cameras;
    std::function<void()> listener;
    std::mutex mutex;
    std::condition_variable released;
    bool isHeld = false;
};

// The bus of the running test; a fixture makes a fresh one.
Bus& TheBus();
void ResetBus();

} // namespace fake_host
