#include "zr_client.h"
#include "zr_client_input.h"

#include <cstdio>

namespace {

// The name in main's texts. Not __func__: the tests build main under another name.
constexpr char kMain[] = "main";

void UseSystem(TL_HANDLE hTL)
{
    const std::vector<_ZRK_DEV_INFO> devices = EnumDevices(hTL);
    if (devices.empty()) {
        std::printf(":%s No device found!\n", kMain);
    } else {
        MainMenu(devices);
    }
    CloseInterfaces(devices);
}

void UseLibrary()
{
    const TL_HANDLE hTL = OpenSystem();
    if (hTL != nullptr) {
        UseSystem(hTL);
        CloseSystem(hTL);
    }
}

} // namespace

// Part of the library's public list: a program that links the library and has no main starts here.
__attribute__((visibility("default"))) int main()
{
    const GC_ERROR status = GCInitLib();
    if (status == GC_ERR_SUCCESS) {
        UseLibrary();
    } else {
        std::printf(":%s GCInitLib failed!:%d\n", kMain, status);
    }
    // Quirk Q93: closed after a failed start as well, which then answers a status nobody reads.
    GCCloseLib();
    WaitForEnter();
    return 0;
}
