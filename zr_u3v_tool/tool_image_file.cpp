#include "tool_image_file.h"

#include <array>
#include <bit>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <png.h>
#include <vector>

#if ZR_TOOL_HAVE_TIFF
#include <tiffio.h>
#endif

#include "tool_console.h"
#include "tool_error.h"

namespace fs = std::filesystem;

namespace {

// The names of --format, which are the extensions as well. "tif" is another name of "tiff".
struct FormatName
{
    std::string_view name;
    ImageFormat format;
};

constexpr FormatName kFormatNames[] = {
    {"png", ImageFormat::Png},
#if ZR_TOOL_HAVE_TIFF
    {"tiff", ImageFormat::Tiff}, {"tif", ImageFormat::Tiff},
#endif
    {"pgm", ImageFormat::Pgm},   {"ppm", ImageFormat::Ppm},
    {"pnm", ImageFormat::Pnm},   {"raw", ImageFormat::Raw},
};

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

[[noreturn]] void FailToWrite(const fs::path& path, const std::string& reason)
{
    throw ToolError(ExitCode::Failure, "cannot write " + path.string() + ": " + reason);
}

File Create(const fs::path& path)
{
    File file(std::fopen(path.c_str(), "wbe"));
    if (file == nullptr) {
        FailToWrite(path, std::strerror(errno));
    }
    return file;
}

// Buffered data may fail as late as here.
void Finish(File file, const fs::path& path)
{
    const bool complete = std::ferror(file.get()) == 0;
    if (std::fclose(file.release()) != 0 || !complete) {
        FailToWrite(path, std::strerror(errno));
    }
}

// A sample's bits moved to the top of 16 and repeated below, so that white stays white.
uint16_t Stretched(uint16_t sample, unsigned bits)
{
    const uint32_t top = uint32_t{sample} << (16 - bits);
    return static_cast<uint16_t>(top | top >> bits);
}

// Rows of bytes: one a sample, or two with the most significant first if `bigEndian`.
std::vector<uint8_t> RowBytes(const Raster& raster, size_t y, bool stretch, bool bigEndian)
{
    const size_t samples = raster.width * raster.channels;
    const uint16_t* const row = raster.samples.data() + y * samples;
    std::vector<uint8_t> bytes;
    bytes.reserve(samples * 2);
    for (size_t i = 0; i < samples; i++) {
        if (raster.bits <= 8) {
            bytes.push_back(static_cast<uint8_t>(row[i]));
            continue;
        }
        const uint16_t value = stretch ? Stretched(row[i], raster.bits) : row[i];
        const auto high = static_cast<uint8_t>(value >> 8U);
        const auto low = static_cast<uint8_t>(value & 0xFFU);
        bytes.push_back(bigEndian ? high : low);
        bytes.push_back(bigEndian ? low : high);
    }
    return bytes;
}

// libpng reports by a call that must not return; an exception would have to cross C code.
struct PngFailure
{
    std::jmp_buf jump;
    std::array<char, 200> text{};
};

void OnPngError(png_structp png, png_const_charp message)
{
    auto* const failure = static_cast<PngFailure*>(png_get_error_ptr(png));
    std::snprintf(failure->text.data(), failure->text.size(), "%s", message);
    std::longjmp(failure->jump, 1);
}

// Warnings would be printed otherwise; none of them concerns a picture of our own making.
void OnPngWarning(png_structp, png_const_charp)
{
}

// No object with a destructor may begin to live between the jump's target and its start: rows come
// ready made.
bool PutPng(std::FILE* file, const Raster& raster, const std::vector<png_bytep>& rows,
            PngFailure& failure)
{
    png_structp png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &failure, OnPngError, OnPngWarning);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    if (info == nullptr || setjmp(failure.jump) != 0) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(raster.width),
                 static_cast<png_uint_32>(raster.height), raster.bits > 8 ? 16 : 8,
                 raster.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (raster.bits > 8 && raster.bits < 16) {
        const auto bits = static_cast<png_byte>(raster.bits);
        const png_color_8 significant{bits, bits, bits, bits, 0};
        png_set_sBIT(png, info, &significant);
    }
    // Cameras deliver faster than the best compression runs.
    png_set_compression_level(png, 1);
    png_write_info(png, info);
    for (const png_bytep row : rows) {
        png_write_row(png, row);
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

// Deeper samples are stretched to 16 bits, as the format has it; sBIT tells how many were measured.
void WritePng(const fs::path& path, const Raster& raster)
{
    std::vector<std::vector<uint8_t>> bytes(raster.height);
    std::vector<png_bytep> rows(raster.height);
    for (size_t y = 0; y < raster.height; y++) {
        bytes[y] = RowBytes(raster, y, true, true);
        rows[y] = bytes[y].data();
    }
    File file = Create(path);
    PngFailure failure;
    if (!PutPng(file.get(), raster, rows, failure)) {
        FailToWrite(path, failure.text.data());
    }
    Finish(std::move(file), path);
}

// Samples as they are: the header tells the highest value. Two bytes have the most significant
// first.
void WritePnm(const fs::path& path, const Raster& raster)
{
    File file = Create(path);
    std::fprintf(file.get(), "P%c\n%zu %zu\n%u\n", raster.channels == 3 ? '6' : '5', raster.width,
                 raster.height, raster.Maximum());
    for (size_t y = 0; y < raster.height; y++) {
        const std::vector<uint8_t> row = RowBytes(raster, y, false, true);
        std::fwrite(row.data(), 1, row.size(), file.get());
    }
    Finish(std::move(file), path);
}

#if ZR_TOOL_HAVE_TIFF
struct TiffCloser
{
    void operator()(TIFF* file) const { TIFFClose(file); }
};

// In this machine's own byte order; the library notes which.
void WriteTiff(const fs::path& path, const Raster& raster)
{
    // Failures come back as results; the library's own texts would go to standard error.
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    const std::unique_ptr<TIFF, TiffCloser> file(TIFFOpen(path.c_str(), "w"));
    if (file == nullptr) {
        FailToWrite(path, std::strerror(errno));
    }
    TIFF* const tiff = file.get();
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(raster.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(raster.height));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(raster.channels));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, raster.bits > 8 ? 16 : 8);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                 raster.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
    TIFFSetField(tiff, TIFFTAG_SOFTWARE, "zr-u3v");
    constexpr bool kBigEndian = std::endian::native == std::endian::big;
    for (size_t y = 0; y < raster.height; y++) {
        std::vector<uint8_t> row = RowBytes(raster, y, true, kBigEndian);
        if (TIFFWriteScanline(tiff, row.data(), static_cast<uint32_t>(y), 0) != 1) {
            FailToWrite(path, "the TIFF library cannot write a line");
        }
    }
    if (TIFFFlush(tiff) != 1) {
        FailToWrite(path, "the TIFF library cannot finish the file");
    }
}
#endif

// The bytes of the buffer, packed or not.
void WriteRaw(const fs::path& path, std::span<const uint8_t> bytes)
{
    File file = Create(path);
    std::fwrite(bytes.data(), 1, bytes.size(), file.get());
    Finish(std::move(file), path);
}

void Write(const fs::path& path, const Raster& raster, ImageFormat format)
{
    switch (format) {
    case ImageFormat::Png: WritePng(path, raster); break;
#if ZR_TOOL_HAVE_TIFF
    case ImageFormat::Tiff: WriteTiff(path, raster); break;
#endif
    case ImageFormat::Pgm: WritePnm(path, AsGrey(raster)); break;
    case ImageFormat::Ppm: WritePnm(path, AsColour(raster)); break;
    case ImageFormat::Pnm: WritePnm(path, raster); break;
    default: throw ToolError(ExitCode::Usage, "this build does not write that file format");
    }
}

// Half a picture is worse than none; but a device or a pipe stays where it is.
template <class Writer>
void WriteOrRemove(const fs::path& path, const Writer& write)
{
    try {
        write();
    } catch (...) {
        std::error_code ignored;
        if (fs::is_regular_file(path, ignored)) {
            fs::remove(path, ignored);
        }
        throw;
    }
}

void ReplaceAll(std::string& text, std::string_view what, const std::string& by)
{
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        text.replace(at, what.size(), by);
        at += by.size();
    }
}

} // namespace

std::optional<ImageFormat> ParseImageFormat(std::string_view text)
{
    for (const FormatName& entry : kFormatNames) {
        if (entry.name == text) {
            return entry.format;
        }
    }
    return std::nullopt;
}

std::string ImageFormatNames()
{
    std::string names;
    for (const FormatName& entry : kFormatNames) {
        if (entry.name != "tif") {
            names += (names.empty() ? "" : ", ") + std::string(entry.name);
        }
    }
    return names;
}

void WriteImage(const fs::path& path, const RawImage& image, const ImageOptions& options)
{
    if (options.format == ImageFormat::Raw) {
        WriteOrRemove(path, [&] { WriteRaw(path, image.bytes); });
        return;
    }
    Raster raster = Decode(image, options.demosaic);
    if (options.reduceTo8) {
        raster = ReducedTo8(std::move(raster));
    }
    WriteRaster(path, raster, options.format);
}

void WriteRaster(const fs::path& path, const Raster& raster, ImageFormat format)
{
    WriteOrRemove(path, [&] { Write(path, raster, format); });
}

// Numbers have five digits, so that a listing is in order.
fs::path ImagePath(const std::string& pattern, const ImagePlace& place)
{
    const std::string index = Format("%05zu", place.number);
    const std::string frame = std::to_string(place.frameId);
    const std::pair<const char*, std::string> words[] = {
        {"{n}", index},
        {"{index}", index},
        {"{id}", frame},
        {"{frame}", frame},
        {"{timestamp}", std::to_string(place.timestamp)},
    };
    std::string name = pattern;
    for (const auto& [word, value] : words) {
        ReplaceAll(name, word, value);
    }
    if (name != pattern || place.count < 2) {
        return name;
    }
    const fs::path path(name);
    return path.parent_path() / (path.stem().string() + "-" + index + path.extension().string());
}
