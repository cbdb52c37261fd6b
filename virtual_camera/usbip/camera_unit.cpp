#include "camera_unit.h"

#include <algorithm>
#include <sstream>

namespace vcam {

CameraUnit::CameraUnit(std::uint32_t number, const CameraConfig& config)
    : m_number(number), m_config(config), m_camera(std::make_unique<UsbCamera>(config))
{
}

std::string CameraUnit::Name() const
{
    return "camera " + std::to_string(m_number + 1) + " (" + m_config.guid + ")";
}

DeviceLink::End CameraUnit::Serve(FileDescriptor socket)
{
    const auto imageUnderWay = [camera = m_camera.get()] {
        const CameraStats stats = camera->Stats();
        return stats.stream.started != stats.stream.sent;
    };
    DeviceLink link(*m_camera, std::move(socket), imageUnderWay);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped) {
            return DeviceLink::End::Stopped;
        }
        m_link = &link;
    }
    const DeviceLink::End end = link.Run();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_link = nullptr;
    }
    const LinkCounts& counts = link.Counts();
    ++m_hosts;
    m_linkCounts.requests += counts.requests;
    m_linkCounts.unlinked += counts.unlinked;
    m_linkCounts.starved += counts.starved;
    m_linkCounts.malformed += counts.malformed;
    m_linkCounts.maxQueued = std::max(m_linkCounts.maxQueued, counts.maxQueued);
    m_linkCounts.maxBytes = std::max(m_linkCounts.maxBytes, counts.maxBytes);
    return end;
}

void CameraUnit::Stop()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stopped = true;
    if (m_link != nullptr) {
        m_link->Stop();
    }
}

void CameraUnit::Renew()
{
    const CameraStats stats = m_camera->Stats();
    m_stats.stream.sent += stats.stream.sent;
    m_stats.stream.dropped += stats.stream.dropped;
    m_stats.stream.bytes += stats.stream.bytes;
    m_stats.stream.overflows += stats.stream.overflows;
    m_stats.controlTransactions += stats.controlTransactions;
    m_stats.faultsPlayed += stats.faultsPlayed;
    for (const auto& [kind, count] : m_camera->Errors()) {
        m_errors[kind] += count;
    }
    m_config = m_camera->Persistent();
    m_camera = std::make_unique<UsbCamera>(m_config);
}

std::string CameraUnit::Report() const
{
    const CameraStats now = m_camera->Stats();
    ErrorCounts errors = m_errors;
    for (const auto& [kind, count] : m_camera->Errors()) {
        errors[kind] += count;
    }
    std::ostringstream text;
    text << Name() << "\n"
         << "  images sent           " << m_stats.stream.sent + now.stream.sent << "\n"
         << "  images dropped        " << m_stats.stream.dropped + now.stream.dropped << "\n"
         << "  stream bytes          " << m_stats.stream.bytes + now.stream.bytes << "\n"
         << "  control transactions  " << m_stats.controlTransactions + now.controlTransactions
         << "\n"
         << "  requests              " << m_linkCounts.requests << ", " << m_linkCounts.unlinked
         << " cancelled\n"
         << "  most queued           " << m_linkCounts.maxQueued << " requests, "
         << m_linkCounts.maxBytes << " bytes\n"
         << "  starved               " << m_linkCounts.starved << " times within an image\n"
         << "  overflows             " << m_stats.stream.overflows + now.stream.overflows << "\n"
         << "  faults played         " << m_stats.faultsPlayed + now.faultsPlayed << "\n"
         << "  protocol violations   ";
    if (m_linkCounts.malformed != 0) {
        errors["malformed-record"] += m_linkCounts.malformed;
    }
    if (errors.empty()) {
        text << "none";
    }
    const char* separator = "";
    for (const auto& [kind, count] : errors) {
        text << separator << kind << " " << count;
        separator = ", ";
    }
    text << "\n";
    return text.str();
}

} // namespace vcam
