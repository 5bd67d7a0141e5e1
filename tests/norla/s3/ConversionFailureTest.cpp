// What happens when memory is too short for the text of a long answer. A program of its own, because it replaces
// operator new.
#include "norla/s3/CS3ErrorResponse.h"
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {

thread_local size_t largestAllocation = std::numeric_limits<size_t>::max();

} // namespace

void* operator new(size_t size)
{
    if (size <= largestAllocation) {
        if (void* const block = std::malloc(size))
            return block;
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}

namespace {

class S3ConversionFailureTest : public CS3ClientFixture {};

TEST_F(S3ConversionFailureTest, isLoggedInPlaceOfTheAnswer)
{
    norla::CS3Client::Buffer answer(1 << 20);
    std::fill_n(answer.getData(), answer.getSize(), static_cast<unsigned char>('x'));
    norla::CCURLError error(CURLE_HTTP_RETURNED_ERROR, "", "http", 500, "");
    const support::CLogRecorder log;
    largestAllocation = 1 << 19;
    const auto thrown = support::errorOf([&] { client().tryThrowBetterError(error, answer); });
    largestAllocation = std::numeric_limits<size_t>::max();
    EXPECT_FALSE(thrown);
    EXPECT_EQ(log.lines(),
        std::vector<std::string>{"error: Error converting S3 response data to string object.: std::bad_alloc"});
}

TEST_F(S3ConversionFailureTest, isPassedOnFromTheParserOfADocument)
{
    const std::string longText(1 << 20, 'x');
    for (const std::string& document : {"<Error><Message>" + longText + "</Message></Error>", "<" + longText + "/>"}) {
        bool failed = false;
        largestAllocation = 1 << 19;
        try {
            norla::CS3ErrorResponse(document.data(), static_cast<int>(document.size()));
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        largestAllocation = std::numeric_limits<size_t>::max();
        EXPECT_TRUE(failed);
    }
}

} // namespace
