// An application that ships its own root certificates: prints where they are and what it fetches from the URL it is
// given.
#include "norla/core/CNetRequest.h"
#include "norla/http/util.h"

#include <iostream>

int main(int, char** argv)
{
    try {
        const auto bundle = norla::getRootCertBundlePath();
        std::cout << bundle.toBytes() << '\n';
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setRootCertBundlePath(bundle);
        request->setURL(kx::String::fromUTF8(argv[1]));
        request->perform();
        const auto body = request->getDefaultReceiveBuffer();
        std::cout.write(reinterpret_cast<const char*>(body->getData()), static_cast<std::streamsize>(body->getSize()));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
