#include "pattern_generator.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "scene.h"

namespace vcam {

namespace {

constexpr std::size_t kPiece = 4096;
constexpr std::size_t kPlaces = 61440; // where a piece may begin; even, as two-byte pixels need

std::uint64_t Mixed(std::uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31);
}

// The bits that a two-byte pixel leaves unused in its upper byte.
std::uint8_t UpperMask(const PixelFormat& format)
{
    const std::string_view name = format.name;
    return name == "Mono10" ? 0x03 : name == "Mono12" ? 0x0F : 0xFF;
}

} // namespace

PatternGenerator::PatternGenerator() = default;
PatternGenerator::~PatternGenerator() = default;

void PatternGenerator::Configure(const ImageGeometry& geometry, Pattern pattern, std::uint32_t seed)
{
    if (m_imageBytes != 0 && geometry == m_geometry && pattern == m_pattern && seed == m_seed) {
        return;
    }
    m_geometry = geometry;
    m_pattern = pattern;
    m_seed = seed;
    m_imageBytes = geometry.Bytes(geometry.height);
    m_isDrawn = false;
    m_scene.reset();
    if (pattern == Pattern::Bytes || pattern == Pattern::Still) {
        _MakeTable();
    } else if (pattern == Pattern::Scene) {
        m_scene = std::make_unique<Scene>(static_cast<int>(geometry.width),
                                          static_cast<int>(geometry.height));
    }
}

void PatternGenerator::_MakeTable()
{
    m_table.resize(kPlaces + kPiece);
    const std::uint8_t upper = UpperMask(*m_geometry.format);
    for (std::size_t i = 0; i < m_table.size(); ++i) {
        const auto byte = static_cast<std::uint8_t>(Mixed(i / 8 + 1) >> (8 * (i % 8)));
        m_table[i] = (i & 1) != 0 ? byte & upper : byte;
    }
}

void PatternGenerator::Fill(std::uint64_t frame, std::size_t offset, std::uint8_t* target,
                            std::size_t size)
{
    if (m_pattern == Pattern::None) {
        return;
    }
    const std::size_t inImage =
        offset < m_imageBytes ? std::min(size, m_imageBytes - offset) : std::size_t{0};
    if (inImage != 0 && m_pattern == Pattern::Bytes) {
        _FillBytes(frame, offset, target, inImage);
    } else if (inImage != 0 && m_pattern == Pattern::Still) {
        _FillStill(_Drawn(0) + offset, target, inImage);
    } else if (inImage != 0) {
        std::memcpy(target, _Drawn(frame) + offset, inImage);
    }
    std::fill(target + inImage, target + size, std::uint8_t{0});
}

void PatternGenerator::_FillBytes(std::uint64_t frame, std::size_t offset, std::uint8_t* target,
                                  std::size_t size) const
{
    const std::uint64_t key = Mixed(Mixed(m_seed + 1ULL) + frame);
    while (size != 0) {
        const std::size_t within = offset % kPiece;
        const std::size_t length = std::min(size, kPiece - within);
        const std::size_t place = (Mixed(key + offset / kPiece) % kPlaces) & ~std::size_t{1};
        std::memcpy(target, m_table.data() + place + within, length);
        target += length;
        offset += length;
        size -= length;
    }
}

// A piece that begins and ends as the image does holds it: nobody writes into the middle of what
// came from the camera.
void PatternGenerator::_FillStill(const std::uint8_t* image, std::uint8_t* target, std::size_t size)
{
    while (size != 0) {
        const std::size_t length = std::min(size, kPiece);
        const std::size_t edge = std::min(length, sizeof(std::uint64_t));
        if (std::memcmp(target, image, edge) != 0 ||
            std::memcmp(target + length - edge, image + length - edge, edge) != 0) {
            std::memcpy(target, image, length);
        }
        target += length;
        image += length;
        size -= length;
    }
}

const std::uint8_t* PatternGenerator::_Drawn(std::uint64_t frame)
{
    if (!m_isDrawn || m_drawnFrame != frame) {
        // One byte more than the image: a packed row may end in the middle of a pair.
        m_drawn.assign(m_imageBytes + 1, 0);
        if (m_pattern == Pattern::Ramp) {
            _DrawRamp(frame);
        } else if (m_pattern == Pattern::Still) {
            _FillBytes(frame, 0, m_drawn.data(), m_imageBytes);
        } else {
            Convert(m_scene->Draw(frame), *m_geometry.format, m_drawn.data());
        }
        _PadRows();
        m_drawnFrame = frame;
        m_isDrawn = true;
    }
    return m_drawn.data();
}

// The picture is drawn row behind row; the rows move apart, the last one first.
void PatternGenerator::_PadRows()
{
    if (m_geometry.paddingX == 0 || m_pattern == Pattern::Still) {
        return;
    }
    const std::size_t stride = m_geometry.RowBytes();
    const std::size_t row = stride - m_geometry.paddingX;
    for (std::size_t y = m_geometry.height; y-- > 0;) {
        std::memmove(m_drawn.data() + y * stride, m_drawn.data() + y * row, row);
        std::memset(m_drawn.data() + y * stride + row, 0, m_geometry.paddingX);
    }
}

// A gradient from the upper left to the lower right that moves by one step a frame.
void PatternGenerator::_DrawRamp(std::uint64_t frame)
{
    Canvas canvas(static_cast<int>(m_geometry.width), static_cast<int>(m_geometry.height));
    const std::uint64_t start = frame + m_seed;
    for (int y = 0; y < canvas.Height(); ++y) {
        for (int x = 0; x < canvas.Width(); ++x) {
            const std::uint64_t step =
                start + static_cast<std::uint64_t>(x) + static_cast<std::uint64_t>(y);
            const auto value = static_cast<std::uint8_t>(step);
            canvas.At(x, y) = {value, value, value};
        }
    }
    Convert(canvas, *m_geometry.format, m_drawn.data());
}

} // namespace vcam
