// An application that knows the installed package alone: it catches an error of the library's own class.
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequest.h"

#include <iostream>

int main()
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL("nothing://host/");
    try {
        request->perform();
    } catch (const norla::CCURLError& error) {
        std::cout << error.getMessage() << '\n';
        return error.getCode() == CURLE_UNSUPPORTED_PROTOCOL ? 0 : 1;
    }
    return 1;
}
