#include "norla/s3/requireClientAndRequest.h"

#include "norla/s3/CS3BatchDelete.h"
#include "norla/s3/CS3Buckets.h"
#include "norla/s3/CS3FolderEnum.h"
#include "norla/s3/CS3MultipartUpload.h"
#include "norla/s3/CS3ObjectCopy.h"
#include "norla/s3/CS3ObjectListing.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3ParallelUpload.h"
#include "norla/s3/CS3UploadEnum.h"
#include "norla/s3/CS3VersionEnum.h"
#include "tests/norla/s3/CS3ListFixture.h"

namespace {

class RequireClientAndRequestTest : public CS3ListFixture {
protected:
    template <typename TClass, typename... TMore>
    void expectBothWanted(const TMore&... more)
    {
        const std::string message = "client or request is null";
        EXPECT_THAT(messageOfMaking<TClass>(nullptr, &request(), more...), testing::HasSubstr(message));
        EXPECT_THAT(messageOfMaking<TClass>(&store(), nullptr, more...), testing::HasSubstr(message));
    }

private:
    template <typename TClass, typename... TMore>
    static std::string messageOfMaking(norla::CS3Client* client, norla::CNetRequest* request, const TMore&... more)
    {
        return support::messageOf([&] { kx::newObj<TClass>(client, request, more...); }).toUTF8();
    }
};

TEST_F(RequireClientAndRequestTest, nothingThatPerformsCallsIsMadeWithoutThem)
{
    expectBothWanted<norla::CS3BatchDelete>("b");
    expectBothWanted<norla::CS3Buckets>();
    expectBothWanted<norla::CS3FolderEnum>("b");
    expectBothWanted<norla::CS3MultipartUpload>("b", "k");
    expectBothWanted<norla::CS3ObjectCopy>();
    expectBothWanted<norla::CS3ObjectListing>("b");
    expectBothWanted<norla::CS3Objects>();
    expectBothWanted<norla::CS3ParallelUpload>();
    expectBothWanted<norla::CS3UploadEnum>("b");
    expectBothWanted<norla::CS3VersionEnum>("b");
}

} // namespace
