#include "sela/CErrorMark.h"

#include <openssl/err.h>

namespace sela {

CErrorMark::CErrorMark() noexcept
{
    ERR_set_mark();
}

CErrorMark::~CErrorMark()
{
    ERR_pop_to_mark();
}

} // namespace sela
