#include "norla/files/headersWith.h"

#include "norla/core/CNetRequest.h" // libcurl's list

#include <string_view>

namespace norla {

kx::P<CNetHeaders> headersWith(const kx::P<CNetHeaders>& headers, const kx::String& name, const kx::String& value)
{
    auto all = kx::newObj<CNetHeaders>();
    bool isThere = false;
    const curl_slist* entry = headers ? headers->getCurlList() : nullptr;
    const auto line = headers ? headers->createIterator() : nullptr;
    for (; entry && line->next(); entry = entry->next) {
        isThere = isThere || line->getName().toLower() == name.toLower();
        // "Name:" leaves out what libcurl would send, "Name;" sends an empty one.
        if (line->getValue().isEmpty() && std::string_view(entry->data).find(':') == std::string_view::npos)
            all->addEmpty(line->getName());
        else
            all->add(line->getName(), line->getValue());
    }
    if (!isThere)
        all->add(name, value);
    return all;
}

} // namespace norla
