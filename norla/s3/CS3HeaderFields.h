#pragma once

#include "kx/text/String.h"
#include "kx/time/CTime.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3Conditions.h"
#include "norla/s3/CS3Encryption.h"
#include "norla/s3/CS3PutOptions.h"

#include <string>

namespace norla {

/// The headers of a call, gathered from its options. What is empty or unset adds none.
class CS3HeaderFields {
public:
    /// @param functionName in whose name kx::CInvalidArgError is thrown
    explicit CS3HeaderFields(const kx::String& functionName)
        : m_functionName(functionName)
    {
    }

    /// @throws kx::CInvalidArgError naming a header whose value holds a control character
    void add(const kx::String& name, const kx::String& value);
    void add(const kx::String& name, const kx::CTime& time);

    /// @param prefix empty or "x-amz-copy-source-"
    void addConditions(const CS3Conditions& conditions, const kx::String& prefix);

    /// @param prefix empty or "copy-source-" @throws kx::CInvalidArgError for another size than 32
    void addCustomerKey(const std::string& key, const kx::String& prefix);

    /// @throws kx::CInvalidArgError where the key is both the store's and the customer's
    void addEncryption(const CS3Encryption& encryption);

    /// Content headers and metadata. @throws kx::CInvalidArgError for a name that is none
    void addContent(const CS3PutOptions& options);
    void addTags(const CS3PutOptions& options);

    /// What else counts for every new object.
    void addStorage(const CS3PutOptions& options);

    CS3Call::Fields& fields() noexcept { return m_fields; }

private:
    void addMetadata(const CS3PutOptions::Texts& metadata);
    void requireText(const kx::String& name, const kx::String& value) const;

    const kx::String m_functionName;
    CS3Call::Fields m_fields;
};

} // namespace norla
