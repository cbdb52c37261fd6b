#include "node.h"

#include <algorithm>
#include <utility>

namespace standard_tl {
namespace {

// The node is out of its parent's list: this thread alone closes it.
bool CloseNode(const std::unique_ptr<Node>& node)
{
    if (node == nullptr || !Handles().Remove(node->Handle())) {
        return false;
    }
    node->CloseBelow();
    return true;
}

} // namespace

void Node::CloseBelow()
{
    while (const auto child = _takeLastChild()) {
        CloseNode(child);
    }
}

bool Node::CloseChild(void* handle)
{
    return CloseNode(_takeChild(handle));
}

void* Node::_adopt(std::unique_ptr<Node> child)
{
    Locker lock(m_childMutex);
    m_children.reserve(m_children.size() + 1);
    Handles().Add(*child);
    m_children.push_back(std::move(child));
    return m_children.back()->Handle();
}

std::unique_ptr<Node> Node::_takeChild(void* handle)
{
    Locker lock(m_childMutex);
    const auto found = std::ranges::find_if(
        m_children, [handle](const auto& child) { return child->Handle() == handle; });
    if (found == m_children.end()) {
        return nullptr;
    }
    auto child = std::move(*found);
    m_children.erase(found);
    return child;
}

std::unique_ptr<Node> Node::_takeLastChild()
{
    Locker lock(m_childMutex);
    if (m_children.empty()) {
        return nullptr;
    }
    auto child = std::move(m_children.back());
    m_children.pop_back();
    return child;
}

} // namespace standard_tl
