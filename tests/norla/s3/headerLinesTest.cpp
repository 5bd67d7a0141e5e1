#include "norla/s3/headerLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

TEST(HeaderLinesTest, haveNamesInLowerCase)
{
    EXPECT_EQ(norla::nameOfHeaderLine("X-Amz-Date: 20130524T000000Z"), "x-amz-date");
    EXPECT_EQ(norla::nameOfHeaderLine("X-Empty;"), "x-empty");
    EXPECT_EQ(norla::nameOfHeaderLine("Expect:"), "expect");
}

TEST(HeaderLinesTest, stayInTheirOrderWithoutThoseThatAreNamed)
{
    norla::CNetHeaders headers;
    headers.add("B", L"Zoë: 1");
    headers.add("X-Amz-Date", "now");
    headers.addEmpty("X-Empty");
    headers.add("Expect", "");
    headers.add("a", "2");
    const auto others = norla::headersWithout(headers, {"x-amz-date", "a"});
    std::vector<std::string> lines;
    for (const curl_slist* node = others->getCurlList(); node; node = node->next)
        lines.emplace_back(node->data);
    EXPECT_THAT(lines, ElementsAre("B: Zoë: 1", "X-Empty;", "Expect: "));
}

} // namespace
