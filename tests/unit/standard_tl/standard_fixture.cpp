#include "standard_fixture.h"

namespace standard_tl {

std::string Answer::Text() const
{
    EXPECT_EQ(type, INFO_DATATYPE_STRING);
    EXPECT_FALSE(bytes.empty());
    EXPECT_EQ(bytes.empty() ? 1 : bytes.back(), 0) << "the text has no end";
    return std::string(bytes.begin(), bytes.empty() ? bytes.end() : bytes.end() - 1);
}

LastError TheLastError()
{
    LastError last;
    char text[1024] = {};
    size_t size = sizeof(text);
    EXPECT_EQ(GCGetLastError(&last.code, text, &size), GC_ERR_SUCCESS);
    last.text = text;
    return last;
}

namespace {

fake_host::Bus& FreshBus()
{
    fake_host::ResetBus();
    return fake_host::TheBus();
}

} // namespace

StandardTest::StandardTest() : bus(FreshBus()), camera(bus.Plug("CAM1"))
{
    EXPECT_EQ(GCInitLib(), GC_ERR_SUCCESS);
}

StandardTest::~StandardTest()
{
    GCCloseLib();
}

TL_HANDLE StandardTest::System()
{
    if (m_system == nullptr) {
        EXPECT_EQ(TLOpen(&m_system), GC_ERR_SUCCESS);
    }
    return m_system;
}

IF_HANDLE StandardTest::Interface()
{
    if (m_interface == nullptr) {
        char id[64];
        size_t size = sizeof(id);
        EXPECT_EQ(TLGetInterfaceID(System(), 0, id, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(TLOpenInterface(System(), id, &m_interface), GC_ERR_SUCCESS);
        EXPECT_EQ(IFUpdateDeviceList(m_interface, nullptr, GENTL_INFINITE), GC_ERR_SUCCESS);
    }
    return m_interface;
}

DEV_HANDLE StandardTest::Device()
{
    if (m_device == nullptr) {
        EXPECT_EQ(IFOpenDevice(Interface(), "CAM1", DEVICE_ACCESS_EXCLUSIVE, &m_device),
                  GC_ERR_SUCCESS);
    }
    return m_device;
}

PORT_HANDLE StandardTest::Remote()
{
    PORT_HANDLE port = nullptr;
    EXPECT_EQ(DevGetPort(Device(), &port), GC_ERR_SUCCESS);
    return port;
}

DS_HANDLE StandardTest::Stream()
{
    if (m_stream == nullptr) {
        EXPECT_EQ(DevOpenDataStream(Device(), "Stream0", &m_stream), GC_ERR_SUCCESS);
    }
    return m_stream;
}

EVENT_HANDLE StandardTest::Register(void* source, EVENT_TYPE type)
{
    EVENT_HANDLE event = nullptr;
    EXPECT_EQ(GCRegisterEvent(source, type, &event), GC_ERR_SUCCESS);
    return event;
}

Answer StandardTest::DeviceInfo(DEVICE_INFO_CMD command)
{
    return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return DevGetInfo(Device(), command, type, buffer, size);
    });
}

Answer StandardTest::StreamInfo(STREAM_INFO_CMD command)
{
    return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return DSGetInfo(Stream(), command, type, buffer, size);
    });
}

Answer StandardTest::BufferInfo(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command)
{
    return Ask([&](INFO_DATATYPE* type, void* value, size_t* size) {
        return DSGetBufferInfo(Stream(), buffer, command, type, value, size);
    });
}

Answer StandardTest::PortInfo(PORT_HANDLE port, PORT_INFO_CMD command)
{
    return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return GCGetPortInfo(port, command, type, buffer, size);
    });
}

Answer StandardTest::UrlInfo(PORT_HANDLE port, uint32_t index, URL_INFO_CMD command)
{
    return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return GCGetPortURLInfo(port, index, command, type, buffer, size);
    });
}

} // namespace standard_tl
