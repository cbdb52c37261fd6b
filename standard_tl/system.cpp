#include "system.h"

#include "failure.h"
#include "ids.h"
#include "interface.h"
#include "producer_facts.h"

namespace standard_tl {
namespace {

constexpr DocumentIdentity kDocument{"zr_u3v_standard_system", "The producer", "TLPort",
                                     "6B1C3C52-8D0E-4F0A-9B61-7C2C35C9A101"};

Feature Text(const char* category, const char* name, const char* toolTip, const char* text,
             size_t length = 64)
{
    return TextFeature(
        category, name, toolTip, [text] { return Value(text); }, length);
}

Feature Number(const char* category, const char* name, const char* toolTip, unsigned number)
{
    return NumberFeature(category, name, toolTip, [number] { return Value(number); });
}

std::vector<Feature> Information()
{
    using namespace producer;
    constexpr const char* kCategory = "SystemInformation";
    return {
        Text(kCategory, "TLID", "Id of the producer", kId),
        Text(kCategory, "TLVendorName", "Maker of the producer", kVendor),
        Text(kCategory, "TLModelName", "Name of the producer", kModel),
        Text(kCategory, "TLVersion", "Version of the producer", kVersion),
        Text(kCategory, "TLFileName", "Name of the producer's file", FileName(), 256),
        Text(kCategory, "TLDisplayName", "Name of the producer to show", kDisplayName),
        Text(kCategory, "TLPath", "Path of the producer's file", FilePath(), 4096),
        TypeFeature(kCategory, "TLType", "Technology that the producer serves"),
        Number(kCategory, "GenTLVersionMajor", "Major number of the GenTL version", kGenTlMajor),
        Number(kCategory, "GenTLVersionMinor", "Minor number of the GenTL version", kGenTlMinor),
        Number(kCategory, "GenTLSFNCVersionMajor", "Major version of the names", kSfncMajor),
        Number(kCategory, "GenTLSFNCVersionMinor", "Minor version of the names", kSfncMinor),
        Number(kCategory, "GenTLSFNCVersionSubMinor", "Sub-minor version of the names",
               kSfncSubMinor),
    };
}

// The list cannot change, so there is nothing to look for and nothing to remember.
std::vector<Feature> Enumeration()
{
    constexpr const char* kCategory = "InterfaceEnumeration";
    return {
        {.category = kCategory,
         .name = "InterfaceUpdateList",
         .kind = FeatureKind::Command,
         .toolTip = "Updates the list of interfaces",
         .get = [] { return Value(0); },
         .set = [](uint64_t) {}},
        {.category = kCategory,
         .name = "InterfaceSelector",
         .kind = FeatureKind::Number,
         .toolTip = "The interface that the next features tell about",
         .get = [] { return Value(0); },
         .set = [](uint64_t) {},
         .maximum = "InterfaceSelectorMax",
         .selects = {"InterfaceID", "InterfaceDisplayName", "InterfaceType"}},
        Text(kCategory, "InterfaceID", "Id of the interface", producer::kInterfaceId),
        Text(kCategory, "InterfaceDisplayName", "Name of the interface to show",
             producer::kInterfaceDisplayName),
        TypeFeature(kCategory, "InterfaceType", "Technology of the interface"),
        Number(nullptr, "InterfaceSelectorMax", "The last interface", System::kNumInterfaces - 1),
    };
}

std::vector<Feature> Features()
{
    auto features = Information();
    for (Feature& feature : Enumeration()) {
        features.push_back(std::move(feature));
    }
    return features;
}

void CheckId(const char* id)
{
    CheckNotNull(id, "sIfaceID");
    if (!AreSameIds(id, producer::kInterfaceId)) {
        throw Failure(GC_ERR_INVALID_ID, "no interface has the id \"" + std::string(id) + "\"");
    }
}

} // namespace

System::System(Library& library)
    : RegisterModule(&library, kDocument, Features()), m_library(library)
{
}

GC_ERROR System::InterfaceId(uint32_t index, const InfoOut& out) const
{
    if (index >= kNumInterfaces) {
        throw Failure(GC_ERR_INVALID_INDEX, "there is one interface, with the index 0");
    }
    return CopyText(producer::kInterfaceId, out);
}

GC_ERROR System::InterfaceInfo(const char* id, int32_t command, const InfoOut& out) const
{
    CheckId(id);
    return Interface::Info(command, out);
}

void* System::OpenInterface(const char* id)
{
    CheckId(id);
    Locker lock(m_openMutex);
    if (_findChild<Interface>([](const Interface&) { return true; }) != nullptr) {
        throw Failure(GC_ERR_RESOURCE_IN_USE, "the interface is open already");
    }
    return _adopt(std::make_unique<Interface>(*this, m_library));
}

PortFacts System::Port()
{
    return {producer::kId,
            producer::kVendor,
            producer::kModel,
            producer::kVersion,
            "TLSystem",
            kDocument.port,
            true,
            true};
}

} // namespace standard_tl
