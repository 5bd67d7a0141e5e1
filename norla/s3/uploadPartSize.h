#pragma once

namespace norla {

/// @param size of the object, in bytes; -1 when unknown
/// @param wanted 0: the least that is of use
/// @throws kx::CInvalidArgError for an unknown size, and when there would be more than 10,000 parts, or parts that
/// stores do not take
long long uploadPartSize(long long size, long long wanted);

} // namespace norla
