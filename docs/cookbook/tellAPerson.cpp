#include "norla/core/CNetRequest.h"
#include "norla/core/errorKind.h"
#include "norla/core/explain.h"

// What to show when a transfer has failed, and what to do about it; empty after a success.
kx::String performAndTell(norla::CNetRequest& request)
{
    try {
        request.setSafeDefaults();
        request.perform();
        return "";
    } catch (const kx::CError& error) {
        switch (norla::getErrorKind(error)) {
        case norla::ErrorKind::Login:
            return norla::explain(error) + "\nPlease check name and password.";
        case norla::ErrorKind::Temporary:
        case norla::ErrorKind::Unreachable:
            return norla::explain(error) + "\nPlease try again later.";
        default:
            return norla::explain(error);
        }
    }
}
