#pragma once

#include <cstdint>
#include <memory>

#include "library.h"
#include "module.h"

namespace standard_tl {

// The System: one, with one interface, which stands for the whole USB and is always listed.
class System final : public RegisterModule
{
public:
    static constexpr uint32_t kNumInterfaces = 1;

    explicit System(Library& library);

    // Throw Failure: GC_ERR_INVALID_ID, GC_ERR_INVALID_INDEX, GC_ERR_RESOURCE_IN_USE.
    GC_ERROR InterfaceId(uint32_t index, const InfoOut& out) const;
    GC_ERROR InterfaceInfo(const char* id, int32_t command, const InfoOut& out) const;
    void* OpenInterface(const char* id) ZR_EXCLUDES(m_openMutex);

    PortFacts Port() override;

private:
    std::unique_ptr<Event> _makeEvent(EVENT_TYPE /*type*/) override { return nullptr; }

    Library& m_library;
    Mutex m_openMutex;
};

} // namespace standard_tl
