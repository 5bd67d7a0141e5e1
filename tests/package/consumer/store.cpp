// An application of which a library of its own alone knows that there are S3 stores.
#include "storeAnswer.h"

#include <iostream>

int main()
{
    const std::string code = codeOfStoreAnswer("<Error><Code>NoSuchKey</Code></Error>");
    std::cout << code << '\n';
    return code == "NoSuchKey" ? 0 : 1;
}
