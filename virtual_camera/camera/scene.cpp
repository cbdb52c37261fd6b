#include "scene.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vcam {

namespace {

constexpr Color kWallTop{30, 38, 54};
constexpr Color kWallBottom{88, 106, 128};
constexpr Color kRail{172, 178, 186};
constexpr Color kBelt{44, 47, 52};
constexpr Color kRidge{62, 66, 72};
constexpr Color kShadow{10, 11, 14};
constexpr Color kPartColors[] = {{214, 158, 60},  {186, 194, 204}, {196, 88, 62},
                                 {110, 168, 120}, {92, 138, 200},  {206, 190, 150}};
constexpr std::uint64_t kKinds = 4;

// A place relative to the center of a part, in units of the part's radius.
struct Place
{
    double x;
    double y;

    double Radius() const { return std::hypot(x, y); }
    double Angle() const { return std::atan2(y, x); }
};

// Distance to a regular polygon's edge (negative inside).
double Polygon(Place p, int corners, double size, double turn)
{
    const double step = 2 * std::numbers::pi / corners;
    const double angle = p.Angle() + turn;
    const double local = angle - step * std::floor(angle / step + 0.5);
    return p.Radius() * std::cos(local) - size;
}

double Ring(Place p, double outer, double hole)
{
    return std::max(p.Radius() - outer, hole - p.Radius());
}

double Gear(Place p, double turn)
{
    const double teeth = 0.08 * std::tanh(4 * std::sin(12 * (p.Angle() + turn)));
    return std::max(p.Radius() - 0.85 - teeth, 0.28 - p.Radius());
}

// A flat bar with two drilled holes.
double Plate(Place p, double turn)
{
    const Place q{p.x * std::cos(turn) + p.y * std::sin(turn),
                  p.y * std::cos(turn) - p.x * std::sin(turn)};
    const double dx = std::max(std::abs(q.x) - 0.68, 0.0);
    const double dy = std::max(std::abs(q.y) - 0.28, 0.0);
    const double bar = std::hypot(dx, dy) - 0.2;
    const double holes = std::min(std::hypot(q.x - 0.5, q.y), std::hypot(q.x + 0.5, q.y));
    return std::max(bar, 0.17 - holes);
}

double Distance(Place p, std::uint64_t number)
{
    const double turn = 0.7 * static_cast<double>(number % 97);
    switch (number % kKinds) {
    case 0: return std::max(Polygon(p, 6, 0.8, turn), 0.42 - p.Radius());
    case 1: return Gear(p, turn);
    case 2: return Ring(p, 0.88, 0.5);
    default: return Plate(p, turn);
    }
}

// How much of a pixel an edge at this distance (in pixels) covers, 0..256.
int Coverage(double pixels)
{
    return static_cast<int>(256 * std::clamp(0.5 - pixels, 0.0, 1.0));
}

Color Lit(Color base, Place p, double edge)
{
    // Light from the upper left, and a bright bevel along the edge.
    const double slope = std::clamp(0.55 - 0.4 * (p.x + p.y), 0.0, 1.0);
    const double bevel = std::clamp(1 - std::abs(edge + 0.07) / 0.06, 0.0, 1.0);
    const Color shaded = Mix({16, 18, 22}, base, static_cast<int>(130 + 126 * slope));
    return Mix(shaded, {255, 252, 240}, static_cast<int>(110 * bevel));
}

} // namespace

Scene::Scene(int width, int height)
    : m_beltTop(height * 30 / 100), m_beltBottom(height * 84 / 100),
      m_unit(std::max(2.0, 0.19 * height)), m_room(width, height)
{
    _DrawRoom();
}

// A wall with the glow of a lamp, and the two rails of the conveyor.
void Scene::_DrawRoom()
{
    const int width = m_room.Width();
    const int height = m_room.Height();
    const int rail = std::max(1, height / 40);
    for (int y = 0; y < height; ++y) {
        const bool isRail = (y >= m_beltTop - rail && y < m_beltTop) ||
                            (y >= m_beltBottom && y < m_beltBottom + rail);
        const Color wall = Mix(kWallTop, kWallBottom, 256 * y / height);
        for (int x = 0; x < width; ++x) {
            const double dx = (x - 0.35 * width) / (0.5 * width);
            const double dy = (y - 0.05 * height) / (0.4 * height);
            const int glow = static_cast<int>(150 * std::exp(-(dx * dx + dy * dy)));
            m_room.At(x, y) = Mix(isRail ? kRail : wall, {255, 236, 200}, glow);
        }
    }
}

Canvas Scene::Draw(std::uint64_t frame) const
{
    Canvas canvas = m_room;
    // Two pixels a frame at full size; positions stay exact for some thousand years of frames.
    const auto speed = static_cast<std::int64_t>(std::max(1.0, m_unit / 24));
    const std::int64_t shift = static_cast<std::int64_t>(frame % (1ULL << 40)) * speed;
    _DrawBelt(canvas, shift);
    const auto pitch = static_cast<std::int64_t>(2.7 * m_unit);
    const std::int64_t first = shift / pitch;
    const std::int64_t count = canvas.Width() / pitch + 2;
    for (std::int64_t part = first; part <= first + count; ++part) {
        const auto center = static_cast<double>(part * pitch - shift);
        _DrawPart(canvas, center, static_cast<std::uint64_t>(part));
    }
    _DrawGauge(canvas, frame);
    return canvas;
}

void Scene::_DrawBelt(Canvas& canvas, std::int64_t shift) const
{
    const auto pitch = static_cast<std::int64_t>(std::max(4.0, m_unit / 3));
    for (int y = m_beltTop; y < m_beltBottom; ++y) {
        const int across = 256 * (y - m_beltTop) / std::max(1, m_beltBottom - m_beltTop);
        const int light = 90 - std::abs(across - 100) / 3;
        for (int x = 0; x < canvas.Width(); ++x) {
            const bool ridge = (x + shift + y / 4) % pitch < pitch / 4;
            canvas.At(x, y) = Mix(ridge ? kRidge : kBelt, {150, 150, 146}, std::max(0, light));
        }
    }
}

void Scene::_DrawPart(Canvas& canvas, double centerX, std::uint64_t number) const
{
    const double wobble = 0.12 * std::sin(1.9 * static_cast<double>(number % 1000));
    const double centerY = 0.5 * (m_beltTop + m_beltBottom) + wobble * m_unit;
    const Color base = kPartColors[number * 7 % std::size(kPartColors)];
    const int reach = static_cast<int>(1.25 * m_unit) + 1;
    const int midX = static_cast<int>(centerX);
    const int midY = static_cast<int>(centerY);
    for (int y = std::max(0, midY - reach); y <= std::min(canvas.Height() - 1, midY + reach); ++y) {
        for (int x = std::max(0, midX - reach); x <= std::min(canvas.Width() - 1, midX + reach);
             ++x) {
            const Place p{(x - centerX) / m_unit, (y - centerY) / m_unit};
            const double shadow = Distance({p.x - 0.1, p.y - 0.12}, number);
            canvas.Blend(x, y, kShadow,
                         static_cast<int>(150 * std::clamp(0.5 - 6 * shadow, 0.0, 1.0)));
            const double edge = Distance(p, number);
            canvas.Blend(x, y, Lit(base, p, edge), Coverage(edge * m_unit));
        }
    }
}

// A bar along the lower edge that runs with the frame number: lost images show as a jump.
void Scene::_DrawGauge(Canvas& canvas, std::uint64_t frame) const
{
    const int height = std::max(1, canvas.Height() / 60);
    const int lit = static_cast<int>(frame % 100) * canvas.Width() / 100;
    for (int y = canvas.Height() - height; y < canvas.Height(); ++y) {
        for (int x = 0; x < canvas.Width(); ++x) {
            canvas.At(x, y) = x <= lit
                                  ? Mix({60, 190, 130}, {240, 210, 80}, 256 * x / canvas.Width())
                                  : Color{24, 27, 32};
        }
    }
}

} // namespace vcam
