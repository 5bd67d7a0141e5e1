// The tags of objects.
#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "norla/s3/CS3BodyDigest.h"
#include "norla/s3/CS3DigestingSource.h"
#include "norla/s3/CS3Document.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/hexSHA256.h"
#include "norla/s3/objectCall.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace norla {

namespace {

std::string escapedForXML(const kx::String& text)
{
    constexpr wchar_t firstNoControl = L' ';
    const bool isWritable = std::none_of(text.begin(), text.end(), [](wchar_t character) {
        return character < firstNoControl || character == L'\xFFFE' || character == L'\xFFFF';
    });
    if (!isWritable)
        throw kx::CInvalidArgError("the tag text '" + text + "' holds a control character", "CS3Objects::setTags");
    return text.replaceAll("&", "&amp;").replaceAll("<", "&lt;").replaceAll(">", "&gt;").toUTF8();
}

std::string tagDocument(const CS3Objects::Tags& tags)
{
    std::string document = "<Tagging xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><TagSet>";
    for (const auto& [name, value] : tags)
        document += "<Tag><Key>" + escapedForXML(name) + "</Key><Value>" + escapedForXML(value) + "</Value></Tag>";
    return document + "</TagSet></Tagging>";
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

CS3Objects::Tags readTags(std::string_view bytes, const CS3Call& call)
{
    const CS3Document document(bytes, "tags");
    const CXMLElement root = document.getRoot();
    if (!root.isNamed("Tagging"))
        throw kx::CError(
            "The store's answer about the tags of " + textOf(call) + " is a document '" + root.getName() + "'.");
    CS3Objects::Tags tags;
    root.forEachElement([&](const CXMLElement& set) {
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
    CS3Call call = tagsCall("GET", {bucketName, objectName}, versionId);
    const kx::P<CNetRequest::Buffer> answer = performForAnswer(call);
    return readTags({reinterpret_cast<const char*>(answer->getData()), answer->getSize()}, call);
}

void CS3Objects::setTags(
    const kx::String& bucketName, const kx::String& objectName, const Tags& tags, const kx::String& versionId)
{
    CS3Call call = tagsCall("PUT", {bucketName, objectName}, versionId);
    const std::string document = tagDocument(tags);
    const auto buffer = kx::newObj<CNetRequest::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(document.data()), document.size());
    call.source = kx::newObj<CNetRequest::CStreamDataSource>(kx::newObj<kx::CBufferStream>(buffer).get());
    call.sourceSize = static_cast<long long>(document.size());
    call.sourceSHA256 = hexSHA256(document);
    CS3BodyDigest digest(CS3Checksum::MD5);
    digest.update(document);
    call.headers.emplace_back(nameOfChecksumHeader(CS3Checksum::MD5), digest.toBase64());
    performForAnswer(call);
}

void CS3Objects::removeTags(const kx::String& bucketName, const kx::String& objectName, const kx::String& versionId)
{
    CS3Call call = tagsCall("DELETE", {bucketName, objectName}, versionId);
    performForAnswer(call);
}

} // namespace norla
