#include "checked_camera.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <camera_features.h>
#include <description_url.h>

#include "camera_layout.h"

namespace vmtest {

namespace {

constexpr std::size_t kAhead = 6; // images asked for ahead; fewer than there are buffers

} // namespace

std::string Tally::Faults() const
{
    std::string text;
    const auto add = [&text](const char* what, unsigned count) {
        text += count != 0 ? std::string("; ") + what + " " + std::to_string(count) : "";
    };
    add("WRONG", wrong);
    text += wrong != 0 ? " (" + first + ")" : "";
    add("INCOMPLETE", incomplete);
    add("DISORDER", disorder);
    add("LOST", skipped);
    return text;
}

CheckedCamera::CheckedCamera(const consumer::Session& session, const std::string& id,
                             unsigned buffers, consumer::BufferMemory memory)
    : Camera(session, id), m_stream(*this),
      m_expected(Read<std::uint32_t>(camera_features::kPayloadSize)),
      m_acquisition(m_stream, m_expected.size(), buffers, memory, _Switch())
{
    // A camera's seed counts on with its serial number.
    const std::vector<std::uint8_t> serial = ReadBytes(vcam::abrm::kSerialNumber, 64);
    const auto* text = reinterpret_cast<const char*>(serial.data());
    const auto seed = static_cast<std::uint32_t>(std::strtoul(text + 2, nullptr, 10));
    m_pattern.Configure(_Geometry(), vcam::Pattern::Bytes, seed);
}

vcam::ImageGeometry CheckedCamera::_Geometry() const
{
    vcam::ImageGeometry geometry;
    geometry.width = Read<std::uint32_t>(vcam::cam::kWidth.address);
    geometry.height = Read<std::uint32_t>(vcam::cam::kHeight.address);
    geometry.format = vcam::FindPixelFormat(Read<std::uint32_t>(vcam::cam::kPixelFormat.address));
    if (geometry.format == nullptr || geometry.Payload() != Payload()) {
        throw consumer::Error("the camera's registers do not fit its payload size");
    }
    return geometry;
}

std::vector<std::uint8_t> CheckedCamera::ReadBytes(std::uint64_t address, std::size_t size) const
{
    std::vector<std::uint8_t> data(size);
    Read(address, data.data(), size);
    return data;
}

std::vector<std::uint8_t> CheckedCamera::DescriptionFile() const
{
    const auto url = consumer::ParseDescriptionUrl(consumer::FirstUrl(Api(), Port()));
    return ReadBytes(url.address, url.length);
}

// Some producers start and stop the camera themselves, others leave that to their user.
consumer::CameraSwitch CheckedCamera::_Switch()
{
    const auto start = [this] {
        m_isStarted = Read<std::uint32_t>(camera_features::kAcquisition) == 0;
        if (m_isStarted) {
            Write<std::uint32_t>(camera_features::kAcquisition, 1);
        }
    };
    const auto stop = [this] {
        if (m_isStarted) {
            Write<std::uint32_t>(camera_features::kAcquisition, 0);
        }
    };
    return {start, stop};
}

void CheckedCamera::_Trigger() const
{
    if (!m_onDemand) {
        return;
    }
    try {
        Write<std::uint32_t>(camera_features::kTriggerSoftware, 1);
    } catch (const consumer::GenTLError&) {
        // It has left, or no further image will come, which is seen then.
    }
}

void CheckedCamera::Start(std::uint64_t images, bool onDemand)
{
    m_onDemand = onDemand;
    Write<std::uint32_t>(camera_features::kTriggerMode, onDemand ? 1 : 0);
    m_acquisition.Rewind();
    m_hasLast = false;
    m_acquisition.Start(images);
    for (std::size_t i = 0; i < kAhead; ++i) {
        _Trigger();
    }
}

void CheckedCamera::Stop()
{
    m_acquisition.Stop();
}

bool CheckedCamera::Next(Tally& tally, std::uint64_t timeoutMs)
{
    const auto image = m_acquisition.Next(timeoutMs);
    if (!image) {
        return false;
    }
    _Compare(*image, tally);
    m_acquisition.Queue(image->buffer);
    _Trigger();
    return true;
}

// An image has to be, byte for byte, the frame whose number it carries.
void CheckedCamera::_Compare(const consumer::Image& image, Tally& tally)
{
    ++tally.images;
    if (m_hasLast && image.frameId <= m_last) {
        ++tally.disorder;
    } else if (m_hasLast) {
        tally.skipped += static_cast<unsigned>(image.frameId - m_last - 1);
    }
    m_hasLast = true;
    m_last = image.frameId;
    if (image.isIncomplete) {
        ++tally.incomplete;
        return;
    }
    m_pattern.Fill(image.frameId, 0, m_expected.data(), m_expected.size());
    if (image.bytes.size() == m_expected.size() &&
        std::memcmp(image.bytes.data(), m_expected.data(), m_expected.size()) == 0) {
        return;
    }
    if (tally.wrong++ == 0) {
        const auto differs =
            std::mismatch(image.bytes.begin(), image.bytes.end(), m_expected.begin()).first;
        tally.first = "frame " + std::to_string(image.frameId) + ", filled " +
                      std::to_string(image.bytes.size()) + ", first difference at " +
                      std::to_string(differs - image.bytes.begin());
    }
}

} // namespace vmtest
