#include "tests/norla/pool/letFail.h"

#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/pool/CFailingCall.h"

#include <gtest/gtest.h>

#include <iostream>

long letFail(const std::string& name, const Play& play, const std::string& function)
{
    for (long number = 0;; ++number) {
        const CFailingCall call(function, number);
        play([&call] { call.arm(); }, &CFailingCall::disarm);
        if (testing::Test::HasFailure())
            std::cout << name << ", call of number " << number << " of " << function << '\n';
        if (testing::Test::HasFailure() || !call.hasFailed())
            return number;
    }
}

int letFailOfLibcurls(
    const std::string& name, const Play& play, const std::string& function, std::set<std::string>& options)
{
    for (int number = 0;; ++number) {
        support::CCurlCalls calls;
        int armedCalls = 0;
        int before = 0;
        play(
            [&] {
                before = calls.countOf(function);
                if (armedCalls <= number)
                    calls.fail(function, number - armedCalls, 1);
            },
            [&] {
                calls.succeed();
                armedCalls += calls.countOf(function) - before;
                before = calls.countOf(function);
            });
        options.merge(calls.refusedOptions());
        if (testing::Test::HasFailure()) {
            std::cout << name << ", call of number " << number << " of " << function << '\n';
            for (const std::string& option : calls.refusedOptions())
                std::cout << "for the option " << option << '\n';
        }
        if (testing::Test::HasFailure() || armedCalls <= number)
            return number;
    }
}

std::vector<std::string> functionsOfLibcurl()
{
    return {"curl_easy_getinfo", "curl_easy_pause", "curl_slist_append", "curl_url", "curl_url_set", "curl_url_get",
        "curl_multi_init", "curl_multi_setopt", "curl_multi_add_handle", "curl_multi_remove_handle",
        "curl_multi_socket_action"};
}
