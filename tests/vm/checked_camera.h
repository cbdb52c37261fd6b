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
    unsigned wrong = 0;      // said to be complete, and not the bytes of the frame it says it is
    unsigned incomplete = 0; // said to be
    unsigned skipped = 0;    // numbers that never came
    unsigned disorder = 0;
    std::string first; // what was wrong with the first wrong one

    // What is not as it should be, in words.
    std::string Faults() const;
};

// The opened camera with its stream and announced buffers. Throws consumer::Error.
class CheckedCamera : public consumer::Camera
{
public:
    CheckedCamera(const consumer::Session& session, const std::string& id, unsigned buffers,
                  consumer::BufferMemory memory = consumer::BufferMemory::OfProducer);

    std::vector<std::uint8_t> ReadBytes(std::uint64_t address, std::size_t size) const;
    std::vector<std::uint8_t> DescriptionFile() const;

    // On demand: an image for each one that is taken, with some ahead, so that none is lost however
    // slow the machine is. Else at the camera's own rate, where who reads too slowly may lose some.
    void Start(std::uint64_t images, bool onDemand = true);
    // Whether an image came in time. It is compared, its buffer queued again, and the next image
    // asked for: in vain where the camera has left.
    bool Next(Tally& tally, std::uint64_t timeoutMs);
    void Stop();
    const consumer::DataStream& Stream() const { return m_stream; }
    std::size_t Payload() const { return m_expected.size(); }

private:
    void _Compare(const consumer::Image& image, Tally& tally);
    vcam::ImageGeometry _Geometry() const;
    consumer::CameraSwitch _Switch();
    void _Trigger() const;

    const consumer::DataStream m_stream;
    std::vector<std::uint8_t> m_expected;
    consumer::Acquisition m_acquisition;
    vcam::PatternGenerator m_pattern;
    bool m_onDemand = true;
    bool m_isStarted = false; // by a register, since the producer has not
    bool m_hasLast = false;
    std::uint64_t m_last = 0; // number of the latest image since the start
};

} // namespace vmtest

#endif
