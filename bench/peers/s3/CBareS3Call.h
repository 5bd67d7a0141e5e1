#pragma once

#include "bench/bareCurl.h"
#include "bench/peers/s3/s3Work.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <string_view>
#include <strings.h>
#include <unistd.h>

namespace bench {

inline std::string digestOf(const EVP_MD* algorithm, std::string_view bytes)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, algorithm, nullptr) != 1)
        throw std::runtime_error("OpenSSL has no such digest");
    return {reinterpret_cast<const char*>(digest.data()), size};
}

inline std::string hexOf(std::string_view bytes)
{
    return hexOf(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

inline std::string base64Of(std::string_view bytes)
{
    std::string base64(4 * (bytes.size() / 3 + 1) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()),
        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    base64.resize(static_cast<size_t>(size));
    return base64;
}

/// One signed request after the other on a handle of libcurl's.
class CBareS3Call {
public:
    CBareS3Call() = default;
    CBareS3Call(const CBareS3Call&) = delete;
    CBareS3Call& operator=(const CBareS3Call&) = delete;
    ~CBareS3Call()
    {
        curl_slist_free_all(m_headers);
        EVP_MD_CTX_free(m_md5);
        if (m_file >= 0)
            close(m_file);
    }

    CURL* handle() const { return m_easy.get(); }

    /// @param query sorted, and each of its parameters with a "="
    /// @param isDigested whether the signature covers the body, and its MD5 is sent along
    void prepare(const char* method, const std::string& path, const std::string& query = {}, std::string sent = {},
        bool isDigested = true)
    {
        m_body = std::move(sent);
        m_answer.clear();
        m_eTag.clear();
        curl_slist_free_all(std::exchange(m_headers, nullptr));
        CURL* const easy = handle();
        curl_easy_reset(easy);
        set(CURLOPT_URL, ("http://" + m_endpoint + path + (query.empty() ? "" : "?" + query)).c_str());
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_PRIVATE, this);
        set(CURLOPT_WRITEFUNCTION, &take);
        set(CURLOPT_WRITEDATA, this);
        set(CURLOPT_HEADERFUNCTION, &takeHeader);
        set(CURLOPT_HEADERDATA, this);
        set(CURLOPT_AWS_SIGV4, "aws:amz:us-east-1:s3");
        set(CURLOPT_USERPWD, m_login.c_str());
        addHeader("x-amz-content-sha256: " + (isDigested ? hexOf(digestOf(EVP_sha256(), m_body)) : "UNSIGNED-PAYLOAD"));
        if (!m_body.empty())
            setBody(isDigested);
        set(CURLOPT_CUSTOMREQUEST, method);
        set(CURLOPT_HTTPHEADER, m_headers);
    }

    /// Where the body of the answer goes, after prepare(); else it is kept in memory.
    void takeToFile(const std::string& name, bool isDigested)
    {
        m_file = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (m_file < 0)
            throw std::runtime_error(name + " cannot be made");
        m_isDigested = isDigested;
        EVP_DigestInit_ex(m_md5, EVP_md5(), nullptr);
    }

    /// Behind the transfer. @throws std::runtime_error where it is no success
    void end(CURLcode result)
    {
        check(result);
        long status = 0;
        curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &status);
        if (status < 200 || status > 299)
            throw std::runtime_error("status " + std::to_string(status) + ": " + m_answer);
        if (m_file < 0)
            return;
        close(std::exchange(m_file, -1));
        unsigned char md5[EVP_MAX_MD_SIZE];
        unsigned int size = 0;
        EVP_DigestFinal_ex(m_md5, md5, &size);
        if (m_isDigested && m_eTag != hexOf(md5, size))
            throw std::runtime_error("other bytes");
    }

    const std::string& answer() const { return m_answer; }

    /// Without quotation marks.
    const std::string& eTag() const { return m_eTag; }

private:
    template <typename TValue>
    void set(CURLoption option, TValue value)
    {
        check(curl_easy_setopt(handle(), option, value));
    }

    void addHeader(const std::string& line) { m_headers = curl_slist_append(m_headers, line.c_str()); }

    void setBody(bool isDigested)
    {
        if (isDigested)
            addHeader("Content-MD5: " + base64Of(digestOf(EVP_md5(), m_body)));
        addHeader("Content-Type: application/octet-stream");
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_body.size()));
        set(CURLOPT_POSTFIELDS, m_body.data());
    }

    static size_t take(char* data, size_t size, size_t count, void* self)
    {
        auto& call = *static_cast<CBareS3Call*>(self);
        const size_t bytes = size * count;
        if (call.m_file < 0) {
            call.m_answer.append(data, bytes);
            return bytes;
        }
        if (call.m_isDigested)
            EVP_DigestUpdate(call.m_md5, data, bytes);
        return write(call.m_file, data, bytes) == static_cast<ssize_t>(bytes) ? bytes : 0;
    }

    static size_t takeHeader(char* data, size_t size, size_t count, void* self)
    {
        constexpr std::string_view name = "ETag:";
        const std::string_view line(data, size * count);
        if (line.size() > name.size() && strncasecmp(data, name.data(), name.size()) == 0) {
            std::string& eTag = static_cast<CBareS3Call*>(self)->m_eTag;
            for (const char c : line.substr(name.size())) {
                if (c > ' ' && c != '"')
                    eTag += c;
            }
        }
        return line.size();
    }

    const Easy m_easy{curl_easy_init()};
    const std::string m_endpoint = variable("S3_ENDPOINT");
    const std::string m_login = variable("AWS_ACCESS_KEY_ID") + ':' + variable("AWS_SECRET_ACCESS_KEY");
    EVP_MD_CTX* const m_md5 = EVP_MD_CTX_new();
    curl_slist* m_headers = nullptr;
    std::string m_body;
    std::string m_answer;
    std::string m_eTag;
    int m_file = -1;
    bool m_isDigested = false;
};

} // namespace bench
