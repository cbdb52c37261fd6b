#pragma once

#include <atomic>
#include <memory>

#include "zr_gentl_controller.h"
#include "zr_rw_lock.h"
#include "zr_u3v_system.h"

// Adds the library's life cycle to the controller: the initialised flag and the one System module.
// One instance, g_Controller, exists for as long as the library is loaded; it is not destroyed at
// the end of the process, when threads may still be inside.
//
// GCInitLib and GCCloseLib exclude every other life-cycle call, so that no thread uses a System
// that is being destroyed.
class ZrU3VController : public ZrGenTLController
{
public:
    ZrU3VController() = default;

    // Creates the System. An allocation failure propagates: there is nothing yet that could report
    // it.
    GC_ERROR Init();
    // Destroys the System with everything below it and empties the registry.
    GC_ERROR Close();
    bool IsInitialized() const { return m_bInitialized.load(std::memory_order_acquire); }
    GC_ERROR GetInfo(int iInfoCmd, int* piType, void* pBuffer, size_t* piSize);
    // Opens the System and writes its handle to *phSystem, which must hold NULL on entry. A NULL
    // phSystem is answered with GC_ERR_INVALID_PARAMETER.
    GC_ERROR OpenSystemModule(void** phSystem);
    GC_ERROR CloseSystemModule(void* hSystem);

private:
    std::atomic<bool> m_bInitialized{false};
    std::unique_ptr<ZrU3VSystem> m_pSystem ZR_GUARDED_BY(m_lifeCycle);
    RwLock m_lifeCycle;
};

extern ZrU3VController& g_Controller;
