#include "command_line.h"

#include <algorithm>
#include <charconv>
#include <sstream>

#include "fault_plan.h"
#include "pixel_format.h"

namespace vcam {

namespace {

constexpr std::uint32_t kMaxCameras = 64;

template <typename T>
bool ToNumber(std::string_view text, T& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

const OptionName* FindOption(std::string_view key)
{
    const auto names = OptionNames();
    const auto found = std::find_if(names.begin(), names.end(),
                                    [key](const OptionName& name) { return key == name.key; });
    return found == names.end() ? nullptr : &*found;
}

// One pass over the arguments: what each one says to the cameras is kept until all is known.
class Parser
{
public:
    Parser(CommandLine& line, const std::vector<std::string>& arguments)
        : m_line(line), m_arguments(arguments)
    {
    }

    std::string Run()
    {
        while (m_next < m_arguments.size() && m_error.empty()) {
            _Take(m_arguments[m_next++]);
        }
        if (m_error.empty() && m_line.mode == CommandLine::Mode::None) {
            m_error = "neither --attach nor --listen";
        }
        return m_error.empty() ? _MakeCameras() : m_error;
    }

private:
    void _Take(const std::string& argument)
    {
        if (argument == "-h") {
            m_line.mode = CommandLine::Mode::Help;
            return;
        }
        if (!argument.starts_with("--")) {
            m_error = "unknown argument \"" + argument + "\"";
            return;
        }
        const std::size_t equals = argument.find('=');
        m_hasValue = equals != std::string::npos;
        m_value = m_hasValue ? argument.substr(equals + 1) : std::string();
        _Option(argument.substr(2, m_hasValue ? equals - 2 : std::string::npos));
    }

    void _Option(const std::string& key)
    {
        if (key == "help") {
            m_line.mode = CommandLine::Mode::Help;
        } else if (key == "attach") {
            _SetMode(CommandLine::Mode::Attach);
        } else if (key == "listen") {
            _SetMode(CommandLine::Mode::Listen);
            _Listen();
        } else if (key == "quiet") {
            m_line.quiet = true;
        } else if (key == "count") {
            if (!ToNumber(_Value(key), m_count) || m_count == 0 || m_count > kMaxCameras) {
                _Complain("--count takes a number from 1 to " + std::to_string(kMaxCameras));
            }
        } else if (key == "size") {
            _Size(_Value(key));
        } else if (key == "camera") {
            m_own.push_back(_Value(key));
        } else if (const OptionName* option = FindOption(key)) {
            // A switch alone is on.
            const std::string value = !m_hasValue && option->isSwitch ? "1" : _Value(key);
            _Complain(m_common.Set(key, value));
        } else {
            _Complain("unknown option \"--" + key + "\"");
        }
    }

    void _SetMode(CommandLine::Mode mode)
    {
        if (m_line.mode == CommandLine::Mode::Help) {
            return;
        }
        if (m_line.mode != CommandLine::Mode::None && m_line.mode != mode) {
            _Complain("--attach and --listen exclude each other");
        }
        m_line.mode = mode;
    }

    // The address is optional: --listen, --listen=ADDRESS, --listen=ADDRESS:PORT, --listen=:PORT;
    // an address of the sixth version stands in brackets.
    void _Listen()
    {
        if (!m_hasValue && m_next < m_arguments.size() && !m_arguments[m_next].starts_with("-")) {
            m_value = m_arguments[m_next++];
        }
        const std::size_t bracket = m_value.find(']');
        const std::size_t colon = m_value.find(
            ':', m_value.starts_with("[") && bracket != std::string::npos ? bracket : 0);
        std::string address = m_value.substr(0, colon);
        if (colon != std::string::npos && !ToNumber(m_value.substr(colon + 1), m_line.port)) {
            _Complain("\"" + m_value + "\" is no ADDRESS:PORT");
        }
        if (address.starts_with("[") && address.ends_with("]")) {
            address = address.substr(1, address.size() - 2);
        }
        m_line.address = address.empty() ? m_line.address : address;
    }

    void _Size(const std::string& value)
    {
        const std::size_t cross = value.find('x');
        if (cross == std::string::npos) {
            _Complain("--size takes WIDTHxHEIGHT");
            return;
        }
        _Complain(m_common.Set("width", value.substr(0, cross)));
        _Complain(m_common.Set("height", value.substr(cross + 1)));
    }

    std::string _Value(const std::string& key)
    {
        if (m_hasValue) {
            return m_value;
        }
        if (m_next == m_arguments.size()) {
            _Complain("--" + key + " needs a value");
            return {};
        }
        return m_arguments[m_next++];
    }

    void _Complain(const std::string& text) { m_error = m_error.empty() ? text : m_error; }

    // The common options first, then what each camera has of its own.
    std::string _MakeCameras()
    {
        if (!m_own.empty() && m_count > 1 && m_own.size() > m_count) {
            return "more --camera than --count";
        }
        const auto total = std::max<std::size_t>(m_count, m_own.size());
        for (std::uint32_t i = 0; i < total; ++i) {
            m_line.cameras.push_back(m_common.Numbered(i));
            if (i < m_own.size()) {
                std::string error = m_line.cameras.back().Apply(m_own[i]);
                if (!error.empty()) {
                    return error;
                }
            }
        }
        return {};
    }

    CommandLine& m_line;
    const std::vector<std::string>& m_arguments;
    std::size_t m_next = 0;
    bool m_hasValue = false;
    std::string m_value;
    CameraConfig m_common;
    std::uint32_t m_count = 1;
    std::vector<std::string> m_own;
    std::string m_error;
};

void Row(std::ostringstream& text, const std::string& name, const std::string& meaning)
{
    constexpr std::size_t kColumn = 24;
    text << "  " << name << std::string(name.size() < kColumn ? kColumn - name.size() : 1, ' ')
         << meaning << "\n";
}

} // namespace

std::string CommandLine::Parse(const std::vector<std::string>& arguments)
{
    return Parser(*this, arguments).Run();
}

std::string CommandLine::Help()
{
    std::ostringstream text;
    text << "Usage: zr_u3v_camera --attach [option ...]\n"
            "       zr_u3v_camera --listen[=ADDRESS[:PORT]] [option ...]\n\n"
            "Plugs virtual USB3 Vision cameras into the running kernel, or serves them to \"usbip\n"
            "attach\". Ctrl-C unplugs them and prints their counters.\n\n"
            "Where:\n";
    Row(text, "--attach", "into this machine, through the module vhci-hcd; as root");
    Row(text, "--listen[=ADDRESS:PORT]", "as a USB/IP server; default 127.0.0.1:3240");
    text << "\nWhat:\n";
    Row(text, "--count N", "number of cameras; GUID, serial number and seed count up");
    Row(text, "--camera KEY=VALUE,...", "options of the first (then second, ...) camera");
    Row(text, "--size WIDTHxHEIGHT", "--width and --height in one");
    for (const OptionName& name : OptionNames()) {
        Row(text, "--" + std::string(name.key) + (name.isSwitch ? "" : " VALUE"), name.meaning);
    }
    text << "\nPixel formats:";
    for (const PixelFormat& format : PixelFormats()) {
        text << " " << format.name;
    }
    text << "\n\nOther:\n";
    Row(text, "--quiet", "only errors, and the counters at the end");
    Row(text, "--help", "this text");
    text << "\nFaults (--faults NAME[%[r|w]ADDRESS][@FIRST][*COUNT][:VALUE],...):\n";
    for (const FaultName& fault : FaultNames()) {
        Row(text, fault.name, fault.effect);
    }
    text << "\nExit status: 0, 1 on failure, 2 for wrong options.\n";
    return text.str();
}

} // namespace vcam
