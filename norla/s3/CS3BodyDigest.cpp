#include "norla/s3/CS3BodyDigest.h"

#include "kx/base/CError.h"
#include "kx/text/hex.h"
#include "norla/s3/crc32c.h"
#include "norla/s3/multipartDocuments.h"
#include "sela/CDigest.h"
#include "sela/CDigestType_MD5.h"
#include "sela/base64.h"

namespace norla {

namespace {

using DigestHeaders = CS3BodyDigest::HeaderMap;

kx::String digestHeader(const DigestHeaders& headers, const kx::String& name)
{
    const auto found = headers.find(name);
    return found == headers.end() ? kx::String() : found->second;
}

kx::P<sela::CDigest> newDigest(CS3Checksum kind)
{
    if (kind == CS3Checksum::MD5)
        return sela::CDigestType_MD5::createDigest();
    return kind == CS3Checksum::SHA256 ? kx::newObj<sela::CDigest>("SHA256") : nullptr;
}

std::optional<kx::String> md5SaidIn(const DigestHeaders& headers)
{
    const kx::String md5 = kx::String::fromUTF8(md5InETag(digestHeader(headers, "etag")));
    return !md5.isEmpty() && CS3BodyDigest::isETagOfBytes(headers) ? std::optional(md5) : std::nullopt;
}

kx::String nameOfDigest(CS3Checksum kind)
{
    if (kind == CS3Checksum::CRC32C)
        return "CRC-32C";
    return kind == CS3Checksum::MD5 ? kx::String("MD5") : kx::String("SHA-256");
}

} // namespace

CS3BodyDigest::CS3BodyDigest(CS3Checksum kind)
    : m_kind(kind)
    , m_digest(newDigest(kind))
{
}

CS3BodyDigest::~CS3BodyDigest() = default;
CS3BodyDigest::CS3BodyDigest(CS3BodyDigest&&) noexcept = default;
CS3BodyDigest& CS3BodyDigest::operator=(CS3BodyDigest&&) noexcept = default;

void CS3BodyDigest::update(std::string_view bytes)
{
    if (m_digest)
        m_digest->update(bytes.data(), bytes.size());
    else
        m_crc = crc32c(bytes, m_crc);
}

std::string CS3BodyDigest::finished()
{
    constexpr unsigned byteBits = 8;
    if (m_digest) {
        m_digest->finish();
        return {reinterpret_cast<const char*>(m_digest->getBytes()), m_digest->getLength()};
    }
    std::string bytes;
    for (unsigned shift = 4 * byteBits; shift > 0; shift -= byteBits)
        bytes += static_cast<char>(m_crc >> (shift - byteBits));
    return bytes;
}

kx::String CS3BodyDigest::toBase64()
{
    const std::string bytes = finished();
    return sela::base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), true, false);
}

kx::String CS3BodyDigest::toHex()
{
    return kx::hexEncode(finished());
}

bool CS3BodyDigest::isETagOfBytes(const HeaderMap& headers)
{
    const kx::String encryption = digestHeader(headers, "x-amz-server-side-encryption");
    return (encryption.isEmpty() || encryption == "AES256")
        && !headers.contains("x-amz-server-side-encryption-customer-algorithm");
}

std::optional<kx::String> CS3BodyDigest::saidIn(const HeaderMap& headers, CS3Checksum kind)
{
    if (kind == CS3Checksum::MD5)
        return md5SaidIn(headers);
    const kx::String said = digestHeader(headers, nameOfChecksumHeader(kind));
    const bool isOfParts
        = said.find(L'-') != kx::String::npos || digestHeader(headers, "x-amz-checksum-type").toLower() == "composite";
    return said.isEmpty() || isOfParts ? std::nullopt : std::optional(said);
}

void CS3BodyDigest::requireAsSaid(const HeaderMap& headers, const kx::String& what)
{
    const std::optional<kx::String> said = saidIn(headers, m_kind);
    if (!said)
        return;
    const kx::String computed = m_kind == CS3Checksum::MD5 ? toHex() : toBase64();
    if (computed != *said)
        throw kx::CError("The bytes of " + what + " are not those that the store speaks of: their "
            + nameOfDigest(m_kind) + " is '" + computed + "' and not '" + *said + "'.");
}

kx::String nameOfChecksumHeader(CS3Checksum kind)
{
    switch (kind) {
    case CS3Checksum::MD5:
        return "content-md5";
    case CS3Checksum::SHA256:
        return "x-amz-checksum-sha256";
    case CS3Checksum::CRC32C:
        return "x-amz-checksum-crc32c";
    case CS3Checksum::None:
        break;
    }
    return {};
}

} // namespace norla
