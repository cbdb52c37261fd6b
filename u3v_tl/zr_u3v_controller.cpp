#include "zr_u3v_controller.h"

#include "module_failure.h"

namespace {

// The controller outlives the end of the process: there may be threads in the library then, its own
// and the consumer's, and they still lock and look up. Its storage goes with the library.
union ControllerStorage
{
    ControllerStorage() : controller() {}
    // Unloading a closed library leaves no memory behind. One that is still initialised is left as
    // it is: somebody may be anywhere in it.
    ~ControllerStorage()
    {
        if (!controller.IsInitialized()) {
            controller.ReleaseMemory();
        }
    }
    ControllerStorage(const ControllerStorage&) = delete;
    ControllerStorage& operator=(const ControllerStorage&) = delete;

    ZrU3VController controller;
};

// Before every other static object of the library: entry points may be called as soon as it is
// loaded.
__attribute__((init_priority(200))) ControllerStorage g_storage;

} // namespace

constinit ZrU3VController& g_Controller = g_storage.controller;

GC_ERROR ZrU3VController::Init()
{
    WriteLocker lock(m_lifeCycle);
    if (IsInitialized()) {
        return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
    }
    m_pSystem = std::make_unique<ZrU3VSystem>();
    m_bInitialized.store(true, std::memory_order_release);
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VController::Close()
{
    WriteLocker lock(m_lifeCycle);
    if (!IsInitialized()) {
        return ZR_FAIL(GC_ERR_NOT_INITIALIZED, "%s GC_ERR_NOT_INITIALIZED", __func__);
    }
    m_bInitialized.store(false, std::memory_order_release);
    m_pSystem.reset();
    UnregisterAllModule();
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VController::GetInfo(int iInfoCmd, int* piType, void* pBuffer, size_t* piSize)
{
    ReadLocker lock(m_lifeCycle);
    if (!IsInitialized()) {
        return ZR_FAIL(GC_ERR_NOT_INITIALIZED, "%s GC_ERR_NOT_INITIALIZED", __func__);
    }
    return m_pSystem->GetInfo(iInfoCmd, piType, pBuffer, piSize);
}

GC_ERROR ZrU3VController::OpenSystemModule(void** phSystem)
{
    ReadLocker lock(m_lifeCycle);
    if (!IsInitialized()) {
        return ZR_FAIL(GC_ERR_NOT_INITIALIZED, "%s GC_ERR_NOT_INITIALIZED", __func__);
    }
    if (phSystem == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s Failed: GC_ERR_INVALID_PARAMETER", __func__);
    }
    if (*phSystem != nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_HANDLE, "%s Failed: GC_ERR_INVALID_HANDLE", __func__);
    }
    const GC_ERROR status = m_pSystem->Open();
    if (status == GC_ERR_SUCCESS) {
        *phSystem = m_pSystem.get();
    }
    return status;
}

GC_ERROR ZrU3VController::CloseSystemModule(void* hSystem)
{
    ReadLocker lock(m_lifeCycle);
    if (!IsInitialized()) {
        return ZR_FAIL(GC_ERR_NOT_INITIALIZED, "%s GC_ERR_NOT_INITIALIZED", __func__);
    }
    if (hSystem != m_pSystem.get()) {
        return ZR_FAIL(GC_ERR_INVALID_HANDLE, "%s Failed: GC_ERR_INVALID_HANDLE", __func__);
    }
    return m_pSystem->Close();
}
