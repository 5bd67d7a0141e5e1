#pragma once

#include "kx/base/CBase.h"
#include "norla/core/CNetRequest.h"

#include <string>

namespace norla {

/// Keeps the document that a store answers with, if it is no longer than documents of stores are.
class CS3DocumentSink : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    void begin() override { m_bytes.clear(); }

    /// @throws kx::CError naming the limit when the answer is longer than 16 MiB
    int write(const unsigned char* data, int size, int responseCode, const HeaderMap& responseHeaders) override;

    bool canBeginAgain() const override { return true; }

    const std::string& getBytes() const noexcept { return m_bytes; }

private:
    std::string m_bytes;
};

} // namespace norla
