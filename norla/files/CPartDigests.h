#pragma once

#include "kx/text/String.h"
#include "norla/files/CFileDownload.h"
#include "sela/CDigest.h"

#include <list>
#include <vector>

namespace norla {

class CPartFile;

/// The digests that a file is to have, made of the bytes as they are in the part while the rest is still on its way.
/// Used by one thread.
class CPartDigests {
public:
    /// @throws kx::CError naming an algorithm that OpenSSL does not have
    explicit CPartDigests(const CFileDownloadOptions& options);

    /// Whether none is expected.
    bool isEmpty() const noexcept { return m_digests.empty(); }

    /// The part is written anew.
    void forget();

    /// Takes in a piece of the bytes before that position, which are there and stay as they are.
    /// @return whether some of them are left
    bool follow(const CPartFile& part, long long end);

    /// Behind the last byte. @return "SHA-256 is ..., and not ..." of the first that differs; empty when none does
    kx::String findDifference();

private:
    struct CExpected {
        CExpected(kx::String expectedText, const char* digestName, const char* algorithm);

        kx::String text;
        const char* name;
        sela::CDigest digest;
    };

    std::list<CExpected> m_digests;
    std::vector<unsigned char> m_block;
    long long m_position = 0; // behind the last byte that is in them
};

} // namespace norla
