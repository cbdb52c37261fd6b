#pragma once

#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "zr_gentl_module_base.h"

// A module of any kind: its port answers from a script and notes every access.
class TestModule : public ZrGenTLModuleBase
{
public:
    explicit TestModule(const std::string& kind = "TLDevice", const std::string& id = "id",
                        ZrGenTLModuleBase* parent = nullptr)
        : ZrGenTLModuleBase(id, parent)
    {
        m_portInfo.module = kind;
    }
    ~TestModule() override
    {
        if (destroyed != nullptr) {
            ++*destroyed;
        }
    }

    bool IsPortImplemented() override { return portImplemented; }
    GC_ERROR ReadPort(uint64_t iAddress, void* pBuffer, size_t* piSize) override
    {
        return Access('r', iAddress, pBuffer, piSize);
    }
    GC_ERROR WritePort(uint64_t iAddress, const void* pBuffer, size_t* piSize) override
    {
        return Access('w', iAddress, pBuffer, piSize);
    }
    bool IsEventImplemented(int iEventID) override { return events.contains(iEventID); }

    // For a test that fills it before anybody else knows the module.
    _ZR_GENTL_PORT_INFO& PortInfo() ZR_NO_THREAD_SAFETY_ANALYSIS { return m_portInfo; }

    struct Access_
    {
        char kind;
        uint64_t address;
        const void* buffer;
        size_t size;
        bool operator==(const Access_&) const = default;
    };

    bool portImplemented = true;
    std::set<int> events;
    std::vector<Access_> accesses;
    std::vector<GC_ERROR> results; // of the accesses in order, then success
    int* destroyed = nullptr;

private:
    GC_ERROR Access(char kind, uint64_t address, const void* buffer, size_t* size)
    {
        accesses.push_back({kind, address, buffer, *size});
        *size = 999; // what a port reports back
        return accesses.size() <= results.size() ? results[accesses.size() - 1] : GC_ERR_SUCCESS;
    }
};

// The vtable slot of a virtual member function: the platform's pointers to virtual members hold one
// plus its byte offset. The destructor takes slots 0 and 1.
template <class Member>
size_t SlotOf(Member member)
{
    uintptr_t value = 0;
    memcpy(&value, &member, sizeof value);
    return (value - 1) / sizeof(void*);
}

// Whether a pointer to a member function names a virtual one: the platform marks those with the
// lowest bit.
template <class Member>
bool IsVirtual(Member member)
{
    uintptr_t value = 0;
    memcpy(&value, &member, sizeof value);
    return (value & 1) != 0;
}
