#include "norla/core/CTLSTrust.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/systemErrorText.h"
#include "norla/core/CEasyHandle.h"
#include "norla/core/optionChecks.h"
#include "sela/CPeerRecord.h"
#include "sela/base64.h"
#include "sela/certificateFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/stat.h>

namespace norla {

namespace {

[[noreturn]] void refuse(const kx::String& reason)
{
    throw kx::CInvalidArgError(reason, "CNetRequest::setTLSOptions");
}

struct CVersionRow {
    long option;
    const char* name;
};

constexpr std::array versionRows = std::to_array<CVersionRow>({
    {CURL_SSLVERSION_TLSv1_0, "TLS 1.0"},
    {CURL_SSLVERSION_TLSv1_1, "TLS 1.1"},
    {CURL_SSLVERSION_TLSv1_2, "TLS 1.2"},
    {CURL_SSLVERSION_TLSv1_3, "TLS 1.3"},
});

const CVersionRow& rowOf(TLSVersion version)
{
    return versionRows.at(static_cast<size_t>(version));
}

/// @param value of CURLOPT_SSLVERSION, which may name the newest one too
TLSVersion leastVersionOf(long long value) noexcept
{
    constexpr long long least = 0xFFFF;
    const auto* const row = std::find_if(versionRows.begin(), versionRows.end(),
        [value](const CVersionRow& candidate) { return candidate.option == (value & least); });
    return row == versionRows.end() ? TLSVersion::TLS1_0 : static_cast<TLSVersion>(row - versionRows.begin());
}

void requirePin(const kx::String& pin)
{
    constexpr std::string_view kind = "sha256//";
    constexpr size_t digestSize = 32;
    constexpr size_t textSize = 44;
    const std::string bytes = pin.toDisplayUTF8();
    const auto digest = bytes.size() == kind.size() + textSize && bytes.starts_with(kind)
        ? sela::base64Decode(std::string_view(bytes).substr(kind.size()))
        : std::nullopt;
    if (!digest || digest->size() != digestSize)
        refuse("the pinned key '" + pin + "' is not \"sha256//\" and a SHA-256 digest in Base64");
}

void requireFolder(const CTLSOptions::Path& path)
{
    const std::string name = path.toBytes();
    struct stat status {};
    const bool isText = name.find('\0') == std::string::npos;
    const int errorNumber = !isText ? EINVAL : stat(name.c_str(), &status) != 0 ? errno : 0;
    if (errorNumber != 0 || !S_ISDIR(status.st_mode))
        throw kx::CError("The folder '" + path.toString()
            + "' cannot be used: " + kx::systemErrorText(errorNumber != 0 ? errorNumber : ENOTDIR) + ".");
}

void requireIdentity(const CTLSOptions& options)
{
    const bool isPKCS12 = options.certificateFormat == CertificateFormat::PKCS12;
    requireOptionText(CURLOPT_KEYPASSWD, options.keyPassword.toUTF8(), "CNetRequest::setTLSOptions");
    if (options.certificateFile.isEmpty() && !options.keyFile.isEmpty())
        refuse("the key '" + options.keyFile.toString() + "' is given without a certificate");
    if (isPKCS12 && !options.keyFile.isEmpty())
        refuse("the key '" + options.keyFile.toString() + "' is given beside a PKCS#12 file, which has its own");
    if (options.certificateFile.isEmpty())
        return;
    if (isPKCS12)
        sela::requirePKCS12(options.certificateFile, options.keyPassword);
    else
        sela::requireCertificateWithKey(options.certificateFile,
            options.keyFile.isEmpty() ? options.certificateFile : options.keyFile, options.keyPassword);
}

void requireUsable(const CTLSOptions& options)
{
    for (const kx::String& pin : options.pinnedKeys)
        requirePin(pin);
    if (!options.rootsFile.isEmpty())
        sela::requireRootCertificates(options.rootsFile);
    if (!options.rootsFolder.isEmpty())
        requireFolder(options.rootsFolder);
    requireIdentity(options);
}

kx::String joined(const kx::TArray<kx::String>& texts, const kx::String& separator)
{
    kx::String all;
    for (const kx::String& text : texts)
        all += (all.isEmpty() ? kx::String() : separator) + text;
    return all;
}

std::string descriptionOf(const CTLSOptions& options)
{
    std::string all = rowOf(options.leastVersion).name;
    for (const std::string& part : {options.rootsFile.toBytes(), options.rootsFolder.toBytes(),
             options.certificateFile.toBytes(), options.keyFile.toBytes(), joined(options.pinnedKeys, ";").toUTF8(),
             std::string(options.verifyCertificate ? "certificate" : ""),
             std::string(options.verifyHostName ? "host" : "")})
        all += '\0' + part;
    return all;
}

kx::String quoted(const kx::String& text)
{
    return "\"" + text + "\"";
}

} // namespace

CTLSTrust::CTLSTrust(CEasyHandle& handle)
    : m_handle(handle)
    , m_peer(std::make_shared<sela::CPeerRecord>())
    , m_context(handle, CURLOPT_SSL_CTX_FUNCTION, CURLOPT_SSL_CTX_DATA)
{
}

CTLSTrust::~CTLSTrust() = default;

void CTLSTrust::set(const CTLSOptions& options)
{
    requireUsable(options);
    m_isSet = true; // also of what libcurl takes before it refuses the rest
    m_options = options;
    m_leastSet = TLSVersion::TLS1_0;
    m_description = descriptionOf(options);
    setDemands();
    setRoots(options);
    setIdentity(options);
    if (options.pinnedKeys.empty())
        m_handle.setNull(CURLOPT_PINNEDPUBLICKEY);
    else
        m_handle.setText(CURLOPT_PINNEDPUBLICKEY, joined(options.pinnedKeys, ";").toUTF8());
    setWatch();
}

void CTLSTrust::demandProof()
{
    m_isSet = true;
    m_options.leastVersion = std::max({m_options.leastVersion, m_leastSet, TLSVersion::TLS1_2});
    m_options.verifyCertificate = true;
    m_options.verifyHostName = true;
    m_description = descriptionOf(m_options);
    setDemands();
    setWatch();
}

long CTLSTrust::getLeastProxyVersion() const
{
    return rowOf(std::max(m_leastProxySet, TLSVersion::TLS1_2)).option;
}

void CTLSTrust::setDemands()
{
    m_handle.setNumber(CURLOPT_SSLVERSION, rowOf(m_options.leastVersion).option);
    m_handle.setNumber(CURLOPT_SSL_VERIFYPEER, m_options.verifyCertificate ? 1 : 0);
    m_handle.setNumber(CURLOPT_SSL_VERIFYHOST, m_options.verifyHostName ? 2 : 0);
}

void CTLSTrust::setRoots(const CTLSOptions& options)
{
    const bool areUsual = options.rootsFile.isEmpty() && options.rootsFolder.isEmpty();
    setPath(CURLOPT_CAINFO, options.rootsFile, areUsual ? CURLINFO_CAINFO : CURLINFO_NONE);
    setPath(CURLOPT_CAPATH, options.rootsFolder, areUsual ? CURLINFO_CAPATH : CURLINFO_NONE);
}

void CTLSTrust::setIdentity(const CTLSOptions& options)
{
    setPath(CURLOPT_SSLCERT, options.certificateFile, CURLINFO_NONE);
    setPath(CURLOPT_SSLKEY, options.keyFile, CURLINFO_NONE);
    m_handle.setText(CURLOPT_SSLCERTTYPE, options.certificateFormat == CertificateFormat::PKCS12 ? "P12" : "PEM");
}

/// @param usual what stands in place of an empty path
void CTLSTrust::setPath(CURLoption option, const CTLSOptions::Path& path, CURLINFO usual)
{
    const char* text = nullptr;
    if (!path.isEmpty())
        m_handle.setText(option, path.toBytes());
    else if (usual != CURLINFO_NONE && m_handle.ask(usual, text) && text)
        m_handle.setText(option, text);
    else
        m_handle.setNull(option);
}

void CTLSTrust::setWatch()
{
    const char* const tls = curl_version_info(CURLVERSION_NOW)->ssl_version;
    if (m_context.getFunction() || !tls || !sela::CPeerRecord::canWatch(tls))
        return;
    m_context.use(&CTLSTrust::contextCallback, this);
}

void CTLSTrust::noticeNumber(CURLoption option, long long value) noexcept
{
    if (option == CURLOPT_SSLVERSION)
        m_leastSet = leastVersionOf(value);
    else if (option == CURLOPT_PROXY_SSLVERSION)
        m_leastProxySet = leastVersionOf(value);
}

void CTLSTrust::noticePointer(CURLoption option, void* value)
{
    if (m_context.notice(option, value))
        m_context.settle();
}

void CTLSTrust::forgetOptions() noexcept
{
    m_isSet = false;
    m_leastSet = TLSVersion::TLS1_0;
    m_leastProxySet = TLSVersion::TLS1_0;
    m_context.forget();
    m_options = CTLSOptions();
    m_description.clear();
}

void CTLSTrust::begin() noexcept
{
    m_peer->forget();
}

kx::String CTLSTrust::explain(CURLcode result, const kx::String& message) const
{
    if (!m_isSet)
        return kx::String();
    if (result == CURLE_SSL_CONNECT_ERROR && message.find("protocol") != kx::String::npos)
        return kx::String::fromLatin1(rowOf(m_options.leastVersion).name) + " or later is demanded";
    const auto shown = m_peer->get();
    if (!shown || (result != CURLE_PEER_FAILED_VERIFICATION && result != CURLE_SSL_PINNEDPUBKEYNOTMATCH))
        return kx::String();
    if (result == CURLE_SSL_PINNEDPUBKEYNOTMATCH)
        return "expected " + joined(m_options.pinnedKeys, " or ") + ", came " + shown->publicKeyPin + ", the key of "
            + quoted(shown->subject);
    return "the certificate is that of " + quoted(shown->subject)
        + (shown->names.isEmpty() ? kx::String() : " (" + shown->names + ")") + ", issued by " + quoted(shown->issuer)
        + ", valid from " + shown->validFrom + " until " + shown->validUntil;
}

CURLcode CTLSTrust::contextCallback(CURL* /*handle*/, void* context, void* trust) noexcept
{
    return sela::CPeerRecord::watch(context, static_cast<CTLSTrust*>(trust)->m_peer) ? CURLE_OK : CURLE_OUT_OF_MEMORY;
}

} // namespace norla
