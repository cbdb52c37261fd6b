#pragma once

#include <cstdint>
#include <cxxabi.h>
#include <new>

#include "zr_trace.h"
#include "zr_u3v_controller.h"

// The shells that every exported function is made of: entry trace, initialised check, handle to
// module, one operation, and the failure traced and recorded as the thread's last error. A success
// never clears the last error.

// Handles are traced with "0x%X": only their low 32 bits appear.
inline unsigned Low32(const void* handle)
{
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(handle));
}

inline const char* TextOrNull(const char* text)
{
    return text != nullptr ? text : "NULL";
}

class EntryCall
{
public:
    // Whether a failure becomes the thread's last error.
    enum class Recording
    {
        Recorded,
        NotRecorded
    };

    explicit EntryCall(const char* function) : m_function(function) {}

    // An operation of the controller that makes the initialised check itself.
    template <class Operation>
    GC_ERROR onLibrary(Operation&& operation, Recording recording = Recording::Recorded)
    {
        return _finish(_guard(operation), recording);
    }

    // The same for GCInitLib: an allocation failure leaves it as an exception, since there is no
    // library yet that could keep a status for the caller.
    template <class Operation>
    GC_ERROR onLibraryUnguarded(Operation&& operation)
    {
        return _finish(operation(), Recording::Recorded);
    }

    // An operation that needs the initialised library but no module of a certain kind.
    template <class Operation>
    GC_ERROR onInitialized(Operation&& operation)
    {
        return g_Controller.IsInitialized() ? _finish(_guard(operation), Recording::Recorded)
                                            : _notInitialized();
    }

    // The same for an event registration: the failure line carries the event's id.
    template <class Operation>
    GC_ERROR onEventRegistration(int32_t eventId, Operation&& operation)
    {
        if (!g_Controller.IsInitialized()) {
            return _notInitialized();
        }
        const GC_ERROR status = _guard(operation);
        if (status != GC_ERR_SUCCESS) {
            ZR_TRACE(ZR_TRACE_ERROR, "%s Failed:%d iEventID:%d", m_function, status, eventId);
            _record(status);
        }
        return status;
    }

    // An operation of the module of kind Module behind the handle. NULL, unknown, and a module of
    // another kind are the same: not found.
    template <class Module, class Operation>
    GC_ERROR onModule(void* handle, Operation&& operation)
    {
        if (!g_Controller.IsInitialized()) {
            return _notInitialized();
        }
        const auto found = g_Controller.PinModule(handle, Module::kKindName);
        auto* module = dynamic_cast<Module*>(found.Get());
        return module != nullptr
                   ? _finish(_guard([&] { return operation(*module); }), Recording::Recorded)
                   : _invalidHandle();
    }

    // An operation of the event behind the handle, whichever module it is registered on.
    template <class Operation>
    GC_ERROR onEvent(void* handle, Operation&& operation,
                     Recording unknownHandle = Recording::Recorded)
    {
        if (!g_Controller.IsInitialized()) {
            return _notInitialized();
        }
        Pinned<ZrGenTLEvent> event;
        // Among very many modules the search allocates.
        const GC_ERROR searched = _guard([&] {
            event = g_Controller.PinEvent(handle);
            return GC_ERR_SUCCESS;
        });
        if (searched != GC_ERR_SUCCESS) {
            return _finish(searched, Recording::Recorded);
        }
        if (event) {
            return _finish(_guard([&] { return operation(*event); }), Recording::Recorded);
        }
        ZR_TRACE(ZR_TRACE_ERROR, "%s GC_ERR_INVALID_HANDLE", m_function);
        if (unknownHandle == Recording::Recorded) {
            _record(GC_ERR_INVALID_HANDLE);
        }
        return GC_ERR_INVALID_HANDLE;
    }

    // Closing a child is its parent's operation. The child is left before the parent closes it,
    // because the parent waits until nobody is inside. `prepare` sees the child first.
    template <class Child, class Parent, class Prepare, class Close>
    GC_ERROR onParentOf(void* handle, Prepare&& prepare, Close&& close)
    {
        if (!g_Controller.IsInitialized()) {
            return _notInitialized();
        }
        auto found = g_Controller.PinModule(handle, Child::kKindName);
        auto* child = dynamic_cast<Child*>(found.Get());
        if (child == nullptr) {
            return _invalidHandle();
        }
        static_cast<void>(_guard([&] {
            prepare(*child);
            return GC_ERR_SUCCESS;
        }));
        if (child->GetParent() == nullptr) {
            ZR_TRACE(ZR_TRACE_ERROR, "%s Failed: GC_ERR_ERROR", m_function);
            _record(GC_ERR_ERROR);
            return GC_ERR_ERROR;
        }
        const auto pinnedParent = Pinned<ZrGenTLModuleBase>::TryPin(child->GetParent());
        found.Reset();
        // A parent that lets nobody in is being closed itself, and the child with it.
        auto* parent = dynamic_cast<Parent*>(pinnedParent.Get());
        return parent != nullptr
                   ? _finish(_guard([&] { return close(*parent); }), Recording::Recorded)
                   : _invalidHandle();
    }

    // A function that this producer does not have; its arguments are never touched.
    GC_ERROR notImplemented()
    {
        if (!g_Controller.IsInitialized()) {
            return _notInitialized();
        }
        _record(GC_ERR_NOT_IMPLEMENTED);
        return GC_ERR_NOT_IMPLEMENTED;
    }

private:
    // No exception leaves a C function: an allocation failure has its own status, the rest is
    // GC_ERR_ERROR. A cancelled thread unwinds through.
    template <class Operation>
    static GC_ERROR _guard(Operation&& operation)
    {
        try {
            return operation();
        } catch (const abi::__forced_unwind&) {
            throw;
        } catch (const std::bad_alloc&) {
            return GC_ERR_OUT_OF_MEMORY;
        } catch (...) {
            return GC_ERR_ERROR;
        }
    }

    GC_ERROR _finish(GC_ERROR status, Recording recording)
    {
        if (status != GC_ERR_SUCCESS) {
            ZR_TRACE(ZR_TRACE_ERROR, "%s Failed:%d", m_function, status);
            if (recording == Recording::Recorded) {
                _record(status);
            }
        }
        return status;
    }

    GC_ERROR _invalidHandle()
    {
        ZR_TRACE(ZR_TRACE_ERROR, "%s Failed: GC_ERR_INVALID_HANDLE", m_function);
        _record(GC_ERR_INVALID_HANDLE);
        return GC_ERR_INVALID_HANDLE;
    }

    GC_ERROR _notInitialized()
    {
        ZR_TRACE(ZR_TRACE_ERROR, "%s GC_ERR_NOT_INITIALIZED", m_function);
        _record(GC_ERR_NOT_INITIALIZED);
        return GC_ERR_NOT_INITIALIZED;
    }

    // A thread's first failure allocates its record; without memory for it the status alone has to
    // do.
    static void _record(GC_ERROR status)
    {
        static_cast<void>(_guard([status] {
            g_Controller.SetLastError(status);
            return GC_ERR_SUCCESS;
        }));
    }

    const char* const m_function;
};

// Opens every exported function: the entry line with the function's own name, then `call`. A macro
// because it needs the function's name and a format that the compiler checks and a search finds.
#define GENTL_ENTRY(format, ...)                                                                   \
    ZR_TRACE(ZR_TRACE_DEBUG, format, __func__ __VA_OPT__(, ) __VA_ARGS__);                         \
    EntryCall call(__func__)
