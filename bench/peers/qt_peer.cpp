// Qt's QNetworkAccessManager, which has at most six connections to a host.
#include "bench/peers/peer.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <algorithm>
#include <cstdlib>

namespace {

class CRun {
public:
    CRun(const QString& url, int atOnce)
        : m_request(QUrl(url))
        , m_atOnce(atOnce)
    {
        m_manager.setProxy(QNetworkProxy::NoProxy);
        QObject::connect(&m_manager, &QNetworkAccessManager::finished, [this](QNetworkReply* reply) { end(*reply); });
    }

    void run(int transfers)
    {
        m_left = transfers;
        m_running = std::min(transfers, m_atOnce);
        for (int count = m_running; count > 0; --count)
            start();
        QCoreApplication::exec();
    }

private:
    void start()
    {
        --m_left;
        m_manager.get(m_request);
    }

    void end(QNetworkReply& reply)
    {
        const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (status != 200 || reply.readAll().size() != 1024 || reply.rawHeaderPairs().isEmpty())
            std::exit(1);
        reply.deleteLater();
        if (m_left > 0)
            start();
        else if (--m_running == 0)
            QCoreApplication::quit();
    }

    const QNetworkRequest m_request;
    const int m_atOnce;
    int m_left = 0;
    int m_running = 0;
    QNetworkAccessManager m_manager;
};

} // namespace

int main(int count, char** arguments)
{
    const QCoreApplication application(count, arguments);
    if (count != 3)
        return 2;
    CRun run(QString::fromUtf8(arguments[1]), std::atoi(arguments[2]));
    return bench::servePeer([&run](int transfers) { run.run(transfers); });
}
