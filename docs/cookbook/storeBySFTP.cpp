#include "norla/core/CFileSource.h"
#include "norla/core/CSSHOptions.h"

#include <functional>

// Stores a file over SSH. A person is asked about a server that nobody knows yet, and says yes when the fingerprint is
// the right one; it is then known for ever. A server whose key has changed is refused.
void storeBySFTP(const kx::String& url, const kx::String& user, const norla::CNetRequest::Path& privateKey,
    const norla::CNetRequest::Path& path, const norla::CNetRequest::Path& knownHosts,
    const std::function<bool(const kx::String& host, const kx::String& fingerprint)>& isRight)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    request->setUserName(user);
    request->setSSHOptions({.knownHostsFile = knownHosts, // left out: the user's own
        .unknownHost = norla::UnknownSSHHost::Ask,
        .ask =
            [&isRight](const norla::CSSHHostKey& key) {
                return isRight(key.host, key.fingerprint) ? norla::SSHHostAnswer::Remember
                                                          : norla::SSHHostAnswer::Refuse;
            },
        .privateKeyFile = privateKey});
    const auto file = kx::newObj<norla::CFileSource>(path);
    request->setSendDataSource(file.get());
    request->setSendDataSize(file->getLength());
    request->setUpload(true);
    request->perform();
}
