#include "camera_records.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace u3v_host {

namespace {

template <class Predicate>
CameraRecordPtr FindIf(const std::vector<CameraRecordPtr>& records, Predicate predicate)
{
    const auto found = std::ranges::find_if(
        records, [&predicate](const CameraRecordPtr& one) { return predicate(*one); });
    return found == records.end() ? nullptr : *found;
}

void FillGaps(CameraInfo& info, const CameraInfo& other)
{
    for (const auto text :
         {&CameraInfo::vendor, &CameraInfo::model, &CameraInfo::family, &CameraInfo::version,
          &CameraInfo::manufacturerInfo, &CameraInfo::serial, &CameraInfo::userDefinedName}) {
        if ((info.*text).empty()) {
            info.*text = other.*text;
        }
    }
}

} // namespace

bool CameraRecord::NeedsReading() const
{
    return camera && !complete && reader == nullptr && !open && !left;
}

std::vector<CameraRecordPtr> CameraRecords::Replace(std::vector<CameraRecordPtr> present)
{
    std::ranges::sort(present, {}, [](const CameraRecordPtr& one) { return one->place; });
    std::vector<CameraRecordPtr> gone = std::exchange(m_records, std::move(present));
    std::erase_if(gone, [this](const CameraRecordPtr& one) {
        return std::ranges::find(m_records, one) != m_records.end();
    });
    return gone;
}

CameraRecordPtr CameraRecords::Known(const UsbPlace& place, const libusb_device* device) const
{
    return FindIf(m_records, [&](const CameraRecord& one) {
        return !one.left && one.place == place && one.device.get() == device;
    });
}

CameraRecordPtr CameraRecords::OfDevice(const libusb_device* device) const
{
    return FindIf(m_records,
                  [device](const CameraRecord& one) { return one.device.get() == device; });
}

CameraRecordPtr CameraRecords::Find(std::string_view id) const
{
    return FindIf(m_records, [id](const CameraRecord& one) {
        return one.info != nullptr && IsSameId(one.info->id, id);
    });
}

void CameraRecords::Admit(CameraRecord& record, const CameraTexts& texts)
{
    CameraInfo info = texts.info;
    if (record.info != nullptr) {
        FillGaps(info, *record.info);
    }
    FillGaps(info, record.kernelTexts);
    info.id = _idFor(record, texts.info.id);
    record.identified = record.identified || !texts.info.id.empty();
    record.complete = texts.complete;
    record.silent = texts.silent;
    record.info = std::make_shared<const CameraInfo>(std::move(info));
}

// One that was made without a GUID is replaced as soon as there is one.
std::string CameraRecords::_idFor(const CameraRecord& record, const std::string& guid) const
{
    if (record.info != nullptr && (record.identified || guid.empty())) {
        return record.info->id;
    }
    std::vector<std::string> present;
    for (const CameraRecordPtr& one : m_records) {
        if (one.get() != &record && one->info != nullptr) {
            present.push_back(one->info->id);
        }
    }
    return MakeId(guid, record.place.Text(), present);
}

} // namespace u3v_host
