#include "norla/s3/CS3ListObjectsResult.h"

#include "kx/base/CError.h"
#include "norla/s3/CS3Document.h"
#include "norla/s3/CWxElement.h"
#include "norla/s3/forbiddenCharacters.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace norla {

namespace {

bool saysURLEncoded(const auto& root)
{
    bool isURLEncoded = false;
    root.forEachElement([&isURLEncoded](const auto& element) {
        if (element.isNamed("EncodingType"))
            isURLEncoded = element.getText() == "url";
    });
    return isURLEncoded;
}

kx::P<CS3ListObjectsElement> makeObject(const CXMLElement& contents, bool isURLEncoded)
{
    return kx::newObj<CS3ListObjectsElement>(contents, isURLEncoded);
}

kx::P<CS3ListObjectsElement> makeObject(const CWxElement& contents, bool isURLEncoded)
{
    return kx::newObj<CS3ListObjectsElement>(&contents.getNode(), isURLEncoded);
}

} // namespace

CS3ListObjectsResult::CS3ListObjectsResult(const kx::TBuffer<unsigned char>* data)
    : CS3ListObjectsResult(data, Names::AsTheyStand)
{
}

CS3ListObjectsResult::CS3ListObjectsResult(const kx::TBuffer<unsigned char>* data, Names names)
{
    construct(reinterpret_cast<const char*>(data->getData()), data->getSize(), names);
}

CS3ListObjectsResult::CS3ListObjectsResult(const char* data, int size)
{
    construct(data, static_cast<size_t>(std::max(size, 0)), Names::AsTheyStand);
}

CS3ListObjectsResult::CS3ListObjectsResult(wxXmlNode* root)
{
    construct(CWxElement(*root), Names::AsTheyStand);
}

CS3ListObjectsResult::~CS3ListObjectsResult() = default;

void CS3ListObjectsResult::construct(const char* data, size_t size, Names names)
{
    constexpr char title[] = "'list objects' result";
    const std::string escaped
        = names == Names::AsTheDocumentSays ? withForbiddenCharactersEscaped({data, size}) : std::string();
    if (names == Names::AsTheyStand || escaped == std::string_view(data, size)) {
        construct(CS3Document({data, size}, title).getRoot(), names);
        return;
    }
    const CS3Document document(escaped, title);
    if (!saysURLEncoded(document.getRoot())) // nothing would decode what was escaped
        throw kx::CError("Error parsing Amazon S3 'list objects' result: invalid XML.");
    construct(document.getRoot(), names);
}

template <typename TElement>
void CS3ListObjectsResult::construct(const TElement& root, Names names)
{
    if (!root.isNamed("ListBucketResult"))
        throw kx::CError("Error parsing Amazon S3 'list objects' result: root element is not ListBucketResult.");
    const bool isURLEncoded = names == Names::AsTheDocumentSays && saysURLEncoded(root);
    root.forEachElement([this, isURLEncoded](const TElement& element) {
        if (element.isNamed("Contents"))
            m_contents.push_back(makeObject(element, isURLEncoded));
        else if (element.isNamed("CommonPrefixes"))
            parseCommonPrefixes(element, isURLEncoded);
        else if (element.isNamed("IsTruncated"))
            parseTruncated(element.getText());
        else if (element.isNamed("NextMarker"))
            m_nextMarker = element.getText();
    });
    if (isURLEncoded)
        decodeNextMarker();
}

// Most services encode the marker as they do the names, some do not. It is the last name of the page as a rule, by
// which the latter can be told.
void CS3ListObjectsResult::decodeNextMarker()
{
    const kx::String lastKey = m_contents.empty() ? kx::String() : m_contents.back()->getKey();
    const kx::String last = m_commonPrefixes.empty() ? lastKey : std::max(lastKey, m_commonPrefixes.back());
    const bool isPlain = m_nextMarker.toUTF8() == withForbiddenCharactersEscaped(last.toUTF8());
    m_nextMarker = isPlain ? last : CS3Document::decodedName(m_nextMarker);
}

void CS3ListObjectsResult::parseTruncated(const kx::String& text)
{
    const kx::String lower = text.toLower();
    if (lower != "true" && lower != "false")
        throw kx::CError("Bad value for 'IsTruncated' S3 list objects result element: '" + text + "'");
    m_truncated = lower == "true";
}

void CS3ListObjectsResult::parseCommonPrefixes(const auto& prefixes, bool isURLEncoded)
{
    prefixes.forEachElement([this, isURLEncoded](const auto& element) {
        if (element.isNamed("Prefix"))
            m_commonPrefixes.push_back(CS3Document::nameIn(element, isURLEncoded));
    });
}

} // namespace norla
