#pragma once

#include "kx/containers/TArray.h"
#include "kx/text/String.h"
#include "norla/s3/CS3DeleteFailure.h"

#include <map>
#include <set>

namespace norla {

class CXMLElement;

/// What a store tells of the objects that a request was to remove.
class CS3DeleteAnswer {
public:
    explicit CS3DeleteAnswer(const kx::String& bucketName);

    /// Takes note of an object that was to be removed.
    void expect(const kx::String& key, const kx::String& versionId);

    /// The failures in a "DeleteResult", each object's once and without those that were not there.
    /// @throws kx::CError naming bucket and key of an object that was not to be removed
    kx::TArray<CS3DeleteFailure> failuresIn(const CXMLElement& root) const;

private:
    struct CItem {
        kx::String key;
        kx::String versionId;
    };
    using Items = std::multimap<kx::String, CItem>; // by the key as it comes back

    const CItem* find(const CS3DeleteFailure& failure, const std::set<const CItem*>& told) const;

    const kx::String m_bucketName;
    Items m_items;
};

} // namespace norla
