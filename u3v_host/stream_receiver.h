#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "error.h"

namespace u3v_host {

// Memory that one image is received into.
struct Target
{
    void* owner;   // whatever the sink knows it by; NULL: nobody wants the image
    uint8_t* data; // NULL with a NULL owner
    size_t size;
};

// What is known of an image when it is delivered: the leader's and the trailer's fields as the
// camera has sent them, and how much of it came.
struct Image
{
    uint64_t blockId;
    uint64_t timestamp; // ns
    uint16_t payloadType;
    uint32_t pixelFormat;
    uint32_t width;
    uint32_t height;
    uint32_t offsetX;
    uint32_t offsetY;
    uint16_t paddingX;

    bool hasTrailer;
    uint16_t status;          // the trailer's
    uint64_t validPayload;    // the trailer's
    uint32_t deliveredHeight; // the trailer's, else the leader's
    uint32_t chunkLayoutId;

    size_t filled;   // bytes in the target up to the first gap that can be seen
    size_t dataSize; // bytes that were meant to come, at most the target's size
    bool complete;
    bool largerThanTarget;
};

// Where a receiver gets memory and puts images. Its functions are called with the receiver's lock
// held, one at a time, on the thread that serves USB events or that called the receiver; they
// return soon and do not call the receiver.
class ImageSink
{
public:
    virtual ~ImageSink() = default;

    // The next memory to receive into. False when there is none: the camera waits until
    // StreamReceiver::TargetsAvailable. Every target that was taken comes back exactly once,
    // through Deliver or GiveBack, one that nobody wants too.
    virtual bool Take(Target& target) = 0;
    // The target belongs to the sink again. False when no further image is wanted: the receiver
    // ends by itself and calls Ended.
    virtual bool Deliver(const Target& target, const Image& image) = 0;
    // A target that was taken and did not get an image, in the order in which they were taken.
    virtual void GiveBack(const Target& target) = 0;
    // So many images were lost: block ids that were skipped, a leader that did not come.
    virtual void Lost(uint64_t images) = 0;
    // The receiver cannot go on by itself (the system refuses every transfer for good). Images may
    // still follow when the cause goes away.
    virtual void Failed(const Error& error) = 0;
    // The receiver has ended by itself (Deliver returned false, or the camera is gone). All targets
    // were delivered or given back.
    virtual void Ended() = 0;
};

struct StreamStatistics
{
    uint64_t transferSize;   // bytes of one payload transfer
    uint64_t imagesInFlight; // images whose transfers are submitted now
    uint64_t transfersInFlight;
    uint64_t resynchronisations;   // since the last start
    uint64_t started;              // leaders seen since the last start
    uint64_t droppedTransferDepth; // times the system refused a transfer and fewer were kept
};

// Receives images of one stream, several transfers in flight, straight into the sink's targets.
// Start, Stop and TargetsAvailable may come from any thread except from within the sink.
class StreamReceiver
{
public:
    // Stops first.
    virtual ~StreamReceiver() = default;

    // Reads the camera's sizes, programs the transfer plan, switches the stream on and submits the
    // first transfers. Throws Error; the camera's stream is off then. InUse when it runs already.
    virtual void Start() = 0;
    // Returns when every transfer has been reaped and the camera's stream is off: `kill` at once,
    // else at most the time of the image under way (500 ms). Success when nothing runs. What was
    // not finished is given back; never calls Ended. Never throws: a gone camera stops too.
    virtual void Stop(bool kill) = 0;
    virtual bool IsRunning() const = 0;

    // The sink has memory again.
    virtual void TargetsAvailable() = 0;

    // The camera has left. Transfers find that by themselves; a receiver that has none under way
    // ends now, and calls Ended. From any thread except from within the sink.
    virtual void CameraHasLeft() = 0;

    virtual StreamStatistics Statistics() const = 0;
};

} // namespace u3v_host
