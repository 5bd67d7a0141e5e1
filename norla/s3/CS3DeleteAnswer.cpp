#include "norla/s3/CS3DeleteAnswer.h"

#include "kx/base/CError.h"
#include "norla/s3/CXMLTree.h"

namespace norla {

namespace {

/// A key as parsers read it that a store has written as it is (XML 1.0 section 2.11).
kx::String withParsedLineEnds(const kx::String& key)
{
    return key.replaceAll("\r\n", "\n").replaceAll("\r", "\n");
}

CS3DeleteFailure readFailure(const CXMLElement& root)
{
    CS3DeleteFailure failure;
    root.forEachElement([&failure](const CXMLElement& element) {
        if (element.isNamed("Key"))
            failure.key = element.getText();
        else if (element.isNamed("VersionId"))
            failure.versionId = element.getText();
        else if (element.isNamed("Code"))
            failure.code = element.getText();
        else if (element.isNamed("Message"))
            failure.message = element.getText();
    });
    return failure;
}

} // namespace

CS3DeleteAnswer::CS3DeleteAnswer(const kx::String& bucketName)
    : m_bucketName(bucketName)
{
}

void CS3DeleteAnswer::expect(const kx::String& key, const kx::String& versionId)
{
    m_items.emplace(withParsedLineEnds(key), CItem{key, versionId});
}

kx::TArray<CS3DeleteFailure> CS3DeleteAnswer::failuresIn(const CXMLElement& root) const
{
    kx::TArray<CS3DeleteFailure> failures;
    std::set<const CItem*> told;
    root.forEachElement([&](const CXMLElement& element) {
        if (!element.isNamed("Error"))
            return;
        CS3DeleteFailure failure = readFailure(element);
        const CItem* const item = find(failure, told);
        if (!item)
            return;
        told.insert(item);
        if (failure.code == "NoSuchKey")
            return;
        failure.key = item->key;
        failure.versionId = item->versionId;
        failures.push_back(std::move(failure));
    });
    return failures;
}

/// @return the object of that version which has not been told of, else another one of that key; null when all have
const CS3DeleteAnswer::CItem* CS3DeleteAnswer::find(
    const CS3DeleteFailure& failure, const std::set<const CItem*>& told) const
{
    const auto [first, last] = m_items.equal_range(withParsedLineEnds(failure.key));
    if (first == last)
        throw kx::CError("The store tells of the object '" + failure.key + "' in the bucket '" + m_bucketName
            + "', which was not to be removed: " + failure.code + ".");
    const CItem* other = nullptr;
    bool isKnown = false;
    for (auto item = first; item != last; ++item) {
        const bool isTold = told.contains(&item->second);
        const bool isSame = item->second.versionId == failure.versionId;
        if (isSame && !isTold)
            return &item->second;
        isKnown = isKnown || isSame;
        if (!other && !isTold)
            other = &item->second;
    }
    return isKnown ? nullptr : other;
}

} // namespace norla
