#pragma once

#include "kx/base/P.h"
#include "kx/containers/TMap.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetStringList.h"

#include <curl/curl.h>

#include <string>
#include <string_view>

namespace norla {

class CEasyHandle;

/// The header lines that a transfer sends beside libcurl's own (CURLOPT_HTTPHEADER): the caller's, and those that other
/// parts of the request add. Without any of the latter libcurl has the caller's list itself. Used by the thread of the
/// transfer.
class CSentHeaders {
public:
    /// Which of two lines of one name is sent.
    enum class Precedence { Callers, Own };

    /// @param handle outlives this object
    explicit CSentHeaders(CEasyHandle& handle);
    CSentHeaders(const CSentHeaders&) = delete;
    CSentHeaders& operator=(const CSentHeaders&) = delete;

    /// The caller's lines, handed to libcurl at once. Null for none; a reference is kept.
    /// @throws CCURLError if libcurl refuses; the last ones stay then
    void setCallers(CNetHeaders* headers);

    /// Null when there are none.
    const kx::P<CNetHeaders>& getCallers() const noexcept { return m_callers; }

    /// All lines of the caller's, however they were set; null when there are none.
    curl_slist* getCallersList() const;

    /// An option that takes a pointer was set: CURLOPT_HTTPHEADER is the caller's list too, as long as no other is set.
    void noticePointer(CURLoption option, void* value) noexcept;

    /// Adds an own line, or replaces the one of that name, from the next transfer on. One line a name, in whatever
    /// letter case.
    /// @param value in UTF-8; empty: libcurl sends none of its own of that name
    /// @throws kx::CInvalidArgError when name or value holds a line end or a zero character
    void setLine(std::string_view name, std::string_view value, Precedence precedence = Precedence::Callers);

    /// From the next transfer on. Does nothing when there is none.
    void removeLine(std::string_view name);

    /// A transfer begins: the lines are what they are now. @throws CCURLError if libcurl refuses
    void begin();

    /// From now on, and until the next transfer begins, nothing is sent but lines that tell no secret of the caller:
    /// what may be received, what the body is, which part of a resource is wanted, and in which state.
    /// @throws CCURLError if libcurl refuses
    void sendHarmlessOnly();

    /// The handle's options are what they were at first (curl_easy_reset()), or the handle is about to go.
    void forgetOptions() noexcept;

private:
    struct CLine {
        std::string text; // as libcurl takes it
        Precedence precedence = Precedence::Callers;
    };

    void hand(const kx::P<CNetStringList>& lines);
    bool isReplaced(std::string_view callersLine) const;

    CEasyHandle& m_handle;
    kx::P<CNetHeaders> m_callers;
    curl_slist* m_optionList = nullptr; // the caller's, set as an option
    kx::TMap<std::string, CLine> m_own; // by name in lower case
    kx::P<CNetStringList> m_composed;   // what libcurl has in place of the caller's list
};

} // namespace norla
