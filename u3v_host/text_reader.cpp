#include "text_reader.h"

#include <new>
#include <span>
#include <utility>

#include "text.h"

namespace u3v_host {

namespace {

constexpr size_t kStringHead = 2; // length and type

// What follows the head of a string descriptor; empty when it is none.
std::span<const uint8_t> StringBody(std::span<const uint8_t> descriptor)
{
    const bool isString = descriptor.size() >= kStringHead && descriptor[0] >= kStringHead &&
                          descriptor[0] <= descriptor.size() && descriptor[1] == LIBUSB_DT_STRING;
    return isString ? descriptor.first(descriptor[0]).subspan(kStringHead)
                    : std::span<const uint8_t>();
}

} // namespace

// The GUID first: a reading that breaks off tells at least who it is.
TextReader::TextReader(UsbHandle handle, const DeviceInformation& information,
                       std::chrono::milliseconds requestTime, std::function<void()> finished)
    : m_handle(std::move(handle)), m_transfer(libusb_alloc_transfer(0)),
      m_requestTime(static_cast<unsigned>(requestTime.count())),
      m_items{{{information.deviceGUID, &CameraInfo::id},
               {information.modelName, &CameraInfo::model},
               {information.vendorName, &CameraInfo::vendor},
               {information.serialNumber, &CameraInfo::serial},
               {information.userDefinedName, &CameraInfo::userDefinedName},
               {information.deviceVersion, &CameraInfo::version},
               {information.familyName, &CameraInfo::family},
               {information.manufacturerInfo, &CameraInfo::manufacturerInfo}}},
      m_finished(std::move(finished))
{
    if (m_transfer == nullptr) {
        throw std::bad_alloc();
    }
}

bool TextReader::Start()
{
    Locker lock(m_mutex);
    return _request(0); // the languages
}

void TextReader::Cancel()
{
    Locker lock(m_mutex);
    m_cancelled = true;
    libusb_cancel_transfer(m_transfer.get()); // harmless between two requests
}

bool TextReader::_request(uint8_t index)
{
    if (m_cancelled) {
        return false;
    }
    libusb_fill_control_setup(m_buffer.data(), LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR,
                              static_cast<uint16_t>(LIBUSB_DT_STRING << 8 | index),
                              index == 0 ? uint16_t{0} : m_language, kLongestString);
    libusb_fill_control_transfer(m_transfer.get(), m_handle.get(), m_buffer.data(), _completed,
                                 this, m_requestTime);
    return libusb_submit_transfer(m_transfer.get()) == LIBUSB_SUCCESS;
}

// False when there is nothing more to ask for, or it cannot be asked for.
bool TextReader::_requestNext()
{
    while (m_next < m_items.size() && m_items[m_next].index == 0) {
        ++m_next;
    }
    if (m_next == m_items.size()) {
        m_result.complete = !m_result.info.id.empty();
        return false;
    }
    return _request(m_items[m_next].index);
}

// False when the device cannot be asked any more.
bool TextReader::_take(const libusb_transfer& transfer)
{
    const bool answered = transfer.status == LIBUSB_TRANSFER_COMPLETED;
    if (!answered && transfer.status != LIBUSB_TRANSFER_STALL) { // no such string
        m_result.silent = transfer.status == LIBUSB_TRANSFER_TIMED_OUT;
        return false;
    }
    const auto size = answered ? static_cast<size_t>(transfer.actual_length) : 0;
    const auto body = StringBody(std::span(m_buffer).subspan(LIBUSB_CONTROL_SETUP_SIZE, size));
    if (m_languageKnown) {
        m_result.info.*m_items[m_next++].text = CleanUtf16(body);
    } else if (body.size() >= sizeof(m_language)) {
        m_language = static_cast<uint16_t>(body[0] | body[1] << 8);
    }
    m_languageKnown = true;
    return true;
}

bool TextReader::_goOn(const libusb_transfer& transfer)
{
    Locker lock(m_mutex);
    return _take(transfer) && _requestNext();
}

void LIBUSB_CALL TextReader::_completed(libusb_transfer* transfer)
{
    auto& reader = *static_cast<TextReader*>(transfer->user_data);
    if (reader._goOn(*transfer)) {
        return;
    }
    const auto finished = std::move(reader.m_finished);
    finished();
}

} // namespace u3v_host
