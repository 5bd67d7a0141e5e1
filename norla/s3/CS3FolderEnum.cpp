#include "norla/s3/CS3FolderEnum.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/s3/TS3ListCursor.h"
#include "norla/s3/readListedObject.h"

#include <algorithm>

namespace norla {

namespace {

const kx::String& requireDelimiter(const kx::String& delimiter)
{
    if (delimiter.isEmpty())
        throw kx::CInvalidArgError("the delimiter must not be empty", "CS3FolderEnum");
    return delimiter;
}

void readFolders(CS3ListPages& pages, const CXMLElement& commonPrefixes, std::vector<CS3FolderEntry>& entries)
{
    commonPrefixes.forEachElement([&](const CXMLElement& element) {
        if (!element.isNamed("Prefix"))
            return;
        CS3FolderEntry folder;
        folder.isFolder = true;
        folder.key = pages.nameIn(element);
        pages.acceptFolder(folder.key);
        entries.push_back(std::move(folder));
    });
}

/// Leaves out folders that are there more than once.
/// @param last, lastIsFolder in: of the pages before; out: with this one
std::vector<CS3FolderEntry> inOrder(
    const CS3ListPages& pages, std::vector<CS3FolderEntry> entries, kx::String& last, bool& lastIsFolder)
{
    std::stable_sort(entries.begin(), entries.end(),
        [](const CS3FolderEntry& left, const CS3FolderEntry& right) { return left.key < right.key; });
    std::vector<CS3FolderEntry> ordered;
    for (CS3FolderEntry& entry : entries) {
        if (entry.key == last && entry.isFolder && lastIsFolder)
            continue;
        if (entry.key <= last)
            pages.fail("is out of order: '" + CS3ListPages::shown(entry.key) + "' comes behind '"
                + CS3ListPages::shown(last) + "'");
        last = entry.key;
        lastIsFolder = entry.isFolder;
        ordered.push_back(std::move(entry));
    }
    return ordered;
}

} // namespace

CS3FolderEnum::CS3FolderEnum(CS3Client* client, CNetRequest* request, const kx::String& bucketName,
    const CS3ListOptions& options, const kx::String& delimiter)
    : m_cursor(std::make_unique<TS3ListCursor<CS3FolderEntry>>(
        client, request, bucketName, options, requireDelimiter(delimiter), s3ObjectList))
{
}

CS3FolderEnum::~CS3FolderEnum() = default;

bool CS3FolderEnum::next()
{
    return m_cursor->next([this](CS3ListPages& pages) {
        std::vector<CS3FolderEntry> entries;
        const auto read = [&](const CXMLElement& element) {
            if (element.isNamed("Contents"))
                entries.push_back({readListedObject(pages, element), false});
            else if (element.isNamed("CommonPrefixes"))
                readFolders(pages, element, entries);
        };
        kx::String last = m_last;
        bool lastIsFolder = m_lastIsFolder;
        pages.fetch(read, [&] { entries = inOrder(pages, std::move(entries), last, lastIsFolder); });
        m_last = last;
        m_lastIsFolder = lastIsFolder;
        return entries;
    });
}

const CS3FolderEntry* CS3FolderEnum::getCurrent() const noexcept
{
    return m_cursor->getCurrent();
}

} // namespace norla
