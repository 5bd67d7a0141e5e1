#pragma once

#include "kx/base/P.h"
#include "tests/support/errorOf.h"

#include <string_view>

template <typename TResult>
kx::P<TResult> parseDocument(std::string_view document)
{
    return kx::newObj<TResult>(document.data(), static_cast<int>(document.size()));
}

/// The message of what the constructor throws for the document.
template <typename TResult>
kx::String parseMessage(std::string_view document)
{
    return support::messageOf([document] { parseDocument<TResult>(document); });
}
