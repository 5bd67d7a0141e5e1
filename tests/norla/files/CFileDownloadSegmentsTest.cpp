// A file that several connections bring, or one alone.
#include "kx/text/hex.h"
#include "sela/CDigest.h"
#include "tests/norla/files/CFileDownloadFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <future>
#include <regex>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// Opened once, however often it is asked to.
class CGate {
public:
    void open()
    {
        if (!std::exchange(m_isOpen, true))
            m_promise.set_value();
    }
    std::shared_future<void> future() const { return m_future; }

private:
    std::promise<void> m_promise;
    const std::shared_future<void> m_future = m_promise.get_future().share();
    bool m_isOpen = false;
};

class CFileDownloadSegmentsTest : public CFileDownloadFixture {
protected:
    static constexpr const char* parted = "ETag: \"v1\"\r\nAccept-Ranges: bytes\r\n";

    /// An answer with a part of the file, of which a beginning is sent.
    static std::string part(const std::string& bytes, size_t start, size_t end, size_t sent,
        const std::string& headers = "ETag: \"v1\"\r\n")
    {
        return "HTTP/1.1 206 Partial Content\r\nConnection: close\r\nContent-Length: " + std::to_string(end - start)
            + "\r\nContent-Range: bytes " + rangeOf(start, end) + "/" + std::to_string(bytes.size()) + "\r\n" + headers
            + "\r\n" + bytes.substr(start, std::min(sent, end - start));
    }

    static std::string rangeOf(size_t start, size_t end)
    {
        return std::to_string(start) + "-" + std::to_string(end - 1);
    }

    static std::string asksFor(size_t start, size_t end) { return "Range: bytes=" + rangeOf(start, end) + "\r\n"; }

    /// Where the second connection begins when the first one has brought that much, up to that end.
    static size_t middleOf(size_t position, size_t end) { return end - (end - position) / 2; }

    bool wasAsked(size_t connection) { return server().received(connection).ends_with("\r\n\r\n"); }

    /// One connection brings all, though there is time for others: were there any, it would end early.
    void expectOneConnection(const std::string& headers)
    {
        CGate begun;
        const std::string bytes = bytesOf(8 << 20);
        server()
            .onConnection()
            .readHead()
            .send(whole(bytes, 1, headers))
            .waitFor(begun.future())
            .send(bytes.substr(1))
            .close();
        options().segments = 4;
        options().onProgress = [&begun](const norla::CFileProgress& progress) {
            if (progress.total) // others would have begun before
                begun.open();
        };
        const auto error = failure();
        EXPECT_FALSE(error) << error->what();
        EXPECT_EQ(server().connectionCount(), 1u);
        EXPECT_TRUE(file() == bytes);
    }
};

TEST_F(CFileDownloadSegmentsTest, oneConnectionIsEnoughWhereTheServerGivesNoParts)
{
    expectOneConnection("ETag: \"v1\"\r\n");
}

TEST_F(CFileDownloadSegmentsTest, oneConnectionIsEnoughWhereTheServerSaysThatItGivesNone)
{
    expectOneConnection("ETag: \"v1\"\r\nAccept-Ranges: none\r\n");
}

TEST_F(CFileDownloadSegmentsTest, oneConnectionIsEnoughWherePartsCannotBeProvedToFit)
{
    expectOneConnection("ETag: W/\"v1\"\r\nAccept-Ranges: bytes\r\n");
}

TEST_F(CFileDownloadSegmentsTest, aSlowConnectionLeavesItsRestToAFasterOne)
{
    CGate secondIsAsked;
    CGate firstIsSlow;
    CGate thirdHasBrought;
    const std::string bytes = bytesOf(16 << 20);
    const size_t slow = 5 << 20; // where the first one waits: the half of its rest is too little for another one
    const size_t second = middleOf(1, bytes.size());
    const size_t third = middleOf(slow, second);
    server()
        .onConnection()
        .readHead()
        .send(whole(bytes, 1, parted))
        .waitFor(secondIsAsked.future())
        .send(bytes.substr(1, slow - 1))
        .waitFor(thirdHasBrought.future())
        .send(bytes.substr(slow, third - slow) + std::string(1000, 'x'))
        .readToEnd();
    server()
        .onConnection()
        .readHead()
        .waitFor(firstIsSlow.future())
        .send(part(bytes, second, bytes.size(), bytes.size()))
        .close();
    server().onConnection().readHead().send(part(bytes, third, second, second - third)).close();
    const auto brought = static_cast<long long>(slow + bytes.size() - third);
    options().segments = 2;
    options().retries = norla::CRetryPolicy::none();
    options().onProgress = [&](const norla::CFileProgress& progress) {
        if (wasAsked(1))
            secondIsAsked.open();
        if (progress.done >= static_cast<long long>(slow))
            firstIsSlow.open();
        if (progress.done == brought)
            thirdHasBrought.open();
    };
    const auto error = failure();
    EXPECT_FALSE(error) << error->what();
    EXPECT_THAT(server().received(1), HasSubstr(asksFor(second, bytes.size())));
    EXPECT_THAT(server().received(2), HasSubstr(asksFor(third, second)));
    EXPECT_EQ(server().connectionCount(), 3u);
    EXPECT_TRUE(file() == bytes);
}

/// Two connections, each of which has an end of its own.
class CFileDownloadHalvesTest : public CFileDownloadSegmentsTest {
protected:
    static constexpr size_t size = 4 << 20;
    static constexpr size_t each = 1 << 20; // so much less is left of a half that nobody shares it

    CFileDownloadHalvesTest() { options().segments = 2; }

    void openGates()
    {
        options().onProgress = [this](const norla::CFileProgress& progress) {
            if (wasAsked(1))
                m_secondIsAsked.open();
            if (wasAsked(2) && progress.total)
                m_thirdIsAlone.open();
        };
    }

    /// The second connection hears of something else than the first one.
    void expectFreshStart(const std::string& secondAnswer, const std::string& other)
    {
        server().onConnection().readHead().send(whole(m_bytes, 1, parted)).waitFor(m_secondIsAsked.future()).stall();
        answer(secondAnswer);
        server()
            .onConnection()
            .readHead()
            .send(whole(other, 1, "ETag: \"v2\"\r\nAccept-Ranges: bytes\r\n"))
            .waitFor(m_thirdIsAlone.future())
            .send(other.substr(1))
            .close();
        openGates();
        const auto error = failure();
        EXPECT_FALSE(error) << error->what();
        EXPECT_THAT(server().received(1), HasSubstr(asksFor(m_middle, size)));
        EXPECT_THAT(server().received(2), Not(HasSubstr("Range")));
        EXPECT_EQ(server().connectionCount(), 3u);
        EXPECT_TRUE(file() == other);
    }

    const std::string m_bytes = bytesOf(size);
    const size_t m_middle = middleOf(1, size);
    CGate m_secondIsAsked;
    CGate m_thirdIsAlone;
};

TEST_F(CFileDownloadHalvesTest, bothGoOnWhereTheyWereCutOff)
{
    constexpr size_t overlap = 64 << 10;
    const norla::CRetryPolicy policy = std::exchange(options().retries, norla::CRetryPolicy::none());
    server()
        .onConnection()
        .readHead()
        .send(whole(m_bytes, 1, parted))
        .waitFor(m_secondIsAsked.future())
        .send(m_bytes.substr(1, each - 1))
        .close();
    answer(part(m_bytes, m_middle, size, each));
    openGates();
    EXPECT_TRUE(failure());
    EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));

    options().retries = policy;
    answer(part(m_bytes, each - overlap, m_middle, size));
    answer(part(m_bytes, m_middle + each - overlap, size, size));
    const auto error = failure();
    EXPECT_FALSE(error) << error->what();
    EXPECT_TRUE(file() == m_bytes);
    EXPECT_THAT(received(2), HasSubstr(asksFor(each - overlap, m_middle)));
    EXPECT_THAT(received(3), HasSubstr(asksFor(m_middle + each - overlap, size)));
    EXPECT_EQ(server().connectionCount(), 4u);
}

TEST_F(CFileDownloadHalvesTest, anotherFileAtTheSecondOneIsFetchedAnewByOneAlone)
{
    const std::string other(size, 'x');
    expectFreshStart(part(other, m_middle, size, size, "ETag: \"v2\"\r\n"), other);
}

TEST_F(CFileDownloadHalvesTest, anotherSizeAtTheSecondOneIsOfAnotherFile)
{
    const std::string other(size + 1, 'x');
    expectFreshStart(part(other, m_middle, size, size), other);
}

/// The first of two connections is cut off, and pauses while the second one comes to its end.
class CFileDownloadPausingTest : public CFileDownloadSegmentsTest {
protected:
    using CRange = std::pair<size_t, size_t>; // the first byte, and the one behind the last

    static constexpr size_t size = 8 << 20;
    static constexpr size_t cut = 1 << 20; // what is behind it up to the middle is enough for two
    static constexpr size_t overlap = 64 << 10;

    CFileDownloadPausingTest()
    {
        options().segments = 2;
        options().retries.firstPause = kx::CTimeSpan::fromMilliseconds(500);
        options().retries.longestPause = options().retries.firstPause;
        options().retries.jitter = false;
        server()
            .onConnection()
            .readHead()
            .send(whole(m_bytes, 1, parted))
            .waitFor(m_secondIsAsked.future())
            .send(m_bytes.substr(1, cut - 1))
            .close();
        server()
            .onConnection()
            .readHead()
            .send(part(m_bytes, m_middle, size, size - m_middle - 1))
            .waitFor(m_firstPauses.future())
            .send(m_bytes.substr(size - 1))
            .close();
    }

    void openGates(const norla::CFileProgress& progress)
    {
        if (wasAsked(1))
            m_secondIsAsked.open();
        const bool hasBrought = progress.done == static_cast<long long>(cut + size - m_middle - 1);
        if (std::exchange(m_hasBrought, hasBrought) && hasBrought) // a while ago
            m_firstPauses.open();
    }

    CRange asked(size_t connection)
    {
        std::smatch found;
        const std::string head = server().received(connection);
        if (!wasAsked(connection) || !std::regex_search(head, found, std::regex("Range: bytes=([0-9]+)-([0-9]+)\r\n")))
            return {};
        return {std::stoul(found.str(1)), std::stoul(found.str(2)) + 1};
    }

    bool isRetry(size_t connection) { return asked(connection).first == cut - overlap; }

    const std::string m_bytes = bytesOf(size);
    const size_t m_middle = middleOf(1, size);
    CGate m_secondIsAsked;
    CGate m_firstPauses;
    bool m_hasBrought = false;
};

TEST_F(CFileDownloadPausingTest, whatIsLeftToItIsAskedForOnce)
{
    server().onConnection().readHead().stall();
    server().onConnection().readHead().stall();
    norla::CFileDownload* running = nullptr;
    options().onProgress = [&](const norla::CFileProgress& progress) {
        openGates(progress);
        if (isRetry(2) || isRetry(3))
            running->cancel();
    };
    const auto file = download();
    running = file.get();
    EXPECT_TRUE(failureOf(*file));
    EXPECT_TRUE(isRetry(2) || isRetry(3));
    for (size_t one = 1; one < 4; ++one) {
        for (size_t other = one + 1; other < 4; ++other) {
            const size_t start = std::max(asked(one).first, asked(other).first);
            EXPECT_LE(std::min(asked(one).second, asked(other).second), start + overlap) << one << " and " << other;
        }
    }
}

TEST_F(CFileDownloadPausingTest, noByteChangesBehindItsDigest)
{
    sela::CDigest digest("SHA256");
    digest.update(m_bytes.data(), m_bytes.size());
    digest.finish();
    options().sha256 = kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()});
    std::array<CGate, 2> answers;
    std::array<support::CScript*, 2> scripts{};
    for (size_t i = 0; i < scripts.size(); ++i)
        scripts[i] = &server().onConnection().readHead().waitFor(answers[i].future());
    CGate allIsThere;
    const auto answer = [&](size_t connection) {
        const auto [start, end] = asked(connection);
        support::CScript& script = *std::exchange(scripts[connection - 2], nullptr);
        if (connection == 3 && isRetry(3) && !isRetry(2)) { // for what the one before it is asked, too
            const size_t again = asked(2).first;
            script.send(part(m_bytes, start, end, again - start))
                .waitFor(allIsThere.future())
                .send(std::string(end - again, 'x'));
        } else {
            script.send(part(m_bytes, start, end, size));
        }
        script.close();
        answers[connection - 2].open();
    };
    bool hadAll = false;
    options().onProgress = [&](const norla::CFileProgress& progress) {
        openGates(progress);
        for (size_t connection = 2; connection < 4; ++connection) {
            if (scripts[connection - 2] && wasAsked(connection))
                answer(connection);
        }
        if (std::exchange(hadAll, progress.done == static_cast<long long>(size)))
            allIsThere.open();
    };
    const auto error = failure();
    EXPECT_TRUE(error || file() == m_bytes);
}

} // namespace
