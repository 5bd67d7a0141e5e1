// The tags of objects.
#include "kx/base/CError.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3XMLWriter.h"
#include "norla/s3/objectCall.h"
#include "norla/s3/performS3Call.h"

#include <optional>
#include <string>

namespace norla {

namespace {

std::string tagDocument(const CS3Objects::Tags& tags)
{
    CS3XMLWriter document("Tagging");
    document.begin("TagSet");
    for (const auto& [name, value] : tags) {
        document.begin("Tag");
        document.add("Key", name);
        document.add("Value", value);
        document.end();
    }
    return document.finish();
}

void readTag(const CXMLElement& tag, CS3Objects::Tags& tags, const CS3Call& call)
{
    std::optional<kx::String> name;
    kx::String value;
    tag.forEachElement([&](const CXMLElement& element) {
        if (element.isNamed("Key"))
            name = element.getText();
        else if (element.isNamed("Value"))
            value = element.getText();
    });
    if (!name)
        throw kx::CError(
            "A tag of " + textOf(call) + " has no name in the store's answer; its value is '" + value + "'.");
    if (!tags.try_emplace(*name, value).second)
        throw kx::CError("The tag '" + *name + "' of " + textOf(call) + " is in the store's answer twice.");
}

CS3Objects::Tags readTags(const CS3Document& document, const CS3Call& call)
{
    CS3Objects::Tags tags;
    document.getRoot().forEachElement([&](const CXMLElement& set) {
        if (!set.isNamed("TagSet"))
            return;
        set.forEachElement([&](const CXMLElement& tag) {
            if (tag.isNamed("Tag"))
                readTag(tag, tags, call);
        });
    });
    return tags;
}

CS3Call tagsCall(const kx::String& method, const CS3ObjectName& name, const kx::String& versionId)
{
    CS3Call call = objectCall(method, name.bucketName, name.objectName, versionId, "CS3Objects::getTags");
    call.parameters.emplace(call.parameters.begin(), "tagging", kx::String());
    return call;
}

} // namespace

CS3Objects::Tags CS3Objects::getTags(
    const kx::String& bucketName, const kx::String& objectName, const kx::String& versionId)
{
    const CS3Call call = tagsCall("GET", {bucketName, objectName}, versionId);
    return readTags(performForDocument(*m_client, *m_request, call, "Tagging", "tags"), call);
}

void CS3Objects::setTags(
    const kx::String& bucketName, const kx::String& objectName, const Tags& tags, const kx::String& versionId)
{
    CS3Call call = tagsCall("PUT", {bucketName, objectName}, versionId);
    setS3Document(call, tagDocument(tags));
    performForNothing(*m_client, *m_request, call);
}

void CS3Objects::removeTags(const kx::String& bucketName, const kx::String& objectName, const kx::String& versionId)
{
    performForNothing(*m_client, *m_request, tagsCall("DELETE", {bucketName, objectName}, versionId));
}

} // namespace norla
