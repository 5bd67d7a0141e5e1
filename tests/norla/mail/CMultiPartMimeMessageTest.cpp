#include "norla/mail/CMultiPartMimeMessage.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/random/CMTRand.h"
#include "kx/threads/CMutexLock.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/norla/mail/mimeBytes.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

kx::P<norla::CMultiPartMimeMessage> newMultiPart(const kx::String& subtype = "mixed")
{
    return kx::newObj<norla::CMultiPartMimeMessage>(subtype);
}

std::string boundaryOf(const norla::CMultiPartMimeMessage& message)
{
    return message.getBoundary().toLatin1();
}

std::string headerOf(const norla::CMultiPartMimeMessage& message, const std::string& subtype = "mixed")
{
    return "Content-Type: multipart/" + subtype + "; boundary=" + boundaryOf(message) + "\r\nMIME-Version: 1.0\r\n\r\n";
}

/// The boundary that a new message gets when the process's random numbers begin anew with this seed.
kx::String boundaryAfterSeed(unsigned long long seed)
{
    {
        const kx::CMutexLock lock(kx::CMTRand::getGlobalMutex());
        kx::CMTRand::getGlobal() = kx::CMTRand(seed);
    }
    const kx::String boundary = newMultiPart()->getBoundary();
    const kx::CMutexLock lock(kx::CMTRand::getGlobalMutex());
    kx::CMTRand::getGlobal() = kx::CMTRand();
    return boundary;
}

TEST(CMultiPartMimeMessageTest, namesSubtypeAndBoundaryInItsContentType)
{
    const auto message = newMultiPart("alternative");
    EXPECT_EQ(message->getHeaders(),
        (kx::TMap<kx::String, kx::String>{
            {"Content-Type", "multipart/alternative; boundary=" + message->getBoundary()}, {"MIME-Version", "1.0"}}));
}

TEST(CMultiPartMimeMessageTest, hasABoundaryOfLowerCaseHexadecimalDigits)
{
    const kx::String boundary = newMultiPart()->getBoundary();
    EXPECT_GE(boundary.size(), 10u);
    EXPECT_EQ(boundary.toWide().find_first_not_of(L"0123456789abcdef"), std::wstring::npos) << boundary;
}

TEST(CMultiPartMimeMessageTest, hasABoundaryOfItsOwn)
{
    std::set<kx::String> boundaries;
    for (int i = 0; i < 1000; ++i)
        boundaries.insert(newMultiPart()->getBoundary());
    EXPECT_EQ(boundaries.size(), 1000u);
}

TEST(CMultiPartMimeMessageTest, keepsItsBoundary)
{
    const auto message = newMultiPart();
    EXPECT_EQ(message->getBoundary(), message->getBoundary());
}

TEST(CMultiPartMimeMessageTest, makesTheBoundaryOfOneRandomNumber)
{
    EXPECT_EQ(boundaryAfterSeed(1), "2245bd5fbb686f68");
}

TEST(CMultiPartMimeMessageTest, leavesLeadingZerosOutOfTheBoundary)
{
    EXPECT_EQ(boundaryAfterSeed(11598), "758adb921077d");
}

TEST(CMultiPartMimeMessageTest, isContentWithABoundaryOfTenDigits)
{
    EXPECT_EQ(boundaryAfterSeed(5322908), "73dc063f4c");
}

// The first number of this sequence has nine digits only.
TEST(CMultiPartMimeMessageTest, appendsAnotherRandomNumberToAShortOne)
{
    EXPECT_EQ(boundaryAfterSeed(415031836), "230c49a5cf708a819d57d5486");
}

TEST(CMultiPartMimeMessageTest, storesOnlyTheClosingBoundaryWithoutParts)
{
    const auto message = newMultiPart();
    EXPECT_EQ(stored(*message), headerOf(*message) + "\r\n--" + boundaryOf(*message) + "--\r\n");
}

TEST(CMultiPartMimeMessageTest, storesOnePartBetweenBoundaries)
{
    const auto message = newMultiPart();
    message->addPart(messageOf("text/plain", "one").get());
    const std::string delimiter = "--" + boundaryOf(*message);
    EXPECT_EQ(stored(*message),
        headerOf(*message) + delimiter + "\r\nContent-Type: text/plain\r\nMIME-Version: 1.0\r\n\r\none\r\n" + delimiter
            + "--\r\n");
}

TEST(CMultiPartMimeMessageTest, storesPartsInTheOrderOfAdding)
{
    const auto message = newMultiPart();
    message->addPart(messageOf("", "two").get());
    message->addPart(messageOf("", "one").get());
    const std::string delimiter = "--" + boundaryOf(*message);
    EXPECT_EQ(stored(*message),
        headerOf(*message) + delimiter + "\r\nMIME-Version: 1.0\r\n\r\ntwo\r\n" + delimiter
            + "\r\nMIME-Version: 1.0\r\n\r\none\r\n" + delimiter + "--\r\n");
}

TEST(CMultiPartMimeMessageTest, storesTheSamePartTwice)
{
    const auto message = newMultiPart();
    const auto part = messageOf("", "again");
    message->addPart(part.get());
    message->addPart(part.get());
    const std::string delimiter = "--" + boundaryOf(*message);
    EXPECT_EQ(stored(*message),
        headerOf(*message) + delimiter + "\r\nMIME-Version: 1.0\r\n\r\nagain\r\n" + delimiter
            + "\r\nMIME-Version: 1.0\r\n\r\nagain\r\n" + delimiter + "--\r\n");
}

TEST(CMultiPartMimeMessageTest, storesAMultipartWithinAMultipart)
{
    const auto outer = newMultiPart();
    const auto inner = newMultiPart("alternative");
    inner->addPart(messageOf("", "deep").get());
    outer->addPart(inner.get());
    const std::string outerDelimiter = "--" + boundaryOf(*outer);
    const std::string innerDelimiter = "--" + boundaryOf(*inner);
    EXPECT_EQ(stored(*outer),
        headerOf(*outer) + outerDelimiter + "\r\n" + headerOf(*inner, "alternative") + innerDelimiter
            + "\r\nMIME-Version: 1.0\r\n\r\ndeep\r\n" + innerDelimiter + "--\r\n\r\n" + outerDelimiter + "--\r\n");
}

TEST(CMultiPartMimeMessageTest, storesAPartAsItIsThen)
{
    const auto message = newMultiPart();
    const auto part = messageOf("", "");
    message->addPart(part.get());
    part->getHeaders()["X"] = "late";
    EXPECT_NE(stored(*message).find("\r\nX: late\r\n"), std::string::npos);
}

TEST(CMultiPartMimeMessageTest, keepsThePartAliveThatItsCallerHasReleased)
{
    const auto message = newMultiPart();
    auto part = messageOf("", "alone");
    message->addPart(part.get());
    part = nullptr;
    EXPECT_NE(stored(*message).find("\r\n\r\nalone\r\n"), std::string::npos);
}

TEST(CMultiPartMimeMessageTest, refusesANullPart)
{
    const auto message = newMultiPart();
    try {
        message->addPart(nullptr);
        FAIL() << "no error";
    } catch (const kx::CInvalidArgError& error) {
        EXPECT_EQ(error.getMessage(), "Invalid argument passed to 'CMultiPartMimeMessage::addPart': part is null.");
    }
    EXPECT_EQ(stored(*message), headerOf(*message) + "\r\n--" + boundaryOf(*message) + "--\r\n");
}

TEST(CMultiPartMimeMessageTest, refusesABody)
{
    const auto message = newMultiPart();
    norla::CMimeMessage& base = *message;
    try {
        base.setBody(bufferOf("body").get(), "base64");
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "CMultiPartMimeMessage::setBody should not be used.");
        EXPECT_EQ(error.getDomain(), "");
        EXPECT_EQ(error.getCode(), -1);
    }
    EXPECT_FALSE(message->getHeaders().contains("Content-Transfer-Encoding"));
}

TEST(CMultiPartMimeMessageTest, refusesTheNullBodyToo)
{
    EXPECT_THROW(newMultiPart()->setBody(nullptr, ""), kx::CError);
}

TEST(CMultiPartMimeMessageTest, storesItsOwnEncodedFields)
{
    const auto message = newMultiPart();
    message->getHeaders()["Subject"] = L"\u00FC";
    EXPECT_TRUE(stored(*message).starts_with("Content-Type: multipart/mixed; boundary=" + boundaryOf(*message)
        + "\r\nMIME-Version: 1.0\r\nSubject: =?utf-8?q?=C3=BC?=\r\n\r\n"));
}

TEST(CMultiPartMimeMessageTest, isStoredByManyThreads)
{
    const auto message = newMultiPart();
    message->addPart(messageOf("", "one").get());
    message->addPart(messageOf("", "two").get());
    const std::string expected = stored(*message);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&message, &expected] {
            for (int round = 0; round < 50; ++round)
                EXPECT_EQ(stored(*message), expected);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

using CMultiPartMimeMessageRequestTest = CRequestFixture;

TEST_F(CMultiPartMimeMessageRequestTest, isSentWithAllItsParts)
{
    const auto message = newMultiPart("form-data");
    message->addPart(messageOf("", "one").get());
    const std::string body = stored(*message).substr(headerOf(*message, "form-data").size());
    server().onConnection().readHead().readBytes(body.size()).send(ok(""));
    message->fillRequest(request());
    request().setHTTPMethod("POST");
    performPath();
    const std::string sent = received();
    EXPECT_NE(sent.find("\r\nContent-Type: multipart/form-data; boundary=" + boundaryOf(*message) + "\r\n"), sent.npos)
        << sent;
    EXPECT_NE(sent.find("\r\nContent-Length: " + std::to_string(body.size()) + "\r\n"), sent.npos) << sent;
    EXPECT_TRUE(sent.ends_with("\r\n\r\n" + body)) << sent;
}

} // namespace
