#include "norla/s3/CS3HeaderFields.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/time/CTimeFields.h"
#include "norla/http/util.h"
#include "norla/s3/CS3BodyDigest.h"
#include "norla/s3/encodedMetadata.h"
#include "sela/base64.h"

#include <algorithm>
#include <set>

namespace norla {

namespace {

bool isControlCharacter(wchar_t character)
{
    constexpr wchar_t del = 0x7F;
    return character < L' ' || character == del;
}

/// RFC 9110 section 5.6.2.
bool isToken(const kx::String& name)
{
    constexpr wchar_t others[] = L"!#$%&'*+-.^_`|~";
    return !name.isEmpty() && std::all_of(name.begin(), name.end(), [&others](wchar_t character) {
        return (character >= L'a' && character <= L'z') || (character >= L'A' && character <= L'Z')
            || (character >= L'0' && character <= L'9')
            || std::wstring_view(others).find(character) != std::wstring_view::npos;
    });
}

} // namespace

void CS3HeaderFields::requireText(const kx::String& name, const kx::String& value) const
{
    if (std::any_of(value.begin(), value.end(), isControlCharacter))
        throw kx::CInvalidArgError("'" + name + "' must not hold a control character", m_functionName);
}

void CS3HeaderFields::add(const kx::String& name, const kx::String& value)
{
    requireText(name, value);
    if (!value.isEmpty())
        m_fields.emplace_back(name, value);
}

void CS3HeaderFields::add(const kx::String& name, const kx::CTime& time)
{
    if (time.isSet())
        add(name, kx::CTimeFields(time, kx::CTimeFields::TypeUTC).toInternetTimestamp());
}

void CS3HeaderFields::addConditions(const CS3Conditions& conditions, const kx::String& prefix)
{
    add(prefix + "if-match", conditions.ifMatch);
    add(prefix + "if-none-match", conditions.ifNoneMatch);
    add(prefix + "if-modified-since", conditions.ifModifiedSince);
    add(prefix + "if-unmodified-since", conditions.ifUnmodifiedSince);
}

void CS3HeaderFields::addCustomerKey(const std::string& key, const kx::String& prefix)
{
    constexpr size_t keySize = 32; // AES-256
    if (key.empty())
        return;
    if (key.size() != keySize)
        throw kx::CInvalidArgError("the customer key must have 32 bytes", m_functionName);
    const kx::String name = "x-amz-" + prefix + "server-side-encryption-customer-";
    add(name + "algorithm", "AES256");
    add(name + "key", sela::base64Encode(reinterpret_cast<const unsigned char*>(key.data()), key.size(), true, false));
    CS3BodyDigest digest(CS3Checksum::MD5);
    digest.update(key);
    add(name + "key-md5", digest.toBase64());
}

void CS3HeaderFields::addEncryption(const CS3Encryption& encryption)
{
    if (!encryption.customerKey.empty() && (!encryption.algorithm.isEmpty() || !encryption.keyId.isEmpty()))
        throw kx::CInvalidArgError("an object is encrypted by the store's key or the customer's", m_functionName);
    add("x-amz-server-side-encryption", encryption.algorithm);
    add("x-amz-server-side-encryption-aws-kms-key-id", encryption.keyId);
    addCustomerKey(encryption.customerKey, {});
}

void CS3HeaderFields::addContent(const CS3PutOptions& options)
{
    add("Content-Type", options.contentType);
    add("Cache-Control", options.cacheControl);
    add("Content-Disposition", options.contentDisposition);
    add("Content-Encoding", options.contentEncoding);
    add("Content-Language", options.contentLanguage);
    add("Expires", options.expires);
    addMetadata(options.metadata);
}

void CS3HeaderFields::addMetadata(const CS3PutOptions::Texts& metadata)
{
    std::set<kx::String> names;
    for (const auto& [name, value] : metadata) {
        const kx::String lower = name.toLower();
        if (!isToken(name))
            throw kx::CInvalidArgError("the name '" + name
                    + R"(' of metadata cannot be that of a header: ASCII letters, digits, "-" and "_" can)",
                m_functionName);
        if (!names.insert(lower).second)
            throw kx::CInvalidArgError(
                "the name '" + name + "' of metadata is there twice: capitals do not count", m_functionName);
        requireText("x-amz-meta-" + lower, value);
        m_fields.emplace_back("x-amz-meta-" + lower, encodeMetadata(value)); // also an empty one
    }
}

void CS3HeaderFields::addTags(const CS3PutOptions& options)
{
    constexpr bool escapeSlash = true;
    add("x-amz-tagging", formURLEncode(options.tags, escapeSlash));
}

void CS3HeaderFields::addStorage(const CS3PutOptions& options)
{
    add("x-amz-storage-class", options.storageClass);
    add("x-amz-acl", options.cannedACL);
    addEncryption(options.encryption);
    add("If-Match", options.ifMatch);
    add("If-None-Match", options.ifNoneMatch);
    m_fields.insert(m_fields.end(), options.headers.begin(), options.headers.end());
}

} // namespace norla
