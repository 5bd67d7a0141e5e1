#include "norla/core/optionChecks.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/String.h"

#include <algorithm>
#include <array>
#include <unordered_map>

namespace norla {

namespace {

// curl_easy_option_by_id() searches through a list of hundreds.
const curl_easyoption* descriptionOf(CURLoption option)
{
    static const auto descriptions = [] {
        std::unordered_map<int, const curl_easyoption*> all;
        for (const curl_easyoption* one = curl_easy_option_next(nullptr); one; one = curl_easy_option_next(one)) {
            if (!(one->flags & CURLOT_FLAG_ALIAS))
                all.emplace(one->id, one);
        }
        return all;
    }();
    const auto found = descriptions.find(option);
    return found == descriptions.end() ? nullptr : found->second;
}

bool isCopiedBody(CURLoption option)
{
    return option == CURLOPT_POSTFIELDS || option == CURLOPT_COPYPOSTFIELDS;
}

bool takes(const curl_easyoption& option, OptionValue value)
{
    const bool isNumber = option.type == CURLOT_LONG || option.type == CURLOT_VALUES || option.type == CURLOT_OFF_T;
    switch (value) {
    case OptionValue::number:
        return isNumber;
    case OptionValue::text:
        return option.type == CURLOT_STRING || isCopiedBody(option.id);
    case OptionValue::pointer:
        return !isNumber;
    }
    return false;
}

const char* nameOf(OptionValue value)
{
    constexpr std::array names = {"number", "text", "pointer"};
    return names[static_cast<size_t>(value)];
}

// What libcurl gets as it is: see the header.
bool mayHoldLineEnds(CURLoption option)
{
    constexpr std::array unchecked = {CURLOPT_URL, CURLOPT_MAIL_FROM, CURLOPT_POSTFIELDS, CURLOPT_COPYPOSTFIELDS,
        CURLOPT_COOKIELIST, CURLOPT_CAINFO, CURLOPT_CAPATH, CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAPATH, CURLOPT_SSLCERT,
        CURLOPT_SSLKEY, CURLOPT_PROXY_SSLCERT, CURLOPT_PROXY_SSLKEY, CURLOPT_CRLFILE, CURLOPT_PROXY_CRLFILE,
        CURLOPT_ISSUERCERT, CURLOPT_PROXY_ISSUERCERT, CURLOPT_COOKIEFILE, CURLOPT_COOKIEJAR, CURLOPT_NETRC_FILE,
        CURLOPT_SSH_PRIVATE_KEYFILE, CURLOPT_SSH_PUBLIC_KEYFILE, CURLOPT_SSH_KNOWNHOSTS, CURLOPT_UNIX_SOCKET_PATH,
        CURLOPT_ABSTRACT_UNIX_SOCKET, CURLOPT_ALTSVC, CURLOPT_HSTS};
    return std::find(unchecked.begin(), unchecked.end(), option) != unchecked.end();
}

kx::String titleOf(CURLoption option)
{
    const curl_easyoption* const description = descriptionOf(option);
    return description ? "CURLOPT_" + kx::String::fromLatin1(description->name) : kx::String("an unknown option");
}

} // namespace

void requireOptionTakes(CURLoption option, OptionValue value, std::string_view functionName)
{
    const curl_easyoption* const description = descriptionOf(option);
    if (description && !takes(*description, value))
        throw kx::CInvalidArgError(titleOf(option) + " does not take a " + kx::String::fromLatin1(nameOf(value)),
            kx::String::fromLatin1(functionName));
}

void requireOptionText(CURLoption option, std::string_view text, std::string_view functionName)
{
    if (text.find('\0') != std::string_view::npos)
        throw kx::CInvalidArgError("text contains a zero character", kx::String::fromLatin1(functionName));
    if (!mayHoldLineEnds(option) && text.find_first_of("\r\n") != std::string_view::npos)
        throw kx::CInvalidArgError(
            "the text for " + titleOf(option) + " contains a line end", kx::String::fromLatin1(functionName));
}

} // namespace norla
