#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetHeaders.h"

namespace norla {

/// A copy of a request's list with one line more, unless it has one of that name: who prepares a request may give the
/// same list each time. Lines that leave out a header of libcurl's, or send an empty one, stay what they are.
/// @param headers null for none
kx::P<CNetHeaders> headersWith(const kx::P<CNetHeaders>& headers, const kx::String& name, const kx::String& value);

} // namespace norla
