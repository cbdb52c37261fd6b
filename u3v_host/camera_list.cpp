#include "camera_list.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "bus_devices.h"
#include "camera_records.h"
#include "error.h"
#include "event_loop.h"
#include "failure_kind.h"
#include "gone_notice.h"
#include "kernel_records.h"
#include "opened_camera.h"
#include "wakeup.h"
#include "zr_sync.h"

namespace u3v_host {

// Locks: the one of the scan, then the list's. The records' fields are guarded by the list's, apart
// from those that never change.
class CameraList::Implementation
{
public:
    explicit Implementation(const CameraListOptions& options);
    ~Implementation();
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    void Update(Deadline deadline) ZR_EXCLUDES(m_scanMutex, m_mutex);
    std::vector<std::shared_ptr<const CameraInfo>> Cameras() const ZR_EXCLUDES(m_mutex);
    std::shared_ptr<const CameraInfo> Find(std::string_view id) const ZR_EXCLUDES(m_mutex);
    AccessStatus Access(std::string_view id) const ZR_EXCLUDES(m_mutex);
    std::unique_ptr<Camera> Open(std::string_view id, OpenMode mode) ZR_EXCLUDES(m_mutex);
    void OnChange(std::function<void()> listener) ZR_EXCLUDES(m_mutex);

private:
    void _scan() ZR_EXCLUDES(m_scanMutex, m_mutex);
    CameraRecordPtr _recordOf(const UsbDevice& device) const ZR_EXCLUDES(m_mutex);
    std::vector<CameraRecordPtr> _takeOver(std::vector<CameraRecordPtr> present)
        ZR_EXCLUDES(m_mutex);
    void _dismiss(const CameraRecordPtr& record) ZR_REQUIRES(m_mutex);
    void _read(const CameraRecordPtr& record) ZR_EXCLUDES(m_mutex);
    void _readTexts(const CameraRecordPtr& record, const UsbHandle& handle) ZR_EXCLUDES(m_mutex);
    void _hasBeenRead(CameraRecord& record) ZR_EXCLUDES(m_mutex);
    void _admitRead() ZR_EXCLUDES(m_mutex);
    bool _isAwaited() const ZR_REQUIRES(m_mutex);
    bool _isReading() const ZR_REQUIRES(m_mutex);
    void _endReading() ZR_EXCLUDES(m_mutex);

    CameraRecordPtr _reserve(std::string_view id, OpenMode mode) ZR_EXCLUDES(m_mutex);
    std::unique_ptr<OpenedCamera> _open(const CameraRecordPtr& record) ZR_EXCLUDES(m_mutex);
    UsbHandle _openHandle(const CameraRecord& record) const;
    void _release(CameraRecord& record) ZR_EXCLUDES(m_mutex);

    void _watchHotplug();
    void _arrived(libusb_device* device) ZR_EXCLUDES(m_mutex);
    void _departed(libusb_device* device) ZR_EXCLUDES(m_mutex);
    void _postChange() ZR_REQUIRES(m_mutex);
    void _tellChange() ZR_EXCLUDES(m_mutex);
    static int LIBUSB_CALL _hotplug(libusb_context* context, libusb_device* device,
                                    libusb_hotplug_event event, void* list);

    const CameraListOptions m_options;
    const KernelRecords m_kernel;

    Mutex m_scanMutex;
    mutable Mutex m_mutex;
    CameraRecords m_records ZR_GUARDED_BY(m_mutex);
    std::vector<CameraRecordPtr> m_leaving ZR_GUARDED_BY(m_mutex); // gone, and still being read
    unsigned m_waiting ZR_GUARDED_BY(m_mutex) = 0;                 // calls of Update
    std::function<void()> m_listener ZR_GUARDED_BY(m_mutex);
    bool m_changePosted ZR_GUARDED_BY(m_mutex) = false;

    // Ends before what its thread uses.
    EventLoop m_loop;
    const std::unique_ptr<Wakeup> m_wakeup; // a reading has ended
    std::optional<libusb_hotplug_callback_handle> m_hotplugHandle;
};

CameraList::Implementation::Implementation(const CameraListOptions& options)
    : m_options(options), m_kernel(options.systemRoot), m_wakeup(m_loop.MakeWakeup())
{
    _watchHotplug();
}

CameraList::Implementation::~Implementation()
{
    if (m_loop.IsForked()) {
        return;
    }
    if (m_hotplugHandle) {
        libusb_hotplug_deregister_callback(m_loop.Context()->Native(), *m_hotplugHandle);
    }
    _endReading();
    m_loop.Forget(this);
    OnChange({});
}

// ---- listing

void CameraList::Implementation::Update(Deadline deadline)
{
    if (m_loop.IsForked()) {
        return;
    }
    _scan();
    {
        Locker lock(m_mutex);
        ++m_waiting;
        while (_isAwaited() && std::chrono::steady_clock::now() < deadline) {
            m_wakeup->Wait(m_mutex, deadline);
        }
        --m_waiting;
    }
    _admitRead();
}

void CameraList::Implementation::_scan()
{
    Locker scan(m_scanMutex);
    const auto devices = ListDevices(m_loop.Context());
    if (!devices) {
        return;
    }
    std::vector<CameraRecordPtr> present;
    for (const UsbDevice& device : *devices) {
        if (CameraRecordPtr record = _recordOf(device)) {
            present.push_back(std::move(record));
        }
    }
    for (const CameraRecordPtr& record : _takeOver(std::move(present))) {
        _read(record);
    }
}

// A new one for a device that is not known; NULL when it cannot be looked at yet.
CameraRecordPtr CameraList::Implementation::_recordOf(const UsbDevice& device) const
{
    UsbPlace place = PlaceOf(device.get());
    {
        Locker lock(m_mutex);
        if (CameraRecordPtr known = m_records.Known(place, device.get())) {
            return known;
        }
    }
    auto record = std::make_shared<CameraRecord>();
    record->place = std::move(place);
    record->device = device;
    if (!Examine(device.get(), record->camera)) {
        return nullptr;
    }
    if (record->camera) {
        record->kernelTexts = m_kernel.Texts(record->place);
    }
    return record;
}

// Returns those that are to be read.
std::vector<CameraRecordPtr>
CameraList::Implementation::_takeOver(std::vector<CameraRecordPtr> present)
{
    Locker lock(m_mutex);
    for (const CameraRecordPtr& record : m_records.Replace(std::move(present))) {
        _dismiss(record);
    }
    std::vector<CameraRecordPtr> unread;
    std::ranges::copy_if(m_records.All(), std::back_inserter(unread),
                         [](const CameraRecordPtr& one) { return one->NeedsReading(); });
    return unread;
}

void CameraList::Implementation::_dismiss(const CameraRecordPtr& record)
{
    if (record->gone != nullptr) {
        record->gone->Set();
    }
    if (record->reader != nullptr) {
        record->reader->Cancel();
        m_leaving.push_back(record);
    }
}

void CameraList::Implementation::_read(const CameraRecordPtr& record)
{
    libusb_device_handle* handle = nullptr;
    const int result = libusb_open(record->device.get(), &handle);
    if (result == LIBUSB_SUCCESS) {
        _readTexts(record, OwnHandle(handle, m_loop.Context()));
    } else if (result != LIBUSB_ERROR_NO_DEVICE) { // that one is just leaving
        Locker lock(m_mutex);
        m_records.Admit(*record, {});
    }
}

void CameraList::Implementation::_readTexts(const CameraRecordPtr& record, const UsbHandle& handle)
{
    auto reader =
        std::make_unique<TextReader>(handle, record->camera->info, m_options.stringTime,
                                     [this, read = record.get()] { _hasBeenRead(*read); });
    TextReader& started = *reader;
    {
        Locker lock(m_mutex);
        record->reader = std::move(reader);
        record->finished = false;
        record->awaited = !record->silent;
    }
    if (!started.Start()) {
        _hasBeenRead(*record);
    }
}

// Within a callback of libusb. Who waits takes the result; else it is taken when nobody is to be
// waited for any more, so that cameras that came together are listed in the order of their places.
void CameraList::Implementation::_hasBeenRead(CameraRecord& record)
{
    Locker lock(m_mutex);
    record.finished = true;
    m_wakeup->NotifyAll();
    if (m_waiting == 0 && !_isAwaited()) {
        m_loop.Post(this, [this] { _admitRead(); });
    }
}

void CameraList::Implementation::_admitRead()
{
    std::vector<std::unique_ptr<TextReader>> done; // close their devices without the lock
    Locker lock(m_mutex);
    for (const CameraRecordPtr& record : m_records.All()) {
        if (record->finished) {
            m_records.Admit(*record, record->reader->Result());
            done.push_back(std::move(record->reader));
            record->finished = false;
        }
    }
    for (const CameraRecordPtr& record : m_leaving) {
        if (record->finished) {
            done.push_back(std::move(record->reader));
        }
    }
    std::erase_if(m_leaving, [](const CameraRecordPtr& one) { return one->reader == nullptr; });
}

bool CameraList::Implementation::_isAwaited() const
{
    return std::ranges::any_of(m_records.All(), [](const CameraRecordPtr& one) {
        return one->awaited && one->IsUnderWay();
    });
}

bool CameraList::Implementation::_isReading() const
{
    const auto isUnderWay = [](const CameraRecordPtr& one) { return one->IsUnderWay(); };
    return std::ranges::any_of(m_records.All(), isUnderWay) ||
           std::ranges::any_of(m_leaving, isUnderWay);
}

void CameraList::Implementation::_endReading()
{
    {
        Locker lock(m_mutex);
        ++m_waiting; // nothing is posted any more
        for (const CameraRecordPtr& record : m_records.All()) {
            if (record->IsUnderWay()) {
                record->reader->Cancel();
            }
        }
        while (_isReading()) {
            m_wakeup->Wait(m_mutex, Deadline::max());
        }
    }
    _admitRead();
}

std::vector<std::shared_ptr<const CameraInfo>> CameraList::Implementation::Cameras() const
{
    Locker lock(m_mutex);
    std::vector<std::shared_ptr<const CameraInfo>> cameras;
    for (const CameraRecordPtr& record : m_records.All()) {
        if (record->info != nullptr) {
            cameras.push_back(record->info);
        }
    }
    return cameras;
}

std::shared_ptr<const CameraInfo> CameraList::Implementation::Find(std::string_view id) const
{
    Locker lock(m_mutex);
    const CameraRecordPtr record = m_records.Find(id);
    return record == nullptr ? nullptr : record->info;
}

// ---- access

AccessStatus CameraList::Implementation::Access(std::string_view id) const
{
    CameraRecordPtr record;
    {
        Locker lock(m_mutex);
        record = m_records.Find(id);
        if (record == nullptr) {
            return AccessStatus::Unknown;
        }
        if (record->open) {
            return record->mode == OpenMode::ReadOnly ? AccessStatus::OpenReadOnly
                                                      : AccessStatus::OpenReadWrite;
        }
    }
    libusb_device_handle* handle = nullptr;
    switch (libusb_open(record->device.get(), &handle)) {
    case LIBUSB_SUCCESS: libusb_close(handle); break;
    case LIBUSB_ERROR_ACCESS: return AccessStatus::NoAccess;
    case LIBUSB_ERROR_BUSY: return AccessStatus::Busy;
    default: return AccessStatus::Unknown;
    }
    const CameraDescriptors& camera = *record->camera;
    return m_kernel.IsClaimed(record->place, camera.configuration, camera.controlInterface)
               ? AccessStatus::Busy
               : AccessStatus::ReadWrite;
}

// ---- opening

std::unique_ptr<Camera> CameraList::Implementation::Open(std::string_view id, OpenMode mode)
{
    if (m_loop.IsForked()) {
        throw Error(ErrorKind::Io, "the library was initialised before the fork");
    }
    const CameraRecordPtr record = _reserve(id, mode);
    try {
        return _open(record);
    } catch (...) {
        _release(*record);
        throw;
    }
}

CameraRecordPtr CameraList::Implementation::_reserve(std::string_view id, OpenMode mode)
{
    Locker lock(m_mutex);
    CameraRecordPtr record = m_records.Find(id);
    if (record == nullptr) {
        throw Error(ErrorKind::InvalidId, "no camera has the id " + std::string(id));
    }
    if (record->open) {
        throw Error(ErrorKind::InUse, "the camera " + record->info->id + " is open already");
    }
    record->open = true;
    record->mode = mode;
    return record;
}

std::unique_ptr<OpenedCamera> CameraList::Implementation::_open(const CameraRecordPtr& record)
{
    CameraInfo info;
    OpenMode mode{};
    {
        Locker lock(m_mutex);
        info = *record->info;
        mode = record->mode;
    }
    auto camera = std::make_unique<OpenedCamera>(
        OpenedCamera::Parts{m_loop, _openHandle(*record), *record->camera, std::move(info), mode,
                            m_options.control},
        [this, record] { _release(*record); });
    Locker lock(m_mutex);
    record->gone = &camera->Notice();
    if (record->left) {
        record->gone->Set();
    }
    return camera;
}

UsbHandle CameraList::Implementation::_openHandle(const CameraRecord& record) const
{
    const std::string what = "opening the USB device at " + record.place.Text() + ": ";
    if (!record.camera->control) {
        throw Error(ErrorKind::Io, what + "it has no endpoints for control");
    }
    libusb_device_handle* handle = nullptr;
    const int result = libusb_open(record.device.get(), &handle);
    if (result != LIBUSB_SUCCESS) {
        throw Error(KindOfUsbError(result), what + libusb_error_name(result));
    }
    return OwnHandle(handle, m_loop.Context());
}

void CameraList::Implementation::_release(CameraRecord& record)
{
    Locker lock(m_mutex);
    record.gone = nullptr;
    record.open = false;
}

// ---- coming and going

void CameraList::Implementation::_watchHotplug()
{
    if (libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG) == 0) {
        return;
    }
    libusb_hotplug_callback_handle handle{};
    const int result = libusb_hotplug_register_callback(
        m_loop.Context()->Native(),
        LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT,
        LIBUSB_HOTPLUG_NO_FLAGS, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
        LIBUSB_HOTPLUG_MATCH_ANY, _hotplug, this, &handle);
    if (result == LIBUSB_SUCCESS) {
        m_hotplugHandle = handle;
    }
}

int LIBUSB_CALL CameraList::Implementation::_hotplug(libusb_context* /*context*/,
                                                     libusb_device* device,
                                                     libusb_hotplug_event event, void* list)
{
    auto& implementation = *static_cast<Implementation*>(list);
    if (event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT) {
        implementation._departed(device);
    } else {
        implementation._arrived(device);
    }
    return 0; // go on
}

void CameraList::Implementation::_arrived(libusb_device* device)
{
    std::optional<CameraDescriptors> camera;
    if (Examine(device, camera) && camera) {
        Locker lock(m_mutex);
        _postChange();
    }
}

void CameraList::Implementation::_departed(libusb_device* device)
{
    Locker lock(m_mutex);
    const CameraRecordPtr record = m_records.OfDevice(device);
    if (record == nullptr || !record->camera) {
        return;
    }
    record->left = true;
    if (record->gone != nullptr) {
        record->gone->Set();
    }
    _postChange();
}

// One is enough for all that has changed until it is told.
void CameraList::Implementation::_postChange()
{
    if (m_listener && !m_changePosted) {
        m_changePosted = true;
        m_loop.Post(&m_listener, [this] { _tellChange(); });
    }
}

void CameraList::Implementation::_tellChange()
{
    std::function<void()> listener;
    {
        Locker lock(m_mutex);
        m_changePosted = false;
        listener = m_listener;
    }
    if (listener) {
        listener();
    }
}

void CameraList::Implementation::OnChange(std::function<void()> listener)
{
    {
        Locker lock(m_mutex);
        m_listener = nullptr;
    }
    m_loop.Forget(&m_listener);
    Locker lock(m_mutex);
    m_changePosted = false;
    m_listener = std::move(listener);
}

// ---- the class itself

CameraList::CameraList(const CameraListOptions& options)
    : m_implementation(std::make_unique<Implementation>(options))
{
}

CameraList::~CameraList() = default;

void CameraList::Update(Deadline deadline)
{
    m_implementation->Update(deadline);
}

std::vector<std::shared_ptr<const CameraInfo>> CameraList::Cameras() const
{
    return m_implementation->Cameras();
}

std::shared_ptr<const CameraInfo> CameraList::Find(std::string_view id) const
{
    return m_implementation->Find(id);
}

AccessStatus CameraList::Access(std::string_view id) const
{
    return m_implementation->Access(id);
}

std::unique_ptr<Camera> CameraList::Open(std::string_view id, OpenMode mode)
{
    return m_implementation->Open(id, mode);
}

void CameraList::OnChange(std::function<void()> listener)
{
    m_implementation->OnChange(std::move(listener));
}

} // namespace u3v_host
