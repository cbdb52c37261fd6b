#include "tool_window.h"

#if ZR_TOOL_HAVE_SDL

#include <SDL.h>
#include <algorithm>
#include <cstdlib>

#include "tool_error.h"

namespace {

// Gives an object of SDL back by the function that belongs to its type.
template <auto Destroy>
struct Destroyer
{
    template <class T>
    void operator()(T* object) const
    {
        Destroy(object);
    }
};
using WindowPtr = std::unique_ptr<SDL_Window, Destroyer<SDL_DestroyWindow>>;
using RendererPtr = std::unique_ptr<SDL_Renderer, Destroyer<SDL_DestroyRenderer>>;
using TexturePtr = std::unique_ptr<SDL_Texture, Destroyer<SDL_DestroyTexture>>;

// The video part of SDL, as long as the object lives.
struct Video
{
    Video() : isReady(SDL_InitSubSystem(SDL_INIT_VIDEO) == 0) {}
    ~Video()
    {
        if (isReady) {
            SDL_QuitSubSystem(SDL_INIT_VIDEO);
        }
    }
    Video(const Video&) = delete;
    Video& operator=(const Video&) = delete;

    const bool isReady;
};

// Without one of these SDL would take over the bare console, which nobody has asked for.
bool HasDisplay()
{
    return std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr ||
           std::getenv("SDL_VIDEODRIVER") != nullptr;
}

class SdlWindow : public Window
{
public:
    SdlWindow(std::unique_ptr<Video> video, WindowPtr window, RendererPtr renderer)
        : m_video(std::move(video)), m_window(std::move(window)), m_renderer(std::move(renderer))
    {
    }

    // A texture as large as the picture, made anew when the camera's image size has changed.
    void Show(const Picture& picture) override
    {
        const auto width = static_cast<int>(picture.width);
        const auto height = static_cast<int>(picture.height);
        if (m_texture == nullptr || width != m_width || height != m_height) {
            m_texture.reset(SDL_CreateTexture(m_renderer.get(), SDL_PIXELFORMAT_RGB24,
                                              SDL_TEXTUREACCESS_STREAMING, width, height));
            m_width = width;
            m_height = height;
            // Keeps the proportions, with bars where the window has others.
            SDL_RenderSetLogicalSize(m_renderer.get(), width, height);
        }
        if (m_texture == nullptr ||
            SDL_UpdateTexture(m_texture.get(), nullptr, picture.rgb.data(), width * 3) != 0) {
            throw ToolError(ExitCode::Failure, std::string("cannot draw: ") + SDL_GetError());
        }
        SDL_RenderClear(m_renderer.get());
        SDL_RenderCopy(m_renderer.get(), m_texture.get(), nullptr, nullptr);
        SDL_RenderPresent(m_renderer.get());
    }

    // Keys that are held down count once.
    Wishes Poll() override
    {
        Wishes wishes;
        for (SDL_Event event; SDL_PollEvent(&event) != 0;) {
            wishes.quit = wishes.quit || event.type == SDL_QUIT;
            if (event.type == SDL_KEYDOWN && event.key.repeat == 0) {
                _key(event.key.keysym.sym, wishes);
            }
        }
        return wishes;
    }

private:
    static void _key(SDL_Keycode key, Wishes& wishes)
    {
        switch (key) {
        case SDLK_q:
        case SDLK_ESCAPE: wishes.quit = true; break;
        case SDLK_SPACE: wishes.pause = !wishes.pause; break;
        case SDLK_h: wishes.overlay = !wishes.overlay; break;
        case SDLK_s: wishes.save = true; break;
        default: break;
        }
    }

    // Destroyed from the last to the first.
    std::unique_ptr<Video> m_video;
    WindowPtr m_window;
    RendererPtr m_renderer;
    TexturePtr m_texture;
    int m_width = 0;
    int m_height = 0;
};

} // namespace

std::unique_ptr<Window> Window::Open(const std::string& title, size_t width, size_t height,
                                     std::string& reason)
{
    constexpr size_t kMaximumSide = 1600;
    if (!HasDisplay()) {
        reason = "no display";
        return nullptr;
    }
    // Ctrl-C stays ours.
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "linear");
    auto video = std::make_unique<Video>();
    const size_t divisor = std::max(width, height) / kMaximumSide + 1;
    WindowPtr window(
        video->isReady ? SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_CENTERED,
                                          SDL_WINDOWPOS_CENTERED, static_cast<int>(width / divisor),
                                          static_cast<int>(height / divisor), SDL_WINDOW_RESIZABLE)
                       : nullptr);
    RendererPtr renderer(window ? SDL_CreateRenderer(window.get(), -1, 0) : nullptr);
    if (renderer == nullptr) {
        reason = SDL_GetError();
        return nullptr;
    }
    return std::make_unique<SdlWindow>(std::move(video), std::move(window), std::move(renderer));
}

#else

std::unique_ptr<Window> Window::Open(const std::string&, size_t, size_t, std::string& reason)
{
    reason = "this build has no windows (SDL2 was missing)";
    return nullptr;
}

#endif
