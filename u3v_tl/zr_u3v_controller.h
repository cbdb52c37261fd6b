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
// GCInitLib and GCCloseLib exclude each other, and wait for the other life-cycle calls that are
// inside, so that no thread uses a System that is being destroyed. Calls that come while the
// library closes are answered GC_ERR_NOT_INITIALIZED at once; a GCInitLib waits for the end.
class ZrU3VController : public ZrGenTLController
{
public:
    ZrU3VController() = default;

    // Creates the System. An allocation failure propagates: there is nothing yet that could report
    // it.
    GC_ERROR Init();
    // Destroys the System with everything below it and empties the registry.
    GC_ERROR Close();
    bool IsInitialized() const { return m_initialized.load(std::memory_order_acquire); }
    GC_ERROR GetInfo(int iInfoCmd, int* piType, void* pBuffer, size_t* piSize);
    // Opens the System and writes its handle to *phSystem, which must hold NULL on entry. A NULL
    // phSystem is answered with GC_ERR_INVALID_PARAMETER.
    GC_ERROR OpenSystemModule(void** phSystem);
    GC_ERROR CloseSystemModule(void* hSystem);

private:
    // An operation of the System while the library is initialised.
    template <class Operation>
    GC_ERROR _onSystem(const char* function, Operation&& operation);

    std::atomic<bool> m_initialized{false};
    std::unique_ptr<ZrU3VSystem> m_system ZR_GUARDED_BY(m_lifeCycle);
    Mutex m_initCloseMutex; // one initialising or closing at a time
    RwLock m_lifeCycle;     // read by the calls that use the System
};

extern ZrU3VController& g_Controller;
