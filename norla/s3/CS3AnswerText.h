#pragma once

#include "kx/base/CBase.h"
#include "kx/base/CError.h"
#include "norla/core/CNetRequest.h"

#include <string>

namespace norla {

/// Keeps the document that a store answers with. What is longer than any of them can be is an error.
class CS3AnswerText : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    const std::string& get() const noexcept { return m_text; }

    void begin() override { m_text.clear(); }

    int write(const unsigned char* data, int size, int /*responseCode*/, const HeaderMap& /*responseHeaders*/) override
    {
        constexpr size_t most = 16 << 20; // a page of a thousand entries has half a MiB
        if (static_cast<size_t>(size) > most - m_text.size())
            throw kx::CError("The store's answer is longer than the 16 MiB that any document of it may have.");
        m_text.append(reinterpret_cast<const char*>(data), static_cast<size_t>(size));
        return size;
    }

    bool canBeginAgain() const override { return true; }

private:
    std::string m_text;
};

} // namespace norla
