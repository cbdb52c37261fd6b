#pragma once

// Runs zr-u3v as its user does, in a folder of its own, and reads what it leaves.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <png.h>
#include <sstream>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "virtual_bus.h"
#include "wait.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;

struct Result
{
    int code = -1;
    std::string output;
    std::string errors;
};

inline std::string Contents(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// With which producer the tests run: the exact one when ZR_TEST_EXACT is set.
inline bool IsExact()
{
    return std::getenv("ZR_TEST_EXACT") != nullptr;
}

class ToolTest : public ::testing::Test
{
protected:
    ToolTest()
    {
        std::string pattern = (fs::temp_directory_path() / "zr-u3v-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        m_folder = pattern;
    }
    ~ToolTest() override
    {
        std::error_code ignored;
        fs::remove_all(m_folder, ignored);
    }

    fs::path File(const std::string& name) const { return m_folder / name; }

    // Starts the program in the test's folder; its output goes to files, or to `terminal`.
    pid_t Start(std::vector<std::string> arguments, int terminal = -1) const
    {
        const auto names = std::find(arguments.begin(), arguments.end(), "--producer");
        if (IsExact() && names == arguments.end()) {
            arguments.insert(arguments.begin(), "--exact");
        }
        arguments.insert(arguments.begin(), ZR_TOOL);
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            const int out = open(File("out").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
            const int err = open(File("err").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
            dup2(terminal >= 0 ? terminal : out, STDOUT_FILENO);
            dup2(err, STDERR_FILENO);
            if (chdir(m_folder.c_str()) == 0) {
                execv(ZR_TOOL, pointers.data());
            }
            _exit(127);
        }
        return child;
    }
    Result Finish(pid_t child) const
    {
        int status = 0;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status),
                Contents(File("out")), Contents(File("err"))};
    }
    Result Run(const std::vector<std::string>& arguments) const { return Finish(Start(arguments)); }

    // The same on virtual cameras with these options.
    Result RunOn(const std::string& camera, std::vector<std::string> arguments) const
    {
        return Run(OnBus(camera, std::move(arguments)));
    }
    // The same with a terminal, on which this is what appears.
    std::string Appears(const std::string& camera, std::vector<std::string> arguments) const
    {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_TRUE(grantpt(terminal) == 0 && unlockpt(terminal) == 0);
        const int end = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios raw{};
        cfmakeraw(&raw); // line feeds as they are written
        EXPECT_EQ(tcsetattr(end, TCSANOW, &raw), 0);
        const pid_t child = Start(OnBus(camera, std::move(arguments)), end);
        close(end);
        std::string text;
        char bytes[4096];
        for (ssize_t size = 0; (size = read(terminal, bytes, sizeof bytes)) > 0;) {
            text.append(bytes, static_cast<size_t>(size));
        }
        close(terminal);
        EXPECT_EQ(Finish(child).code, 0);
        return text;
    }

    Json RunJson(const std::string& camera, std::vector<std::string> arguments) const
    {
        arguments.emplace_back("--json");
        const Result result = RunOn(camera, std::move(arguments));
        EXPECT_EQ(result.code, 0) << result.errors;
        return Json::parse(result.output, nullptr, false);
    }

private:
    static std::vector<std::string> OnBus(const std::string& camera,
                                          std::vector<std::string> arguments)
    {
        std::vector<std::string> bus{"--virtual-camera", camera};
        if (IsExact()) { // which uses all of it
            bus.insert(bus.end(), {"--discovery-time", "150"});
        }
        arguments.insert(arguments.begin(), bus.begin(), bus.end());
        return arguments;
    }

    fs::path m_folder;
};

struct Pixels
{
    unsigned width = 0;
    unsigned height = 0;
    unsigned channels = 0;
    unsigned bits = 0;
    unsigned significant = 0;
    std::vector<uint16_t> samples;
};

// Reads with the classical interface, so that 16-bit samples come as they stand in the file.
inline Pixels ReadPng(const fs::path& path)
{
    Pixels pixels;
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        ADD_FAILURE() << "no file " << path;
        return pixels;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    pixels.width = png_get_image_width(png, info);
    pixels.height = png_get_image_height(png, info);
    pixels.channels = png_get_channels(png, info);
    pixels.bits = png_get_bit_depth(png, info);
    png_color_8p significant = nullptr;
    if (png_get_sBIT(png, info, &significant) != 0) {
        pixels.significant = pixels.channels == 1 ? significant->gray : significant->red;
    }
    png_bytepp rows = png_get_rows(png, info);
    for (unsigned y = 0; y < pixels.height; y++) {
        for (unsigned i = 0; i < pixels.width * pixels.channels; i++) {
            pixels.samples.push_back(
                pixels.bits == 16 ? static_cast<uint16_t>(rows[y][2 * i] << 8 | rows[y][2 * i + 1])
                                  : rows[y][i]);
        }
    }
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(file);
    return pixels;
}

// Frame `frame` of a camera with these options, as it leaves the camera.
inline std::vector<unsigned char> Sent(const std::string& options, uint64_t frame)
{
    vusb_reset();
    return vusb::Camera(options).Expected(frame);
}
