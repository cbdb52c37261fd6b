#pragma once

// A stand-in for the flat U3V_* functions, linked in place of the protocol layer when the modules
// are tested on their own: scripted cameras, memory, statuses and images, and a journal of every
// call in order.

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <zr_u3v_tl/u3v_lib.h>

class FakeU3V
{
public:
    static FakeU3V& Instance();

    // Back to one camera-less bus, zero memory, success everywhere, an empty journal.
    void Reset();

    // ---- cameras; index 1 is the first
    void SetCameras(const std::vector<U3V_DEVICE_INFO>& cameras);
    static U3V_DEVICE_INFO MakeCamera(const std::string& guid, const std::string& vendor,
                                      const std::string& model, const std::string& version);

    // ---- statuses: the next calls of `function` ("U3V_ReadMem") answer these, in order; then
    // success again. A call with a status other than 0 does nothing else.
    void Script(const std::string& function, std::initializer_list<uint16_t> statuses);
    // Runs inside every call of `function`, before its effect, without the stand-in's lock.
    void OnCall(const std::string& function, std::function<void()> action);

    // ---- camera memory; unwritten bytes read as zero
    void Poke(uint64_t address, const void* data, size_t size);
    std::vector<uint8_t> Peek(uint64_t address, size_t size);
    // A manifest at 0x10000 with `entries` entries, the first naming a file at `address` of `size`
    // bytes.
    void PokeManifest(uint64_t entries, uint64_t address, uint64_t size, bool zipped);

    // ---- images: GetImage hands out the oldest; without one it waits its time-out and answers
    // IMAGE_TIMEOUT
    struct Image
    {
        IMAGE_HEADER header;
        std::vector<uint8_t> bytes;
        uint16_t status; // 0 or a status that still delivers (0xC019)
    };
    void PushImage(const Image& image);

    // ---- journal: "U3V_ReadMem 0x1D0 8", "U3V_SetTransferSize 1048576", "U3V_OpenDevice GUID",
    // ...
    std::vector<std::string> Journal();
    void ClearJournal();
    size_t CountOf(const std::string& prefix);

    // Handles that were opened and not closed.
    int OpenHandles();

    // Whether the calling thread is inside the stand-in's own book-keeping: a test that makes
    // allocations fail leaves these alone, since the functions it stands in for never throw.
    static bool IsInside();

private:
    friend struct FakeU3VAccess;
    mutable std::mutex m_mutex;
    std::vector<U3V_DEVICE_INFO> m_cameras;
    std::map<std::string, std::deque<uint16_t>> m_statuses;
    std::map<std::string, std::function<void()>> m_actions;
    std::map<uint64_t, uint8_t> m_memory;
    std::deque<Image> m_images;
    std::vector<std::string> m_journal;
    int m_openHandles = 0;
};
