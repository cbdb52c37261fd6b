#pragma once

// A consumer that can be brought into any state of its life, with threads inside the library where
// the state has some, and that then demands what every call may answer after something happened.
// It makes its calls itself, on purpose: the project's consumer keeps to the rules that are broken
// here.

#include "producer_fixture.h"

#include <atomic>
#include <chrono>
#include <thread>

enum class State
{
    LibraryClosed,
    SystemOpen,
    InterfaceOpen,
    Discovering,
    DeviceOpen,
    StreamOpen,
    BuffersAnnounced,
    Acquiring,
    Delivering,
    Stopping
};

// What a consumer has open, from the outside to the inside.
enum class Level
{
    Library,
    System,
    Interface,
    Device,
    Stream,
    Nothing
};

Level LevelOf(State state);

class TortureConsumer
{
public:
    explicit TortureConsumer(const vusb::Camera& camera) : m_camera(camera) {}
    ~TortureConsumer();
    TortureConsumer(const TortureConsumer&) = delete;
    TortureConsumer& operator=(const TortureConsumer&) = delete;

    void Reach(State state);

    // Closes what is open at this level and notes that everything at it and below is gone.
    GC_ERROR Close(Level level);
    GC_ERROR OpenSecond(State state);
    GC_ERROR UnregisterEvent();
    // What the status of a call at this level has to be, given what has been closed.
    GC_ERROR Expected(Level level, GC_ERROR otherwise = GC_ERR_SUCCESS) const;

    // One call of each kind on every handle there is or ever was; `port` is what the camera's
    // memory answers.
    void UseEverything(const std::vector<GC_ERROR>& port) const;
    // Ends the threads and closes everything in the usual order, each call with its status.
    void TearDown();

    EVENT_HANDLE Event() const { return m_event; }
    // The status with which the waiter left; joins it.
    GC_ERROR WaiterStatus();
    bool HasWaiter() const { return m_waiter.has_value(); }
    void StopWaiting() { m_quit = true; }

private:
    void _openSystem();
    void _openInterface();
    void _openDevice();
    void _openStream();
    void _announce();
    void _start();
    void _registerEvent(EVENTSRC_HANDLE source, EVENT_TYPE type);
    void _wait();
    void _expectStream(GC_ERROR status, const char* call, GC_ERROR closedStream = GC_ERR_SUCCESS);

    const vusb::Camera& m_camera;
    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_interface = nullptr;
    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_port = nullptr;
    DS_HANDLE m_stream = nullptr;
    EVENT_HANDLE m_event = nullptr;
    EVENTSRC_HANDLE m_eventSource = nullptr;
    EVENT_TYPE m_eventType = 0;
    bool m_registered = false;
    bool m_streamClosed = false; // by DSClose; its handle lives on
    Level m_closed = Level::Library;
    std::vector<std::vector<uint8_t>> m_memory;
    std::vector<BUFFER_HANDLE> m_buffers;
    std::atomic<bool> m_quit = false;
    std::atomic<GC_ERROR> m_waiterStatus = GC_ERR_SUCCESS;
    std::optional<zr_test::WatchedThread> m_waiter;  // in EventGetData, or taking images
    std::optional<zr_test::WatchedThread> m_working; // in IFUpdateDeviceList or DSStopAcquisition
};
