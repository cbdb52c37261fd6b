#include "zr_client.h"
#include "zr_client_text.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr char kClosingStars[] = "******************************************";

// Reads one field after the other with one kind of query and remembers the first failure.
template <class Query>
class InfoReader
{
public:
    explicit InfoReader(Query query) : m_query(query) {}

    // Reads with room to spare and cuts to the field, so that a long text is shown in part.
    template <size_t N>
    void Text(int32_t command, char (&field)[N])
    {
        char whole[kZrClientPathSize] = {};
        size_t size = sizeof(whole);
        const bool good = _Read(command, whole, &size);
        const size_t length = good ? strnlen(whole, N - 1) : 0;
        std::memcpy(field, whole, length);
        std::memset(field + length, 0, N - length);
    }

    template <class T>
    void Value(int32_t command, T& field)
    {
        T value{};
        size_t size = sizeof(value);
        field = _Read(command, &value, &size) ? value : T{};
    }

    GC_ERROR Status() const { return m_status; }

private:
    bool _Read(int32_t command, void* buffer, size_t* size)
    {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        const GC_ERROR status = m_query(command, &type, buffer, size);
        if (m_status == GC_ERR_SUCCESS) {
            m_status = status;
        }
        return status == GC_ERR_SUCCESS;
    }

    Query m_query;
    GC_ERROR m_status = GC_ERR_SUCCESS;
};

// The fields that the TL and the system record share.
void PrintCommonTLInfo(const _ZRK_TL_INFO& info)
{
    std::printf("Id:%s\n", Printable(info.id).c_str());
    std::printf("Vendor:%s\n", Printable(info.vendor).c_str());
    std::printf("Model:%s\n", Printable(info.model).c_str());
    std::printf("Version:%s\n", Printable(info.version).c_str());
    std::printf("TLType:%s\n", Printable(info.tlType).c_str());
    std::printf("Name:%s\n", Printable(info.name).c_str());
    std::printf("PathName:%s\n", Printable(info.pathName).c_str());
    std::printf("DisplayName:%s\n", Printable(info.displayName).c_str());
}

} // namespace

GC_ERROR GetTLInfo(TL_HANDLE hTL, _ZRK_TL_INFO& info)
{
    InfoReader reader([&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return TLGetInfo(hTL, command, type, buffer, size);
    });
    reader.Text(TL_INFO_ID, info.id);
    reader.Text(TL_INFO_VENDOR, info.vendor);
    reader.Text(TL_INFO_MODEL, info.model);
    reader.Text(TL_INFO_VERSION, info.version);
    reader.Text(TL_INFO_TLTYPE, info.tlType);
    reader.Text(TL_INFO_NAME, info.name);
    reader.Text(TL_INFO_PATHNAME, info.pathName);
    reader.Text(TL_INFO_DISPLAYNAME, info.displayName);
    reader.Value(TL_INFO_GENTL_VER_MAJOR, info.genTLMajor);
    reader.Value(TL_INFO_GENTL_VER_MINOR, info.genTLMinor);
    return reader.Status();
}

GC_ERROR GetIFInfo(IF_HANDLE hIface, _ZRK_IF_INFO& info)
{
    InfoReader reader([&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return IFGetInfo(hIface, command, type, buffer, size);
    });
    reader.Text(INTERFACE_INFO_ID, info.id);
    reader.Text(INTERFACE_INFO_DISPLAYNAME, info.displayName);
    reader.Text(INTERFACE_INFO_TLTYPE, info.tlType);
    return reader.Status();
}

GC_ERROR GetDEVInfo(IF_HANDLE hIface, const char* deviceId, _ZRK_DEV_INFO& info)
{
    InfoReader reader([&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return IFGetDeviceInfo(hIface, deviceId, command, type, buffer, size);
    });
    info.hIface = hIface;
    reader.Text(DEVICE_INFO_ID, info.id);
    reader.Text(DEVICE_INFO_VENDOR, info.vendor);
    reader.Text(DEVICE_INFO_MODEL, info.model);
    reader.Text(DEVICE_INFO_DISPLAYNAME, info.displayName);
    reader.Text(DEVICE_INFO_TLTYPE, info.tlType);
    reader.Value(DEVICE_INFO_ACCESS_STATUS, info.accessStatus);
    reader.Text(DEVICE_INFO_USER_DEFINED_NAME, info.userDefinedName);
    reader.Text(DEVICE_INFO_SERIAL_NUMBER, info.serialNumber);
    reader.Text(DEVICE_INFO_VERSION, info.version);
    reader.Value(DEVICE_INFO_TIMESTAMP_FREQUENCY, info.timestampFrequency);
    return reader.Status();
}

GC_ERROR GetPortInfo(PORT_HANDLE hPort, _ZRK_PORT_INFO& info)
{
    InfoReader reader([&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return GCGetPortInfo(hPort, command, type, buffer, size);
    });
    reader.Text(PORT_INFO_ID, info.id);
    reader.Text(PORT_INFO_VENDOR, info.vendor);
    reader.Text(PORT_INFO_MODEL, info.model);
    reader.Text(PORT_INFO_VERSION, info.version);
    reader.Text(PORT_INFO_MODULE, info.module);
    reader.Value(PORT_INFO_LITTLE_ENDIAN, info.littleEndian);
    reader.Value(PORT_INFO_BIG_ENDIAN, info.bigEndian);
    reader.Value(PORT_INFO_ACCESS_READ, info.accessRead);
    reader.Value(PORT_INFO_ACCESS_WRITE, info.accessWrite);
    reader.Value(PORT_INFO_ACCESS_NA, info.accessNA);
    reader.Value(PORT_INFO_ACCESS_NI, info.accessNI);
    reader.Text(PORT_INFO_PORTNAME, info.name);
    return reader.Status();
}

void PrintTLInfo(const _ZRK_TL_INFO& info)
{
    std::puts("******************TL Info*****************");
    PrintCommonTLInfo(info);
    std::printf("GenTL:%d.%d\n", static_cast<int>(info.genTLMajor),
                static_cast<int>(info.genTLMinor));
    std::puts(kClosingStars);
}

void PrintGenTLInfo(const _ZRK_TL_INFO& info)
{
    std::puts("******************System Info*****************");
    PrintCommonTLInfo(info);
    std::puts(kClosingStars);
}

void PrintIFInfo(const _ZRK_IF_INFO& info)
{
    std::puts("******************IF Info*****************");
    std::printf("Id:%s\n", Printable(info.id).c_str());
    std::printf("DisplayName:%s\n", Printable(info.displayName).c_str());
    std::printf("TLType:%s\n", Printable(info.tlType).c_str());
    std::puts(kClosingStars);
}

void PrintDevInfo(const _ZRK_DEV_INFO& info)
{
    std::puts("******************Device Info*****************");
    std::printf("Id:%s\n", Printable(info.id).c_str());
    std::printf("Vendor:%s\n", Printable(info.vendor).c_str());
    std::printf("Model:%s\n", Printable(info.model).c_str());
    std::printf("DisplayName:%s\n", Printable(info.displayName).c_str());
    std::printf("TLType:%s\n", Printable(info.tlType).c_str());
    std::printf("Access Status:0x%x\n", static_cast<unsigned>(info.accessStatus));
    std::printf("User Defined Name:%s\n", Printable(info.userDefinedName).c_str());
    std::printf("Serial Number:%s\n", Printable(info.serialNumber).c_str());
    std::printf("Version:%s\n", Printable(info.version).c_str());
    std::printf("TimeStampFreq:%llu\n", static_cast<unsigned long long>(info.timestampFrequency));
    std::puts(kClosingStars);
}

void PrintPortInfo(const _ZRK_PORT_INFO& info)
{
    std::puts("******************Port Info*****************");
    std::printf("Id:%s\n", Printable(info.id).c_str());
    std::printf("Vendor:%s\n", Printable(info.vendor).c_str());
    std::printf("Model:%s\n", Printable(info.model).c_str());
    std::printf("Version:%s\n", Printable(info.version).c_str());
    std::printf("Module:%s\n", Printable(info.module).c_str());
    // Quirk Q86: spelled so; scripts look for the label.
    std::printf("Litte Endian:%d\n", static_cast<int>(info.littleEndian));
    std::printf("Big Endian:%d\n", static_cast<int>(info.bigEndian));
    std::printf("Access Read:%d\n", static_cast<int>(info.accessRead));
    std::printf("Access Write:%d\n", static_cast<int>(info.accessWrite));
    std::printf("Access NA:%d\n", static_cast<int>(info.accessNA));
    std::printf("Access NI:%d\n", static_cast<int>(info.accessNI));
    std::printf("Name:%s\n", Printable(info.name).c_str());
    std::puts(kClosingStars);
}
