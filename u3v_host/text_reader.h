#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "camera_info.h"
#include "descriptors.h"
#include "usb_context.h"
#include "usb_owners.h"
#include "zr_sync.h"

namespace u3v_host {

// What a camera's strings tell.
struct CameraTexts
{
    CameraInfo info; // the id is the GUID; empty: it is not known
    bool complete;   // every string was answered, and there is a GUID
    bool silent;     // a request was not answered in time; the rest was not asked for
};

// Reads the strings that a camera's device information names, one request after the other, on the
// threads that serve events: nobody waits for a camera that does not answer.
class TextReader
{
public:
    // `finished` is called once, within a callback of libusb, when the result is there; the reader
    // may be destroyed from then on. Throws std::bad_alloc.
    TextReader(UsbHandle handle, const DeviceInformation& information,
               std::chrono::milliseconds requestTime, std::function<void()> finished);
    // Finished, or never started.
    ~TextReader() = default;
    TextReader(const TextReader&) = delete;
    TextReader& operator=(const TextReader&) = delete;

    // False: the system takes no transfer, the result is there, and `finished` is not called.
    bool Start() ZR_EXCLUDES(m_mutex);
    // Finishes soon.
    void Cancel() ZR_EXCLUDES(m_mutex);

    const CameraTexts& Result() const { return m_result; }

private:
    static constexpr size_t kLongestString = 255; // as one byte can say
    struct Item
    {
        uint8_t index;
        std::string CameraInfo::*text;
    };

    bool _request(uint8_t index) ZR_REQUIRES(m_mutex);
    bool _requestNext() ZR_REQUIRES(m_mutex);
    bool _take(const libusb_transfer& transfer) ZR_REQUIRES(m_mutex);
    bool _goOn(const libusb_transfer& transfer) ZR_EXCLUDES(m_mutex);
    static void LIBUSB_CALL _completed(libusb_transfer* transfer);

    const UsbHandle m_handle;
    const UsbTransferPtr m_transfer;
    const unsigned m_requestTime; // ms
    const std::array<Item, 8> m_items;
    std::array<uint8_t, LIBUSB_CONTROL_SETUP_SIZE + kLongestString> m_buffer{};
    std::function<void()> m_finished;

    CameraTexts m_result{};

    Mutex m_mutex;
    bool m_cancelled ZR_GUARDED_BY(m_mutex) = false;
    size_t m_next ZR_GUARDED_BY(m_mutex) = 0; // item
    bool m_languageKnown ZR_GUARDED_BY(m_mutex) = false;
    // English, until the device names its first one.
    uint16_t m_language ZR_GUARDED_BY(m_mutex) = 0x0409;
};

} // namespace u3v_host
