#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tool_camera_control.h"
#include "tool_camera_list.h"
#include "tool_commands.h"
#include "tool_image_file.h"
#include "tool_producer.h"
#include "tool_statistics.h"
#include "tool_view_picture.h"
#include "tool_window.h"

namespace {

constexpr uint64_t kPollPause_ms = 20; // while paused the window is still served

// Rate over the latest images instead of the whole run: it follows what the camera does now.
class RecentRate
{
public:
    double Add(std::chrono::steady_clock::time_point arrival)
    {
        constexpr size_t kWindow = 30;
        m_arrivals.push_back(arrival);
        if (m_arrivals.size() > kWindow) {
            m_arrivals.erase(m_arrivals.begin());
        }
        const std::chrono::duration<double> span = m_arrivals.back() - m_arrivals.front();
        return span.count() <= 0 ? 0 : static_cast<double>(m_arrivals.size() - 1) / span.count();
    }

private:
    std::vector<std::chrono::steady_clock::time_point> m_arrivals;
};

// The picture with its overlay, in the form that image files are written from.
Raster RasterOf(const Picture& picture)
{
    return {picture.width, picture.height, 3, 8,
            std::vector<uint16_t>(picture.rgb.begin(), picture.rgb.end())};
}

void SavePicture(const std::string& path, const Picture& picture)
{
    WriteRaster(path, RasterOf(picture), ImageFormat::Png);
}

[[noreturn]] void FailWithoutImage(const Options& options)
{
    throw ToolError(ExitCode::Images,
                    Format("no image for %llu ms (zr-u3v doctor tells what this camera needs)",
                           static_cast<unsigned long long>(options.timeout_ms)));
}

// Rows that a still may take, with a line to spare for the prompt.
unsigned TerminalRows()
{
    winsize size{};
    constexpr unsigned kDefault = 48;
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 2 ? size.ws_row - 2U
                                                                           : kDefault;
}

// One running view: the camera's images, a window or a still, and what the user does to them.
class Viewer
{
public:
    Viewer(const Options& options, Console& console, const CameraRecord& record,
           const CameraControl& control, Acquisition& acquisition)
        : m_options(options), m_console(console), m_control(control), m_acquisition(acquisition)
    {
        m_state.camera = Printable(record.userName.empty() ? record.model : record.userName);
    }

    // The first image decides how large a window is, and is the still where there is none.
    void Run()
    {
        m_acquisition.Start();
        _takeImage();
        std::string reason = "asked for";
        if (!m_options.inTerminal && m_options.output.empty()) {
            m_window = Window::Open("zr-u3v view: " + m_state.camera, m_picture.width,
                                    m_picture.height, reason);
        }
        if (m_window != nullptr) {
            _runWindow();
        } else {
            _takeImages();
            _leaveStill(reason);
        }
        m_acquisition.Stop();
    }

private:
    // False when the user has interrupted.
    bool _takeImage()
    {
        m_control.Trigger();
        const auto image = NextImage(m_acquisition, m_options.timeout_ms);
        if (!image) {
            if (g_isInterrupted != 0) {
                return false;
            }
            FailWithoutImage(m_options);
        }
        m_raster = Decode(RawOf(*image), true);
        m_statistics.Add(*image);
        m_state.rate = m_rate.Add(image->arrival);
        m_state.frameId = image->frameId;
        m_state.lost = m_statistics.Lost();
        m_state.format = Format("%zux%zu %s", m_raster.width, m_raster.height,
                                PixelFormatName(image->pixelFormat).c_str());
        m_acquisition.Queue(image->buffer);
        m_picture = ComposeView(m_raster, m_state);
        return true;
    }

    bool _isFinished() const
    {
        return g_isInterrupted != 0 ||
               (m_options.images != 0 && m_statistics.Images() >= m_options.images);
    }

    // For a still: as many as asked for, the last one stays.
    void _takeImages()
    {
        while (m_options.images != 0 && !_isFinished() && _takeImage()) {
        }
    }

    // One thread for both: keys are looked at between images, at the latest every time-out of Next.
    void _runWindow()
    {
        m_window->Show(m_picture);
        while (!_isFinished()) {
            const Window::Wishes wishes = m_window->Poll();
            if (wishes.quit) {
                return;
            }
            _heed(wishes);
            if (m_state.isPaused) {
                usleep(kPollPause_ms * 1000);
            } else if (_takeImage()) {
                m_window->Show(m_picture);
            }
        }
    }

    // Keys of one poll that undo each other do so here as well.
    void _heed(const Window::Wishes& wishes)
    {
        if (wishes.pause || wishes.overlay) {
            m_state.isPaused = m_state.isPaused != wishes.pause;
            m_state.showOverlay = m_state.showOverlay != wishes.overlay;
            m_picture = ComposeView(m_raster, m_state);
            m_window->Show(m_picture);
        }
        if (wishes.save) {
            const std::string path =
                Format("view-%llu.png", static_cast<unsigned long long>(m_state.frameId));
            SavePicture(path, m_picture);
            m_console.Print(path + "\n");
            m_console.Flush();
        }
    }

    // Where there is no window: into a file, or as coloured characters.
    void _leaveStill(const std::string& reason)
    {
        if (!m_options.output.empty()) {
            SavePicture(m_options.output, m_picture);
            return;
        }
        const unsigned columns =
            m_options.columns != 0 ? m_options.columns : Console::Columns(STDERR_FILENO);
        const std::string still = TerminalPicture(m_raster, columns, TerminalRows());
        m_console.PrintBytes(still.data(), still.size()); // its colours are control characters
        m_console.Print(m_state.camera + "  " + m_state.format + "\n");
        if (!m_options.inTerminal && !m_options.quiet) {
            Warn("no window (" + reason + "): a still instead");
        }
    }

    const Options& m_options;
    Console& m_console;
    const CameraControl& m_control;
    Acquisition& m_acquisition;
    std::unique_ptr<Window> m_window;
    Raster m_raster;
    Picture m_picture;
    ViewState m_state;
    Statistics m_statistics{std::nullopt};
    RecentRate m_rate;
};

} // namespace

ExitCode RunView(const Options& options, Console& console)
{
    const Producer producer = LoadProducer(options);
    const Session session(producer, {.update_ms = options.discovery_ms});
    const CameraRecord record = SelectCamera(session, options.camera);
    const Camera camera(session, record.id);
    const CameraControl control(camera, WishesOf(options));
    const DataStream stream(camera);
    Acquisition acquisition = Announce(stream, control, options);
    Viewer(options, console, record, control, acquisition).Run();
    return ExitCode::Success;
}
