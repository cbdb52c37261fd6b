#pragma once

#include <cstdint>

// How one image is cut into transfers: what the streaming interface is programmed with and what the
// receiver then expects. Computed once per acquisition from sizes that the camera names, so every
// value is possible and none may overflow.
struct U3V_StreamPlan
{
    uint64_t payload;        // P, bytes of one image
    uint32_t transferSize;   // bytes of one payload transfer
    uint32_t transferCount;  // payload transfers of exactly that size
    uint32_t finalTransfer1; // what is left, cut to the alignment
    uint32_t finalTransfer2; // one alignment unit for the rest, or 0
    uint32_t leader;
    uint32_t trailer;

    // Length of the payload read that begins at `received`, never beyond the image.
    uint64_t NextPayload(uint64_t received) const;
};

// `alignmentExponent` is the power of two that sizes are aligned to; above 30 it is taken as 30,
// which still fits a transfer length. A transfer size of 0 plans no payload transfers.
U3V_StreamPlan U3V_PlanStream(uint64_t payload, uint32_t requiredLeader, uint32_t requiredTrailer,
                              uint32_t transferSize, uint8_t alignmentExponent);

enum class U3V_PacketKind
{
    Leader,
    Payload, // a full payload transfer
    Final1,
    Trailer,
    Other,
};

// What a completed transfer was, told by its length alone and in this order; sizes that coincide
// are decided by it.
U3V_PacketKind U3V_KindOfPacket(const U3V_StreamPlan& plan, uint32_t length);
