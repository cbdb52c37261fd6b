#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tool_node_map.h"
#include "tool_options.h"

// What is to be done to a camera before its images are taken.
struct CameraWishes
{
    std::vector<std::string> settings; // "NAME=VALUE", in the order in which they are set
    bool softwareTrigger = false;      // an image for each Trigger()
};

// Starts and stops a camera by its features, as GenICam applications do: settings are made and
// TLParamsLocked is set as long as this lives, AcquisitionStart and AcquisitionStop are executed by
// Switch(). (Of the exact producer the camera is stopped behind the stream: its stop waits for what
// the camera is sending.) A camera without these features, or with a description file that nobody
// understands, is left to start by the stream alone, with a warning; it is an error only where
// wishes need them. Made before buffers are announced (settings change the image's size) and gone
// after the stream.
class CameraControl
{
public:
    // Throws ToolError, also for a wish that the camera cannot fulfil.
    CameraControl(const Camera& camera, const CameraWishes& wishes);
    ~CameraControl();
    CameraControl(const CameraControl&) = delete;
    CameraControl& operator=(const CameraControl&) = delete;

    // For an Acquisition that this outlives.
    consumer::CameraSwitch Switch() const;
    // NULL where nobody understands the description file.
    const NodeMap* Features() const { return m_features.get(); }
    // Asks for an image where images are triggered; nothing otherwise.
    void Trigger() const;

private:
    void _apply(const CameraWishes& wishes) const;
    void _prepareTrigger() const;
    void _stop() const;
    bool _lock(const char* value) const;

    std::unique_ptr<NodeMap> m_features;
    const bool m_stopsLate;
    bool m_isTriggered = false;
    bool m_isLocked = false;
};

// What the command line wishes; and its buffers, all announced, for the camera as it is set now.
CameraWishes WishesOf(const Options& options);
Acquisition Announce(const DataStream& stream, const CameraControl& control,
                     const Options& options);

// "NAME=VALUE" as its two parts. Throws ToolError (Usage).
std::pair<std::string, std::string> SplitSetting(const std::string& setting);
