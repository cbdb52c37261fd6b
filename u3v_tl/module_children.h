#pragma once

#include <memory>

#include "module_failure.h"
#include "zr_u3v_controller.h"

// How a module ends its children: the interfaces of the System, the devices of an interface.

// Closes and destroys all children of a module that closes itself: `close(child)` for one after the
// other, each in no list any more.
template <class Child, class Close>
void CloseChildren(ZrGenTLModuleContainer& children, Close close)
{
    while (ZrGenTLModuleBase* const module = children.FindByIndex(0, true)) {
        const std::unique_ptr<Child> child(static_cast<Child*>(module));
        g_Controller.UnregisterModule(child.get());
        close(*child);
    }
}

// Closes and destroys the child with this handle, for `function`, which names itself in the trace.
// The address is compared, never followed: of two closers only one finds it.
template <class Child>
GC_ERROR CloseChild(ZrGenTLModuleContainer& children, void* handle, const char* function)
{
    auto* child =
        static_cast<Child*>(static_cast<ZrGenTLModuleBase*>(children.FindByHandle(handle, true)));
    if (child == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", function);
    }
    // Quirk Q31: a module that does not close is in no list any more, and still not destroyed.
    const GC_ERROR status = child->Close();
    if (status == GC_ERR_SUCCESS) {
        delete child;
    }
    return status;
}
