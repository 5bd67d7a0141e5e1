#include "tests/support/curlFTP.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/IFTPServer.h"
#include "tests/support/runCurl.h"

namespace support {

CProcessRun curlFTP(const IFTPServer& server, const std::vector<std::string>& arguments)
{
    std::vector<std::string> all{
        "-u", server.userName() + ":" + server.password(), "--cacert", CTestCertificates::get().caFile()};
    if (server.getSecurity() == IFTPServer::Security::Explicit)
        all.emplace_back("--ssl-reqd");
    all.insert(all.end(), arguments.begin(), arguments.end());
    return runCurl(all);
}

} // namespace support
