#pragma once

#include "zr_gentl_thread_discovery.h"

class ZrU3VInterface;

// The discovery worker of an Interface module: a pass is that interface's DiscoverDevices.
class ZrU3VThreadDeviceDiscovery : public ZrGenTLThreadDiscovery
{
public:
    explicit ZrU3VThreadDeviceDiscovery(ZrU3VInterface* pInterface);
    ~ZrU3VThreadDeviceDiscovery() override;
    void DoDiscovery() override;

private:
    ZrU3VInterface* const m_interface;
};
