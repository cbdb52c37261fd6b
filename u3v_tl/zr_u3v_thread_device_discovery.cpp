#include "zr_u3v_thread_device_discovery.h"

#include <exception>

#include "module_failure.h"
#include "zr_u3v_interface.h"

ZrU3VThreadDeviceDiscovery::ZrU3VThreadDeviceDiscovery(ZrU3VInterface* pInterface)
    : m_interface(pInterface)
{
}

// The worker calls DoDiscovery: it ends before this class's part of the object does.
ZrU3VThreadDeviceDiscovery::~ZrU3VThreadDeviceDiscovery()
{
    RequestExit();
    WaitForExit();
}

void ZrU3VThreadDeviceDiscovery::DoDiscovery()
{
    try {
        m_interface->DiscoverDevices();
    } catch (const std::exception& exception) {
        // Out of memory on the worker: the list of the pass before stays.
        ZR_TRACE(ZR_TRACE_ERROR, "%s Failed! %s", __func__, exception.what());
    }
}
