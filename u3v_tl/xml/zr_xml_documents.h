#pragma once

#include <string_view>

// The register descriptions of the four modules: the exact bytes of the .xml files beside this
// header. Constant data, there before any constructor runs, not terminated by a zero; any thread
// may read them.
//
// The documents are what generic clients have been built against, so they keep some oddities. The
// documents are served to consumers as they are, hence the marks stand here:
//
// Quirk Q80: the System's EventControl is in no tree and lists three features without nodes.
// Quirk Q81: BufferHandlingControl names StreamDeliveredFrameCount, whose feature is commented out.
// Quirk Q82: the System's InterfaceUpdateList is bound to no register; its register has the
// address. Quirk Q83: UpdateXMLFile_Reg (512 bytes) reaches over UpdateXML_Reg; addresses are exact
// matches. Quirk Q84: the System's TLType is shown as "Device Type". Quirk Q85: one GUID pair for
// all four documents, and "ZRK_ORVANE" with an underscore.
extern const std::string_view kXmlSystem;
extern const std::string_view kXmlInterface;
extern const std::string_view kXmlDevice;
extern const std::string_view kXmlDataStream;
