// The smallest program: one download into memory.
#include "norla/core/CNetRequest.h"

#include <cstdio>
#include <iostream>

int main(int argc, char** argv)
{
    const std::string url = argc > 1 ? argv[1] : "https://www.example.com/";
    if (url.starts_with('-')) {
        std::cout << "Usage: hello [URL]\n";
        return url == "--help" ? 0 : 2;
    }
    try {
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setSafeDefaults();
        request->setURL(kx::String::fromUTF8(url));
        request->perform();
        const auto body = request->getDefaultReceiveBuffer();
        std::cout.write(reinterpret_cast<const char*>(body->getData()), static_cast<std::streamsize>(body->getSize()));
        if (std::cout.flush())
            return 0;
        std::perror("hello: standard output"); // a full disk, for example
        return 3;
    } catch (const std::exception& error) {
        std::cerr << "hello: " << error.what() << '\n'; // a sentence for the user
        return 1;
    }
}
