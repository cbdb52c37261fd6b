#pragma once

#include <arv.h>

#include "tool_consumer.h"

// A GObject of libaravis' abstract device whose memory is a GenTL port: what its node map reads and
// writes goes through GCReadPort and GCWritePort. Producer and port must outlive it. The caller
// owns the reference. (libaravis' own cameras, buses and streams are not used.)
ArvDevice* MakePortDevice(const Producer& api, PORT_HANDLE port);
