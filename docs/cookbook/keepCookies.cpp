#include "norla/core/CCookieJar.h"
#include "norla/core/CNetRequest.h"

#include <filesystem>

// Fetches a page as the person who has logged in before, today or last week: with the cookies of a file, to which new
// ones are added.
void performWithCookies(norla::CNetRequest& request, const norla::CNetRequest::Path& file)
{
    const auto jar = kx::newObj<norla::CCookieJar>(); // one for all requests of a program
    if (std::filesystem::exists(file.toBytes()))
        jar->load(file);
    request.setSafeDefaults();
    request.setCookieJar(jar.get());
    request.perform();
    jar->save(file, norla::CCookieJar::SessionCookies::Keep);
}
