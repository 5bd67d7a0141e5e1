// A file of known SSH hosts, behind a line with the name of a host.
#include "norla/core/CKnownHosts.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace {

using norla::CKnownHosts;
using Verdict = CKnownHosts::Verdict;

void check(const CKnownHosts& hosts, const std::string& file, const CKnownHosts::CHost& host)
{
    const auto keys = hosts.keysOf(host);
    for (const std::string& key : keys) {
        const Verdict verdict = hosts.judge(host, key);
        require(verdict == Verdict::Known || verdict == Verdict::Revoked, "a host is known by its keys");
        require(!CKnownHosts::typeOf(key).empty(), "a key has a type");
    }
    const std::string shown{"\0\0\0\4type-shown", 14};
    const Verdict verdict = hosts.judge(host, shown);
    const std::string line = CKnownHosts::lineFor(host, shown);
    if (verdict != Verdict::Unknown || line.empty())
        return;
    require(line.find_first_of("\r\n") == std::string::npos, "a line is one line");
    require(CKnownHosts(file + "\n" + line).judge(host, shown) == Verdict::Known, "who was added is known");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string name(text.substr(0, end));
    const std::string file(text.substr(std::min(end + 1, text.size())));
    const CKnownHosts hosts(file);
    check(hosts, file, {.name = name});
    check(hosts, file, {.name = name, .port = 2222});
    return 0;
}
