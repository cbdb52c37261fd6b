#include "buffer.h"

#include "packets.h"
#include "producer_facts.h"

namespace standard_tl {
namespace {

// What BUFFER_INFO commands are answered from.
struct Asked
{
    const Buffer& buffer;
    const BufferState& state;
};

struct PayloadRow
{
    uint16_t sent; // without the bit that announces chunks
    bool isImage;
    PAYLOADTYPE_INFO_ID type;
};

constexpr PayloadRow kPayloads[] = {
    {payload_type::kImage, true, PAYLOAD_TYPE_IMAGE},
    {payload_type::kGenDC, false, PAYLOAD_TYPE_GENDC},
    {0, false, PAYLOAD_TYPE_CHUNK_ONLY},
};

PayloadRow PayloadOf(const BufferState& state)
{
    const auto sent = static_cast<uint16_t>(state.image.payloadType & ~payload_type::kChunks);
    for (const PayloadRow& row : kPayloads) {
        if (row.sent == sent && (sent != 0 || HasChunks(state))) {
            return row;
        }
    }
    return {sent, false, PAYLOAD_TYPE_RAW_DATA};
}

bool HasImage(const Asked& asked)
{
    return asked.state.hasImage && PayloadOf(asked.state).isImage;
}

// A member of the image; nothing without one.
template <auto member>
Value Of(Asked& asked)
{
    return asked.state.hasImage ? Value(uint64_t{asked.state.image.*member}) : Value();
}

// The same, of pictures only, and of those with chunks only.
template <auto member>
Value OfPicture(Asked& asked)
{
    return HasImage(asked) ? Of<member>(asked) : Value();
}

template <auto member>
Value OfChunks(Asked& asked)
{
    return HasChunks(asked.state) ? Of<member>(asked) : Value();
}

// What every picture of these cameras has.
template <int32_t number>
Value ForPicture(Asked& asked)
{
    return HasImage(asked) ? Value(number) : Value();
}

using Image = u3v_host::Image;

constexpr InfoTable<Asked, 32> kInfo{
    "buffer",
    {
        {BUFFER_INFO_BASE, INFO_DATATYPE_PTR,
         [](Asked& a) { return Value(static_cast<const void*>(a.buffer.base)); }},
        {BUFFER_INFO_SIZE, INFO_DATATYPE_SIZET, [](Asked& a) { return Value(a.buffer.capacity); }},
        {BUFFER_INFO_USER_PTR, INFO_DATATYPE_PTR,
         [](Asked& a) { return Value(static_cast<const void*>(a.buffer.user)); }},
        {BUFFER_INFO_TIMESTAMP, INFO_DATATYPE_UINT64, Of<&Image::timestamp>},
        {BUFFER_INFO_NEW_DATA, INFO_DATATYPE_BOOL8,
         [](Asked& a) { return Value(a.state.hasImage); }},
        {BUFFER_INFO_IS_QUEUED, INFO_DATATYPE_BOOL8,
         [](Asked& a) { return Value(a.state.IsQueued()); }},
        {BUFFER_INFO_IS_ACQUIRING, INFO_DATATYPE_BOOL8,
         [](Asked& a) { return Value(a.state.place == BufferPlace::Receiving); }},
        {BUFFER_INFO_IS_INCOMPLETE, INFO_DATATYPE_BOOL8,
         [](Asked& a) { return Value(a.state.hasImage && !a.state.image.complete); }},
        {BUFFER_INFO_TLTYPE, INFO_DATATYPE_STRING, [](Asked&) { return Value(producer::kTlType); }},
        {BUFFER_INFO_SIZE_FILLED, INFO_DATATYPE_SIZET,
         [](Asked& a) { return Value(a.state.hasImage ? a.state.image.filled : 0); }},
        {BUFFER_INFO_WIDTH, INFO_DATATYPE_SIZET, OfPicture<&Image::width>},
        {BUFFER_INFO_HEIGHT, INFO_DATATYPE_SIZET, OfPicture<&Image::height>},
        {BUFFER_INFO_XOFFSET, INFO_DATATYPE_SIZET, OfPicture<&Image::offsetX>},
        {BUFFER_INFO_YOFFSET, INFO_DATATYPE_SIZET, OfPicture<&Image::offsetY>},
        {BUFFER_INFO_XPADDING, INFO_DATATYPE_SIZET, OfPicture<&Image::paddingX>},
        {BUFFER_INFO_YPADDING, INFO_DATATYPE_SIZET, ForPicture<0>},
        {BUFFER_INFO_FRAMEID, INFO_DATATYPE_UINT64, Of<&Image::blockId>},
        {BUFFER_INFO_IMAGEPRESENT, INFO_DATATYPE_BOOL8,
         [](Asked& a) { return Value(HasImage(a)); }},
        {BUFFER_INFO_IMAGEOFFSET, INFO_DATATYPE_SIZET, ForPicture<0>},
        {BUFFER_INFO_PAYLOADTYPE, INFO_DATATYPE_SIZET,
         [](Asked& a) { return a.state.hasImage ? Value(PayloadOf(a.state).type) : Value(); }},
        {BUFFER_INFO_PIXELFORMAT, INFO_DATATYPE_UINT64, OfPicture<&Image::pixelFormat>},
        {BUFFER_INFO_PIXELFORMAT_NAMESPACE, INFO_DATATYPE_UINT64,
         ForPicture<PIXELFORMAT_NAMESPACE_PFNC_32BIT>},
        {BUFFER_INFO_DELIVERED_IMAGEHEIGHT, INFO_DATATYPE_SIZET,
         OfPicture<&Image::deliveredHeight>},
        {BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE, INFO_DATATYPE_SIZET, OfChunks<&Image::filled>},
        {BUFFER_INFO_CHUNKLAYOUTID, INFO_DATATYPE_UINT64, OfChunks<&Image::chunkLayoutId>},
        {BUFFER_INFO_FILENAME, INFO_DATATYPE_STRING, [](Asked&) { return Value(); }},
        {BUFFER_INFO_PIXEL_ENDIANNESS, INFO_DATATYPE_INT32, ForPicture<PIXELENDIANNESS_LITTLE>},
        {BUFFER_INFO_DATA_SIZE, INFO_DATATYPE_SIZET, Of<&Image::dataSize>},
        {BUFFER_INFO_TIMESTAMP_NS, INFO_DATATYPE_UINT64, Of<&Image::timestamp>},
        {BUFFER_INFO_DATA_LARGER_THAN_BUFFER, INFO_DATATYPE_BOOL8,
         [](Asked& a) { return Value(a.state.hasImage && a.state.image.largerThanTarget); }},
        {BUFFER_INFO_CONTAINS_CHUNKDATA, INFO_DATATYPE_BOOL8,
         [](Asked& a) { return Value(HasChunks(a.state)); }},
        {BUFFER_INFO_IS_COMPOSITE, INFO_DATATYPE_BOOL8, [](Asked&) { return Value(false); }},
    }};

} // namespace

bool HasChunks(const BufferState& state)
{
    return state.hasImage && (state.image.payloadType & payload_type::kChunks) != 0;
}

GC_ERROR BufferInfo(const Buffer& buffer, const BufferState& state, int32_t command,
                    const InfoOut& out)
{
    Asked asked{buffer, state};
    return kInfo.Answer(asked, command, out);
}

// ---- queues

void BufferQueue::PushBack(Buffer& buffer)
{
    (m_back != nullptr ? m_back->next : m_front) = &buffer;
    m_back = &buffer;
    ++m_size;
}

void BufferQueue::PushInTurn(Buffer& buffer)
{
    Buffer** link = &m_front;
    while (*link != nullptr && (*link)->turn < buffer.turn) {
        link = &(*link)->next;
    }
    buffer.next = *link;
    *link = &buffer;
    m_back = buffer.next == nullptr ? &buffer : m_back;
    ++m_size;
}

Buffer* BufferQueue::PopFront()
{
    Buffer* const buffer = m_front;
    if (buffer != nullptr) {
        m_front = buffer->next;
        m_back = m_front != nullptr ? m_back : nullptr;
        buffer->next = nullptr;
        --m_size;
    }
    return buffer;
}

} // namespace standard_tl
