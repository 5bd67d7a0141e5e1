#include "kx/containers/TArray.h"
#include "norla/core/CCURLError.h"
#include "norla/http/util.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

namespace {

struct CErrorRow {
    const char* name;
    kx::String domain;
    long long code;
    std::optional<kx::String> responseCodeDomain;
    std::optional<kx::String> responseCode;
    bool isDown;
    int status;
};

kx::CError errorOf(const CErrorRow& row)
{
    kx::CProps props;
    if (row.responseCodeDomain)
        props.set("responseCodeDomain", *row.responseCodeDomain);
    if (row.responseCode)
        props.set("responseCode", *row.responseCode);
    return kx::CError("message", row.domain, row.code, props);
}

class ErrorClassificationTest : public testing::TestWithParam<CErrorRow> {};

TEST_P(ErrorClassificationTest, tellsWhetherNetworkOrServiceAreDown)
{
    EXPECT_EQ(norla::isNetworkOrServiceDownError(errorOf(GetParam())), GetParam().isDown);
}

TEST_P(ErrorClassificationTest, tellsTheStatus)
{
    EXPECT_EQ(norla::getHTTPStatusCodeFromError(errorOf(GetParam())), GetParam().status);
}

constexpr auto none = std::nullopt;

INSTANTIATE_TEST_SUITE_P(Transfer, ErrorClassificationTest,
    testing::ValuesIn(std::vector<CErrorRow>{
        {"unsupportedProtocol", "curl", 1, none, none, false, -1},
        {"malformedURL", "curl", 3, none, none, false, -1},
        {"notBuiltIn", "curl", 4, none, none, false, -1},
        {"proxyNotFound", "curl", 5, none, none, true, -1},
        {"hostNotFound", "curl", 6, none, none, true, -1},
        {"notConnected", "curl", 7, none, none, true, -1},
        {"weirdReply", "curl", 8, none, none, false, -1},
        {"timeOut", "curl", 28, none, none, false, -1},
        {"postError", "curl", 34, none, none, false, -1},
        {"tlsNotSetUp", "curl", 35, none, none, true, -1},
        {"badResume", "curl", 36, none, none, false, -1},
        {"certificateRefused", "curl", 60, none, none, false, -1},
        {"notConnectedAfterAStatus", "curl", 7, "http", "404", true, 404},
    }),
    [](const testing::TestParamInfo<CErrorRow>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(Status, ErrorClassificationTest,
    testing::ValuesIn(std::vector<CErrorRow>{
        {"notFound", "curl", 22, "http", "404", false, 404},
        {"serverError", "curl", 22, "http", "500", false, 500},
        {"badGateway", "curl", 22, "http", "502", false, 502},
        {"serviceUnavailable", "curl", 22, "http", "503", true, 503},
        {"gatewayTimeOut", "curl", 22, "http", "504", false, 504},
        {"redirect", "curl", 22, "http", "302", false, 302},
        {"httpWithFTPsCode", "curl", 22, "http", "421", false, 421},
        {"withoutStatus", "curl", 22, "http", none, false, -1},
        {"withEmptyStatus", "curl", 22, "http", "", false, -1},
        {"withoutDomain", "curl", 22, none, "503", false, -1},
        {"ftpNotAvailable", "curl", 8, "ftp", "421", true, -1},
        {"ftpWithHTTPsCode", "curl", 8, "ftp", "503", false, -1},
        {"ftpMissingFile", "curl", 78, "ftp", "550", false, -1},
        {"smtpNotAvailable", "curl", 8, "smtp", "421", false, -1},
        {"smtpBadSequence", "curl", 22, "smtp", "503", false, -1},
        {"domainInOtherCase", "curl", 22, "HTTP", "503", false, -1},
    }),
    [](const testing::TestParamInfo<CErrorRow>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(BrokenOff, ErrorClassificationTest,
    testing::ValuesIn(std::vector<CErrorRow>{
        {"afterSuccess", "curl", 28, "http", "200", false, -1},
        {"afterRedirect", "curl", 28, "http", "302", false, -1},
        {"justBelowTheErrors", "curl", 28, "http", "399", false, -1},
        {"firstOfTheErrors", "curl", 28, "http", "400", false, 400},
        {"afterServiceUnavailable", "curl", 28, "http", "503", true, 503},
        {"afterFTPNotAvailable", "curl", 28, "ftp", "421", true, -1},
    }),
    [](const testing::TestParamInfo<CErrorRow>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(OtherDomain, ErrorClassificationTest,
    testing::ValuesIn(std::vector<CErrorRow>{
        {"http", "http", 503, none, none, false, 503},
        {"httpBeforeProperties", "http", 404, "http", "500", false, 404},
        {"httpDoesNotReadProperties", "http", 404, "http", "many", false, 404},
        {"httpSuccess", "http", 200, none, none, false, 200},
        {"multi", "curlm", 6, "http", "503", false, 503},
        {"multiSuccess", "curlm", 6, "http", "200", false, 200},
        {"plain", "", -1, none, none, false, -1},
        {"plainWithStatus", "", -1, "http", "302", false, 302},
        {"domainInOtherCase", "CURL", 6, none, none, false, -1},
    }),
    [](const testing::TestParamInfo<CErrorRow>& row) { return row.param.name; });

TEST(ErrorClassificationTest, doesNotTakeAnErrorOfTheStandardLibraryForTheNetworks)
{
    EXPECT_FALSE(norla::isNetworkOrServiceDownError(std::runtime_error("curl")));
}

TEST(ErrorClassificationTest, readsATransferErrorOfTheLibrary)
{
    const norla::CCURLError unavailable(CURLE_HTTP_RETURNED_ERROR, "", "http", 503, "");
    EXPECT_TRUE(norla::isNetworkOrServiceDownError(unavailable));
    EXPECT_EQ(norla::getHTTPStatusCodeFromError(unavailable), 503);
}

class StatusOfNoNumberTest : public testing::TestWithParam<kx::String> {
protected:
    static kx::CError error(
        const kx::String& responseCodeDomain, const kx::String& domain = "curl", long long code = 28)
    {
        kx::CProps props;
        props.set("responseCodeDomain", responseCodeDomain);
        props.set("responseCode", GetParam());
        return kx::CError("message", domain, code, props);
    }

    template <typename TAction>
    static kx::String messageOf(TAction action)
    {
        try {
            action();
        } catch (const kx::CError& error) {
            return error.getMessage();
        }
        return "no error";
    }
};

TEST_P(StatusOfNoNumberTest, isAnErrorOfItsOwn)
{
    const kx::String message = "Invalid number: '" + GetParam() + "'.";
    EXPECT_EQ(messageOf([] { norla::getHTTPStatusCodeFromError(error("http")); }), message);
    for (const kx::String& domain : kx::TArray<kx::String>{"http", "ftp", "smtp", ""})
        EXPECT_EQ(messageOf([domain] { norla::isNetworkOrServiceDownError(error(domain)); }), message) << domain;
}

TEST_P(StatusOfNoNumberTest, isNotReadForAFailureOfTheNetwork)
{
    for (const int code : {5, 6, 7, 35})
        EXPECT_TRUE(norla::isNetworkOrServiceDownError(error("http", "curl", code))) << code;
}

TEST_P(StatusOfNoNumberTest, isNotReadForAnErrorOfAnotherDomain)
{
    for (const kx::String& domain : kx::TArray<kx::String>{"curlm", "http", ""})
        EXPECT_FALSE(norla::isNetworkOrServiceDownError(error("http", domain, 7))) << domain;
}

TEST_P(StatusOfNoNumberTest, isNotReadForAnotherProtocolsStatus)
{
    for (const kx::String& domain : kx::TArray<kx::String>{"ftp", "smtp", ""})
        EXPECT_EQ(norla::getHTTPStatusCodeFromError(error(domain)), -1) << domain;
}

INSTANTIATE_TEST_SUITE_P(All, StatusOfNoNumberTest,
    testing::Values(kx::String("many"), kx::String("503 "), kx::String("0x1F7"), kx::String("503.0")),
    [](const testing::TestParamInfo<kx::String>& row) { return std::to_string(row.index); });

} // namespace
