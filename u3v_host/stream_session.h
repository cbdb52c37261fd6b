#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <libusb.h>
#include <memory>
#include <span>
#include <vector>

#include "stream_assembler.h"
#include "stream_link.h"
#include "stream_plan.h"
#include "stream_receiver.h"
#include "usb_block.h"
#include "wakeup.h"
#include "zr_sync.h"

namespace u3v_host {

// How much is submitted ahead of the image under way.
struct StreamDepth
{
    size_t images;    // two at least
    size_t bytes;     // beyond so many no third image is begun
    size_t transfers; // at most
};

// One acquisition: from the first transfer that is submitted to the last that is reaped.
//
// Transfers are submitted ahead in the order of the plan and looked at in the same order when they
// complete. As long as each holds what was planned, nothing is copied but a leader, a trailer and
// the last few bytes. When one does not, all that are in flight are cancelled; what they have
// received is set aside, put together packet by packet, and the plan goes on from there.
//
// Completions arrive on the thread that serves libusb's events. The sink is called with m_mutex
// held.
class StreamSession : public std::enable_shared_from_this<StreamSession>
{
public:
    StreamSession(StreamLink& link, ImageSink& sink, const StreamPlan& plan,
                  const StreamDepth& depth);
    // No transfer is in flight.
    ~StreamSession() = default;
    StreamSession(const StreamSession&) = delete;
    StreamSession& operator=(const StreamSession&) = delete;

    // Submits the first transfers. Throws Error when the system refuses even one.
    void Begin() ZR_EXCLUDES(m_mutex);
    // Ends: `kill` at once, else when the image under way is whole, at most after 500 ms. Returns
    // when every transfer has been reaped. The sink has all its targets back then. False when the
    // system has kept a transfer: the session has to outlive it.
    bool End(bool kill) ZR_EXCLUDES(m_mutex);
    void TargetsAvailable() ZR_EXCLUDES(m_mutex);
    // Ends by itself now when no transfer is under way, else when the last one has ended.
    void CameraHasLeft() ZR_EXCLUDES(m_mutex);
    bool IsRunning() const ZR_EXCLUDES(m_mutex);
    StreamStatistics Statistics() const ZR_EXCLUDES(m_mutex);

private:
    enum class State : uint8_t
    {
        Running,
        Recovering, // a transfer has failed: the endpoint is set right first
        Ending,     // no further image is begun
        Reaping,    // nor any transfer
        Ended,
    };

    using TransferPtr = std::unique_ptr<libusb_transfer, void (*)(libusb_transfer*)>;

    // A transfer with the place in the plan that it was submitted for.
    struct Slot
    {
        StreamSession* session;
        TransferPtr transfer;
        uint8_t* small;             // m_smallSize bytes of m_smallBlocks
        std::vector<uint8_t> large; // for what is neither small nor received in place
        StreamPlace place;
        size_t length;
        bool pending;
    };

    // What one transfer had received when it was out of place.
    struct Piece
    {
        size_t size;
        bool isEmptyTransfer;
        bool isFailed;
    };

    static void LIBUSB_CALL _onCompletion(libusb_transfer* transfer);
    void _makeSlots() ZR_REQUIRES(m_mutex);
    void _completed(Slot& slot) ZR_EXCLUDES(m_mutex);
    void _advance() ZR_REQUIRES(m_mutex);
    bool _takeFront() ZR_REQUIRES(m_mutex);

    void _submitAhead() ZR_REQUIRES(m_mutex);
    bool _mayFollow(const StreamPlace& place) ZR_REQUIRES(m_mutex);
    bool _mayBeginImage() ZR_REQUIRES(m_mutex);
    int _submit(const StreamPlace& place) ZR_REQUIRES(m_mutex);
    uint8_t* _memoryFor(Slot& slot) ZR_REQUIRES(m_mutex);
    void _refused(int result) ZR_REQUIRES(m_mutex);

    void _drain() ZR_REQUIRES(m_mutex);
    void _settle() ZR_REQUIRES(m_mutex);
    void _setAside() ZR_REQUIRES(m_mutex);
    void _setAsideSlot(const Slot& slot) ZR_REQUIRES(m_mutex);
    void _replay() ZR_REQUIRES(m_mutex);
    bool _replayPiece() ZR_REQUIRES(m_mutex);
    bool _isOn() const ZR_REQUIRES(m_mutex)
    {
        return m_state == State::Running || m_state == State::Recovering;
    }
    bool _isReplaying() const ZR_REQUIRES(m_mutex) { return !m_pieces.empty(); }
    void _recover() ZR_REQUIRES(m_mutex);
    void _recovered() ZR_EXCLUDES(m_mutex);
    void _endByItself() ZR_REQUIRES(m_mutex);
    void _waitUntilWhole() ZR_REQUIRES(m_mutex);
    bool _waitUntilReaped() ZR_REQUIRES(m_mutex);

    Slot& _slot(size_t index) ZR_REQUIRES(m_mutex)
    {
        return m_slots[(m_first + index) % m_slots.size()];
    }
    void _popFront() ZR_REQUIRES(m_mutex);

    StreamLink& m_link;
    ImageSink& m_sink;
    const std::shared_ptr<libusb_device_handle> m_handle;
    const StreamPlan m_plan;
    const StreamDepth m_depth;
    const std::unique_ptr<Wakeup> m_wakeup; // for End
    const size_t m_packet;
    const size_t m_smallSize;

    mutable Mutex m_mutex;
    StreamAssembler m_assembler ZR_GUARDED_BY(m_mutex);
    UsbBlock m_smallBlocks ZR_GUARDED_BY(m_mutex);
    std::vector<Slot> m_slots ZR_GUARDED_BY(m_mutex); // a ring, in the order of submission
    size_t m_first ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_used ZR_GUARDED_BY(m_mutex) = 0; // submitted and not yet taken
    size_t m_pending ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_pendingBytes ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_leadersAhead ZR_GUARDED_BY(m_mutex) = 0; // among the used
    StreamPosition m_next ZR_GUARDED_BY(m_mutex);     // of the next transfer to submit

    State m_state ZR_GUARDED_BY(m_mutex) = State::Running;
    bool m_draining ZR_GUARDED_BY(m_mutex) = false; // all transfers are cancelled
    bool m_failed ZR_GUARDED_BY(m_mutex) = false;   // one of those that were drained
    bool m_gone ZR_GUARDED_BY(m_mutex) = false;
    std::vector<uint8_t> m_bytes ZR_GUARDED_BY(m_mutex); // set aside, to be fed
    std::vector<Piece> m_pieces ZR_GUARDED_BY(m_mutex);
    size_t m_fedPieces ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_fedOfPiece ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_fedBytes ZR_GUARDED_BY(m_mutex) = 0;

    size_t m_limit ZR_GUARDED_BY(m_mutex);                // of transfers in flight
    unsigned m_cautiousImages ZR_GUARDED_BY(m_mutex) = 0; // to come with none behind them
    std::chrono::milliseconds m_delay ZR_GUARDED_BY(m_mutex){0};
    uint64_t m_resynchronisations ZR_GUARDED_BY(m_mutex) = 0;
    uint64_t m_refusals ZR_GUARDED_BY(m_mutex) = 0;
    bool m_failureTold ZR_GUARDED_BY(m_mutex) = false;
};

} // namespace u3v_host
