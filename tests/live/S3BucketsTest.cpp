// Buckets of a real store.
#include "norla/s3/CS3Buckets.h"
#include "tests/live/S3EndpointSession.h"
#include "tests/support/errorOf.h"

#include <algorithm>

namespace {

using norla::CS3Buckets;

class S3BucketsTest : public live::S3EndpointSession {
protected:
    CS3Buckets& buckets() { return *m_buckets; }

    bool isListed(const kx::String& name)
    {
        const auto listed = buckets().list();
        return std::any_of(listed.begin(), listed.end(), [&](const norla::CS3ListedBucket& bucket) {
            return bucket.name == name && !bucket.creationDate.isEmpty();
        });
    }

    const kx::P<CS3Buckets> m_buckets = kx::newObj<CS3Buckets>(&client(), &request());
};

TEST_F(S3BucketsTest, createsListsAndRemovesABucket)
{
    const kx::String name = m_bucket + "-new";
    EXPECT_FALSE(buckets().exists(name));
    EXPECT_FALSE(isListed(name));
    buckets().create(name, {.region = {}, .acl = "public-read"});
    EXPECT_TRUE(buckets().exists(name));
    EXPECT_TRUE(isListed(name));
    buckets().remove(name);
    EXPECT_FALSE(buckets().exists(name));
}

TEST_F(S3BucketsTest, doesNotRemoveABucketThatIsNotEmpty)
{
    put("k", "content");
    const auto error = support::errorOf([this] { buckets().remove(m_bucket); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "BucketNotEmpty");
}

TEST_F(S3BucketsTest, isToldThatABucketIsSomebodyElses)
{
    const auto other = clientOf(store().otherAccessKeyId(), store().otherSecretAccessKey());
    const auto theirs = kx::newObj<CS3Buckets>(other.get(), &request());
    const auto error = support::errorOf([&] { theirs->exists(m_bucket); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "AccessDenied");
}

TEST_F(S3BucketsTest, refusesARegionThatTheStoreDoesNotKnow)
{
    const auto error = support::errorOf([this] { buckets().create(m_bucket + "-far", {.region = "far&away"}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "InvalidLocationConstraint");
}

TEST_F(S3BucketsTest, keepsVersionsWhenTold)
{
    EXPECT_EQ(buckets().getVersioning(m_bucket), CS3Buckets::Versioning::Never);
    buckets().setVersioning(m_bucket, CS3Buckets::Versioning::Enabled);
    EXPECT_EQ(buckets().getVersioning(m_bucket), CS3Buckets::Versioning::Enabled);
    buckets().setVersioning(m_bucket, CS3Buckets::Versioning::Suspended);
    EXPECT_EQ(buckets().getVersioning(m_bucket), CS3Buckets::Versioning::Suspended);
}

TEST_F(S3BucketsTest, makesBucketsWithLocks)
{
    const kx::String name = m_bucket + "-lock";
    buckets().create(name, {.region = {}, .acl = {}, .objectLock = true});
    EXPECT_EQ(buckets().getVersioning(name), CS3Buckets::Versioning::Enabled);
}

TEST_F(S3BucketsTest, readsALocation)
{
    EXPECT_EQ(buckets().getLocation(m_bucket), "default");
}

} // namespace
