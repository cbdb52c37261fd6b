// The public headers from C++, the logger included; and the producer by the path that the CMake
// package names.
#include <cstdio>
#include <dlfcn.h>
#include <zr_u3v_tl/gentl.h>
#include <zr_u3v_tl/u3v_lib.h>
#include <zr_u3v_tl/zr_logging.h>

int main()
{
    g_logger.SetLevel(ZR_LOG_ERROR);
    void* const producer = dlopen(ZR_CTI, RTLD_NOW | RTLD_LOCAL);
    if (producer == nullptr || dlsym(producer, "GCInitLib") == nullptr) {
        std::fprintf(stderr, "no producer: %s\n", dlerror());
        return 1;
    }
    return GCInitLib() == GC_ERR_SUCCESS && GCCloseLib() == GC_ERR_SUCCESS ? 0 : 1;
}
