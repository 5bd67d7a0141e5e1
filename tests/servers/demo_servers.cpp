// Starts the servers that scripts/demo shows the examples against, prints where they are a line each as NAME=VALUE, and
// stops them when its standard input ends.
#include "tests/support/CCephServer.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CTestCertificates.h"

#include <iostream>
#include <limits>

namespace {

constexpr std::uintmax_t bigSize = 200u << 20;

void print(const char* name, const std::string& value)
{
    std::cout << name << '=' << value << '\n';
}

} // namespace

int main()
{
    try {
        const support::CNginxServer web;
        const support::CFTPServer ftp;
        const support::CSSHServer ssh;
        const support::CRefusedPort refused;
        const support::CSMTPServer mail({.security = support::CSMTPServer::Security::StartTLS,
            .authentication = support::CSMTPServer::Authentication::Demanded});
        support::CCephServer store;
        store.makeBucket("demo");
        print("big_url", web.url(web.big(bigSize)));
        print("digits_url", web.url("/digits.txt"));
        print("upload_url", web.url("/dav/uploaded.txt"));
        print("missing_url", web.url("/status/404"));
        print("refused_url", "http://127.0.0.1:" + std::to_string(refused.getPort()) + "/");
        print("https_url", web.httpsURL("/digits.txt"));
        print("expired_url", web.expiredURL("/digits.txt"));
        print("ca_file", support::CTestCertificates::get().caFile().string());
        print("ftp_url", ftp.url("/digits.txt"));
        print("ftp_host", "127.0.0.1:" + std::to_string(ftp.getPort()));
        print("sftp_url", ssh.url((ssh.root() / "digits.txt").string()));
        print("sftp_user", ssh.userName());
        print("sftp_key", ssh.privateKeyFile().string());
        print("sftp_known_host", ssh.knownHostsLine());
        print("mail_server", "127.0.0.1:" + std::to_string(mail.getPort()));
        print("mail_folder", mail.messageFolder().string());
        print("s3_endpoint", store.host());
        print("s3_access_key_id", store.accessKeyId());
        print("s3_secret_access_key", store.secretAccessKey());
        std::cout << "ready=1" << std::endl;
        std::cin.ignore(std::numeric_limits<std::streamsize>::max());
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "demo_servers: " << error.what() << '\n';
        return 1;
    }
}
