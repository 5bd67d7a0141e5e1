#include "norla/core/CSSHTrust.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/files/readWholeFile.h"
#include "kx/text/numbers.h"
#include "norla/core/CEasyHandle.h"
#include "norla/core/CFirstError.h"
#include "norla/core/CRequestURL.h"
#include "norla/core/optionChecks.h"
#include "sela/CDigest.h"
#include "sela/base64.h"
#include "sela/certificateFiles.h"

#include <algorithm>
#include <array>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace norla {

namespace {

using Verdict = CKnownHosts::Verdict;

constexpr std::string_view fingerprintKind = "SHA256:";

/// Of all that libcurl can ask for, the best first.
constexpr std::array<std::string_view, 5> keyTypes
    = {"ssh-ed25519", "ecdsa-sha2-nistp256", "ecdsa-sha2-nistp384", "ecdsa-sha2-nistp521", "ssh-rsa"};

[[noreturn]] void refuseOptions(const kx::String& reason)
{
    throw kx::CInvalidArgError(reason, "CNetRequest::setSSHOptions");
}

void requireFingerprint(const kx::String& fingerprint)
{
    constexpr size_t digestSize = 32;
    const std::string text = fingerprint.toDisplayUTF8();
    const auto digest = text.starts_with(fingerprintKind)
        ? sela::base64Decode(std::string_view(text).substr(fingerprintKind.size()))
        : std::nullopt;
    if (!digest || digest->size() != digestSize || text.ends_with('='))
        refuseOptions("the fingerprint '" + fingerprint + "' is not \"SHA256:\" and 43 characters of Base64");
}

void requireKeyType(const kx::String& type)
{
    if (std::find(keyTypes.begin(), keyTypes.end(), type.toDisplayUTF8()) == keyTypes.end())
        refuseOptions("the type of host key '" + type + "' is none that a server can be asked for");
}

void requirePublicKey(const CSSHOptions::Path& path)
{
    constexpr size_t mostBytes = 64 << 10;
    const std::string bytes = kx::readWholeFile(path, mostBytes);
    const size_t typeEnd = bytes.find(' ');
    const auto key = typeEnd == std::string::npos ? std::nullopt
                                                  : sela::base64Decode(std::string_view(bytes).substr(typeEnd + 1,
                                                      bytes.find_first_of(" \r\n", typeEnd + 1) - typeEnd - 1));
    if (!key || CKnownHosts::typeOf(*key) != std::string_view(bytes).substr(0, typeEnd))
        throw kx::CError("The file '" + path.toString() + "' cannot be used: it holds no public key of OpenSSH.");
}

void requireLogin(const CSSHOptions& options)
{
    requireOptionText(CURLOPT_KEYPASSWD, options.passphrase.toUTF8(), "CNetRequest::setSSHOptions");
    if (!options.privateKeyFile.isEmpty())
        sela::requirePrivateKey(options.privateKeyFile, options.passphrase);
    else if (!options.publicKeyFile.isEmpty())
        refuseOptions("the public key '" + options.publicKeyFile.toString() + "' is given without the private one");
    if (!options.publicKeyFile.isEmpty())
        requirePublicKey(options.publicKeyFile);
}

void requireUsable(const CSSHOptions& options, const CKnownHostsFile& file)
{
    if (!options.fingerprint.isEmpty())
        requireFingerprint(options.fingerprint);
    if (!options.hostKeyType.isEmpty())
        requireKeyType(options.hostKeyType);
    if (options.unknownHost == UnknownSSHHost::Ask && !options.ask)
        refuseOptions("unknown hosts are to be asked about, and nobody is there to ask");
    if (options.unknownHost != UnknownSSHHost::Ask && options.ask)
        refuseOptions(
            "somebody is there to ask (ask), and nobody is to be asked about unknown hosts (unknownHost is not Ask)");
    static_cast<void>(file.read());
    requireLogin(options);
}

CKnownHostsFile fileOf(const CSSHOptions& options)
{
    return CKnownHostsFile(options.knownHostsFile.isEmpty() ? CKnownHostsFile::usualPath() : options.knownHostsFile);
}

// Whoever has no home knows nobody, which matters to those alone who speak SSH.
CKnownHostsFile usualFileOrNone()
{
    try {
        return CKnownHostsFile(CKnownHostsFile::usualPath());
    } catch (const kx::CError&) {
        return CKnownHostsFile("/dev/null");
    }
}

std::string descriptionOf(const CSSHOptions& options, const CKnownHostsFile& file, unsigned long count)
{
    std::string all = kx::toString(static_cast<int>(options.unknownHost)).toUTF8();
    if (options.unknownHost == UnknownSSHHost::Ask) // of functions nobody can tell whether they are the same
        all += kx::toString(static_cast<long long>(count)).toUTF8();
    for (const std::string& part : {file.getPath().toBytes(), options.fingerprint.toUTF8(),
             options.hostKeyType.toUTF8(), options.privateKeyFile.toBytes(), options.publicKeyFile.toBytes(),
             std::string(options.useAgent ? "agent" : "")})
        all += '\0' + part;
    return all;
}

kx::String fingerprintOf(std::string_view key)
{
    sela::CDigest digest("SHA256");
    digest.update(key.data(), key.size());
    digest.finish();
    return kx::String::fromLatin1(fingerprintKind)
        + sela::base64Encode(digest.getBytes(), digest.getLength(), false, false);
}

/// "ssh-ed25519 SHA256:...". @param key from anywhere
kx::String titleOf(std::string_view key)
{
    return kx::String::fromLatin1(CKnownHosts::typeOf(key)) + " " + fingerprintOf(key);
}

kx::String titlesOf(const std::vector<std::string>& keys)
{
    kx::String all;
    for (const std::string& key : keys)
        all += (all.isEmpty() ? kx::String() : kx::String(" or ")) + titleOf(key);
    return all;
}

/// "127.0.0.1 (port 2222)"
kx::String titleOf(const CSSHHostKey& shown)
{
    return shown.host + " (port " + kx::toString(shown.port) + ")";
}

kx::String quoted(const CKnownHostsFile& file)
{
    return "'" + file.getPath().toString() + "'";
}

} // namespace

CSSHTrust::CSSHTrust(CEasyHandle& handle, CFirstError& errors)
    : m_handle(handle)
    , m_judge(handle, CURLOPT_SSH_HOSTKEYFUNCTION, CURLOPT_SSH_HOSTKEYDATA)
    , m_errors(errors)
{
}

CSSHTrust::~CSSHTrust()
{
    closeHint();
}

void CSSHTrust::set(const CSSHOptions& options)
{
    const CKnownHostsFile file = fileOf(options);
    requireUsable(options, file);
    m_isSet = true;
    m_options = options;
    m_file = file;
    m_description = descriptionOf(options, file, ++m_setCount);
    setJudge();
    const auto setPath = [this](CURLoption option, const CSSHOptions::Path& path) {
        if (path.isEmpty())
            m_handle.setNull(option);
        else
            m_handle.setText(option, path.toBytes());
    };
    setPath(CURLOPT_SSH_PRIVATE_KEYFILE, options.privateKeyFile);
    setPath(CURLOPT_SSH_PUBLIC_KEYFILE, options.publicKeyFile);
    // Without a file libcurl would look for keys in the folder in which the program happens to be.
    m_handle.setNumber(CURLOPT_SSH_AUTH_TYPES,
        CURLSSH_AUTH_PASSWORD | CURLSSH_AUTH_KEYBOARD | (options.privateKeyFile.isEmpty() ? 0 : CURLSSH_AUTH_PUBLICKEY)
            | (options.useAgent ? CURLSSH_AUTH_AGENT : 0));
}

void CSSHTrust::demandProof()
{
    m_isSet = true;
    m_options = CSSHOptions();
    m_file = usualFileOrNone();
    m_description = descriptionOf(m_options, m_file, m_setCount);
    setJudge();
}

void CSSHTrust::setJudge()
{
    m_judge.use(&CSSHTrust::hostKeyCallback, this);
    // With one of these libcurl would not ask.
    for (const CURLoption option :
        {CURLOPT_SSH_HOST_PUBLIC_KEY_MD5, CURLOPT_SSH_HOST_PUBLIC_KEY_SHA256, CURLOPT_SSH_KNOWNHOSTS})
        m_handle.setNull(option);
}

void CSSHTrust::noticeNumber(CURLoption option, long long value) noexcept
{
    if (option == CURLOPT_PORT)
        m_port = static_cast<int>(value);
}

void CSSHTrust::noticeText(CURLoption option, const std::string& bytes)
{
    if (option != CURLOPT_SSH_KNOWNHOSTS)
        return;
    closeHint();
    if (m_isSet)
        m_file = CKnownHostsFile(CSSHOptions::Path::fromBytes(bytes));
}

void CSSHTrust::noticePointer(CURLoption option, void* value)
{
    if (option == CURLOPT_SSH_KNOWNHOSTS && value)
        noticeText(option, static_cast<const char*>(value));
    else if (option == CURLOPT_SSH_KNOWNHOSTS && m_isSet)
        m_file = m_options.knownHostsFile.isEmpty() ? usualFileOrNone() : CKnownHostsFile(m_options.knownHostsFile);
    if (!m_judge.notice(option, value))
        return;
    if (option == CURLOPT_SSH_HOSTKEYFUNCTION)
        giveWay();
    else
        m_judge.stay();
}

// The file that is for this judge alone would be libcurl's own then.
void CSSHTrust::giveWay()
{
    m_judge.giveWay();
    if (m_hint >= 0)
        m_handle.setNull(CURLOPT_SSH_KNOWNHOSTS);
    closeHint();
}

void CSSHTrust::forgetOptions() noexcept
{
    m_isSet = false;
    m_judge.forget();
    m_options = CSSHOptions();
    m_file = CKnownHostsFile();
    m_description.clear();
    m_port = 0;
    closeHint();
}

void CSSHTrust::begin(const CRequestURL& url)
{
    m_explanation = kx::String();
    if (m_judge.isOwn() && url.isSSH())
        askForKeyType(hostOf(url.toString().toUTF8()));
}

/// Empty for what libcurl refuses as a URL.
CKnownHosts::CHost CSSHTrust::hostOf(const std::string& url) const
{
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
    const auto part = [&parsed](CURLUPart which, unsigned int flags) {
        char* text = nullptr;
        const bool isThere = curl_url_get(parsed.get(), which, &text, flags) == CURLUE_OK;
        const std::unique_ptr<char, decltype(&curl_free)> owned(text, &curl_free);
        return isThere ? std::string(text) : std::string();
    };
    if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_GUESS_SCHEME) != CURLUE_OK)
        return {};
    std::string name = part(CURLUPART_HOST, CURLU_PUNYCODE);
    if (name.starts_with('[') && name.ends_with(']'))
        name = name.substr(1, name.size() - 2);
    const std::string port = part(CURLUPART_PORT, CURLU_DEFAULT_PORT);
    const int portOfURL = port.empty() ? CKnownHosts::usualPort : std::stoi(port);
    return {.name = name, .port = m_port > 0 ? m_port : portOfURL};
}

/// Empty when the server may choose.
std::string CSSHTrust::wantedKeyType(const CKnownHosts::CHost& host) const
{
    if (!m_options.hostKeyType.isEmpty() || !m_options.fingerprint.isEmpty())
        return m_options.hostKeyType.toUTF8();
    const std::vector<std::string> keys = m_file.read().keysOf(host);
    const auto wanted = std::find_if(keyTypes.begin(), keyTypes.end(), [&keys](std::string_view type) {
        return std::any_of(
            keys.begin(), keys.end(), [type](const std::string& key) { return CKnownHosts::typeOf(key) == type; });
    });
    return wanted == keyTypes.end() ? std::string() : std::string(*wanted);
}

// libcurl asks a server for the kind of key that stands in a file of known hosts, and knows no other way to be told. It
// is given one of its own with that line alone; of the key in it only matters that it is not too short.
void CSSHTrust::askForKeyType(const CKnownHosts::CHost& host)
{
    closeHint();
    m_handle.setNull(CURLOPT_SSH_KNOWNHOSTS);
    m_keyType = wantedKeyType(host);
    if (m_keyType.empty())
        return;
    m_hint = memfd_create("known_hosts", MFD_CLOEXEC);
    const std::string line = host.toText() + " " + m_keyType + " AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA\n";
    if (m_hint >= 0 && write(m_hint, line.data(), line.size()) == static_cast<ssize_t>(line.size()))
        m_handle.setText(CURLOPT_SSH_KNOWNHOSTS, "/proc/self/fd/" + std::to_string(m_hint));
}

void CSSHTrust::closeHint() noexcept
{
    if (m_hint >= 0)
        close(m_hint);
    m_hint = -1;
}

bool CSSHTrust::believes(std::string_view key)
{
    const char* url = nullptr;
    const bool isThere = m_handle.ask(CURLINFO_EFFECTIVE_URL, url) && url;
    const CKnownHosts::CHost host = hostOf(isThere ? url : "");
    const CSSHHostKey shown{.host = kx::String::fromUTF8(host.name),
        .port = host.port,
        .type = kx::String::fromLatin1(CKnownHosts::typeOf(key)),
        .fingerprint = fingerprintOf(key)};
    if (m_options.fingerprint.isEmpty()) {
        const Verdict verdict = m_file.read().judge(host, key);
        return verdict == Verdict::Unknown ? believesUnknown(shown, host, key) : follows(verdict, shown, host);
    }
    if (m_options.fingerprint == shown.fingerprint)
        return true;
    return refuse("the server " + titleOf(shown) + " has another key: expected " + m_options.fingerprint + ", came "
        + titleOf(key));
}

bool CSSHTrust::believesUnknown(const CSSHHostKey& shown, const CKnownHosts::CHost& host, std::string_view key)
{
    SSHHostAnswer answer
        = m_options.unknownHost == UnknownSSHHost::Remember ? SSHHostAnswer::Remember : SSHHostAnswer::Refuse;
    if (m_options.unknownHost == UnknownSSHHost::Ask)
        answer = m_options.ask(shown);
    if (answer == SSHHostAnswer::AcceptOnce)
        return true;
    if (answer == SSHHostAnswer::Remember)
        return follows(m_file.add(host, key), shown, host);
    return refuse("the server " + titleOf(shown) + " is not known: its key " + titleOf(key) + " does not stand in "
        + quoted(m_file));
}

bool CSSHTrust::follows(Verdict verdict, const CSSHHostKey& shown, const CKnownHosts::CHost& host)
{
    if (verdict == Verdict::Known)
        return true;
    const kx::String came = shown.type + " " + shown.fingerprint;
    if (verdict == Verdict::Revoked)
        return refuse("the key " + came + " of the server " + titleOf(shown) + " is revoked in " + quoted(m_file));
    return refuse("the server " + titleOf(shown) + " has another key than it is known by: expected "
        + titlesOf(m_file.read().keysOf(host)) + ", as " + quoted(m_file) + " has it, came " + came);
}

bool CSSHTrust::refuse(const kx::String& reason)
{
    m_explanation = reason;
    return false;
}

kx::String CSSHTrust::explain(CURLcode result, const kx::String& message) const
{
    if (!m_isSet)
        return kx::String();
    if (result == CURLE_PEER_FAILED_VERIFICATION)
        return m_explanation;
    if (result == CURLE_LOGIN_DENIED && !m_options.privateKeyFile.isEmpty())
        return "the server takes no such key, or the passphrase is wrong: '" + m_options.privateKeyFile.toString()
            + "'";
    const bool isAboutKeys = message.find("exchange") != kx::String::npos;
    if (result == CURLE_FAILED_INIT && isAboutKeys && !m_keyType.empty())
        return "the server was asked for its " + kx::String::fromLatin1(m_keyType) + " key alone";
    return kx::String();
}

int CSSHTrust::hostKeyCallback(void* trust, int /*keyType*/, const char* key, size_t size) noexcept
{
    auto& self = *static_cast<CSSHTrust*>(trust);
    bool isBelieved = false;
    self.m_errors.keepFrom([&] { isBelieved = self.believes({key, size}); });
    return isBelieved ? CURLKHMATCH_OK : CURLKHMATCH_MISMATCH;
}

} // namespace norla
