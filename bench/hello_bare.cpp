// examples/hello.cpp with libcurl alone.
#include "bench/bareCurl.h"

#include <iostream>
#include <string>

namespace {

size_t append(char* data, size_t size, size_t count, void* body)
{
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

} // namespace

int main(int, char** argv)
{
    std::string body;
    const bench::Easy easy(curl_easy_init());
    bench::check(curl_easy_setopt(easy.get(), CURLOPT_URL, argv[1]));
    bench::check(curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, &append));
    bench::check(curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &body));
    bench::check(curl_easy_perform(easy.get()));
    std::cout << body << std::flush;
    return std::cout ? 0 : 1;
}
