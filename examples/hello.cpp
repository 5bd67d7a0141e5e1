// The smallest program: one download into memory.
#include "norla/core/CNetRequest.h"

#include <iostream>

int main(int argc, char** argv)
{
    try {
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setURL(argc > 1 ? kx::String::fromUTF8(argv[1]) : "https://www.example.com/");
        request->perform();
        const auto body = request->getDefaultReceiveBuffer();
        std::cout.write(reinterpret_cast<const char*>(body->getData()), static_cast<std::streamsize>(body->getSize()));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "hello: " << error.what() << '\n'; // a sentence for the user
        return 1;
    }
}
