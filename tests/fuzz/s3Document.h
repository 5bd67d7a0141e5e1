#pragma once

#include "kx/base/CError.h"
#include "tests/fuzz/require.h"

#include <wx/log.h>

#include <climits>
#include <cstddef>
#include <cstdint>

/// Makes every word of wxWidgets' log a broken promise.
class CForbiddenLog : public wxLog {
protected:
    void DoLogRecord(wxLogLevel, const wxString&, const wxLogRecordInfo&) override
    {
        require(false, "wxWidgets has nothing to log");
    }
};

/// Reads the bytes as a document of this class.
/// @return null when they are refused, with an error as every plain one
template <typename TDocument>
kx::P<TDocument> readDocument(const uint8_t* data, size_t size)
{
    static const wxLog* const logBefore = wxLog::SetActiveTarget(new CForbiddenLog);
    static_cast<void>(logBefore);
    try {
        return kx::newObj<TDocument>(reinterpret_cast<const char*>(data), static_cast<int>(size));
    } catch (const kx::CError& error) {
        require(error.getDomain().isEmpty() && error.getCode() == -1, "the error is a plain one");
        require(!error.getMessage().isEmpty(), "the error says something");
        return nullptr;
    }
}
