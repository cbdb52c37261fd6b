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
    Locker<Mutex> oneAtATime(m_initCloseMutex);
    if (IsInitialized()) {
        return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
    }
    WriteLocker lock(m_lifeCycle);
    m_system = std::make_unique<ZrU3VSystem>();
    m_initialized.store(true, std::memory_order_release);
    return GC_ERR_SUCCESS;
}

// The flag is asked before any lock, and cleared before those who are inside are waited for:
// whoever comes while the library closes is answered at once.
GC_ERROR ZrU3VController::Close()
{
    if (!IsInitialized()) {
        return ZR_FAIL(GC_ERR_NOT_INITIALIZED, "%s GC_ERR_NOT_INITIALIZED", __func__);
    }
    Locker<Mutex> oneAtATime(m_initCloseMutex);
    if (!m_initialized.exchange(false)) {
        return ZR_FAIL(GC_ERR_NOT_INITIALIZED, "%s GC_ERR_NOT_INITIALIZED", __func__);
    }
    WriteLocker lock(m_lifeCycle);
    m_system.reset();
    UnregisterAllModule();
    return GC_ERR_SUCCESS;
}

// Asked once more under the lock: the library may have been closed just before.
template <class Operation>
GC_ERROR ZrU3VController::_onSystem(const char* function, Operation&& operation)
{
    if (IsInitialized()) {
        ReadLocker lock(m_lifeCycle);
        if (IsInitialized()) {
            return operation(*m_system);
        }
    }
    return ZR_FAIL(GC_ERR_NOT_INITIALIZED, "%s GC_ERR_NOT_INITIALIZED", function);
}

GC_ERROR ZrU3VController::GetInfo(int iInfoCmd, int* piType, void* pBuffer, size_t* piSize)
{
    return _onSystem(__func__, [&](ZrU3VSystem& system) {
        return system.GetInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR ZrU3VController::OpenSystemModule(void** phSystem)
{
    const char* const function = __func__;
    return _onSystem(function, [&](ZrU3VSystem& system) -> GC_ERROR {
        if (phSystem == nullptr) {
            return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s Failed: GC_ERR_INVALID_PARAMETER",
                           function);
        }
        if (*phSystem != nullptr) {
            return ZR_FAIL(GC_ERR_INVALID_HANDLE, "%s Failed: GC_ERR_INVALID_HANDLE", function);
        }
        const GC_ERROR status = system.Open();
        if (status == GC_ERR_SUCCESS) {
            *phSystem = &system;
        }
        return status;
    });
}

GC_ERROR ZrU3VController::CloseSystemModule(void* hSystem)
{
    const char* const function = __func__;
    return _onSystem(function, [&](ZrU3VSystem& system) -> GC_ERROR {
        return hSystem == &system
                   ? system.Close()
                   : ZR_FAIL(GC_ERR_INVALID_HANDLE, "%s Failed: GC_ERR_INVALID_HANDLE", function);
    });
}
