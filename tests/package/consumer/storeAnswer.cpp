#include "storeAnswer.h"

#include "norla/s3/CS3ErrorResponse.h"

std::string codeOfStoreAnswer(std::string_view document)
{
    const norla::CS3ErrorResponse answer(document.data(), static_cast<int>(document.size()));
    return answer.getCode().toUTF8();
}
