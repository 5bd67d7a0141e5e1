// curlpp, a session for each transfer at once.
#include "bench/peers/blockingPeer.h"

#include <curlpp/Easy.hpp>
#include <curlpp/Infos.hpp>
#include <curlpp/Options.hpp>
#include <curlpp/cURLpp.hpp>

namespace {

class CSession {
public:
    explicit CSession(const std::string& url)
    {
        m_request.setOpt(curlpp::options::Url(url));
        m_request.setOpt(curlpp::options::Proxy(""));
        m_request.setOpt(curlpp::options::NoSignal(true));
        m_request.setOpt(curlpp::options::WriteFunction([this](char* data, size_t size, size_t count) {
            m_body.append(data, size * count);
            return size * count;
        }));
        m_request.setOpt(curlpp::options::HeaderFunction([this](char* data, size_t size, size_t count) {
            m_headers.emplace_back(data, size * count);
            return size * count;
        }));
    }

    void transfer()
    {
        m_body.clear();
        m_headers.clear();
        m_request.perform();
        if (curlpp::infos::ResponseCode::get(m_request) != 200 || m_body.size() != 1024 || m_headers.empty())
            std::exit(1);
    }

private:
    curlpp::Easy m_request;
    std::string m_body;
    std::vector<std::string> m_headers;
};

} // namespace

int main(int count, char** arguments)
{
    const curlpp::Cleanup libcurl;
    return bench::serveBlockingPeer<CSession>(count, arguments);
}
