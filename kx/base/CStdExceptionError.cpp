#include "kx/base/CStdExceptionError.h"

#include <string_view>

namespace kx {

namespace {

// what() has no declared encoding. Text that is not UTF-8 is read byte by byte rather than lost; null, which nothing
// forbids to a class of the application, is no text.
String textOf(const char* text)
{
    const std::string_view what = text ? text : "";
    try {
        return String::fromUTF8(what);
    } catch (const CError&) {
        return String::fromLatin1(what);
    }
}

} // namespace

CStdExceptionError::CStdExceptionError(const std::exception& original)
    : CError(textOf(original.what()))
{
}

CStdExceptionError::~CStdExceptionError() = default;

P<CError> CStdExceptionError::clone() const
{
    return newObj<CStdExceptionError>(*this);
}

void CStdExceptionError::throwClone() const
{
    throw CStdExceptionError(*this);
}

P<CError> CStdExceptionError::exceptionToError(const std::exception& original)
{
    if (const auto* const error = dynamic_cast<const CError*>(&original))
        return error->clone();
    return newObj<CStdExceptionError>(original);
}

} // namespace kx
