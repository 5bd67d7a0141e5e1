#pragma once

#include "kx/base/visibility.h"
#include "kx/text/String.h"

#include <string>
#include <string_view>

namespace kx {

/// The text of TPathImpl::fromBytes().
KX_EXPORT String pathTextFromBytes(std::string_view bytes);

/// The bytes of TPathImpl::toBytes().
KX_EXPORT std::string pathTextToBytes(const String& text);

} // namespace kx
