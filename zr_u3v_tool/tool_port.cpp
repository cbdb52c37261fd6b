#include "tool_port.h"

#include "tool_camera_list.h"
#include "tool_producer.h"

namespace {

using Visitor = std::function<void(const Producer&, PORT_HANDLE, const std::string&)>;

// No name means all of them.
bool IsWanted(const std::string& wanted, const char* name)
{
    return wanted.empty() || wanted == name;
}

// Camera, device and stream are behind an opened camera.
void VisitCamera(const Session& session, const Options& options, const std::string& wanted,
                 DEVICE_ACCESS_FLAGS access, const Visitor& use)
{
    const Camera camera(session, SelectCamera(session, options.camera).id, access);
    if (IsWanted(wanted, "device")) {
        use(session.Api(), camera.Device(), "device");
    }
    if (IsWanted(wanted, "stream")) {
        const DataStream stream(camera);
        use(session.Api(), stream.Handle(), "stream");
    }
    if (IsWanted(wanted, "camera")) {
        use(session.Api(), camera.Port(), "camera");
    }
}

// Opens what the wanted port needs and no more: the System's registers need no camera. Empty: every
// port.
void Visit(const Options& options, const std::string& wanted, DEVICE_ACCESS_FLAGS access,
           const Visitor& use)
{
    const Producer producer = LoadProducer(options);
    const Session session(producer, {.update_ms = options.discovery_ms});
    if (IsWanted(wanted, "system")) {
        use(producer, session.System(), "system");
    }
    if (IsWanted(wanted, "interface")) {
        use(producer, session.Interface(), "interface");
    }
    if (wanted != "system" && wanted != "interface") {
        VisitCamera(session, options, wanted, access, use);
    }
}

} // namespace

const std::vector<std::string>& PortNames()
{
    static const std::vector<std::string> names{"system", "interface", "device", "stream",
                                                "camera"};
    return names;
}

void WithPort(const Options& options, const std::string& name, DEVICE_ACCESS_FLAGS access,
              const std::function<void(const Producer&, PORT_HANDLE)>& use)
{
    Visit(options, name, access,
          [&](const Producer& api, PORT_HANDLE port, const std::string&) { use(api, port); });
}

void WithEachPort(const Options& options, const Visitor& use)
{
    Visit(options, "", DEVICE_ACCESS_READONLY, use);
}
