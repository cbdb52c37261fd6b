#pragma once

// A scripted stand-in for the exported GenTL functions, for tests of the console client. It
// journals every call, answers from tables and fails where a test says so. Calls may come from two
// threads.

#include <zr_u3v_tl/gentl.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

class FakeGenTL
{
public:
    // ---- script; set up before the client runs ------------------------------------------------
    std::vector<std::vector<std::string>> interfaces; // device ids, by interface
    // Status of a call by its journal line, or of all calls of a function by its name alone.
    std::map<std::string, GC_ERROR> failures;
    std::map<std::string, std::string> texts; // "TL 0", "IF 0", "DEV 0", "PORT 0": by command
    std::map<std::string, uint64_t> numbers;
    std::vector<std::string> urls;
    std::map<uint64_t, std::string> memory; // of the remote port, by address
    // Run when a call of that journal line comes, after it has been journaled.
    std::map<std::string, std::function<void()>> hooks;
    uint32_t payloadSize = 64;
    size_t frames = 0;    // buffers that the event delivers before it times out
    bool endless = false; // deliver for ever

    // ---- what happened ------------------------------------------------------------------------
    std::vector<std::string> Calls() const;
    // The journal without the calls that the acquisition thread makes in its own time.
    std::vector<std::string> MainCalls() const;
    size_t Count(const std::string& call) const;
    size_t Announced() const;
    // Until the journal holds that many such calls; false after 5 s.
    bool WaitFor(const std::string& call, size_t count);

    // ---- used by the stand-ins ----------------------------------------------------------------
    // Journals "function" or "function detail" and tells the scripted status.
    GC_ERROR Enter(const std::string& function, const std::string& detail = {});
    GC_ERROR Info(const std::string& kind, int32_t command, void* buffer, size_t* size);
    // Notes a call with a handle or an id that is not the one to use.
    void Require(bool good, const std::string& function);
    std::string Misuses() const;
    GC_ERROR Announce(void* memory, size_t size, BUFFER_HANDLE* handle);
    void Queue(BUFFER_HANDLE handle);
    // Of frames, only the last delivered one is to be asked about.
    void RequireDelivered(BUFFER_HANDLE handle);
    GC_ERROR Revoke(BUFFER_HANDLE handle, void** memory);
    GC_ERROR BufferId(uint32_t index, BUFFER_HANDLE* handle);
    GC_ERROR NextEvent(EVENT_NEW_BUFFER_DATA* data);
    GC_ERROR Read(PORT_HANDLE port, uint64_t address, void* buffer, size_t* size);

private:
    struct Buffer
    {
        void* memory;
        size_t size;
    };

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_calls;
    std::string m_misuses;
    std::vector<Buffer*> m_announced;
    std::deque<Buffer*> m_queued;
    Buffer* m_lastDelivered = nullptr;
    size_t m_delivered = 0;
    std::deque<Buffer> m_buffers; // addresses are the handles
};

// The stand-in that the functions use; a test's fixture makes a fresh one. What the old one has
// been misused for fails the test.
FakeGenTL& Fake();
void ResetFake();

// The handles that the stand-in hands out.
TL_HANDLE FakeSystem();
IF_HANDLE FakeInterface(size_t index);
DEV_HANDLE FakeDevice();
PORT_HANDLE FakeRemotePort();
DS_HANDLE FakeStream();
EVENT_HANDLE FakeEvent();
