#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <libusb.h>
#include <memory>
#include <span>

namespace u3v_host {

class ImageSink;
class StreamReceiver;
class Wakeup;

// What a stream receiver needs of the opened camera that it belongs to. Outlives the receiver.
class StreamLink
{
public:
    virtual ~StreamLink() = default;

    // The open device; a transfer that the system never gives back keeps it open.
    virtual std::shared_ptr<libusb_device_handle> Handle() = 0;
    virtual uint8_t Endpoint() = 0;
    virtual size_t PacketSize() = 0; // wMaxPacketSize of the endpoint
    virtual uint64_t SirmAddress() = 0;

    // Exchanges on the control channel; throw Error.
    virtual void ReadRegisters(uint64_t address, std::span<uint8_t> bytes) = 0;
    virtual void WriteRegisters(uint64_t address, std::span<const uint8_t> bytes) = 0;

    // Runs `job` on the library's thread after the delay, outside every libusb callback, so that it
    // may wait for the camera. Never throws; a job that is still waiting when the camera closes is
    // dropped.
    virtual void Defer(std::chrono::milliseconds delay, std::function<void()> job) = 0;

    // For waits for this stream's transfers.
    virtual std::unique_ptr<Wakeup> MakeWakeup() = 0;

    // A transfer has found that the camera is gone. May be called within a libusb callback.
    virtual void HasLeft() = 0;
};

// Implemented with the receiver; Camera::OpenStream calls it.
std::unique_ptr<StreamReceiver> MakeStreamReceiver(StreamLink& link, ImageSink& sink);

} // namespace u3v_host
