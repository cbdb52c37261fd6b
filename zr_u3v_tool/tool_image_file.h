#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "tool_pixel_format.h"

enum class ImageFormat
{
    Png,
    Tiff,
    Pgm, // grey, whatever the camera sends
    Ppm, // colour, whatever the camera sends
    Pnm, // the one of the two that fits
    Raw, // the payload as it arrived
};

// "png", "tiff", "tif", ...; nothing for another text, and for a format this build has not.
std::optional<ImageFormat> ParseImageFormat(std::string_view text);
// "png, tiff, pgm, ppm, pnm, raw" as far as this build has them.
std::string ImageFormatNames();

struct ImageOptions
{
    ImageFormat format = ImageFormat::Png;
    bool demosaic = true;
    bool reduceTo8 = false;
};

// Samples of more than 8 bits are stored in 16 with their bits at the top in PNG (whose sBIT chunk
// tells how many) and TIFF, and with their own maximum in PGM and PPM; so nothing is lost.
// A file that could not be written completely is removed. Throws ToolError.
void WriteImage(const std::filesystem::path& path, const RawImage& image,
                const ImageOptions& options);
void WriteRaster(const std::filesystem::path& path, const Raster& raster, ImageFormat format);

// One image among those of a command.
struct ImagePlace
{
    size_t number = 1; // from 1
    size_t count = 1;
    uint64_t frameId = 0;
    uint64_t timestamp = 0;
};

// The name of its file: "{n}" or "{index}" (five digits), "{id}" or "{frame}", and "{timestamp}" in
// the pattern are replaced. A pattern with none of them gets "-00001" before its extension when
// there are several images.
std::filesystem::path ImagePath(const std::string& pattern, const ImagePlace& place);
