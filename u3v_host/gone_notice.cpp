#include "gone_notice.h"

#include <utility>

#include "event_loop.h"

namespace u3v_host {

void GoneNotice::Set()
{
    m_gone = true;
    Locker lock(m_mutex);
    _postOnce();
}

void GoneNotice::Listen(std::function<void()> call)
{
    {
        Locker lock(m_mutex);
        m_call = nullptr;
    }
    m_loop.Forget(this);
    Locker lock(m_mutex);
    m_call = std::move(call);
    if (m_gone) {
        _postOnce();
    }
}

void GoneNotice::_postOnce()
{
    if (m_call) {
        m_loop.Post(this, std::exchange(m_call, nullptr));
    }
}

} // namespace u3v_host
