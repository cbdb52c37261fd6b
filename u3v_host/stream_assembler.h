#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "stream_plan.h"
#include "stream_receiver.h"
#include "target_ring.h"

namespace u3v_host {

// Where in the camera's sequence of transfers the next byte belongs.
struct StreamPosition
{
    enum class Phase : uint8_t
    {
        Seek,        // out of step: a leader has to be found
        Leader,      // a leader comes next
        LeaderRest,  // padding of a leader longer than a packet
        Payload,     // payload, and behind its end the trailer
        TrailerRest, // padding of a trailer longer than a packet
    };

    Phase phase = Phase::Leader;
    uint64_t offset = 0; // of the payload
    uint64_t rest = 0;   // bytes of padding still to come
    bool ended = false;  // a payload transfer was cut short: no data follow in this image

    bool operator==(const StreamPosition&) const = default;
};

// A transfer to be submitted for a position.
struct StreamPlace
{
    StreamPosition::Phase phase; // what should arrive; Payload with `trailer`: the trailer
    bool trailer;
    uint64_t offset;   // payload offset
    uint64_t expected; // bytes that should arrive at most
};

// Puts together what arrives on the stream: tells packets apart by their place in the camera's
// sequence, verified by magic, block id and length, and finds back into step when something is
// missing. No I/O and no thread of its own; calls the sink.
//
// Two ways in. Accept takes a whole transfer that arrived where it was planned: nothing is looked
// at but its length, and nothing copied that lies in the image's memory already. Feed takes packets
// one by one, whatever they are; it is slower and makes the best of any sequence.
class StreamAssembler
{
public:
    StreamAssembler(const StreamPlan& plan, size_t packetSize, ImageSink& sink);

    // ---- planning

    const StreamPosition& Position() const { return m_position; }
    StreamPlace PlaceAt(const StreamPosition& position) const;
    // The position behind a transfer that went as planned.
    StreamPosition Behind(const StreamPlace& place) const;

    // Takes a target for the next image from the sink, unless one is set aside already beyond the
    // `ahead` images in front of it. False when there is none.
    bool Reserve(size_t ahead);
    size_t Reserved() const { return m_reserved.Size(); }
    // The target of the image that is `ahead` images behind the one under way.
    const Target& TargetAhead(size_t ahead) const;
    bool IsImageOpen() const { return m_open; }

    // ---- what has arrived

    // `data` is all that arrived in a transfer submitted for `place`. False when that is not what
    // the plan says: nothing has happened then, and the bytes have to go through Feed.
    bool Accept(const StreamPlace& place, std::span<const uint8_t> data);
    // One packet of the bus, empty for one of zero length. False when it is a leader and there is
    // no target for its image: nothing has happened, and it has to be fed again.
    bool Feed(std::span<const uint8_t> packet);
    // A transfer failed: nobody knows what is missing. The open image ends incomplete.
    void Interrupt();
    // Gives all targets back, that of an open image first.
    void Abandon();

    // ---- what came of it

    // False once the sink wants no further image.
    bool IsWanted() const { return m_wanted; }
    // True when a payload transfer was cut short although more were planned, and the camera is not
    // known to send those with zero length.
    bool LeavesOutTransfers() const;
    uint64_t Started() const { return m_started; }

private:
    bool _acceptPayload(const StreamPlace& place, std::span<const uint8_t> data);
    bool _feedPayload(std::span<const uint8_t> packet);
    bool _feedBetween(std::span<const uint8_t> packet);
    void _skip(std::span<const uint8_t> packet, StreamPosition::Phase next);
    void _skipEmpty();
    bool _begin(std::span<const uint8_t> leader);
    void _store(uint64_t offset, std::span<const uint8_t> data);
    void _append(std::span<const uint8_t> data);
    void _finish(std::span<const uint8_t> trailer);
    void _close();
    void _strayTrailer(std::span<const uint8_t> trailer);
    void _countGap(uint64_t blockId);
    bool _isLeader(std::span<const uint8_t> data) const;
    bool _isTrailer(std::span<const uint8_t> data) const;
    bool _isOwnTrailer(std::span<const uint8_t> data) const;
    bool _holdsBorder(std::span<const uint8_t> data) const;

    const StreamPlan m_plan;
    const size_t m_packet;
    ImageSink& m_sink;

    StreamPosition m_position;
    TargetRing m_reserved; // of images whose leader has not come
    Target m_target = {};  // of the open image
    Image m_image = {};
    bool m_open = false;
    uint64_t m_contiguous = 0; // payload bytes without a gap
    bool m_gap = false;        // data came behind the end

    bool m_sendsEmpty = false; // the camera sends transfers that it does not need with zero length
    bool m_wanted = true;
    bool m_anyId = false; // m_lastId is one
    uint64_t m_lastId = 0;
    uint64_t m_started = 0;
};

} // namespace u3v_host
