#pragma once

#include "kx/text/String.h"

namespace norla {

class CNetStringList;

/// The last reply of a mail server that refused something: status 400 to 599, temporarily or for good (RFC 5321 section
/// 4.2.1).
/// @param lines every reply line of a transfer, in order of arrival
/// @return its lines as they came, status included, without white space at their ends and with a line feed between
/// them; empty when nothing was refused
kx::String lastRefusal(const CNetStringList& lines);

} // namespace norla
