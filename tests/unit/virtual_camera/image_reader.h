// Images as a host with a single payload transfer reads them: every request has room for all.
#ifndef IMAGE_READER_H
#define IMAGE_READER_H

#include "camera_host.h"

constexpr char kSmall[] = "width=64,height=33,"; // 2112 bytes: two packets and a short one

using Sizes = std::vector<std::size_t>;

// Lengths of the next requests, each of which asks for so much.
inline Sizes Lengths(CameraHost& host, std::size_t request, std::size_t count)
{
    Sizes lengths;
    for (std::size_t i = 0; i < count; ++i) {
        const Read read = host.Stream(request);
        EXPECT_EQ(vcam::UsbStatus::Done, read.status);
        lengths.push_back(read.data.size());
    }
    return lengths;
}

struct ImageParts
{
    Bytes leader;
    Bytes payload;
    Bytes trailer;

    std::uint64_t LeaderId() const { return Get(leader, 8, 8); }
    std::uint64_t PayloadType() const { return Get(leader, 18, 2); }
    std::uint64_t TrailerId() const { return Get(trailer, 8, 8); }
    std::uint64_t ValidSize() const { return Get(trailer, 20, 8); }
    std::uint64_t Rows() const { return Get(trailer, 28, 4); }
    Bytes Part(std::size_t offset, std::size_t size) const
    {
        const auto at = payload.begin() + static_cast<std::ptrdiff_t>(offset);
        return {at, at + static_cast<std::ptrdiff_t>(size)};
    }
};

inline ImageParts ReadImage(CameraHost& host)
{
    ImageParts image;
    image.leader = host.Stream(65536).data;
    image.payload = host.Stream(65536).data;
    image.trailer = host.Stream(65536).data;
    return image;
}

#endif
