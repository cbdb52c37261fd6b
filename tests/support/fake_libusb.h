#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <libusb.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A stand-in for libusb at link time: devices, results and transfers are scripted by the test, and
// every call is written into a journal with its arguments. Asynchronous transfers complete only
// inside libusb_handle_events_timeout, as with the real one.

using Bytes = std::vector<uint8_t>;

struct FakeAlternate
{
    uint8_t number = 0;
    uint8_t classCode = 0xEF;
    uint8_t subClass = 0x05;
    uint8_t protocol = 0;
    std::vector<uint8_t> endpoints;
    Bytes extra;
};

// A configuration is a list of interfaces, an interface a list of alternate settings.
using FakeInterface = std::vector<FakeAlternate>;
using FakeConfiguration = std::vector<FakeInterface>;

// An answer on the control IN endpoint.
struct FakeReply
{
    int result = 0;
    Bytes bytes;
    int received = -1; // what is reported as received; -1: what was copied
};

// libusb's opaque types with our content.
struct libusb_device
{
    std::string name;
    libusb_device_descriptor descriptor = {};
    int descriptorResult = 0;
    bool descriptorFilledAllTheSame = false; // also when the result is a failure
    std::map<uint8_t, std::string> strings;  // others: LIBUSB_ERROR_PIPE
    bool unterminatedStrings = false;        // fills the whole buffer and writes no zero
    std::vector<FakeConfiguration> configurations;
    int configurationResult = 0;

    int openResult = 0;
    bool openGivesHandle = true;
    int kernelDriver = 0;
    std::map<int, int> claimResults;

    // Control channel: memory that reads are answered from, and scripted exceptions before it.
    std::map<uint64_t, Bytes> memory;     // by exact start address
    std::map<uint64_t, uint16_t> refusal; // GenCP status of accesses to an address
    std::vector<std::pair<uint64_t, Bytes>> writes;
    std::deque<int> sendResults;
    std::deque<FakeReply> replies;
    std::deque<FakeReply> answers; // prepared from memory by a command

    int references = 0;
};

struct libusb_device_handle
{
    libusb_device* device;
};

class FakeUsb
{
public:
    static FakeUsb& Instance();

    void Reset();
    libusb_device& AddDevice(const std::string& name);
    void Unlist(libusb_device& device); // unplugged: no longer in device lists

    // Journal of calls; Journal(prefix) keeps the lines that begin with it.
    std::vector<std::string> Journal(const std::string& prefix = {});
    void ClearJournal();
    size_t Count(const std::string& prefix) { return Journal(prefix).size(); }

    // Streaming: what the transfer in flight completes with, in order.
    void Complete(libusb_transfer_status status, Bytes bytes = {});
    void CompleteLying(Bytes bytes, int actualLength); // reports another length than it copies
    bool AwaitDrained(int milliseconds = 3000);        // every queued completion has been taken
    bool AwaitPending(int milliseconds = 3000);        // a transfer is in flight
    void StallForEver(bool stall); // every transfer completes as stalled, at once
    void FailNextSubmit(int result);
    libusb_transfer LastSubmitted(); // its fields at submission

    int initResult = 0;
    ssize_t listResult = 0; // negative: get_device_list fails
    bool failAllocTransfer = false;
    std::atomic<int> handleEventsResult = 0;    // negative: fails at once
    std::atomic<int> transferTimesOutAfter = 0; // ms, 0: never by itself
    std::atomic<int> liveTransfers = 0;
    std::atomic<int> openHandles = 0;
    std::atomic<int> liveConfigurations = 0;
    std::atomic<int> liveLists = 0;
    std::atomic<bool> nullHandleSeen = false;

    // Device memory: what is left of it, in bytes, and the blocks that are out.
    size_t deviceMemoryLeft = 0;
    std::map<const uint8_t*, Bytes> deviceMemory;
    bool IsDeviceMemory(const uint8_t* data, size_t length);
    std::atomic<bool> deviceMemoryMisused = false; // freed twice, with another size, or too late
    std::function<void()> onCall;                  // runs on each bulk transfer, without the lock
    std::atomic<bool> blockedInCompletion = false; // a call that blocks, made by a completion

    // The calls themselves.
    friend struct FakeCalls;

private:
    struct Completion
    {
        libusb_transfer_status status;
        Bytes bytes;
        int actual; // -1: as copied
    };

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::mutex m_events; // one thread handles events at a time; taken before m_mutex
    std::vector<std::unique_ptr<libusb_device>> m_all;
    std::vector<libusb_device*> m_listed;
    std::vector<std::string> m_journal;
    std::deque<Completion> m_completions;
    std::deque<int> m_submitResults; // then 0
    bool m_completing = false;
    std::thread::id m_completer; // while completing
    bool m_stall = false;
    bool m_interrupted = false;
    libusb_transfer* m_pending = nullptr;
    std::chrono::steady_clock::time_point m_pendingSince;
    libusb_transfer m_lastSubmitted = {};
};

// "01 02 ff"
std::string Hex(const uint8_t* data, size_t size);
