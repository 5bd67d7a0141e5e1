// Where a customer's key goes, and where it does not.
#include "kx/base/CInvalidArgError.h"
#include "norla/s3/CS3MultipartUpload.h"
#include "tests/norla/s3/CS3ObjectsFixture.h"
#include "tests/support/CTestCertificates.h"

#include <initializer_list>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string customerKey(32, 'k');
constexpr char encodedKey[] = "a2tra2tra2tra2tra2tra2tra2tra2tra2tra2tra2s=";
constexpr char keyHeader[] = "x-amz-server-side-encryption-customer-key";
constexpr char sourceKeyHeader[] = "x-amz-copy-source-server-side-encryption-customer-key";

class CustomerKeyTest : public CS3ObjectsFixture {
protected:
    CustomerKeyTest()
    {
        const auto& certificates = support::CTestCertificates::get();
        m_secureClient->setRootCertBundlePath(norla::CNetRequest::Path::fromBytes(certificates.caFile().native()));
        m_secureClient->setMaxRetries(0);
    }

    norla::CS3Objects& secureObjects() { return *m_secureObjects; }

    support::CScript& acceptSecurely()
    {
        const auto& certificates = support::CTestCertificates::get();
        return server().onConnection().startTLS(certificates.serverCertificate(), certificates.serverKey()).readHead();
    }

    void expectSentLines(std::initializer_list<std::string> lines)
    {
        for (const std::string& line : lines)
            EXPECT_TRUE(hasSent(line)) << line << " in " << received();
    }

    template <typename TAction>
    void expectRefused(const char* header, TAction action)
    {
        const auto error = support::errorOf(action);
        ASSERT_TRUE(error);
        EXPECT_TRUE(dynamic_cast<const kx::CInvalidArgError*>(error.get()));
        EXPECT_THAT(error->getMessage().toUTF8(),
            AllOf(HasSubstr(std::string("the header '") + header + "' holds a key"), Not(HasSubstr(encodedKey))));
        EXPECT_EQ(server().connectionCount(), 0U);
    }

private:
    static kx::P<norla::IS3Credentials> credentials()
    {
        return kx::newObj<norla::CS3StaticCredentials>(
            norla::CS3Credentials{.accessKeyId = "AKID", .secretAccessKey = secret, .sessionToken = {}, .expiry = {}});
    }

    const kx::P<norla::CS3Client> m_secureClient
        = kx::newObj<norla::CS3Client>(norla::CS3Endpoint::ceph(host(), true), credentials().get());
    const kx::P<norla::CS3Objects> m_secureObjects = kx::newObj<norla::CS3Objects>(m_secureClient.get(), &request());
};

TEST_F(CustomerKeyTest, isSentWithAnObjectAndWithItsMD5)
{
    acceptSecurely().readBytes(3).send(reply("200 OK", ""));
    secureObjects().put("b", "k", "abc", {.encryption = {.algorithm = {}, .keyId = {}, .customerKey = customerKey}});
    expectSentLines(
        {"x-amz-server-side-encryption-customer-algorithm: AES256", std::string(keyHeader) + ": " + encodedKey,
            "x-amz-server-side-encryption-customer-key-md5: mT2HRsMGJ5IX5C+0rreZ8Q=="});
}

TEST_F(CustomerKeyTest, isSentForAnObject)
{
    acceptSecurely().send(reply("200 OK", ""));
    secureObjects().get("b", "k", kx::newObj<norla::CNetRequest::Buffer>().get(), {.customerKey = customerKey});
    expectSentLines({std::string(keyHeader) + ": " + encodedKey});
}

TEST_F(CustomerKeyTest, isSentForTheSourceOfACopy)
{
    acceptSecurely().send(reply("200 OK", "", "<CopyObjectResult><ETag>\"e\"</ETag></CopyObjectResult>"));
    secureObjects().copy("from", "a", "b", "k", {.sourceCustomerKey = customerKey});
    expectSentLines({"x-amz-copy-source-server-side-encryption-customer-algorithm: AES256",
        std::string(sourceKeyHeader) + ": " + encodedKey,
        "x-amz-copy-source-server-side-encryption-customer-key-md5: mT2HRsMGJ5IX5C+0rreZ8Q=="});
}

TEST_F(CustomerKeyTest, isNotSentInClearWithAnObject)
{
    expectRefused(keyHeader, [this] {
        objects().put("b", "k", "abc", {.encryption = {.algorithm = {}, .keyId = {}, .customerKey = customerKey}});
    });
}

TEST_F(CustomerKeyTest, isNotSentInClearForAnObject)
{
    expectRefused(keyHeader, [this] { get({.customerKey = customerKey}); });
    expectRefused(keyHeader, [this] { objects().head("b", "k", {.customerKey = customerKey}); });
}

TEST_F(CustomerKeyTest, isNotSentInClearForTheSourceOfACopy)
{
    expectRefused(
        sourceKeyHeader, [this] { objects().copy("from", "a", "b", "k", {.sourceCustomerKey = customerKey}); });
}

TEST_F(CustomerKeyTest, isNotSentInClearWithAPart)
{
    norla::CS3MultipartUpload upload(&objectClient(), &request(), "b", "k",
        {.headers = {}, .partHeaders = {{"X-Amz-Server-Side-Encryption-Customer-Key", encodedKey}}});
    expectRefused(keyHeader, [&] { upload.create(); });
    upload.attach("id");
    expectRefused(keyHeader, [&] { upload.uploadPart(1, "abc", 3); });
}

} // namespace
