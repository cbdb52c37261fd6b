#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "data_stream.h"
#include "failure.h"
#include "handle_table.h"
#include "last_error.h"
#include "library.h"

namespace standard_tl {

// What every exported function has around its one operation: the library is initialised, the handle
// is known and its object stays, no exception leaves, and a failure becomes the thread's last
// error.
//
// An operation returns nothing, or a code. What it refuses by a code it has noted itself (Refuse).
class Entry
{
public:
    explicit Entry(const char* function) : m_function(function) {}

    // An operation that needs nothing.
    template <class Operation>
    GC_ERROR Always(Operation&& operation)
    {
        GC_ERROR code;
        try {
            code = _call(operation);
        } catch (...) {
            code = RefuseException();
        }
        if (code != GC_ERR_SUCCESS) {
            NoteFunction(m_function);
        }
        return code;
    }

    // An operation of the object of kind T behind a handle.
    template <class T, class Operation>
    GC_ERROR On(void* handle, Operation&& operation)
    {
        return Always([&] {
            const Pin<T> object = Handles().Find<T>(handle);
            return object ? _call(operation, *object) : _unknown();
        });
    }

    // An operation of an announced buffer.
    template <class Operation>
    GC_ERROR OnBuffer(void* stream, void* buffer, Operation&& operation)
    {
        return On<DataStream>(stream, [&](DataStream& owner) {
            const Pin<Buffer> pin = owner.FindBuffer(buffer);
            return _call(operation, owner, *pin);
        });
    }

    // The root's operation.
    template <class Operation>
    GC_ERROR OnLibrary(Operation&& operation)
    {
        return Always([&] {
            const Pin<Library> library = TheLibrary();
            return library ? _call(operation, *library) : _unknown();
        });
    }

    template <class T>
    GC_ERROR Close(void* handle)
    {
        return Always([&] { return CloseByHandle<T>(handle) ? GC_ERR_SUCCESS : _unknown(); });
    }

private:
    template <class Operation, class... Arguments>
    static GC_ERROR _call(Operation&& operation, Arguments&... arguments)
    {
        if constexpr (std::is_void_v<decltype(operation(arguments...))>) {
            operation(arguments...);
            return GC_ERR_SUCCESS;
        } else {
            return operation(arguments...);
        }
    }

    static GC_ERROR _unknown()
    {
        return IsInitialized() ? Refuse(GC_ERR_INVALID_HANDLE,
                                        "the handle is NULL, closed, made up, or of another kind")
                               : Refuse(GC_ERR_NOT_INITIALIZED, "GCInitLib comes first");
    }

    const char* const m_function;
};

} // namespace standard_tl
