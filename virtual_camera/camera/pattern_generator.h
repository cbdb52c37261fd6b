// The content of the images: every byte is a fixed function of camera seed, frame number and place.
#ifndef VCAM_PATTERN_GENERATOR_H
#define VCAM_PATTERN_GENERATOR_H

#include <cstdint>
#include <memory>
#include <vector>

#include "camera_config.h"
#include "image_geometry.h"

namespace vcam {

class Scene;

// Not thread-safe: each camera, and each comparison of a test, has its own.
//
// The pattern "bytes" copies pieces of one pseudo-random table, each piece from a place that
// depends on seed, frame and position: as fast as memcpy, and any byte that is lost, doubled,
// shifted or from another frame or camera shows. Ramp and scene are drawn once per frame and then
// copied. "still" is one image of the pattern "bytes" again and again, and only those pieces are
// written that the target does not hold already: who measures the host does not measure the camera.
// "none" does not even look: the target keeps what it holds.
class PatternGenerator
{
public:
    PatternGenerator();
    ~PatternGenerator();
    PatternGenerator(const PatternGenerator&) = delete;
    PatternGenerator& operator=(const PatternGenerator&) = delete;

    void Configure(const ImageGeometry& geometry, Pattern pattern, std::uint32_t seed);
    // Writes payload bytes [offset, offset + size) of a frame; bytes behind the image are zero.
    void Fill(std::uint64_t frame, std::size_t offset, std::uint8_t* target, std::size_t size);

private:
    void _MakeTable();
    void _FillBytes(std::uint64_t frame, std::size_t offset, std::uint8_t* target,
                    std::size_t size) const;
    static void _FillStill(const std::uint8_t* image, std::uint8_t* target, std::size_t size);
    const std::uint8_t* _Drawn(std::uint64_t frame);
    void _DrawRamp(std::uint64_t frame);
    void _PadRows();

    ImageGeometry m_geometry;
    Pattern m_pattern = Pattern::Bytes;
    std::uint32_t m_seed = 0;
    std::size_t m_imageBytes = 0;
    std::vector<std::uint8_t> m_table;
    std::unique_ptr<Scene> m_scene;
    std::vector<std::uint8_t> m_drawn; // the frame drawn last
    std::uint64_t m_drawnFrame = 0;
    bool m_isDrawn = false;
};

} // namespace vcam

#endif
