#include "tool_port_device.h"

namespace {

// By the rules of GObject: the parent's record comes first, and memory that is all zero is a valid
// object. That a record of C++ begins with one of C is why nothing here has a constructor.
struct PortDevice
{
    ArvDevice parent;
    const Producer* api;
    PORT_HANDLE port;
};

// A call to the producer as one of libaravis' functions, which know no exceptions.
template <class Call>
gboolean AsGlib(GError** error, const Call& call)
{
    try {
        call();
        return TRUE;
    } catch (const std::exception& failure) {
        g_set_error_literal(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TRANSFER_ERROR,
                            failure.what());
        return FALSE;
    }
}

gboolean ReadMemory(ArvDevice* device, guint64 address, guint32 length, void* buffer,
                    GError** error)
{
    const auto* const self = reinterpret_cast<PortDevice*>(device);
    return AsGlib(error, [&] {
        size_t size = length;
        GENTL_CALL(*self->api, GCReadPort, self->port, address, buffer, &size);
    });
}

gboolean WriteMemory(ArvDevice* device, guint64 address, guint32 length, void* buffer,
                     GError** error)
{
    const auto* const self = reinterpret_cast<PortDevice*>(device);
    return AsGlib(error, [&] {
        size_t size = length;
        GENTL_CALL(*self->api, GCWritePort, self->port, address, buffer, &size);
    });
}

gboolean ReadRegister(ArvDevice* device, guint64 address, guint32* value, GError** error)
{
    return ReadMemory(device, address, sizeof *value, value, error);
}

gboolean WriteRegister(ArvDevice* device, guint64 address, guint32 value, GError** error)
{
    return WriteMemory(device, address, sizeof value, &value, error);
}

void InitializeClass(void* data, void*)
{
    auto* const functions = static_cast<ArvDeviceClass*>(data);
    functions->read_memory = ReadMemory;
    functions->write_memory = WriteMemory;
    functions->read_register = ReadRegister;
    functions->write_register = WriteRegister;
}

GType TypeOfPortDevice()
{
    static const GType type =
        g_type_register_static_simple(ARV_TYPE_DEVICE, "ZrPortDevice", sizeof(ArvDeviceClass),
                                      InitializeClass, sizeof(PortDevice), nullptr, GTypeFlags(0));
    return type;
}

} // namespace

ArvDevice* MakePortDevice(const Producer& api, PORT_HANDLE port)
{
    auto* const self = static_cast<PortDevice*>(g_object_new(TypeOfPortDevice(), nullptr));
    self->api = &api;
    self->port = port;
    return &self->parent;
}
