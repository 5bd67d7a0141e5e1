// Signatures as the client library of the inventor of this protocol makes them.
#include "kx/base/P.h"
#include "kx/text/hex.h"
#include "kx/time/CTimeFields.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3SignerV2.h"
#include "norla/s3/CS3SignerV4.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/files.h"
#include "tests/support/rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

using Row = std::vector<std::string>;

constexpr char python[] = "/usr/bin/python3"; // the one that Debian's packages are for
constexpr size_t resultCount = 3;

std::vector<Row> rowsOf(const std::vector<std::string>& arguments, const std::string& input = {})
{
    std::vector<std::string> all{python, NORLA_S3_TESTS_DIR "/botocore_rows.py"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const support::CProcessRun run({.arguments = all, .package = "python3-botocore", .input = input});
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    std::vector<Row> rows = rows::fieldsOf(run.output());
    for (Row& row : rows)
        for (std::string& field : row)
            field = rows::bytesOf(field);
    return rows;
}

kx::CTime timeOf(const std::string& timestamp) // "20130524T000000Z"
{
    const auto number = [&timestamp](size_t at, size_t size) { return std::stoll(timestamp.substr(at, size)); };
    kx::CTimeFields fields;
    fields.setDate(number(0, 4), number(4, 2), number(6, 2));
    fields.setTime(number(9, 2), number(11, 2), number(13, 2));
    return fields.toTime();
}

/// A request as the script has made it.
struct CMade {
    explicit CMade(Row row)
    {
        row.erase(row.begin(), row.begin() + resultCount);
        request.method = row.at(0);
        request.url = row.at(1);
        request.time = timeOf(row.at(2));
        credentials.accessKeyId = kx::String::fromUTF8(row.at(3));
        credentials.secretAccessKey = kx::String::fromUTF8(row.at(4));
        credentials.sessionToken = kx::String::fromUTF8(row.at(5));
        region = row.at(6);
        if (row.at(7) != "UNSIGNED-PAYLOAD")
            request.payloadSHA256 = row.at(7);
        lifetime = kx::CTimeSpan::fromSeconds(std::stoll(row.at(8)));
        for (size_t i = 9; i + 1 < row.size(); i += 2)
            request.headers.emplace_back(row[i], row[i + 1]);
    }

    norla::CS3RequestToSign request;
    norla::CS3Credentials credentials;
    std::string region;
    kx::CTimeSpan lifetime;
};

std::string authorizationOf(const norla::CS3RequestToSign& request)
{
    for (const auto& [name, value] : request.headers)
        if (name == "Authorization")
            return value;
    return {};
}

std::string behind(const std::string& text, char mark)
{
    return text.substr(text.rfind(mark) + 1);
}

constexpr char requestCount[] = "1000";

TEST(BotocoreTest, signsTheSameRequestsInTheSameWay)
{
    const std::vector<Row> rows = rowsOf({"make", requestCount});
    ASSERT_EQ(rows.size(), 1000U);
    for (const Row& row : rows) {
        const CMade made(row);
        const auto signer = kx::newObj<norla::CS3SignerV4>(kx::String::fromUTF8(made.region));
        norla::CS3RequestToSign request = made.request;
        signer->sign(request, made.credentials);
        EXPECT_EQ(behind(authorizationOf(request), '='), row[0]) << made.request.method << " " << made.request.url;
        EXPECT_EQ(behind(signer->presign(made.request, made.credentials, made.lifetime), '='), row[1])
            << made.request.method << " " << made.request.url;
    }
}

TEST(BotocoreTest, signsTheSameRequestsInTheSameWayInVersion2)
{
    for (const Row& row : rowsOf({"make", requestCount})) {
        CMade made(row);
        kx::newObj<norla::CS3SignerV2>()->sign(made.request, made.credentials);
        EXPECT_EQ(behind(authorizationOf(made.request), ':'), row[2]) << made.request.method << " " << made.request.url;
    }
}

/// Keys of every kind of character.
class CMadeKeys {
public:
    kx::String next()
    {
        std::wstring key;
        const size_t size = 1 + m_random() % 40;
        while (key.size() < size) {
            const auto c = static_cast<wchar_t>(m_random() % (m_random() % 4 == 0 ? 0x11'0000U : 0x80U));
            if (c > 0 && !(c >= 0xD800 && c <= 0xDFFF))
                key += c;
        }
        return kx::String(key);
    }

private:
    std::mt19937 m_random{1};
};

std::string hexOf(const std::string& text)
{
    return kx::hexEncode(text).toUTF8();
}

/// As the other one writes the URL of such an object: it leaves a "/" alone. Stores read both as the same.
std::string withSlashes(std::string url)
{
    const std::string query = url.substr(std::min(url.find('?'), url.size()));
    url.resize(url.size() - query.size());
    for (size_t at = url.find("%2F"); at != std::string::npos; at = url.find("%2F", at))
        url.replace(at, 3, "/");
    return url + query;
}

kx::P<norla::CS3Client> clientWith(const std::string& sessionToken)
{
    const norla::CS3Credentials credentials{.accessKeyId = "AKID",
        .secretAccessKey = "secret/+",
        .sessionToken = kx::String::fromLatin1(sessionToken),
        .expiry = {}};
    return kx::newObj<norla::CS3Client>(
        norla::CS3Endpoint::minio("localhost:9000", false), kx::newObj<norla::CS3StaticCredentials>(credentials).get());
}

const std::vector<std::string> tokens{"", "of a session /+="};

/// What clients have signed, written for the other one.
class CSignedByClients {
public:
    void add(const Row& row, const std::string& signature)
    {
        for (size_t field = 0; field < row.size(); ++field)
            m_input += (field == 0 ? "" : "\t") + hexOf(row[field]);
        m_input += "\n";
        m_signatures.push_back(signature);
    }

    /// @param column of what the other one writes
    void expectTheSame(size_t column) const
    {
        const std::vector<Row> judged = rowsOf({"sign"}, m_input);
        ASSERT_EQ(judged.size(), m_signatures.size());
        for (size_t i = 0; i < judged.size(); ++i)
            EXPECT_EQ(m_signatures[i], judged[i].at(column)) << i;
    }

private:
    std::string m_input;
    std::vector<std::string> m_signatures;
};

void prepareOne(norla::CS3Client& client, norla::CNetRequest& request, CMadeKeys& keys, int number)
{
    const kx::String key = keys.next();
    switch (number % 5) {
    case 0:
        client.preparePutObjectRequest(request, "bucket", key, "12", 2, "text/plain;  a=\"b   c\"");
        break;
    case 1:
        client.prepareListObjectsRequest(request, "bucket", key, keys.next(), "", number);
        break;
    case 2:
        client.prepareGetObjectRequest(request, "bucket", key, number, 1);
        break;
    case 3:
        client.prepareGetObjectHeadersRequest(request, "bucket", key);
        break;
    default:
        client.prepareDeleteObjectRequest(request, "bucket", key);
    }
}

/// A request as the other one reads it, without what it adds itself.
void addSigned(CSignedByClients& all, norla::CNetRequest& request, const std::string& token)
{
    Row row{request.getHTTPMethod().toUTF8(), withSlashes(request.getURL().toUTF8()), "", "AKID", "secret/+", token,
        "us-east-1", "", "1"};
    std::string signature;
    const auto headers = request.getCustomHTTPHeaders();
    for (const auto line = headers->createIterator(); line->next();) {
        const std::string name = line->getName().toUTF8();
        const std::string value = line->getValue().toUTF8();
        if (name == "Authorization")
            signature = behind(value, '=');
        else if (name == "x-amz-date")
            row[2] = value;
        else if (name == "x-amz-content-sha256")
            row[7] = value;
        else if (name != "x-amz-security-token" && name != "Expect") // the latter is libcurl's matter
            row.insert(row.end(), {name, value});
    }
    all.add(row, signature);
}

TEST(BotocoreTest, signsTheRequestsOfAClientInTheSameWay)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    CMadeKeys keys;
    CSignedByClients all;
    for (const std::string& token : tokens) {
        const auto client = clientWith(token);
        for (int i = 0; i < 1000; ++i) {
            prepareOne(*client, *request, keys, i);
            addSigned(all, *request, token);
        }
    }
    all.expectTheSame(0);
}

/// As addSigned(). @param url presigned
void addURL(
    CSignedByClients& all, const std::string& method, const std::string& url, int lifetime, const std::string& token)
{
    const std::string date = "&X-Amz-Date=";
    const size_t dateSize = std::string("20130524T000000Z").size();
    all.add({method, withSlashes(url.substr(0, url.find('?'))), url.substr(url.find(date) + date.size(), dateSize),
                "AKID", "secret/+", token, "us-east-1", "UNSIGNED-PAYLOAD", std::to_string(lifetime)},
        behind(url, '='));
}

TEST(BotocoreTest, signsTheURLsOfAClientInTheSameWay)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    CMadeKeys keys;
    CSignedByClients all;
    for (const std::string& token : tokens) {
        const auto client = clientWith(token);
        for (const std::string method : {"GET", "HEAD", "PUT", "DELETE"}) {
            for (int lifetime = 1; lifetime < 200; ++lifetime) {
                const kx::String url = client->presignObjectURL(*request, kx::String::fromLatin1(method), "bucket",
                    keys.next(), kx::CTimeSpan::fromSeconds(lifetime));
                addURL(all, method, url.toUTF8(), lifetime, token);
            }
        }
    }
    all.expectTheSame(1);
}

} // namespace
