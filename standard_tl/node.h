#pragma once

#include <memory>
#include <vector>

#include "handle_table.h"
#include "zr_sync.h"

namespace standard_tl {

// An object in the tree of what is open: it owns what was opened through it, and closing it closes
// all of that first.
//
// Any thread may open and close anything at any time. Whoever closes a node is inside its parent
// meanwhile (CloseByHandle), so that the parent stays.
class Node : public Object
{
public:
    explicit Node(Node* parent) : m_parent(parent) {}

    // Outlives this node; NULL for the root.
    Node* Parent() const { return m_parent; }

    // Closes what is below, and what only makes sense while this is open. Nobody is inside, and
    // nobody can come in any more.
    virtual void CloseBelow() ZR_EXCLUDES(m_childMutex);

    // Takes the child out, waits until nobody is inside it, closes and destroys it. False when it
    // is gone or somebody else is closing it.
    bool CloseChild(void* handle) ZR_EXCLUDES(m_childMutex);

protected:
    // Gives the child its handle and keeps it.
    void* _adopt(std::unique_ptr<Node> child) ZR_EXCLUDES(m_childMutex);
    // The handle of the first child of that type that fits; NULL when there is none.
    template <class T, class Predicate>
    void* _findChild(Predicate fits) ZR_EXCLUDES(m_childMutex)
    {
        Locker lock(m_childMutex);
        for (const auto& child : m_children) {
            auto* const wanted = dynamic_cast<T*>(child.get());
            if (wanted != nullptr && fits(*wanted)) {
                return child->Handle();
            }
        }
        return nullptr;
    }

private:
    std::unique_ptr<Node> _takeChild(void* handle) ZR_EXCLUDES(m_childMutex);
    std::unique_ptr<Node> _takeLastChild() ZR_EXCLUDES(m_childMutex);

    Node* const m_parent;
    Mutex m_childMutex;
    std::vector<std::unique_ptr<Node>> m_children ZR_GUARDED_BY(m_childMutex);
};

// Closes the node of kind T behind a handle, from inside its parent. False when there is no such
// node, or somebody else is closing it.
template <class T>
bool CloseByHandle(void* handle)
{
    const Pin<Node> parent = [handle]() -> Pin<Node> {
        const Pin<T> node = Handles().Find<T>(handle);
        return node ? Handles().Find<Node>(node->Parent()->Handle()) : Pin<Node>();
    }();
    return parent && parent->CloseChild(handle);
}

} // namespace standard_tl
