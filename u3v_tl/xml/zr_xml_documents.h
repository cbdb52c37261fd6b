#pragma once

#include <string_view>

// The register descriptions of the four modules: the exact bytes of the .xml files beside this
// header. Constant data, there before any constructor runs, not terminated by a zero; any thread
// may read them.
//
// Generic clients have been built against these documents, so they keep some oddities. Consumers
// are served the files as they are, hence the marks stand here.
//
// Quirk Q85: one GUID pair for all four documents, and "ZRK_ORVANE" with an underscore.

// Quirk Q80: EventControl is in no tree and lists three features without nodes.
//
// Quirk Q82: InterfaceUpdateList is bound to no register, though there is one for it.
//
// Quirk Q84: TLType is shown as "Device Type".
extern const std::string_view kXmlSystem;

extern const std::string_view kXmlInterface;

// Quirk Q83: UpdateXMLFile_Reg (512 bytes) reaches over UpdateXML_Reg; ports serve exact addresses.
extern const std::string_view kXmlDevice;

// Quirk Q81: a category names StreamDeliveredFrameCount, whose feature is commented out.
extern const std::string_view kXmlDataStream;
