#pragma once

#include "producer_identity.h"
#include "zr_gentl_module_base.h"

// What the modules of the producer itself, all but the camera's own port, say to GCGetPortInfo:
// `module` is their kind name.
inline _ZR_GENTL_PORT_INFO ProducerPortInfo(const char* module, const char* portName)
{
    _ZR_GENTL_PORT_INFO info;
    info.id = Producer::kId;
    info.vendor = Producer::kVendor;
    info.model = Producer::kModel;
    info.tlType = Producer::kTLType;
    info.module = module;
    info.version = Producer::kVersion;
    info.portName = portName;
    return info;
}
