#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "camera_descriptors.h"
#include "camera_info.h"
#include "identity.h"
#include "text_reader.h"
#include "usb_context.h"

namespace u3v_host {

class GoneNotice;

// A device of the bus, from the pass that has found it to the one that misses it.
struct CameraRecord
{
    UsbPlace place;
    UsbDevice device;
    std::optional<CameraDescriptors> camera; // nothing: some other device
    CameraInfo kernelTexts;                  // for what the camera itself does not tell

    std::shared_ptr<const CameraInfo> info; // NULL: not listed yet
    bool identified = false;                // its id is made of its GUID
    bool complete = false;                  // nothing is left to be read
    bool silent = false;                    // has not answered: nobody waits for it once more
    bool left = false; // so the system says; stays in the list until the next pass

    // A reading of its texts, until the result is taken.
    std::unique_ptr<TextReader> reader;
    bool awaited = false;
    bool finished = false;

    bool open = false; // in this process, or being opened
    OpenMode mode = OpenMode::ReadWrite;
    GoneNotice* gone = nullptr; // of the open camera

    bool NeedsReading() const;
    bool IsUnderWay() const { return reader != nullptr && !finished; }
};
using CameraRecordPtr = std::shared_ptr<CameraRecord>;

// The devices of the bus as far as they are known, and who is who. Calls nobody; not for several
// threads at once.
class CameraRecords
{
public:
    // In the order of bus and port path.
    const std::vector<CameraRecordPtr>& All() const { return m_records; }

    // Replaces the records by those that a pass has found. Returns those that are no longer there.
    std::vector<CameraRecordPtr> Replace(std::vector<CameraRecordPtr> present);

    // NULL when there is none.
    CameraRecordPtr Known(const UsbPlace& place, const libusb_device* device) const;
    CameraRecordPtr OfDevice(const libusb_device* device) const;
    CameraRecordPtr Find(std::string_view id) const; // listed ones

    // Lists the camera with what was read. An id by its GUID stays; texts that were read before and
    // are missing now stay as well.
    void Admit(CameraRecord& record, const CameraTexts& texts);

private:
    std::string _idFor(const CameraRecord& record, const std::string& guid) const;

    std::vector<CameraRecordPtr> m_records;
};

} // namespace u3v_host
