#pragma once

#include <cstdint>
#include <string>

// One interface, as the System lists it and as the Interface module is made from.
struct _ZR_U3V_INTERFACE_INFO
{
    std::string id;
    std::string displayName;
    std::string tlType;
};

// One camera, as the Interface lists it and as the Device and Remote Device modules are made from.
struct _ZR_U3V_DEVICE_INFO
{
    std::string id; // the camera's GUID
    std::string vendor;
    std::string model;
    std::string displayName;
    std::string tlType;
    int32_t accessStatus = 0; // DEVICE_ACCESS_STATUS_LIST
    std::string userDefinedName;
    std::string serialNumber;
    std::string version;
    uint64_t reserved64 = 0; // not set by discovery
    uint32_t reserved32 = 0; // not set by discovery
};
