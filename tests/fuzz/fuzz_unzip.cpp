// Zip archives: a camera's description file, as the unzip operation gets it.

#include "fuzz_camera.h"
#include "fuzz_input.h"

#include "u3v_control.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzQuietStdout();
    {
        fuzz::Camera camera;
        U3V_Control control(&camera.Device());
        UsbBlock file = UsbBlock::Allocate(size);
        if (size > 0) {
            std::memcpy(file.Data(), data, size);
        }
        control.StoreXmlFile(std::move(file));
        // An archive in the archive once more; a failure leaves the file as it is.
        for (int depth = 0; depth < 2; ++depth) {
            const auto before = control.XmlFile();
            uint16_t status = U3V_STATUS_UNZIP_FAILED;
            try {
                status = control.UnzipXmlFile();
            } catch (const std::bad_alloc&) {
                status = U3V_STATUS_EXCEPTION; // what the flat interface makes of it
            }
            FuzzDemand(status == U3V_STATUS_SUCCESS || control.XmlFile() == before,
                       "a file that cannot be unzipped stays");
        }
    }
    FuzzDemand(fuzz::NothingLeft(), "nothing of libusb is left");
    return 0;
}
