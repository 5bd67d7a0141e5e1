#pragma once

#include "bench/bareMulti.h"
#include "bench/compare.h"

#include <algorithm>
#include <array>
#include <string>
#include <sys/epoll.h>
#include <unistd.h>
#include <vector>

namespace bench {

/// libcurl's event interface by hand: epoll, and libcurl's one timer.
template <typename TTransfer>
class CBareSocketLoop : public CBareMulti<TTransfer> {
public:
    explicit CBareSocketLoop(const std::vector<std::string>& urls)
        : CBareMulti<TTransfer>(urls)
    {
        check(curl_multi_setopt(this->m_multi, CURLMOPT_SOCKETFUNCTION, &onSocket));
        check(curl_multi_setopt(this->m_multi, CURLMOPT_SOCKETDATA, this));
        check(curl_multi_setopt(this->m_multi, CURLMOPT_TIMERFUNCTION, &onTimer));
        check(curl_multi_setopt(this->m_multi, CURLMOPT_TIMERDATA, this));
    }
    ~CBareSocketLoop() override
    {
        this->clear(); // calls onSocket()
        close(m_epoll);
    }

private:
    static int onSocket(CURL*, curl_socket_t socket, int what, void* self, void* known)
    {
        auto& loop = *static_cast<CBareSocketLoop*>(self);
        epoll_event event{};
        event.data.fd = socket;
        event.events = (what & CURL_POLL_IN ? EPOLLIN : 0U) | (what & CURL_POLL_OUT ? EPOLLOUT : 0U);
        if (what == CURL_POLL_REMOVE)
            epoll_ctl(loop.m_epoll, EPOLL_CTL_DEL, socket, &event);
        else
            epoll_ctl(loop.m_epoll, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event);
        if (what != CURL_POLL_REMOVE && !known)
            curl_multi_assign(loop.m_multi, socket, self);
        return 0;
    }

    static int onTimer(CURLM*, long milliseconds, void* self)
    {
        static_cast<CBareSocketLoop*>(self)->m_due
            = milliseconds < 0 ? -1 : wallSeconds() + static_cast<double>(milliseconds) / 1000;
        return 0;
    }

    int perform() override
    {
        for (int index = 0; index < m_count; ++index) {
            const epoll_event& event = m_found[static_cast<size_t>(index)];
            const int bits
                = (event.events & EPOLLIN ? CURL_CSELECT_IN : 0) | (event.events & EPOLLOUT ? CURL_CSELECT_OUT : 0);
            check(curl_multi_socket_action(this->m_multi, event.data.fd, bits, &m_unfinished));
        }
        m_count = 0;
        if (m_due >= 0 && wallSeconds() >= m_due) {
            m_due = -1;
            check(curl_multi_socket_action(this->m_multi, CURL_SOCKET_TIMEOUT, 0, &m_unfinished));
        }
        return m_unfinished;
    }

    void wait() override
    {
        const double left = m_due - wallSeconds();
        const int milliseconds = m_due < 0 ? -1 : std::max(0, static_cast<int>(left * 1000 + 1));
        m_count = epoll_wait(
            m_epoll, m_found.data(), static_cast<int>(m_found.size()), m_due >= 0 && left <= 0 ? 0 : milliseconds);
    }

    const int m_epoll = epoll_create1(0);
    std::array<epoll_event, 256> m_found{};
    int m_count = 0;
    int m_unfinished = 0;
    double m_due = -1;
};

} // namespace bench
