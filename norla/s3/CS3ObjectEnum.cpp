#include "norla/s3/CS3ObjectEnum.h"

#include "kx/base/CError.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3ListObjectsResult.h"
#include "norla/s3/CS3SeenMarks.h"
#include "norla/s3/hexSHA256.h"

namespace norla {

namespace {

bool isWithin(int index, const CS3ListObjectsResult& page)
{
    return static_cast<size_t>(index) < page.getContents().size();
}

} // namespace

CS3ObjectEnum::CS3ObjectEnum(CS3Client* client, CNetRequest* request, const kx::String& bucketName,
    const kx::String& prefix, const kx::String& startMarker, int maxKeys)
    : m_client(client)
    , m_request(request)
    , m_bucketName(bucketName)
    , m_prefix(prefix)
    , m_maxKeys(maxKeys)
    , m_marker(startMarker)
    , m_usedMarkers(std::make_unique<CS3SeenMarks>())
{
}

CS3ObjectEnum::~CS3ObjectEnum() = default;

bool CS3ObjectEnum::next()
{
    if (m_finished)
        return false;
    if (!m_currPage)
        return nextPage();
    if (isWithin(m_index, *m_currPage))
        ++m_index;
    return isWithin(m_index, *m_currPage) || nextPage();
}

bool CS3ObjectEnum::nextPage()
{
    if (m_finished)
        return false;
    if (m_currPage) {
        if (!m_currPage->isTruncated()) {
            m_finished = true;
            return false;
        }
        // Not the page's own marker, which many services leave out.
        m_marker = m_currPage->getContents().back()->getKey();
        if (m_usedMarkers->has(hexSHA256(m_marker.toUTF8())))
            throw kx::CError("The listing of the bucket '" + m_bucketName + "' does not end: it came to the marker '"
                + m_marker + "' again.");
    }
    m_currPage = m_client->listObjects(*m_request, m_bucketName, m_prefix, kx::String(), m_marker, m_maxKeys);
    m_usedMarkers->add(hexSHA256(m_marker.toUTF8())); // not before: a page that could not be fetched is asked for again
    m_index = 0;
    m_finished = !isWithin(m_index, *m_currPage);
    return !m_finished;
}

kx::P<CS3ListObjectsElement> CS3ObjectEnum::getCurrObject() const
{
    if (m_finished || !m_currPage || !isWithin(m_index, *m_currPage))
        return nullptr;
    return m_currPage->getContents()[static_cast<size_t>(m_index)];
}

} // namespace norla
