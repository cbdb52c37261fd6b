#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "buffer.h"
#include "camera.h"
#include "module.h"
#include "stream_receiver.h"
#include "zr_sync.h"
#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

// A data stream: the announced buffers, their way from the input pool through the receiver to the
// consumer, and the counts of it.
//
// Locks, outer before inner: m_control (one start or stop at a time), the receiver's own, m_mutex.
// The receiver calls the sink with its lock held, so it is never called with m_mutex held.
class DataStream final : public RegisterModule, private u3v_host::ImageSink
{
public:
    enum class Mode : uint8_t
    {
        OldestFirst,          // without a queued buffer the camera waits: no image is dropped here
        OldestFirstOverwrite, // then the oldest image that nobody has taken makes room
        NewestOnly,           // an image makes all go that came before and that nobody has taken
    };

    struct Counts
    {
        size_t announced;
        size_t queued; // and not yet filled
        size_t awaiting;
        uint64_t delivered;
        uint64_t lost;
        uint64_t incomplete;
        bool isGrabbing;
    };

    static constexpr uint32_t kLeastBuffers = 1;

    static std::string IdOf(uint32_t index) { return "Stream" + std::to_string(index); }

    DataStream(Node& device, u3v_host::Camera& camera);

    // Ends the acquisition at once, and revokes all buffers.
    void CloseBelow() override ZR_EXCLUDES(m_mutex);

    // All throw Failure, those that need the camera u3v_host::Error as well.

    void* Announce(void* memory, size_t size, void* userPointer);
    void* AllocateAndAnnounce(size_t size, void* userPointer);
    // Tells what was announced, where it is wanted: NULL for memory of the producer's own.
    void Revoke(void* handle, void** memory, void** userPointer) ZR_EXCLUDES(m_mutex);
    void* BufferAt(uint32_t index) const ZR_EXCLUDES(m_mutex);
    // A buffer of this stream.
    Pin<Buffer> FindBuffer(void* handle);
    void Queue(Buffer& buffer) ZR_EXCLUDES(m_mutex);
    void Flush(ACQ_QUEUE_TYPE operation) ZR_EXCLUDES(m_mutex);

    void Start(uint64_t images) ZR_EXCLUDES(m_control, m_mutex);
    void Stop(bool kill) ZR_EXCLUDES(m_control, m_mutex);

    // Ends the acquisition; filled buffers stay. On the thread that serves the bus.
    void CameraHasLeft() { m_receiver->CameraHasLeft(); }

    GC_ERROR Info(int32_t command, const InfoOut& out);
    GC_ERROR InfoOf(const Buffer& buffer, int32_t command, const InfoOut& out) const;
    void InfosOf(const Buffer& buffer, std::span<DS_BUFFER_INFO_STACKED> infos) const;
    // `count` [in, out]; with NULL `chunks` it is only told.
    GC_ERROR Chunks(const Buffer& buffer, SINGLE_CHUNK_DATA* chunks, size_t& count) const;

    PortFacts Port() override;

    Counts Count() const ZR_EXCLUDES(m_mutex);
    u3v_host::StreamStatistics Statistics() const { return m_receiver->Statistics(); }
    uint64_t PayloadSize() const { return m_camera.PayloadSize(); }

private:
    class NewBufferEvent;

    // ---- the sink, called by the receiver
    bool Take(u3v_host::Target& target) override ZR_EXCLUDES(m_mutex);
    bool Deliver(const u3v_host::Target& target, const u3v_host::Image& image) override
        ZR_EXCLUDES(m_mutex);
    void GiveBack(const u3v_host::Target& target) override ZR_EXCLUDES(m_mutex);
    void Lost(uint64_t images) override ZR_EXCLUDES(m_mutex);
    void Failed(const u3v_host::Error& error) override;
    void Ended() override ZR_EXCLUDES(m_mutex);

    std::unique_ptr<Event> _makeEvent(EVENT_TYPE type) override;
    void _switchEvent(EVENT_TYPE type, Event& event, bool on) override ZR_EXCLUDES(m_mutex);
    std::vector<Feature> _features();
    std::vector<Feature> _handling();
    std::vector<Feature> _counts();
    std::vector<Feature> _diagnostics();
    Value _mode() const ZR_EXCLUDES(m_mutex);
    void _setMode(uint64_t mode) ZR_EXCLUDES(m_mutex);

    void* _announce(std::unique_ptr<Buffer> buffer) ZR_EXCLUDES(m_mutex);
    std::unique_ptr<Buffer> _takeOut(void* handle) ZR_EXCLUDES(m_mutex);
    BufferState _stateOf(const Buffer& buffer) const ZR_EXCLUDES(m_mutex);
    void _begin(uint64_t images) ZR_EXCLUDES(m_mutex);

    Buffer* _nextTarget() ZR_REQUIRES(m_mutex);
    bool _deliver(Buffer& buffer, const u3v_host::Image& image) ZR_REQUIRES(m_mutex);
    bool _toOutput(Buffer& buffer) ZR_REQUIRES(m_mutex);
    void _toInput(Buffer& buffer) ZR_REQUIRES(m_mutex);
    void _toConsumer(Buffer& buffer) ZR_REQUIRES(m_mutex);
    void _handOver() ZR_REQUIRES(m_mutex);
    void _discardOutput() ZR_REQUIRES(m_mutex);
    void _queueUnqueued() ZR_REQUIRES(m_mutex);
    bool _flush(ACQ_QUEUE_TYPE operation) ZR_REQUIRES(m_mutex);

    u3v_host::Camera& m_camera; // of the device, which outlives this
    const std::unique_ptr<u3v_host::Wakeup> m_wakeup;

    Mutex m_control;
    mutable Mutex m_mutex;
    std::vector<std::unique_ptr<Buffer>> m_buffers ZR_GUARDED_BY(m_mutex); // as announced
    BufferQueue m_input ZR_GUARDED_BY(m_mutex);
    BufferQueue m_output ZR_GUARDED_BY(m_mutex);
    size_t m_receiving ZR_GUARDED_BY(m_mutex) = 0; // targets that the receiver has
    size_t m_spare ZR_GUARDED_BY(m_mutex) = 0;     // of these, without a buffer
    uint64_t m_turn ZR_GUARDED_BY(m_mutex) = 0;
    Mode m_mode ZR_GUARDED_BY(m_mutex) = Mode::OldestFirst;
    bool m_isStarved ZR_GUARDED_BY(m_mutex) = false; // the receiver waits for a target
    bool m_isGrabbing ZR_GUARDED_BY(m_mutex) = false;
    uint64_t m_wanted ZR_GUARDED_BY(m_mutex) = 0; // images still to come; GENTL_INFINITE: all
    uint64_t m_delivered ZR_GUARDED_BY(m_mutex) = 0;
    uint64_t m_lost ZR_GUARDED_BY(m_mutex) = 0;
    uint64_t m_incomplete ZR_GUARDED_BY(m_mutex) = 0;
    NewBufferEvent* m_event ZR_GUARDED_BY(m_mutex) = nullptr;

    // Last, so that it goes first: it uses the rest.
    std::unique_ptr<u3v_host::StreamReceiver> m_receiver;
};

} // namespace standard_tl
