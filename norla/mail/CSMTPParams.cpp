#include "norla/mail/CSMTPParams.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/CStringFormat.h"

#include <algorithm>
#include <array>

namespace norla {

namespace {

struct CConnectTypeRow {
    CSMTPParams::ConnectType type;
    const char* text;
};
constexpr auto connectTypes = std::to_array<CConnectTypeRow>({
    {CSMTPParams::ConnectUnencrypted, "unencrypted"},
    {CSMTPParams::ConnectSSL, "ssl"},
    {CSMTPParams::ConnectStartTLS, "starttls"},
});

} // namespace

CSMTPParams::~CSMTPParams() = default;

CSMTPParams::ConnectType CSMTPParams::connectTypeToInt(const kx::String& text)
{
    const auto row = std::find_if(connectTypes.begin(), connectTypes.end(),
        [&text](const CConnectTypeRow& candidate) { return text == kx::String::fromLatin1(candidate.text); });
    if (row == connectTypes.end())
        throw kx::CInvalidArgError("invalid connect type: " + text, "CSMTPParams::connectTypeToInt");
    return row->type;
}

kx::String CSMTPParams::connectTypeToString(ConnectType type)
{
    const auto row = std::find_if(connectTypes.begin(), connectTypes.end(),
        [type](const CConnectTypeRow& candidate) { return candidate.type == type; });
    if (row == connectTypes.end())
        throw kx::CInvalidArgError(
            kx::CStringFormat("invalid connect type: %d", static_cast<int>(type)), "CSMTPParams::connectTypeToString");
    return kx::String::fromLatin1(row->text);
}

} // namespace norla
