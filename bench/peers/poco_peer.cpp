// POCO's HTTPClientSession, a session for each transfer at once.
#include "bench/peers/blockingPeer.h"

#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>
#include <Poco/URI.h>

namespace {

class CSession {
public:
    explicit CSession(const std::string& url)
        : m_uri(url)
        , m_session(m_uri.getHost(), m_uri.getPort())
    {
        m_session.setKeepAlive(true);
    }

    void transfer()
    {
        Poco::Net::HTTPRequest request(
            Poco::Net::HTTPRequest::HTTP_GET, m_uri.getPathAndQuery(), Poco::Net::HTTPMessage::HTTP_1_1);
        m_session.sendRequest(request);
        Poco::Net::HTTPResponse response;
        std::string body;
        Poco::StreamCopier::copyToString(m_session.receiveResponse(response), body);
        if (response.getStatus() != Poco::Net::HTTPResponse::HTTP_OK || body.size() != 1024 || response.empty())
            std::exit(1);
    }

private:
    const Poco::URI m_uri;
    Poco::Net::HTTPClientSession m_session;
};

} // namespace

int main(int count, char** arguments)
{
    return bench::serveBlockingPeer<CSession>(count, arguments);
}
