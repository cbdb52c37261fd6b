// The texts behind ZrGenTLUtil::CreateXML...: the framework names the documents, this folder owns
// them.

#include "zr_gentl_util.h"
#include "zr_xml_documents.h"

std::string ZrGenTLUtil::CreateXMLSystem()
{
    return std::string(kXmlSystem);
}

std::string ZrGenTLUtil::CreateXMLInterface()
{
    return std::string(kXmlInterface);
}

std::string ZrGenTLUtil::CreateXMLDevice()
{
    return std::string(kXmlDevice);
}

std::string ZrGenTLUtil::CreateXMLDataStream()
{
    return std::string(kXmlDataStream);
}
