#include "fake_u3v_host.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "steady_condition.h"
#include "wakeup.h"

namespace fake_host {
namespace {

std::unique_ptr<Bus> g_bus = std::make_unique<Bus>();

void ThrowIf(const Failure& failure)
{
    if (failure) {
        throw u3v_host::Error(*failure);
    }
}

[[noreturn]] void ThrowGone()
{
    throw u3v_host::Error(u3v_host::ErrorKind::Io, "the camera has left the bus");
}

class Memory final : public u3v_host::BufferMemory
{
public:
    explicit Memory(size_t size) : m_bytes(size) {}
    uint8_t* Data() const override { return m_bytes.data(); }
    size_t Size() const override { return m_bytes.size(); }
    bool IsDeviceMemory() const override { return false; }

private:
    mutable std::vector<uint8_t> m_bytes;
};

class PlainWakeup final : public u3v_host::Wakeup
{
public:
    void Wait(Mutex& mutex, u3v_host::Deadline deadline) override
    {
        m_condition.Wait(mutex, deadline);
    }
    void NotifyAll() override { m_condition.Broadcast(); }

private:
    SteadyCondition m_condition;
};

class OpenCamera final : public u3v_host::Camera
{
public:
    OpenCamera(std::shared_ptr<fake_host::Camera> camera, u3v_host::OpenMode mode)
        : m_camera(std::move(camera))
    {
        m_camera->mode = mode;
    }
    ~OpenCamera() override
    {
        m_camera->mode.reset();
        m_camera->goneListener = {};
        m_camera->eventListener = {};
    }

    u3v_host::CameraInfo Info() const override { return m_camera->info; }
    u3v_host::OpenMode Mode() const override { return *m_camera->mode; }
    u3v_host::LinkSpeed Speed() const override { return m_camera->speed; }
    bool IsGone() const override { return m_camera->isGone; }

    void Read(uint64_t address, std::span<uint8_t> destination, size_t& done) override
    {
        const size_t size = _access(address, destination.size(), done);
        std::copy_n(m_camera->memory.begin() + static_cast<ptrdiff_t>(address), size,
                    destination.begin());
        ThrowIf(m_camera->accessFailure);
    }
    void Write(uint64_t address, std::span<const uint8_t> source, size_t& done) override
    {
        const size_t size = _access(address, source.size(), done);
        std::copy_n(source.begin(), size,
                    m_camera->memory.begin() + static_cast<ptrdiff_t>(address));
        ThrowIf(m_camera->accessFailure);
    }

    const std::vector<u3v_host::DescriptionFile>& DescriptionFiles() const override
    {
        return m_camera->files;
    }
    uint32_t NumStreams() const override { return m_camera->streams; }
    uint64_t PayloadSize() override
    {
        if (m_camera->isGone) {
            ThrowGone();
        }
        return m_camera->payloadSize;
    }
    std::unique_ptr<u3v_host::BufferMemory> AllocateBuffer(size_t size) override
    {
        if (m_camera->noMemory) {
            throw std::bad_alloc();
        }
        return std::make_unique<Memory>(size);
    }
    uint64_t DeviceMemoryInUse() const override { return m_camera->deviceMemory; }
    std::unique_ptr<u3v_host::StreamReceiver> OpenStream(u3v_host::ImageSink& sink) override
    {
        return std::make_unique<Receiver>(*m_camera, sink);
    }
    std::unique_ptr<u3v_host::Wakeup> MakeWakeup() override
    {
        return std::make_unique<PlainWakeup>();
    }
    bool HasEvents() const override { return m_camera->hasEvents; }
    void OnEvent(std::function<void(const u3v_host::CameraEvent&)> listener) override
    {
        ThrowIf(m_camera->eventsFailure);
        m_camera->eventListener = std::move(listener);
    }
    void OnGone(std::function<void()> listener) override
    {
        m_camera->goneListener = std::move(listener);
    }

private:
    size_t _access(uint64_t address, size_t size, size_t& done)
    {
        done = 0;
        if (m_camera->isGone) {
            ThrowGone();
        }
        if (address > m_camera->memory.size() || size > m_camera->memory.size() - address) {
            throw u3v_host::Error(u3v_host::ErrorKind::InvalidAddress,
                                  "status 0x8003, invalid address");
        }
        done = m_camera->accessFailure ? std::min(size, m_camera->bytesBeforeFailure) : size;
        return done;
    }

    const std::shared_ptr<fake_host::Camera> m_camera;
};

bool IsSame(const std::string& left, std::string_view right)
{
    return left.size() == right.size() &&
           strncasecmp(left.c_str(), right.data(), right.size()) == 0;
}

} // namespace

Bus& TheBus()
{
    return *g_bus;
}

void ResetBus()
{
    g_bus = std::make_unique<Bus>();
}

// ---- camera

void Camera::Leave()
{
    isGone = true;
    if (goneListener) {
        goneListener();
    }
}

void Camera::SendEvent(uint16_t id, const std::vector<uint8_t>& data)
{
    if (eventListener) {
        eventListener({id, 0, data});
    }
}

// ---- receiver

Receiver::Receiver(Camera& camera, u3v_host::ImageSink& sink) : m_camera(camera), m_sink(sink)
{
    camera.receiver = this;
}

Receiver::~Receiver()
{
    Stop(true);
    m_camera.receiver = nullptr;
}

void Receiver::Start()
{
    ThrowIf(m_camera.startFailure);
    const std::lock_guard lock(m_mutex);
    ++starts;
    m_started = 0;
    m_running = true;
    _fill();
}

void Receiver::Stop(bool kill)
{
    const std::lock_guard lock(m_mutex);
    ++(kill ? kills : stops);
    _giveAllBack();
    m_running = false;
}

bool Receiver::IsRunning() const
{
    const std::lock_guard lock(m_mutex);
    return m_running;
}

void Receiver::TargetsAvailable()
{
    const std::lock_guard lock(m_mutex);
    ++wakes;
    if (m_running) {
        _fill();
    }
}

u3v_host::StreamStatistics Receiver::Statistics() const
{
    const std::lock_guard lock(m_mutex);
    u3v_host::StreamStatistics statistics{};
    statistics.transferSize = 1048576;
    statistics.imagesInFlight = m_targets.size();
    statistics.transfersInFlight = 3 * m_targets.size();
    statistics.resynchronisations = 5;
    statistics.started = m_started;
    statistics.droppedTransferDepth = 7;
    return statistics;
}

void Receiver::_fill()
{
    u3v_host::Target target{};
    while (m_targets.size() < m_camera.depth && m_sink.Take(target)) {
        m_targets.push_back(target);
    }
}

void Receiver::_giveAllBack()
{
    while (!m_targets.empty()) {
        const u3v_host::Target target = m_targets.front();
        m_targets.pop_front();
        m_sink.GiveBack(target);
    }
}

bool Receiver::Send(const std::vector<uint8_t>& bytes, u3v_host::Image image)
{
    const std::lock_guard lock(m_mutex);
    if (!m_running || m_targets.empty()) {
        return false;
    }
    ++m_started;
    const u3v_host::Target target = m_targets.front();
    m_targets.pop_front();
    image.filled = std::min(bytes.size(), target.size);
    image.dataSize = image.filled;
    image.largerThanTarget = bytes.size() > target.size;
    image.complete = image.complete && !image.largerThanTarget;
    if (image.filled != 0) {
        memcpy(target.data, bytes.data(), image.filled);
    }
    if (m_sink.Deliver(target, image)) {
        _fill();
    } else {
        _giveAllBack();
        m_running = false;
        m_sink.Ended();
    }
    return true;
}

void Receiver::Lose(uint64_t images)
{
    const std::lock_guard lock(m_mutex);
    m_sink.Lost(images);
}

void Receiver::Fail(const u3v_host::Error& error)
{
    const std::lock_guard lock(m_mutex);
    m_sink.Failed(error);
}

void Receiver::CameraHasLeft()
{
    const std::lock_guard lock(m_mutex);
    if (m_running) {
        _giveAllBack();
        m_running = false;
        m_sink.Ended();
    }
}

size_t Receiver::Held() const
{
    const std::lock_guard lock(m_mutex);
    return m_targets.size();
}

u3v_host::Image Receiver::SomeImage()
{
    u3v_host::Image image{};
    image.blockId = 1;
    image.timestamp = 1234567890123;
    image.payloadType = 1;
    image.pixelFormat = 0x01080001;
    image.width = 8;
    image.height = 4;
    image.hasTrailer = true;
    image.validPayload = 32;
    image.deliveredHeight = 4;
    image.complete = true;
    return image;
}

// ---- bus

Camera& Bus::Plug(const std::string& id)
{
    auto camera = std::make_shared<Camera>();
    camera->info.id = id;
    camera->info.vendor = "Vendor";
    camera->info.model = "Model";
    camera->info.serial = "S" + id;
    camera->info.version = "1.0";
    const std::lock_guard lock(mutex);
    cameras.push_back(camera);
    return *camera;
}

void Bus::Unplug(const std::string& id)
{
    const std::lock_guard lock(mutex);
    std::erase_if(cameras, [&id](const auto& camera) { return camera->info.id == id; });
}

void Bus::TellChange()
{
    if (listener) {
        listener();
    }
}

void Bus::Hold()
{
    const std::lock_guard lock(mutex);
    isHeld = true;
}

void Bus::LetGo()
{
    const std::lock_guard lock(mutex);
    isHeld = false;
    released.notify_all();
}

} // namespace fake_host

// ---- the classes of u3v_host/

namespace u3v_host {

class CameraList::Implementation
{
public:
    std::vector<std::shared_ptr<fake_host::Camera>> known;
    std::vector<std::shared_ptr<const CameraInfo>> infos;
    mutable std::mutex mutex;

    std::shared_ptr<fake_host::Camera> Find(std::string_view id) const
    {
        const std::lock_guard lock(mutex);
        for (const auto& camera : known) {
            if (fake_host::IsSame(camera->info.id, id)) {
                return camera;
            }
        }
        return nullptr;
    }

    void Look(fake_host::Bus& bus)
    {
        const std::lock_guard lock(mutex);
        known = bus.cameras;
        infos.clear();
        for (const auto& camera : known) {
            infos.push_back(std::make_shared<const CameraInfo>(camera->info));
        }
    }
};

CameraList::CameraList(const CameraListOptions& /*options*/)
    : m_implementation(std::make_unique<Implementation>())
{
    fake_host::ThrowIf(fake_host::TheBus().initFailure);
}

CameraList::~CameraList()
{
    fake_host::TheBus().listener = {};
}

void CameraList::Update(Deadline deadline)
{
    fake_host::Bus& bus = fake_host::TheBus();
    std::unique_lock lock(bus.mutex);
    ++bus.looks;
    const auto isReleased = [&bus] { return !bus.isHeld; };
    if (deadline == Deadline::max()) {
        bus.released.wait(lock, isReleased);
    } else if (!bus.released.wait_until(lock, deadline, isReleased)) {
        return;
    }
    m_implementation->Look(bus);
}

std::vector<std::shared_ptr<const CameraInfo>> CameraList::Cameras() const
{
    const std::lock_guard lock(m_implementation->mutex);
    return m_implementation->infos;
}

std::shared_ptr<const CameraInfo> CameraList::Find(std::string_view id) const
{
    const auto camera = m_implementation->Find(id);
    return camera != nullptr ? std::make_shared<const CameraInfo>(camera->info) : nullptr;
}

AccessStatus CameraList::Access(std::string_view id) const
{
    const auto camera = m_implementation->Find(id);
    if (camera == nullptr) {
        return AccessStatus::Unknown;
    }
    if (!camera->mode) {
        return camera->access;
    }
    return *camera->mode == OpenMode::ReadOnly ? AccessStatus::OpenReadOnly
                                               : AccessStatus::OpenReadWrite;
}

std::unique_ptr<Camera> CameraList::Open(std::string_view id, OpenMode mode)
{
    const auto camera = m_implementation->Find(id);
    if (camera == nullptr) {
        throw Error(ErrorKind::InvalidId, "no such camera");
    }
    fake_host::ThrowIf(camera->openFailure);
    if (camera->mode) {
        throw Error(ErrorKind::InUse, "the camera is open already");
    }
    return std::make_unique<fake_host::OpenCamera>(camera, mode);
}

void CameraList::OnChange(std::function<void()> listener)
{
    fake_host::TheBus().listener = std::move(listener);
}

} // namespace u3v_host
