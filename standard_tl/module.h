#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "camera.h"
#include "event.h"
#include "info.h"
#include "module_registers.h"
#include "node.h"
#include "zr_sync.h"
#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

// What GCGetPortInfo tells.
struct PortFacts
{
    std::string id;
    std::string vendor;
    std::string model;
    std::string version;
    const char* module;
    const char* portName;
    bool isReadable;
    bool isWritable;
};

// A node with a port, and a source of events.
class Module : public Node
{
public:
    using Node::Node;

    // ---- the port; throw Failure or u3v_host::Error

    virtual PortFacts Port() = 0;
    // `done` tells how many bytes were, also when it throws.
    virtual void Read(uint64_t address, std::span<uint8_t> destination, size_t& done) = 0;
    virtual void Write(uint64_t address, Bytes source, size_t& done) = 0;
    // The description files, the best first.
    virtual std::vector<u3v_host::DescriptionFile> Files() = 0;

    GC_ERROR PortInfo(int32_t command, const InfoOut& out);
    GC_ERROR Url(const InfoOut& out);
    GC_ERROR UrlInfo(uint32_t index, int32_t command, const InfoOut& out);

    // ---- events

    // Throw Failure: GC_ERR_NOT_IMPLEMENTED, GC_ERR_NOT_AVAILABLE, GC_ERR_RESOURCE_IN_USE,
    // GC_ERR_INVALID_PARAMETER (not registered).
    void* RegisterEvent(EVENT_TYPE type) ZR_EXCLUDES(m_registration, m_eventMutex);
    void UnregisterEvent(EVENT_TYPE type) ZR_EXCLUDES(m_registration, m_eventMutex);

    void CloseBelow() override ZR_EXCLUDES(m_registration, m_eventMutex);

protected:
    // A new event of that type; NULL when the module has none.
    virtual std::unique_ptr<Event> _makeEvent(EVENT_TYPE type) = 0;
    // What feeds the event is switched on (may throw) and off. One at a time.
    virtual void _switchEvent(EVENT_TYPE /*type*/, Event& /*event*/, bool /*on*/) {}

    // An event with entries of its own.
    static std::unique_ptr<Event> _makeQueuedEvent(EVENT_TYPE type);
    // Adds an entry to such an event, if it is registered.
    void _post(EVENT_TYPE type, Bytes record, bool once = false) ZR_EXCLUDES(m_eventMutex);

private:
    Event* _findEvent(EVENT_TYPE type) ZR_REQUIRES(m_eventMutex);
    bool _isRegistered(EVENT_TYPE type) ZR_EXCLUDES(m_eventMutex);
    std::unique_ptr<Event> _takeEvent(EVENT_TYPE type) ZR_EXCLUDES(m_eventMutex);
    bool _dropEvent(EVENT_TYPE type) ZR_REQUIRES(m_registration) ZR_EXCLUDES(m_eventMutex);

    Mutex m_registration; // one registration at a time: it may have to talk with the camera
    Mutex m_eventMutex;
    std::vector<std::unique_ptr<Event>> m_events ZR_GUARDED_BY(m_eventMutex);
};

// A module of the producer's own, whose port serves a register map.
class RegisterModule : public Module
{
public:
    RegisterModule(Node* parent, const DocumentIdentity& identity, std::vector<Feature> features)
        : Module(parent), m_map(identity, std::move(features))
    {
    }

    void Read(uint64_t address, std::span<uint8_t> destination, size_t& done) override;
    void Write(uint64_t address, Bytes source, size_t& done) override;
    std::vector<u3v_host::DescriptionFile> Files() override { return {m_map.File()}; }
    const RegisterMap& Registers() const { return m_map; }

private:
    const RegisterMap m_map;
};

} // namespace standard_tl
