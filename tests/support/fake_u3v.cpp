#include "fake_u3v.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <thread>

#include "u3v_bounded.h"
#include "wait.h"

namespace {

constexpr uint64_t kManifestPointer = 0x1D0;
constexpr uint64_t kManifestAddress = 0x10000;

thread_local int t_inside = 0;

struct Inside
{
    Inside() { ++t_inside; }
    ~Inside() { --t_inside; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
};

} // namespace

bool FakeU3V::IsInside()
{
    return t_inside != 0;
}

FakeU3V& FakeU3V::Instance()
{
    static FakeU3V instance;
    return instance;
}

void FakeU3V::Reset()
{
    std::lock_guard lock(m_mutex);
    m_cameras.clear();
    m_statuses.clear();
    m_actions.clear();
    m_memory.clear();
    m_images.clear();
    m_journal.clear();
    m_openHandles = 0;
}

void FakeU3V::SetCameras(const std::vector<U3V_DEVICE_INFO>& cameras)
{
    std::lock_guard lock(m_mutex);
    m_cameras = cameras;
}

U3V_DEVICE_INFO FakeU3V::MakeCamera(const std::string& guid, const std::string& vendor,
                                    const std::string& model, const std::string& version)
{
    U3V_DEVICE_INFO info{};
    snprintf(info.DeviceGUID, sizeof(info.DeviceGUID), "%s", guid.c_str());
    snprintf(info.VendorName, sizeof(info.VendorName), "%s", vendor.c_str());
    snprintf(info.ModelName, sizeof(info.ModelName), "%s", model.c_str());
    snprintf(info.DeviceVersion, sizeof(info.DeviceVersion), "%s", version.c_str());
    return info;
}

void FakeU3V::Script(const std::string& function, std::initializer_list<uint16_t> statuses)
{
    std::lock_guard lock(m_mutex);
    m_statuses[function].insert(m_statuses[function].end(), statuses);
}

void FakeU3V::OnCall(const std::string& function, std::function<void()> action)
{
    std::lock_guard lock(m_mutex);
    m_actions[function] = std::move(action);
}

void FakeU3V::Poke(uint64_t address, const void* data, size_t size)
{
    std::lock_guard lock(m_mutex);
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < size; ++i) {
        m_memory[address + i] = bytes[i];
    }
}

std::vector<uint8_t> FakeU3V::Peek(uint64_t address, size_t size)
{
    std::lock_guard lock(m_mutex);
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        const auto found = m_memory.find(address + i);
        bytes[i] = found != m_memory.end() ? found->second : uint8_t{0};
    }
    return bytes;
}

void FakeU3V::PokeManifest(uint64_t entries, uint64_t address, uint64_t size, bool zipped)
{
    const uint64_t table = kManifestAddress;
    const uint32_t format = zipped ? 1u << 10 : 0u;
    Poke(kManifestPointer, &table, sizeof(table));
    Poke(table, &entries, sizeof(entries));
    Poke(table + 8 + 4, &format, sizeof(format));
    Poke(table + 8 + 8, &address, sizeof(address));
    Poke(table + 8 + 16, &size, sizeof(size));
}

void FakeU3V::PushImage(const Image& image)
{
    std::lock_guard lock(m_mutex);
    m_images.push_back(image);
}

std::vector<std::string> FakeU3V::Journal()
{
    std::lock_guard lock(m_mutex);
    return m_journal;
}

void FakeU3V::ClearJournal()
{
    std::lock_guard lock(m_mutex);
    m_journal.clear();
}

size_t FakeU3V::CountOf(const std::string& prefix)
{
    std::lock_guard lock(m_mutex);
    return static_cast<size_t>(
        std::count_if(m_journal.begin(), m_journal.end(), [&](const std::string& line) {
            return line.compare(0, prefix.size(), prefix) == 0;
        }));
}

int FakeU3V::OpenHandles()
{
    std::lock_guard lock(m_mutex);
    return m_openHandles;
}

// What the functions below do to the stand-in.
struct FakeU3VAccess
{
    // Journals the call and returns its scripted status.
    static uint16_t Enter(const char* function, const std::string& arguments)
    {
        FakeU3V& fake = FakeU3V::Instance();
        std::function<void()> action;
        uint16_t status = U3V_STATUS_SUCCESS;
        {
            const Inside inside;
            std::lock_guard lock(fake.m_mutex);
            fake.m_journal.push_back(arguments.empty() ? function
                                                       : std::string(function) + " " + arguments);
            if (const auto found = fake.m_actions.find(function); found != fake.m_actions.end()) {
                action = found->second;
            }
            if (auto& scripted = fake.m_statuses[function]; !scripted.empty()) {
                status = scripted.front();
                scripted.pop_front();
            }
        }
        if (action) {
            action();
        }
        return status;
    }

    template <class Handle>
    static void Open(Handle* handle)
    {
        FakeU3V& fake = FakeU3V::Instance();
        std::lock_guard lock(fake.m_mutex);
        ++fake.m_openHandles;
        *handle = reinterpret_cast<Handle>(new char());
    }

    template <class Handle>
    static void Close(Handle handle)
    {
        FakeU3V& fake = FakeU3V::Instance();
        std::lock_guard lock(fake.m_mutex);
        --fake.m_openHandles;
        delete reinterpret_cast<char*>(handle);
    }

    static std::vector<U3V_DEVICE_INFO> Cameras()
    {
        FakeU3V& fake = FakeU3V::Instance();
        std::lock_guard lock(fake.m_mutex);
        return fake.m_cameras;
    }

    static bool TakeImage(FakeU3V::Image& image)
    {
        FakeU3V& fake = FakeU3V::Instance();
        std::lock_guard lock(fake.m_mutex);
        if (fake.m_images.empty()) {
            return false;
        }
        image = std::move(fake.m_images.front());
        fake.m_images.pop_front();
        return true;
    }
};

namespace {

std::string Hex(uint64_t value)
{
    char text[32];
    snprintf(text, sizeof(text), "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

} // namespace

uint16_t U3V_DiscoveryOpen()
{
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_DiscoveryClose()
{
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_DiscoveryDevices(uint16_t* pnCount)
{
    const uint16_t status = FakeU3VAccess::Enter(__func__, "");
    *pnCount = static_cast<uint16_t>(FakeU3VAccess::Cameras().size());
    return status;
}

uint16_t U3V_GetDeviceInfo(uint16_t nIndex, U3V_DEVICE_INFO* pInfo)
{
    const uint16_t status = FakeU3VAccess::Enter(__func__, std::to_string(nIndex));
    if (status == U3V_STATUS_SUCCESS) {
        *pInfo = FakeU3VAccess::Cameras().at(static_cast<size_t>(nIndex) - 1);
    }
    return status;
}

uint16_t U3V_OpenDevice(const char* sGUID, U3V_DEVICE_HANDLE* phDevice)
{
    FakeU3VAccess::Open(phDevice); // handed out before it is known whether it opens
    return FakeU3VAccess::Enter(__func__, sGUID);
}

uint16_t U3V_CloseDevice(U3V_DEVICE_HANDLE hDevice)
{
    FakeU3VAccess::Close(hDevice);
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_OpenControl(U3V_DEVICE_HANDLE /*hDevice*/, U3V_CONTROL_HANDLE* phControl)
{
    FakeU3VAccess::Open(phControl);
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_CloseControl(U3V_CONTROL_HANDLE hControl)
{
    FakeU3VAccess::Close(hControl);
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_ReadMem(U3V_CONTROL_HANDLE /*hControl*/, uint64_t nAddress, int16_t nLength,
                     void* pDestination)
{
    const uint16_t status =
        FakeU3VAccess::Enter(__func__, Hex(nAddress) + " " + std::to_string(nLength));
    if (status == U3V_STATUS_SUCCESS && nLength > 0) {
        const auto bytes = FakeU3V::Instance().Peek(nAddress, static_cast<size_t>(nLength));
        memcpy(pDestination, bytes.data(), bytes.size());
    }
    return status;
}

uint16_t U3V_WriteMem(U3V_CONTROL_HANDLE /*hControl*/, uint64_t nAddress, int16_t nLength,
                      const void* pSource)
{
    const uint16_t status =
        FakeU3VAccess::Enter(__func__, Hex(nAddress) + " " + std::to_string(nLength));
    if (status == U3V_STATUS_SUCCESS && nLength > 0) {
        FakeU3V::Instance().Poke(nAddress, pSource, static_cast<size_t>(nLength));
    }
    return status;
}

uint16_t U3V_WriteMemSized(U3V_CONTROL_HANDLE hControl, uint64_t nAddress, size_t length,
                           const void* pSource)
{
    return length > 1024 ? uint16_t{U3V_STATUS_GENCP_INVALID_PARAMETER}
                         : U3V_WriteMem(hControl, nAddress, static_cast<int16_t>(length), pSource);
}

uint16_t U3V_MaximumDeviceResponseTime(U3V_CONTROL_HANDLE /*hControl*/, uint32_t* pnMilliseconds)
{
    *pnMilliseconds = 0;
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_OpenStream(U3V_DEVICE_HANDLE /*hDevice*/, U3V_CONTROL_HANDLE /*hControl*/,
                        U3V_STREAM_HANDLE* phStream, uint32_t nArgument)
{
    FakeU3VAccess::Open(phStream);
    return FakeU3VAccess::Enter(__func__, std::to_string(nArgument));
}

uint16_t U3V_CloseStream(U3V_STREAM_HANDLE hStream)
{
    FakeU3VAccess::Close(hStream);
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_AcquisitionStart(U3V_STREAM_HANDLE /*hStream*/, uint32_t nImagesToAcquire)
{
    return FakeU3VAccess::Enter(__func__, std::to_string(nImagesToAcquire));
}

uint16_t U3V_RequestStop(U3V_STREAM_HANDLE /*hStream*/)
{
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_AcquisitionStop(U3V_STREAM_HANDLE /*hStream*/, uint64_t* pnImagesAcquired,
                             uint64_t* pnLostCount)
{
    *pnImagesAcquired = 0;
    *pnLostCount = 0;
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_GetImage(U3V_STREAM_HANDLE hStream, void* pDestination, uint32_t nTimeout,
                      IMAGE_HEADER* pHeader)
{
    return U3V_GetImageBounded(hStream, pDestination, SIZE_MAX, nTimeout, pHeader);
}

uint16_t U3V_GetImageBounded(U3V_STREAM_HANDLE /*hStream*/, void* pDestination, size_t capacity,
                             uint32_t nTimeout, IMAGE_HEADER* pHeader)
{
    if (const uint16_t status = FakeU3VAccess::Enter("U3V_GetImage", std::to_string(nTimeout));
        status != 0) {
        return status;
    }
    FakeU3V::Image image{};
    if (!zr_test::WaitUntil([&image] { return FakeU3VAccess::TakeImage(image); },
                            std::chrono::milliseconds(nTimeout))) {
        return U3V_STATUS_IMAGE_TIMEOUT;
    }
    memcpy(pDestination, image.bytes.data(), std::min(capacity, image.bytes.size()));
    *pHeader = image.header;
    return image.bytes.size() > capacity ? uint16_t{U3V_STATUS_IMAGE_MISSING_PACKETS}
                                         : image.status;
}

uint16_t U3V_GetTransferSize(U3V_STREAM_HANDLE /*hStream*/, uint32_t* pnTransferSize)
{
    *pnTransferSize = 0;
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_SetTransferSize(U3V_STREAM_HANDLE /*hStream*/, uint32_t nTransferSize)
{
    return FakeU3VAccess::Enter(__func__, std::to_string(nTransferSize));
}

uint16_t U3V_GetBufferCount(U3V_STREAM_HANDLE /*hStream*/, uint32_t* pnBufferCount)
{
    *pnBufferCount = 0;
    return FakeU3VAccess::Enter(__func__, "");
}

uint16_t U3V_SetBufferCount(U3V_STREAM_HANDLE /*hStream*/, uint32_t nBufferCount)
{
    return FakeU3VAccess::Enter(__func__, std::to_string(nBufferCount));
}
