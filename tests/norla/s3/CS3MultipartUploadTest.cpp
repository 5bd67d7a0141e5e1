#include "norla/s3/CS3MultipartUpload.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/s3/CS3Error.h"
#include "tests/norla/s3/CMultipartFixture.h"
#include "tests/support/errorOf.h"

#include <gmock/gmock.h>

#include <climits>
#include <utility>

namespace {

using norla::CS3MultipartOptions;
using norla::CS3MultipartUpload;
using support::messageOf;
using testing::HasSubstr;
using testing::Not;

constexpr char md5OfABC[] = "\"900150983cd24fb0d6963f7d28e17f72\"";

class CS3MultipartUploadTest : public CMultipartFixture {
protected:
    kx::P<CS3MultipartUpload> make(const CS3MultipartOptions& options = {})
    {
        return kx::newObj<CS3MultipartUpload>(&store(), &request(), "bucket", "a key", options);
    }

    kx::P<CS3MultipartUpload> attached(const CS3MultipartOptions& options = {})
    {
        auto upload = make(options);
        upload->attach("i+d");
        return upload;
    }

    kx::String listFailure(const std::string& list)
    {
        answer(list);
        const auto upload = attached();
        return messageOf([&] { upload->listParts(); });
    }

    kx::String completionFailure(const std::string& answerBytes)
    {
        const auto upload = attached();
        answer(answerBytes);
        const kx::String message = messageOf([&] { upload->complete({{1, "\"e\"", 3}}); });
        EXPECT_EQ(upload->getId(), "i+d");
        return message;
    }
};

TEST_F(CS3MultipartUploadTest, beginsWithTheObjectsHeaders)
{
    answer(created("2~x/y"));
    const auto upload = make({.headers = {{"Content-Type", "text/plain"}, {"x-amz-meta-a", "b"}},
        .partHeaders = {{"x-key", "k"}},
        .completeHeaders = {}});
    upload->create();
    EXPECT_EQ(upload->getId(), "2~x/y");
    EXPECT_EQ(requestLine(0), "POST /bucket/a%20key?uploads HTTP/1.1");
    for (const char* const line : {"\r\nContent-Type: text/plain\r\n", "\r\nx-amz-meta-a: b\r\n", "\r\nx-key: k\r\n",
             "\r\nContent-Length: 0\r\n"})
        EXPECT_THAT(received(0), HasSubstr(line));
}

TEST_F(CS3MultipartUploadTest, leavesTheTypeOfAnObjectThatHasNoneToTheStore)
{
    answer(created("i"));
    make({.headers = {{"x-amz-meta-a", "b"}}, .partHeaders = {}, .completeHeaders = {}})->create();
    EXPECT_THAT(received(0), Not(HasSubstr("Content-Type")));
}

TEST_F(CS3MultipartUploadTest, refusesAnUploadWithoutAnId)
{
    answer(created(""));
    EXPECT_EQ(messageOf([this] { make()->create(); }), "The store began an upload by parts and gave it no id.");
}

TEST_F(CS3MultipartUploadTest, beginsOnce)
{
    const auto upload = attached();
    EXPECT_EQ(messageOf([&] { upload->create(); }), "The object 'a key' has an upload already.");
    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(CS3MultipartUploadTest, sendsAPartWithItsDigests)
{
    answerBody(3, stored(md5OfABC));
    EXPECT_EQ(attached({.headers = {{"x-no", "n"}}, .partHeaders = {{"x-key", "k"}}, .completeHeaders = {}})
                  ->uploadPart(7, "abc", 3),
        md5OfABC);
    EXPECT_EQ(requestLine(0), "PUT /bucket/a%20key?partNumber=7&uploadId=i%2Bd HTTP/1.1");
    EXPECT_EQ(bodyReceived(0), "abc");
    for (const char* const line : {"\r\nContent-MD5: kAFQmDzST7DWlj99KOF/cg==\r\n", "\r\nx-key: k\r\n",
             "\r\nx-amz-content-sha256: ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\r\n"})
        EXPECT_THAT(received(0), HasSubstr(line));
    EXPECT_THAT(received(0), Not(HasSubstr("x-no")));
}

TEST_F(CS3MultipartUploadTest, refusesAPartThatTheStoreHasOtherwise)
{
    answerBody(3, stored("\"00000000000000000000000000000000\""));
    EXPECT_EQ(messageOf([this] { attached()->uploadPart(7, "abc", 3); }),
        "Part 7 of 'a key' has the ETag \"00000000000000000000000000000000\" at the store, and the MD5 "
        "900150983cd24fb0d6963f7d28e17f72 here.");
}

TEST_F(CS3MultipartUploadTest, comparesNoETagThatIsNoMD5)
{
    answerBody(3, stored("\"00000000000000000000000000000000\"", "x-amz-server-side-encryption: aws:kms\r\n"));
    answerBody(3, stored("\"0-1\""));
    const auto upload = attached();
    EXPECT_NO_THROW(upload->uploadPart(1, "abc", 3));
    EXPECT_NO_THROW(upload->uploadPart(2, "abc", 3));
}

TEST_F(CS3MultipartUploadTest, refusesAPartWithoutAnETag)
{
    answerBody(3, answerWith(200, ""));
    const auto upload = attached();
    EXPECT_EQ(messageOf([&] { upload->uploadPart(7, "abc", 3); }), "There is no ETag for part 7 of 'a key'.");
    EXPECT_EQ(messageOf([&] { upload->complete(); }), "The upload of 'a key' has no parts.");
}

TEST_F(CS3MultipartUploadTest, refusesNumbersThatNoPartHas)
{
    const auto upload = attached();
    for (const int number : {0, -1, 10'001})
        EXPECT_THROW(upload->uploadPart(number, "", 0), kx::CInvalidArgError) << number;
    EXPECT_THROW(upload->complete({{2, "\"a\"", 1}, {2, "\"a\"", 1}}), kx::CInvalidArgError);
    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(CS3MultipartUploadTest, doesNothingWithoutAnUpload)
{
    EXPECT_EQ(messageOf([this] { make()->uploadPart(1, "", 0); }),
        "The object 'a key' has no upload: neither create() nor attach() was called.");
    EXPECT_THROW(make()->attach(""), kx::CInvalidArgError);
    EXPECT_THROW(kx::newObj<CS3MultipartUpload>(&store(), &request(), "", "k"), kx::CInvalidArgError);
}

TEST_F(CS3MultipartUploadTest, listsPartsPageByPage)
{
    answer(partList(part(1, 5, "&quot;a&quot;") + part(3, 6, "b"),
        "<IsTruncated>true</IsTruncated><NextPartNumberMarker>3</NextPartNumberMarker>"));
    answer(partList(part(10000, 0, "c")));
    const auto parts = attached({.partsPerPage = 2})->listParts();
    ASSERT_EQ(parts.size(), 3U);
    EXPECT_EQ(parts[0].eTag, "\"a\"");
    EXPECT_EQ(parts[1].size, 6);
    EXPECT_EQ(parts[2].number, 10'000);
    EXPECT_EQ(requestLine(0), "GET /bucket/a%20key?max-parts=2&uploadId=i%2Bd HTTP/1.1");
    EXPECT_EQ(requestLine(1), "GET /bucket/a%20key?max-parts=2&part-number-marker=3&uploadId=i%2Bd HTTP/1.1");
}

TEST_F(CS3MultipartUploadTest, goesOnBehindTheLastPartOfAListWithoutAMarker)
{
    answer(partList(part(4, 5, "a"), "<IsTruncated>true</IsTruncated>"));
    answer(partList(""));
    EXPECT_EQ(attached()->listParts().size(), 1U);
    EXPECT_THAT(requestLine(1), HasSubstr("part-number-marker=4&"));
}

TEST_F(CS3MultipartUploadTest, endsAListThatDoesNotAdvance)
{
    const std::string goesOn = "<IsTruncated>true</IsTruncated>";
    EXPECT_EQ(listFailure(partList("", goesOn)),
        "The store's list of parts does not end: behind part 0 it goes on behind part 0.");
    EXPECT_EQ(listFailure(partList(part(4, 5, "a"), goesOn + "<NextPartNumberMarker>3</NextPartNumberMarker>")),
        "The store's list of parts does not end: behind part 4 it goes on behind part 3.");
    EXPECT_EQ(listFailure(partList(part(4, 5, "a") + part(4, 5, "a"))),
        "The store's list of parts does not go on: part 4 comes behind part 4.");
}

TEST_F(CS3MultipartUploadTest, believesNoPartThatCannotBe)
{
    EXPECT_EQ(listFailure(partList(part(0, 5, "a"))), "The store's list of parts has '0' for a part's number.");
    EXPECT_EQ(
        listFailure(partList(part(10'001, 5, "a"))), "The store's list of parts has '10001' for a part's number.");
    EXPECT_EQ(listFailure(partList(part(1, -5, "a"))), "The store's list of parts has '-5' for a part's size.");
    EXPECT_EQ(listFailure(partList("<Part/>")), "The store's list of parts has '' for a part's number.");
    EXPECT_EQ(listFailure(partList(part(1, 5, ""))), "There is no ETag for part 1 in the store's list.");
    EXPECT_EQ(listFailure(partList("", "<IsTruncated>perhaps</IsTruncated>")),
        "The store's list of parts has 'perhaps' for whether it goes on.");
    EXPECT_EQ(listFailure(answerWith(200, "<Other/>")),
        "Error parsing Amazon S3 'ListPartsResult' answer: the root element is 'Other'.");
}

TEST_F(CS3MultipartUploadTest, refusesAListOfMoreElementsThanAnyHas)
{
    std::string elements;
    for (int i = 0; i < 300'000; ++i)
        elements += "<a/>";
    EXPECT_EQ(listFailure(partList(elements)),
        "Error parsing Amazon S3 'ListPartsResult' answer: more than 300000 elements.");
}

TEST_F(CS3MultipartUploadTest, readsAListOfAKeyThatXMLCannotHold)
{
    answer(partList("<Key>a&#x1;\x02</Key>" + part(1, 5, "a")));
    EXPECT_EQ(attached()->listParts().size(), 1U);
}

TEST_F(CS3MultipartUploadTest, completesItsPartsInOrder)
{
    answerBody(1, stored("\"b&<>\""));
    answerBody(1, stored("\"a\""));
    const std::string document
        = "<CompleteMultipartUpload xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">"
          "<Part><PartNumber>1</PartNumber><ETag>&quot;a&quot;</ETag></Part>"
          "<Part><PartNumber>2</PartNumber><ETag>&quot;b&amp;&lt;&gt;&quot;</ETag></Part></CompleteMultipartUpload>";
    answerBody(document.size(), completed("\"whole-2\""));
    const auto upload = attached({.headers = {}, .partHeaders = {}, .completeHeaders = {{"If-None-Match", "*"}}});
    upload->uploadPart(2, "x", 1);
    upload->uploadPart(1, "y", 1);
    EXPECT_EQ(upload->complete(), "\"whole-2\"");
    EXPECT_EQ(upload->getId(), "");
    EXPECT_EQ(requestLine(2), "POST /bucket/a%20key?uploadId=i%2Bd HTTP/1.1");
    EXPECT_EQ(bodyReceived(2), document);
    EXPECT_THAT(received(2), HasSubstr("\r\nIf-None-Match: *\r\n"));
}

TEST_F(CS3MultipartUploadTest, waitsThroughWhiteSpaceBeforeTheDocument)
{
    answer(answerWith(200,
        " \r\n \n<?xml "
        "version=\"1.0\"?><CompleteMultipartUploadResult><ETag>e</ETag></CompleteMultipartUploadResult>"));
    EXPECT_EQ(attached()->complete({{1, "\"a\"", 3}}), "e");
}

TEST_F(CS3MultipartUploadTest, findsAnErrorBehindASuccess)
{
    EXPECT_EQ(completionFailure(answerWith(200, "  \n" + errorDocument("InternalError"))),
        "Amazon S3 error: Because(InternalError)");
    EXPECT_EQ(completionFailure(answerWith(200, "")),
        "Error parsing Amazon S3 'CompleteMultipartUploadResult' answer: invalid XML.");
    EXPECT_EQ(completionFailure(completed("a b")), "The ETag 'a b' for the object that was completed is none.");
}

TEST_F(CS3MultipartUploadTest, asksForAnETagThatTheStoreDoesNotTell)
{
    answer(completed(""));
    answer(stored("\"whole-1\""));
    EXPECT_EQ(attached()->complete({{1, "\"a\"", 3}}), "\"whole-1\"");
    EXPECT_EQ(requestLine(1), "HEAD /bucket/a%20key HTTP/1.1");
}

TEST_F(CS3MultipartUploadTest, refusesAnObjectOfAnotherNumberOfParts)
{
    const auto upload = attached();
    answer(completed("\"af5da9f45af7a300e3aded972f8ff687-2\""));
    EXPECT_EQ(messageOf([&] {
        upload->complete({{1, "\"e\"", 3}});
    }),
        "The object 'a key' has the ETag \"af5da9f45af7a300e3aded972f8ff687-2\" at the store, which is one of 2 parts, "
        "and not of the 1 that were sent.");
    EXPECT_EQ(upload->getId(), ""); // the store has ended it
}

TEST_F(CS3MultipartUploadTest, refusesAnObjectOfOtherParts)
{
    answerBody(3, stored(md5OfABC));
    answerCompletion(completed("fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-1"));
    const auto upload = attached();
    upload->uploadPart(1, "abc", 3);
    EXPECT_EQ(messageOf([&] { upload->complete(); }),
        "The object 'a key' has the ETag fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-1 at the store, and the parts that were sent "
        "make af5da9f45af7a300e3aded972f8ff687-1.");
}

TEST_F(CS3MultipartUploadTest, takesTheETagThatItsPartsMake)
{
    answerBody(3, stored(md5OfABC));
    answerCompletion(completed("\"AF5DA9F45AF7A300E3ADED972F8FF687-1\""));
    const auto upload = attached();
    upload->uploadPart(1, "abc", 3);
    EXPECT_EQ(upload->complete(), "\"AF5DA9F45AF7A300E3ADED972F8FF687-1\"");
}

TEST_F(CS3MultipartUploadTest, comparesNoDigestOfEncryptedParts)
{
    answerBody(3, stored("\"00000000000000000000000000000000\"", "x-amz-server-side-encryption: aws:kms\r\n"));
    answerCompletion(completed("fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-1"));
    const auto upload = attached();
    upload->uploadPart(1, "abc", 3);
    EXPECT_EQ(upload->complete(), "fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-1");
}

TEST_F(CS3MultipartUploadTest, comparesNoDigestOfAnEncryptedObject)
{
    std::string answerBytes = completed("fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-1");
    answerBytes.insert(answerBytes.find("\r\n") + 2, "x-amz-server-side-encryption: aws:kms\r\n");
    answerBody(3, stored(md5OfABC));
    answerCompletion(answerBytes);
    const auto upload = attached();
    upload->uploadPart(1, "abc", 3);
    EXPECT_NO_THROW(upload->complete());
}

TEST_F(CS3MultipartUploadTest, comparesNoETagOfAnotherForm)
{
    for (const char* const eTag :
        {"fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a", "fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-", "fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5-2",
            "ge9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-2", "fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-2x",
            "fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a_2", "fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-2000000000"}) {
        answer(completed(eTag));
        EXPECT_EQ(attached()->complete({{1, "\"e\"", 3}}).toUTF8(), eTag);
    }
}

TEST_F(CS3MultipartUploadTest, keepsNoAnswerThatNeverEnds)
{
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 40000000\r\n\r\n")
        .sendRepeated(std::string(1'000'000, ' '), 17)
        .stall();
    const auto upload = attached();
    EXPECT_EQ(messageOf([&] {
        upload->complete({{1, "\"e\"", 3}});
    }),
        "The store's answer is longer than the 16 MiB that any document of it may have.");
}

TEST_F(CS3MultipartUploadTest, takesAnUploadThatIsGoneForCompletedWhenTheObjectIsThere)
{
    answer(answerWith(404, errorDocument("NoSuchUpload")));
    answer(stored("\"fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-1\""));
    answer(answerWith(404, errorDocument("NoSuchUpload")));
    answer(stored("\"af5da9f45af7a300e3aded972f8ff687-1\""));
    const auto upload = attached();
    EXPECT_EQ(messageOf([&] { upload->complete({{1, md5OfABC, 3}}); }), "Amazon S3 error: Because(NoSuchUpload)");
    EXPECT_EQ(upload->complete({{1, md5OfABC, 3}}), "\"af5da9f45af7a300e3aded972f8ff687-1\"");
    EXPECT_EQ(requestLine(1), "HEAD /bucket/a%20key HTTP/1.1");
}

TEST_F(CS3MultipartUploadTest, abortsAnUploadThatIsGone)
{
    answer(answerWith(404, errorDocument("NoSuchUpload")));
    const auto upload = attached();
    upload->abort();
    EXPECT_EQ(upload->getId(), "");
    EXPECT_EQ(requestLine(0), "DELETE /bucket/a%20key?uploadId=i%2Bd HTTP/1.1");
}

TEST_F(CS3MultipartUploadTest, keepsAnUploadThatCannotBeAborted)
{
    answer(answerWith(403, errorDocument("AccessDenied")));
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    const auto upload = attached();
    EXPECT_EQ(messageOf([&] { upload->abort(); }), "Amazon S3 error: Because(AccessDenied)");
    EXPECT_EQ(upload->getId(), "i+d");
    EXPECT_NO_THROW(upload->abort());
}

TEST_F(CS3MultipartUploadTest, copiesARangeOfAVersionAsAPart)
{
    answer(answerWith(200, "<CopyPartResult><ETag>\"e\"</ETag></CopyPartResult>"));
    EXPECT_EQ(attached()->uploadPartCopy(
                  2, {.bucketName = "other", .objectName = "x/ y", .versionId = "v&1", .eTag = "\"s\""}, 10, 5),
        "\"e\"");
    for (const char* const line : {"PUT /bucket/a%20key?partNumber=2&uploadId=i%2Bd HTTP/1.1\r\n",
             "\r\nx-amz-copy-source: /other/x%2F%20y?versionId=v%261\r\n", "\r\nx-amz-copy-source-if-match: \"s\"\r\n",
             "\r\nx-amz-copy-source-range: bytes=10-14\r\n"})
        EXPECT_THAT(received(0), HasSubstr(line));
}

TEST_F(CS3MultipartUploadTest, findsAnErrorBehindTheSuccessOfACopy)
{
    answer(answerWith(200, errorDocument("SlowDown")));
    const auto upload = attached();
    EXPECT_EQ(messageOf([&] { upload->uploadPartCopy(2, {.bucketName = "b", .objectName = "o"}); }),
        "Amazon S3 error: Because(SlowDown)");
    for (const auto& [start, length] : {std::pair{-1LL, 5LL}, {0LL, 0LL}, {1LL, -1LL}, {0LL, -2LL}, {9LL, LLONG_MAX}})
        EXPECT_THROW(
            upload->uploadPartCopy(2, {.bucketName = "b", .objectName = "o"}, start, length), kx::CInvalidArgError);
    EXPECT_THROW(upload->uploadPartCopy(2, {.bucketName = "b", .objectName = ""}), kx::CInvalidArgError);
}

TEST_F(CS3MultipartUploadTest, isNotAbortedByAnErrorWithTheStatusOfASuccess)
{
    const auto upload = attached();
    answer(answerWith(200, errorDocument("AccessDenied")));
    EXPECT_EQ(messageOf([&] { upload->abort(); }), "Amazon S3 error: Because(AccessDenied)");
    EXPECT_EQ(upload->getId(), "i+d");
    answer(answerWith(200, errorDocument("NoSuchUpload")));
    upload->abort();
    EXPECT_EQ(upload->getId(), "");
}

} // namespace
