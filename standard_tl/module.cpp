#include "module.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "event_data.h"
#include "failure.h"
#include "last_error.h"
#include "producer_facts.h"

namespace standard_tl {
namespace {

using u3v_host::DescriptionFile;

constexpr InfoTable<PortFacts, 13> kPortInfo{
    "port",
    {
        {PORT_INFO_ID, INFO_DATATYPE_STRING, [](PortFacts& p) -> Value { return p.id; }},
        {PORT_INFO_VENDOR, INFO_DATATYPE_STRING, [](PortFacts& p) -> Value { return p.vendor; }},
        {PORT_INFO_MODEL, INFO_DATATYPE_STRING, [](PortFacts& p) -> Value { return p.model; }},
        {PORT_INFO_TLTYPE, INFO_DATATYPE_STRING,
         [](PortFacts&) -> Value { return producer::kTlType; }},
        {PORT_INFO_MODULE, INFO_DATATYPE_STRING, [](PortFacts& p) -> Value { return p.module; }},
        {PORT_INFO_LITTLE_ENDIAN, INFO_DATATYPE_BOOL8, [](PortFacts&) -> Value { return true; }},
        {PORT_INFO_BIG_ENDIAN, INFO_DATATYPE_BOOL8, [](PortFacts&) -> Value { return false; }},
        {PORT_INFO_ACCESS_READ, INFO_DATATYPE_BOOL8,
         [](PortFacts& p) -> Value { return p.isReadable; }},
        {PORT_INFO_ACCESS_WRITE, INFO_DATATYPE_BOOL8,
         [](PortFacts& p) -> Value { return p.isWritable; }},
        {PORT_INFO_ACCESS_NA, INFO_DATATYPE_BOOL8,
         [](PortFacts& p) -> Value { return !p.isReadable; }},
        {PORT_INFO_ACCESS_NI, INFO_DATATYPE_BOOL8, [](PortFacts&) -> Value { return false; }},
        {PORT_INFO_VERSION, INFO_DATATYPE_STRING, [](PortFacts& p) -> Value { return p.version; }},
        {PORT_INFO_PORTNAME, INFO_DATATYPE_STRING,
         [](PortFacts& p) -> Value { return p.portName; }},
    }};

auto OfType(EVENT_TYPE type)
{
    return [type](const std::unique_ptr<Event>& event) { return event->Type() == type; };
}

std::string UrlOf(const DescriptionFile& file)
{
    char place[48];
    snprintf(place, sizeof(place), ";%" PRIX64 ";%" PRIX64, file.address, file.size);
    return "local:" + file.name + place;
}

constexpr InfoTable<const DescriptionFile, 11> kUrlInfo{
    "URL",
    {
        {URL_INFO_URL, INFO_DATATYPE_STRING,
         [](const DescriptionFile& f) -> Value { return UrlOf(f); }},
        {URL_INFO_SCHEMA_VER_MAJOR, INFO_DATATYPE_INT32,
         [](const DescriptionFile& f) -> Value { return uint32_t{f.schemaMajor}; }},
        {URL_INFO_SCHEMA_VER_MINOR, INFO_DATATYPE_INT32,
         [](const DescriptionFile& f) -> Value { return uint32_t{f.schemaMinor}; }},
        {URL_INFO_FILE_VER_MAJOR, INFO_DATATYPE_INT32,
         [](const DescriptionFile& f) -> Value { return uint32_t{f.fileMajor}; }},
        {URL_INFO_FILE_VER_MINOR, INFO_DATATYPE_INT32,
         [](const DescriptionFile& f) -> Value { return uint32_t{f.fileMinor}; }},
        {URL_INFO_FILE_VER_SUBMINOR, INFO_DATATYPE_INT32,
         [](const DescriptionFile& f) -> Value { return uint32_t{f.fileSubMinor}; }},
        {URL_INFO_FILE_SHA1_HASH, INFO_DATATYPE_BUFFER,
         [](const DescriptionFile& f) -> Value { return f.sha1 ? Bytes(*f.sha1) : Value(); }},
        {URL_INFO_FILE_REGISTER_ADDRESS, INFO_DATATYPE_UINT64,
         [](const DescriptionFile& f) -> Value { return f.address; }},
        {URL_INFO_FILE_SIZE, INFO_DATATYPE_UINT64,
         [](const DescriptionFile& f) -> Value { return f.size; }},
        {URL_INFO_SCHEME, INFO_DATATYPE_INT32,
         [](const DescriptionFile&) -> Value { return URL_SCHEME_LOCAL; }},
        {URL_INFO_FILENAME, INFO_DATATYPE_STRING,
         [](const DescriptionFile& f) -> Value { return f.name; }},
    }};

} // namespace

// ---- the port

GC_ERROR Module::PortInfo(int32_t command, const InfoOut& out)
{
    PortFacts facts = Port();
    return kPortInfo.Answer(facts, command, out);
}

GC_ERROR Module::Url(const InfoOut& out)
{
    const auto files = Files();
    return files.empty() ? Refuse(GC_ERR_NOT_AVAILABLE, "the port has no description file")
                         : CopyText(UrlOf(files.front()), out);
}

GC_ERROR Module::UrlInfo(uint32_t index, int32_t command, const InfoOut& out)
{
    const auto files = Files();
    if (index >= files.size()) {
        throw Failure(GC_ERR_INVALID_INDEX,
                      "the port has " + std::to_string(files.size()) + " description files");
    }
    return kUrlInfo.Answer(files[index], command, out);
}

// ---- events

void* Module::RegisterEvent(EVENT_TYPE type)
{
    Locker registration(m_registration);
    if (_isRegistered(type)) {
        throw Failure(GC_ERR_RESOURCE_IN_USE, "the event is registered already");
    }
    auto made = _makeEvent(type);
    if (made == nullptr) {
        throw Failure(GC_ERR_NOT_IMPLEMENTED,
                      "the module has no events of type " + std::to_string(type));
    }
    Event& event = *made;
    {
        Locker lock(m_eventMutex);
        m_events.reserve(m_events.size() + 1);
        Handles().Add(event);
        m_events.push_back(std::move(made));
    }
    try {
        _switchEvent(type, event, true);
    } catch (...) {
        _dropEvent(type);
        throw;
    }
    return event.Handle();
}

void Module::UnregisterEvent(EVENT_TYPE type)
{
    Locker registration(m_registration);
    if (!_dropEvent(type)) {
        throw Failure(GC_ERR_INVALID_PARAMETER,
                      "no event of type " + std::to_string(type) + " is registered");
    }
}

void Module::CloseBelow()
{
    Node::CloseBelow();
    Locker registration(m_registration);
    for (const EVENT_TYPE type :
         {EVENT_ERROR, EVENT_NEW_BUFFER, EVENT_FEATURE_INVALIDATE, EVENT_REMOTE_DEVICE}) {
        _dropEvent(type);
    }
}

std::unique_ptr<Event> Module::_makeQueuedEvent(EVENT_TYPE type)
{
    return std::make_unique<QueuedEvent>(type, LargestRecord(type));
}

// Under the lock, so that the event stays.
void Module::_post(EVENT_TYPE type, Bytes record, bool once)
{
    Locker lock(m_eventMutex);
    if (auto* const event = dynamic_cast<QueuedEvent*>(_findEvent(type)); event != nullptr) {
        event->Add(record, once);
    }
}

Event* Module::_findEvent(EVENT_TYPE type)
{
    const auto found = std::ranges::find_if(m_events, OfType(type));
    return found != m_events.end() ? found->get() : nullptr;
}

bool Module::_isRegistered(EVENT_TYPE type)
{
    Locker lock(m_eventMutex);
    return _findEvent(type) != nullptr;
}

std::unique_ptr<Event> Module::_takeEvent(EVENT_TYPE type)
{
    Locker lock(m_eventMutex);
    const auto found = std::ranges::find_if(m_events, OfType(type));
    if (found == m_events.end()) {
        return nullptr;
    }
    auto event = std::move(*found);
    m_events.erase(found);
    return event;
}

// First nobody feeds it any more, then nobody waits for it any more.
bool Module::_dropEvent(EVENT_TYPE type)
{
    const auto event = _takeEvent(type);
    if (event == nullptr) {
        return false;
    }
    _switchEvent(type, *event, false);
    event->End();
    Handles().Remove(event->Handle());
    return true;
}

// ---- ports over a register map

void RegisterModule::Read(uint64_t address, std::span<uint8_t> destination, size_t& done)
{
    m_map.Read(address, destination);
    done = destination.size();
}

void RegisterModule::Write(uint64_t address, Bytes source, size_t& done)
{
    m_map.Write(address, source);
    done = source.size();
}

} // namespace standard_tl
