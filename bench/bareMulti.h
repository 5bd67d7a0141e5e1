#pragma once

#include "bench/bareCurl.h"

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace bench {

inline void check(CURLMcode result)
{
    if (result == CURLM_OK)
        return;
    std::fprintf(stderr, "libcurl: %s\n", curl_multi_strerror(result));
    std::exit(1);
}

/// A transfer by hand that keeps its answer.
class CBareTransfer {
public:
    explicit CBareTransfer(const std::string& url)
    {
        check(curl_easy_setopt(handle(), CURLOPT_URL, url.c_str()));
        check(curl_easy_setopt(handle(), CURLOPT_NOSIGNAL, 1L));
        check(curl_easy_setopt(handle(), CURLOPT_PRIVATE, this));
        m_response.receiveFrom(handle());
    }
    CURL* handle() const { return m_easy.get(); }
    const CBareResponse& response() const { return m_response; }
    void start() { m_response.clear(); }
    void end(CURLcode result)
    {
        check(result);
        long status = 0;
        check(curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &status));
        if (status != 200)
            std::exit(1);
    }

private:
    const Easy m_easy{curl_easy_init()};
    CBareResponse m_response;
};

/// A loop over libcurl's multi interface by hand: many transfers, as many of them at once as there are URLs.
template <typename TTransfer>
class CBareMulti {
public:
    explicit CBareMulti(const std::vector<std::string>& urls)
    {
        for (const std::string& url : urls)
            m_transfers.push_back(std::make_unique<TTransfer>(url));
    }
    CBareMulti(const std::string& url, int atOnce)
        : CBareMulti(std::vector<std::string>(static_cast<size_t>(atOnce), url))
    {
    }
    CBareMulti(const CBareMulti&) = delete;
    CBareMulti& operator=(const CBareMulti&) = delete;
    virtual ~CBareMulti() { clear(); }

    void run(int transfers)
    {
        begin(transfers);
        while (m_running > 0)
            step();
    }

    /// The first of them, as many as there are URLs.
    void begin(int transfers)
    {
        m_left = transfers;
        for (const auto& transfer : m_transfers)
            start(*transfer);
    }

    /// Waits until there is something to do, and does it.
    void step()
    {
        wait();
        if (perform() < m_running)
            takeEnds();
    }

    const std::vector<std::unique_ptr<TTransfer>>& transfers() const { return m_transfers; }

protected:
    /// Gives up the transfers and closes the connections. Nothing but the destructor may come after it.
    void clear()
    {
        m_transfers.clear();
        curl_multi_cleanup(std::exchange(m_multi, nullptr));
    }

    /// @return how many have not ended
    virtual int perform()
    {
        int running = 0;
        check(curl_multi_perform(m_multi, &running));
        return running;
    }
    virtual void wait() { check(curl_multi_poll(m_multi, nullptr, 0, 100, nullptr)); }

    CURLM* m_multi = curl_multi_init();

private:
    void start(TTransfer& transfer)
    {
        if (m_left == 0)
            return;
        --m_left;
        ++m_running;
        transfer.start();
        check(curl_multi_add_handle(m_multi, transfer.handle()));
    }

    void takeEnds()
    {
        int rest = 0;
        while (const CURLMsg* const message = curl_multi_info_read(m_multi, &rest)) {
            const CURLcode result = message->data.result;
            TTransfer* transfer = nullptr;
            check(curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer));
            check(curl_multi_remove_handle(m_multi, message->easy_handle));
            --m_running;
            transfer->end(result);
            start(*transfer);
        }
    }

    std::vector<std::unique_ptr<TTransfer>> m_transfers;
    int m_left = 0;
    int m_running = 0;
};

} // namespace bench
