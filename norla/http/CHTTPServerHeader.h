#pragma once

#include "kx/base/CBase.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"

namespace norla {

/// The products that a Server header names (RFC 9110 section 10.2.4), such as "Apache/2.4 (Unix)". Immutable.
///
/// Deliberately simple: split at spaces; comments are not understood, so that "(Unix)" counts as a product.
class KX_EXPORT CHTTPServerHeader : public virtual kx::CBase {
public:
    explicit CHTTPServerHeader(const kx::String& header);
    ~CHTTPServerHeader() override;

    /// The header as it was given.
    const kx::String& getHeader() const noexcept { return m_header; }

    /// Product name, whose case matters, to version: what follows the first "/", empty without one. The last one of
    /// several of the same name counts.
    const kx::TMap<kx::String, kx::String>& getProducts() const noexcept { return m_products; }

private:
    void addProduct(const kx::String& token);

    kx::String m_header;
    kx::TMap<kx::String, kx::String> m_products;
};

} // namespace norla
