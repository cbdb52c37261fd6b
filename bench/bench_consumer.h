#pragma once

#include <set>
#include <string>
#include <sys/types.h>

#include "acquisition.h"

// The project's consumer, as far as the measurements need more of it.
namespace bench {

// The producer's file; set once, before anything is measured.
extern std::string g_producer;

// The initialised producer with its System and Interface open and so many cameras found.
class Library
{
public:
    // An update of the list may take `update_ms`; a pass over the virtual bus needs no more.
    explicit Library(size_t cameras, uint64_t update_ms = 50);

    const consumer::Producer& Gentl() const { return m_producer; }
    const consumer::Session& Session() const { return m_session; }
    // The discovery worker, which polls as long as the interface is open.
    pid_t Worker() const { return m_worker; }

private:
    const std::set<pid_t> m_threadsBefore;
    const consumer::Producer m_producer;
    const consumer::Session m_session;
    pid_t m_worker = 0;
};

// An opened camera of the list with its stream.
class OpenCamera : public consumer::Camera
{
public:
    explicit OpenCamera(const consumer::Session& session, size_t index = 0);
    explicit OpenCamera(const Library& library, size_t index = 0)
        : OpenCamera(library.Session(), index)
    {
    }

    const consumer::DataStream& Stream() const { return m_stream; }
    size_t Payload() const;
    // From now on the camera sends one image for each trigger, so that none is sent in vain. With
    // the stream at rest.
    void WaitForTriggers(bool wait) const;

private:
    const consumer::DataStream m_stream;
};

// Announced and queued buffers. The standard producer needs the camera's switch.
class Images : public consumer::Acquisition
{
public:
    Images(const OpenCamera& camera, size_t buffers,
           consumer::BufferMemory memory = consumer::BufferMemory::OfConsumer,
           consumer::CameraSwitch camera_switch = {})
        : Acquisition(camera.Stream(), camera.Payload(), buffers, memory, std::move(camera_switch))
    {
    }

    // The next image; throws when none comes for long.
    BUFFER_HANDLE Next() const;
    // Waits for an image and queues its buffer again.
    void Turn() const { Queue(Next()); }
};

} // namespace bench
