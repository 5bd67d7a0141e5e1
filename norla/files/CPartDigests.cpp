#include "norla/files/CPartDigests.h"

#include "kx/text/hex.h"
#include "norla/files/CPartFile.h"

#include <algorithm>
#include <utility>

namespace norla {

namespace {

constexpr long long digestBlock = 256 << 10;
constexpr long long digestPiece = 16 << 20; // some hundredths of a second: who has more to do looks at that in between

std::string lowerHex(const kx::String& digits)
{
    std::string text = digits.toUTF8();
    for (char& digit : text)
        digit = digit >= 'A' && digit <= 'F' ? static_cast<char>(digit - 'A' + 'a') : digit;
    return text;
}

} // namespace

CPartDigests::CExpected::CExpected(kx::String expectedText, const char* digestName, const char* algorithm)
    : text(std::move(expectedText))
    , name(digestName)
    , digest(algorithm)
{
}

CPartDigests::CPartDigests(const CFileDownloadOptions& options)
{
    if (!options.sha256.isEmpty())
        m_digests.emplace_back(options.sha256, "SHA-256", "SHA256");
    if (!options.md5.isEmpty())
        m_digests.emplace_back(options.md5, "MD5", "MD5");
    if (!isEmpty())
        m_block.resize(digestBlock);
}

void CPartDigests::forget()
{
    m_position = 0;
    for (CExpected& expected : m_digests)
        expected.digest.reset();
}

bool CPartDigests::follow(const CPartFile& part, long long end)
{
    if (isEmpty())
        return false;
    const long long stop = std::min(end, m_position + digestPiece);
    while (m_position < stop) {
        const size_t count
            = part.read(m_position, m_block.data(), static_cast<size_t>(std::min(digestBlock, stop - m_position)));
        if (count == 0) // somebody has cut it: the digests will tell
            return false;
        for (CExpected& expected : m_digests)
            expected.digest.update(m_block.data(), count);
        m_position += static_cast<long long>(count);
    }
    return m_position < end;
}

kx::String CPartDigests::findDifference()
{
    for (CExpected& expected : m_digests) {
        expected.digest.finish();
        const kx::String found
            = kx::hexEncode({reinterpret_cast<const char*>(expected.digest.getBytes()), expected.digest.getLength()});
        if (found.toUTF8() != lowerHex(expected.text))
            return kx::String::fromLatin1(expected.name) + " is " + found + ", and not " + expected.text;
    }
    return {};
}

} // namespace norla
