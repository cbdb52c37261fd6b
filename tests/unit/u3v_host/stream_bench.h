#pragma once

#include <cstdint>
#include <deque>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "stream_bus.h"
#include "stream_link.h"
#include "stream_plan.h"
#include "stream_receiver.h"
#include "stream_session.h"

// A stream session with a camera on a bus that the test moves by hand.
namespace stream_bench {

using u3v_host::Image;
using u3v_host::StreamPlan;
using u3v_host::Target;

// How a camera sends what the standard leaves open.
struct CameraStyle
{
    uint8_t alignmentExponent = 3;
    uint32_t leader = 52; // sizes that it asks for
    uint32_t trailer = 32;
    uint64_t payload = 10000;
    bool padsBorders = false; // leader and trailer in the size that is planned
    bool padsPayload = false; // the last transfer in the size that is planned
    bool sendsEmpty = false;  // transfers that are not needed, with zero length
    size_t hostPacket = stream_bus::Endpoint::kPacketSize; // what its descriptor tells
};

// One image, and what happens to it on the way.
struct Shot
{
    uint64_t id = 0;
    std::optional<uint64_t> valid = {}; // bytes of a shorter image
    uint16_t status = 0;
    bool noLeader = false;
    bool noTrailer = false;
    std::optional<size_t> missingPiece = {};  // a whole payload transfer
    std::optional<size_t> missingPacket = {}; // one packet of the payload
    std::optional<size_t> stallBeforePiece = {};
};

uint8_t ByteAt(uint64_t id, uint64_t offset);

class ScriptedCamera
{
public:
    ScriptedCamera(const CameraStyle& style, const StreamPlan& plan, stream_bus::Endpoint& endpoint)
        : m_style(style), m_plan(plan), m_endpoint(endpoint)
    {
    }
    void Send(const Shot& shot);

private:
    std::vector<std::vector<uint8_t>> _pieces(const Shot& shot) const;
    void _sendBorder(std::vector<uint8_t> bytes, uint32_t planned);

    const CameraStyle m_style;
    const StreamPlan m_plan;
    stream_bus::Endpoint& m_endpoint;
};

struct Delivered
{
    Image image;
    std::vector<uint8_t> bytes;  // as many as were filled
    std::vector<uint8_t> behind; // the rest of the target
};

// Targets of one size each, given out in turn.
class Sink final : public u3v_host::ImageSink
{
public:
    Sink(size_t targets, size_t size);

    bool Take(Target& target) override;
    bool Deliver(const Target& target, const Image& image) override;
    void GiveBack(const Target& target) override;
    void Lost(uint64_t count) override { lost += count; }
    void Failed(const u3v_host::Error& error) override { failures.push_back(error.what()); }
    void Ended() override { ++ended; }

    // Buffers that the test has kept go back into the pool.
    void Requeue();

    bool keeps = false;    // delivered buffers stay with the test
    bool discards = false; // without a buffer the image is not wanted
    size_t limit = SIZE_MAX;
    std::vector<Delivered> images;
    std::vector<void*> givenBack;
    std::vector<std::string> failures;
    uint64_t lost = 0;
    size_t ended = 0;
    size_t Free() const { return m_free.size(); }
    // Whether the byte lies in the memory of one of the targets.
    bool Holds(const uint8_t* byte) const;

private:
    struct Buffer
    {
        std::vector<uint8_t> memory; // with a guard behind
        size_t size;
        bool out = false;
    };
    Buffer& _buffer(const Target& target);

    std::vector<std::unique_ptr<Buffer>> m_buffers;
    std::deque<Buffer*> m_free;
    std::vector<Buffer*> m_kept;
};

class Link final : public u3v_host::StreamLink
{
public:
    explicit Link(size_t packetSize) : m_packetSize(packetSize) {}

    std::shared_ptr<libusb_device_handle> Handle() override { return nullptr; }
    uint8_t Endpoint() override { return 0x83; }
    size_t PacketSize() override { return m_packetSize; }
    uint64_t SirmAddress() override { return 0; }
    void ReadRegisters(uint64_t /*address*/, std::span<uint8_t> /*bytes*/) override {}
    void WriteRegisters(uint64_t /*address*/, std::span<const uint8_t> /*bytes*/) override {}
    void Defer(std::chrono::milliseconds delay, std::function<void()> job) override
    {
        delays.push_back(delay);
        m_jobs.push_back(std::move(job));
    }
    std::unique_ptr<u3v_host::Wakeup> MakeWakeup() override
    {
        return std::make_unique<u3v_host::PlainWakeup>();
    }
    void HasLeft() override { ++left; }

    bool RunJob();

    std::vector<std::chrono::milliseconds> delays;
    size_t left = 0;

private:
    const size_t m_packetSize;
    std::deque<std::function<void()>> m_jobs;
};

// Everything together.
class Bench
{
public:
    static constexpr uint32_t kTransferSize = 4096;

    explicit Bench(const CameraStyle& style = {}, size_t targets = 4,
                   std::optional<size_t> targetSize = {});
    ~Bench();
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    // Moves packets and runs deferred work until nothing moves any more.
    void Run();
    void Send(uint64_t first, uint64_t count);
    // Ends the session while the bus moves by itself.
    bool End(bool kill);

    // The delivered image of a block id, or a failure of the test.
    const Delivered* Find(uint64_t id) const;
    // Whether the image came complete, with every byte right.
    testing::AssertionResult IsWhole(uint64_t id, std::optional<uint64_t> valid = {}) const;
    testing::AssertionResult IsIncomplete(uint64_t id) const;

    const CameraStyle style;
    const StreamPlan plan;
    stream_bus::Endpoint endpoint;
    Link link;
    Sink sink;
    ScriptedCamera camera;
    std::shared_ptr<u3v_host::StreamSession> session;
};

} // namespace stream_bench
