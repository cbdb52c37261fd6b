// A picture worth looking at: machined parts on a moving conveyor under a lamp.
#ifndef VCAM_SCENE_H
#define VCAM_SCENE_H

#include <cstdint>

#include "canvas.h"

namespace vcam {

class Scene
{
public:
    Scene(int width, int height);

    // The picture of a frame; the same for the same size and number.
    Canvas Draw(std::uint64_t frame) const;

private:
    void _DrawRoom();
    void _DrawBelt(Canvas& canvas, std::int64_t shift) const;
    void _DrawPart(Canvas& canvas, double centerX, std::uint64_t number) const;
    void _DrawGauge(Canvas& canvas, std::uint64_t frame) const;

    int m_beltTop;
    int m_beltBottom;
    double m_unit; // radius of a part in pixels; everything else follows from it
    Canvas m_room; // all that does not move
};

} // namespace vcam

#endif
