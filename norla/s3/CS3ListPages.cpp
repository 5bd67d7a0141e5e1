#include "norla/s3/CS3ListPages.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/http/util.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/forbiddenCharacters.h"
#include "norla/s3/hexSHA256.h"
#include "norla/s3/performS3Call.h"
#include "norla/s3/requireClientAndRequest.h"

#include <algorithm>
#include <utility>

namespace norla {

namespace {

void requireListable(const kx::String& bucketName, const CS3ListOptions& options)
{
    constexpr char functionName[] = "CS3ListOptions";
    if (bucketName.isEmpty())
        throw kx::CInvalidArgError("bucket name must not be empty", functionName);
    if (options.maxKeys < 1 && options.maxKeys != -1)
        throw kx::CInvalidArgError(
            "maxKeys must be -1 or positive, not " + kx::toString(options.maxKeys), functionName);
}

} // namespace

CS3ListPages::CS3ListPages(CS3Client* client, CNetRequest* request, const kx::String& bucketName,
    const CS3ListOptions& options, const kx::String& delimiter, const CS3ListKind& kind)
    : m_client(client)
    , m_request(request)
    , m_bucketName(bucketName)
    , m_options(options)
    , m_delimiter(delimiter)
    , m_kind(kind)
{
    requireClientAndRequest(client, request, "the listing of a bucket");
    requireListable(bucketName, options);
    for (const kx::String& text : {options.prefix, options.startAfter, delimiter})
        text.toUTF8();
    if (kind.first.isName)
        m_usedMarkers.add(markOf(options.startAfter, kx::String()));
}

CS3Call CS3ListPages::makeCall() const
{
    CS3Call call;
    call.bucketName = m_bucketName;
    const auto add = [&call](const char* name, const kx::String& value) {
        call.parameters.emplace_back(kx::String::fromLatin1(name), value);
    };
    add(m_kind.selector, kx::String::fromLatin1(m_kind.selectorValue));
    if (m_asksForEncodedNames)
        add("encoding-type", "url");
    if (!m_options.prefix.isEmpty())
        add("prefix", m_options.prefix);
    if (!m_delimiter.isEmpty())
        add("delimiter", m_delimiter);
    if (m_options.maxKeys != -1)
        add(m_kind.maxParameter, kx::toString(m_options.maxKeys));
    if (m_options.fetchOwner && !m_kind.first.isName)
        add("fetch-owner", "true");
    if (m_first.isEmpty() && !m_options.startAfter.isEmpty())
        add(m_kind.startParameter, m_options.startAfter);
    if (!m_first.isEmpty())
        add(m_kind.first.parameter, m_first);
    if (!m_second.isEmpty())
        add(m_kind.second.parameter, m_second);
    return call;
}

// Some stores encode the names of a list when asked to, and do not say so: there is no telling whether "%20" is a name.
// Then the page is asked for with names as they stand, and so are those behind it.
CS3Document CS3ListPages::receive()
{
    if (m_asksForEncodedNames) {
        CS3Document document = receiveOnce();
        if (m_isURLEncoded || !m_isAmbiguous)
            return document;
        m_asksForEncodedNames = false;
    }
    return receiveOnce();
}

CS3Document CS3ListPages::receiveOnce()
{
    const kx::String title = kx::String::fromLatin1(m_kind.title) + " of the bucket '" + m_bucketName + "'";
    std::string bytes = performForBytes(*m_client, *m_request, makeCall());
    m_isAmbiguous = bytes.find_first_of("%+") != std::string::npos;
    m_isEscaped = withForbiddenCharactersEscaped(bytes) != bytes;
    if (m_isEscaped)
        bytes = withPercentSignsEscapedToo(bytes);
    CS3Document document = readS3Document(bytes, m_kind.rootName, title);
    m_isURLEncoded = textOfChild(document.getRoot(), "EncodingType") == "url";
    m_lastName = kx::String();
    m_keys.clear();
    return document;
}

kx::String CS3ListPages::textIn(const CXMLElement& element) const
{
    constexpr bool plusAsSpace = false;
    return m_isEscaped ? urlUnescape(element.getText(), plusAsSpace) : element.getText();
}

kx::String CS3ListPages::nameIn(const CXMLElement& element) const
{
    const kx::String text = textIn(element);
    return m_isURLEncoded ? decoded(text) : text;
}

kx::String CS3ListPages::decoded(const kx::String& text) const
{
    constexpr bool plusAsSpace = true; // stores write a blank either way, and always "%2B" for a plus sign
    kx::String name = urlUnescape(text, plusAsSpace);
    if (name.isEmpty() && !text.isEmpty())
        fail("has the name '" + shown(text) + "', which is not UTF-8");
    return name;
}

/// Of the last such element; empty when there is none.
kx::String CS3ListPages::textOfChild(const CXMLElement& parent, std::string_view name) const
{
    kx::String text;
    parent.forEachElement([&](const CXMLElement& element) {
        if (element.isNamed(name))
            text = textIn(element);
    });
    return text;
}

long long CS3ListPages::sizeIn(const kx::String& text) const
{
    try {
        const long long size = kx::parseInt64(text, false);
        if (size >= 0)
            return size;
    } catch (const kx::CError&) { // told below, with the bucket
    }
    fail("has an object of the size '" + shown(text) + "'");
}

void CS3ListPages::acceptKey(const kx::String& key, const kx::String& id)
{
    accept(key);
    m_keys += key.toUTF8() + '\0' + id.toUTF8() + '\0';
    if (!m_delimiter.isEmpty() && key.find(m_delimiter, m_options.prefix.size()) != kx::String::npos)
        failAt(key, "it has the delimiter '" + m_delimiter + "'");
    if (key < m_options.startAfter || (!m_kind.first.isName && key == m_options.startAfter))
        failAt(key, "it is not behind '" + m_options.startAfter + "'");
}

void CS3ListPages::acceptFolder(const kx::String& folder)
{
    accept(folder);
    const size_t size = m_delimiter.size();
    if (size == 0 || folder.size() < m_options.prefix.size() + size
        || folder.find(m_delimiter, m_options.prefix.size()) != folder.size() - size)
        failAt(folder, "it is no folder");
    if (folder <= m_options.startAfter && !m_options.startAfter.startsWith(folder))
        failAt(folder, "it is not behind '" + m_options.startAfter + "'");
}

void CS3ListPages::accept(const kx::String& name)
{
    if (name.isEmpty())
        fail("has an entry without a name");
    if (!name.startsWith(m_options.prefix))
        failAt(name, "it does not begin with '" + m_options.prefix + "'");
    m_lastName = std::max(m_lastName, name);
}

void CS3ListPages::advance(const CXMLElement& root)
{
    if (!readTruncated(root)) {
        m_isOver = true;
        return;
    }
    const kx::String first = markerIn(root, m_kind.first);
    const kx::String second = m_kind.second.parameter ? markerIn(root, m_kind.second) : kx::String();
    if (first.isEmpty())
        fail("goes on, but does not say where: '" + kx::String::fromLatin1(m_kind.first.element) + "' is missing");
    std::string mark = markOf(first, second);
    if (m_usedMarkers.has(mark))
        fail("does not end: it came to the marker '" + shown(first)
            + (second.isEmpty() ? kx::String() : "', '" + shown(second)) + "' again");
    const std::string keys = m_keys.empty() ? std::string() : hexSHA256(m_keys);
    if (m_seenKeys.has(keys))
        fail("does not end: a page has the same objects as one before it, up to '" + shown(m_lastName) + "'");
    m_usedMarkers.add(std::move(mark));
    if (!keys.empty())
        m_seenKeys.add(keys);
    m_first = first;
    m_second = second;
}

bool CS3ListPages::readTruncated(const CXMLElement& root) const
{
    const kx::String text = textOfChild(root, "IsTruncated");
    const kx::String lower = text.toLower();
    if (lower != "true" && lower != "false")
        fail("does not say whether it goes on: 'IsTruncated' is '" + shown(text) + "'");
    return lower == "true";
}

// Most services encode a marker as they do the names, some do not. It is the last name of the page as a rule, by which
// the latter can be told.
kx::String CS3ListPages::markerIn(const CXMLElement& root, const CS3ListKind::CMarker& marker) const
{
    kx::String text = textOfChild(root, marker.element);
    if (!marker.isName || !m_isURLEncoded)
        return text;
    return text == m_lastName ? text : decoded(text);
}

/// A digest, so that a store's markers need no more memory than that, however long they are.
std::string CS3ListPages::markOf(const kx::String& first, const kx::String& second)
{
    return hexSHA256(first.toUTF8() + '\0' + second.toUTF8());
}

void CS3ListPages::failAt(const kx::String& name, const kx::String& why) const
{
    fail("has '" + shown(name) + "', which was not asked for: " + why);
}

kx::String CS3ListPages::shown(const kx::String& name)
{
    constexpr size_t longest = 1024; // of an object, in bytes
    return name.size() > longest ? name.substr(0, longest) + "..." : name;
}

void CS3ListPages::fail(const kx::String& what) const
{
    throw kx::CError("The listing of the bucket '" + m_bucketName + "' " + what + ".");
}

} // namespace norla
