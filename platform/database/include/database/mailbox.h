#pragma once
#include <deque>
#include <mutex>
#include <database/readysignal.h>
#include <stdexcept>

// A queue from one thread to another whose consumer is woken by a
// descriptor its own event loop watches (readable while anything waits), so
// the two threads share no Qt event queue: only this mutex and descriptor.
template <class T>
class Mailbox
{
public:
    Mailbox()
    {
        m_fd = makeReadyDescriptor();
        if (m_fd < 0) throw std::runtime_error("cannot create an event descriptor");
    }
    ~Mailbox() { ::close(m_fd); }
    Mailbox(Mailbox const&) = delete;
    Mailbox& operator=(Mailbox const&) = delete;

    int descriptor() const { return m_fd; }

    void post(T&& item)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_items.push_back(std::move(item));
        setReady(m_fd, true, m_signalled);
    }

    bool take(T& item)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_items.empty()) return false;
        item = std::move(m_items.front());
        m_items.pop_front();
        if (m_items.empty()) setReady(m_fd, false, m_signalled);
        return true;
    }

private:
    std::mutex m_mutex;
    std::deque<T> m_items;
    int m_fd = -1;
    bool m_signalled = false;
};
