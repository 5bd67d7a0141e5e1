// GNOME's libsoup, as many connections as transfers.
#include "bench/peers/peer.h"

#include <algorithm>
#include <cstdlib>
#include <libsoup/soup.h>

namespace {

class CRun {
public:
    CRun(const char* url, int atOnce)
        : m_url(url)
        , m_atOnce(atOnce)
        , m_session(soup_session_new_with_options(
              "max-conns", atOnce, "max-conns-per-host", atOnce, "proxy-resolver", nullptr, nullptr))
    {
    }
    CRun(const CRun&) = delete;
    CRun& operator=(const CRun&) = delete;
    ~CRun()
    {
        g_object_unref(m_session);
        g_main_loop_unref(m_loop);
    }

    void run(int transfers)
    {
        m_left = transfers;
        m_running = std::min(transfers, m_atOnce);
        for (int count = m_running; count > 0; --count)
            start();
        g_main_loop_run(m_loop);
    }

private:
    void start()
    {
        --m_left;
        SoupMessage* const message = soup_message_new("GET", m_url);
        soup_session_send_and_read_async(m_session, message, G_PRIORITY_DEFAULT, nullptr, &onEnd, this);
        g_object_unref(message);
    }

    static void onEnd(GObject* session, GAsyncResult* result, void* self)
    {
        static_cast<CRun*>(self)->end(reinterpret_cast<SoupSession*>(session), result);
    }

    void end(SoupSession* session, GAsyncResult* result)
    {
        SoupMessage* const message = soup_session_get_async_result_message(session, result);
        GBytes* const body = soup_session_send_and_read_finish(session, result, nullptr);
        if (!body || g_bytes_get_size(body) != 1024 || soup_message_get_status(message) != SOUP_STATUS_OK)
            std::exit(1);
        g_bytes_unref(body);
        if (m_left > 0)
            start();
        else if (--m_running == 0)
            g_main_loop_quit(m_loop);
    }

    const char* const m_url;
    const int m_atOnce;
    SoupSession* const m_session;
    GMainLoop* const m_loop = g_main_loop_new(nullptr, 0);
    int m_left = 0;
    int m_running = 0;
};

} // namespace

int main(int count, char** arguments)
{
    if (count != 3)
        return 2;
    CRun run(arguments[1], std::atoi(arguments[2]));
    return bench::servePeer([&run](int transfers) { run.run(transfers); });
}
