// The simulated camera behind the kernel's USB stack, every image of which is compared with what
// the camera has sent.
#ifndef ZR_TESTS_VM_CHECKED_CAMERA_H
#define ZR_TESTS_VM_CHECKED_CAMERA_H

#include <acquisition.h>

#include "pattern_generator.h"

namespace vmtest {

// What became of a number of images.
struct Tally
{
    unsigned images = 0;
    unsigned wrong = 0;   // not the bytes of the frame it says it is, or incomplete
    unsigned skipped = 0; // numbers that never came
    unsigned disorder = 0;
    std::string first; // what was wrong with the first wrong one
};

// The opened camera with its stream and announced buffers. Throws consumer::Error.
class CheckedCamera : public consumer::Camera
{
public:
    CheckedCamera(const consumer::Session& session, const std::string& id, unsigned buffers);

    std::vector<std::uint8_t> ReadBytes(std::uint64_t address, std::size_t size) const;
    std::vector<std::uint8_t> DescriptionFile() const;

    // On demand: an image for each one that is taken, with some ahead, so that none is lost however
    // slow the machine is. Else at the camera's own rate.
    void Start(std::uint64_t images, bool onDemand = false);
    // Whether an image came in time. It is compared, its buffer queued again.
    bool Next(Tally& tally, std::uint64_t timeoutMs);
    void Stop();
    std::size_t Payload() const { return m_expected.size(); }

private:
    void _Compare(const consumer::Image& image, Tally& tally);
    vcam::ImageGeometry _Geometry() const;

    const consumer::DataStream m_stream;
    std::vector<std::uint8_t> m_expected;
    consumer::Acquisition m_acquisition;
    vcam::PatternGenerator m_pattern;
    bool m_onDemand = false;
    bool m_hasLast = false;
    std::uint64_t m_last = 0; // number of the latest image since the start
};

} // namespace vmtest

#endif
