#include "tool_view_picture.h"

#include <algorithm>
#include <cmath>

#include "tool_console.h"

namespace {

constexpr size_t kMinimumWidth = 480;
constexpr size_t kDotsPerScale = 480; // one more screen pixel per dot for each so many columns
constexpr Colour kDark{12, 16, 22};
constexpr Colour kLight{236, 240, 244};
constexpr Colour kAccent{255, 190, 70};
constexpr Colour kGrey{200, 206, 212};
constexpr Colour kChannels[] = {{244, 84, 76}, {92, 214, 104}, {92, 150, 255}};

// Who, how fast, which image, what was lost, which format: from left to right.
void DrawHeader(Painter& painter, const Picture& picture, const ViewState& state, size_t scale)
{
    const size_t margin = 4 * scale;
    painter.Fill(0, 0, picture.width, Painter::TextHeight(scale) + 2 * margin, kDark, 190);
    size_t x = margin;
    x += painter.Text(x, margin, scale, state.camera + "  ", kLight);
    const std::string rate = state.isPaused ? "paused  " : Format("%.1f images/s  ", state.rate);
    x += painter.Text(x, margin, scale, rate, kAccent);
    const std::string rest =
        Format("#%llu  lost %llu  %s", static_cast<unsigned long long>(state.frameId),
               static_cast<unsigned long long>(state.lost), state.format.c_str());
    painter.Text(x, margin, scale, rest, kGrey);
}

// Heights follow the square root: a sky of one brightness must not flatten all the rest.
void DrawHistogram(Painter& painter, const Picture& picture, const Raster& image, size_t scale)
{
    const auto histogram = Histogram(image);
    uint32_t most = 1;
    for (const auto& channel : histogram) {
        most = std::max(most, *std::max_element(channel.begin(), channel.end()));
    }
    const size_t step = std::max<size_t>(scale / 2, 1); // screen columns per brightness
    const size_t width = 256 * step;
    const size_t height = 64 * scale;
    const size_t border = 4 * scale;
    if (picture.width < width + 4 * border || picture.height < height + 6 * border) {
        return;
    }
    const size_t left = picture.width - width - 2 * border;
    const size_t bottom = picture.height - 2 * border;
    painter.Fill(left - border, bottom - height - border, width + 2 * border, height + 2 * border,
                 kDark, 190);
    for (size_t channel = 0; channel < histogram.size(); channel++) {
        const Colour colour = histogram.size() == 1 ? kGrey : kChannels[channel];
        for (size_t i = 0; i < histogram[channel].size(); i++) {
            const double share = std::sqrt(static_cast<double>(histogram[channel][i]) / most);
            const auto bar = static_cast<size_t>(std::lround(share * static_cast<double>(height)));
            painter.Fill(left + i * step, bottom - bar, step, bar, colour,
                         histogram.size() == 1 ? 230 : 130);
        }
    }
}

// Mean of the samples of one channel in a rectangle.
unsigned Mean(const Raster& image, unsigned channel, size_t x0, size_t x1, size_t y0, size_t y1)
{
    uint64_t sum = 0;
    for (size_t y = y0; y < y1; y++) {
        for (size_t x = x0; x < x1; x++) {
            sum += image.samples[image.Index(x, y, channel)];
        }
    }
    const uint64_t mean = sum / ((x1 - x0) * (y1 - y0));
    return static_cast<unsigned>(image.bits > 8 ? mean >> (image.bits - 8) : mean);
}

// "r;g;b" of one cell in a grid over the image.
std::string CellColour(const Raster& image, size_t column, size_t row, size_t columns, size_t rows)
{
    const size_t x0 = column * image.width / columns;
    const size_t x1 = std::max(x0 + 1, (column + 1) * image.width / columns);
    const size_t y0 = row * image.height / rows;
    const size_t y1 = std::max(y0 + 1, (row + 1) * image.height / rows);
    unsigned values[3] = {};
    for (unsigned channel = 0; channel < 3; channel++) {
        values[channel] = Mean(image, image.channels == 3 ? channel : 0, x0, x1, y0, y1);
    }
    return Format("%u;%u;%u", values[0], values[1], values[2]);
}

} // namespace

// Small images are enlarged by whole numbers, so that the overlay's words fit and pixels stay
// square.
Picture ComposeView(const Raster& image, const ViewState& state)
{
    const size_t enlargement =
        image.width == 0 ? 1 : (kMinimumWidth + image.width - 1) / image.width;
    Picture picture = PictureOf(image, std::max<size_t>(enlargement, 1));
    if (state.showOverlay) {
        Painter painter(picture);
        const size_t scale = std::max<size_t>(picture.width / kDotsPerScale, 1);
        DrawHeader(painter, picture, state, scale);
        DrawHistogram(painter, picture, image, scale);
    }
    return picture;
}

std::string TerminalPicture(const Raster& image, unsigned columns, unsigned rows)
{
    if (image.width == 0 || image.height == 0) {
        return {};
    }
    // Two pixels a character, and characters are twice as high as wide: pixels come out square.
    size_t width = std::clamp<size_t>(columns, 1, 1000);
    size_t height = std::max<size_t>(width * image.height / image.width, 1);
    const size_t most = std::max<size_t>(rows, 1) * 2;
    if (height > most) {
        height = most;
        width = std::max<size_t>(height * image.width / image.height, 1);
    }
    height += height % 2; // whole characters
    std::string text;
    for (size_t row = 0; row < height; row += 2) {
        for (size_t column = 0; column < width; column++) {
            text += "\x1b[38;2;" + CellColour(image, column, row, width, height) + ";48;2;" +
                    CellColour(image, column, row + 1, width, height) + "m\u2580";
        }
        text += "\x1b[0m\n";
    }
    return text;
}
