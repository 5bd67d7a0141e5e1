#include "norla/core/CSending.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/numbers.h"
#include "norla/core/CEasyHandle.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace norla {

CSending::CSending(CEasyHandle& handle)
    : m_handle(handle)
{
}

void CSending::forgetSource()
{
    m_holder = nullptr;
    m_source = nullptr;
}

void CSending::forgetOptions()
{
    m_method = kx::String();
    m_upload = false;
    m_size = -1;
    m_copiedBody.reset();
    m_isSizeOfOwnBody = false;
    m_recipients = nullptr;
}

void CSending::begin() noexcept
{
    m_wasRead = false;
    m_position = 0;
}

void CSending::rewind()
{
    const kx::P<IDataSource> source = m_source; // which may put another one in its place
    if (source && source->getPosition() != 0)
        source->seek(0);
}

void CSending::setMethod(const kx::String& method)
{
    constexpr std::array standardMethods = {"", "GET", "PUT", "POST", "HEAD"};
    const bool isStandard = std::any_of(standardMethods.begin(), standardMethods.end(),
        [&method](const char* standard) { return method == kx::String::fromLatin1(standard); });
    if (isStandard)
        m_handle.setNull(CURLOPT_CUSTOMREQUEST);
    switchOffOtherMethods(method);
    if (isStandard)
        switchOnMethod(method);
    else
        m_handle.setText(CURLOPT_CUSTOMREQUEST, method.toUTF8());
    m_method = method;
}

// All of these fall back to GET inside libcurl, so that they must come before the method's own option.
void CSending::switchOffOtherMethods(const kx::String& method)
{
    if (method != "GET")
        m_handle.setNumber(CURLOPT_HTTPGET, 0);
    if (method != "HEAD")
        m_handle.setNumber(CURLOPT_NOBODY, 0);
    if (method != "PUT")
        setUpload(false);
    if (method == "POST")
        return;
    m_handle.setNumber(CURLOPT_POST, 0);
    setPostSize(0);
}

void CSending::switchOnMethod(const kx::String& method)
{
    if (method == "PUT") {
        setUpload(true);
    } else if (method == "POST") {
        m_handle.setNumber(CURLOPT_POST, 1);
        if (m_copiedBody)
            setCopiedBody(std::string(*m_copiedBody));
        else
            setPostSize(m_size);
    } else if (method == "GET") {
        m_handle.setNumber(CURLOPT_HTTPGET, 1);
    } else if (method == "HEAD") {
        m_handle.setNumber(CURLOPT_NOBODY, 1);
    }
}

void CSending::setUpload(bool upload)
{
    m_handle.setNumber(CURLOPT_UPLOAD, upload);
    m_upload = upload;
}

void CSending::setPostSize(long long size)
{
    requireWithinCopiedBody(size);
    m_handle.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
}

void CSending::requireWithinCopiedBody(long long size) const
{
    if (m_copiedBody && size > static_cast<long long>(m_copiedBody->size()))
        throw kx::CInvalidArgError("the size " + kx::toString(size) + " is more than the "
                + kx::toString(static_cast<long long>(m_copiedBody->size()))
                + " bytes of the body set by CURLOPT_POSTFIELDS",
            "CNetRequest::setOptionInt64");
}

// CURLOPT_POSTFIELDS is the one text that libcurl does not copy. It copies as many bytes as it was told of before, and
// drops its copy when it is told of more later.
void CSending::setCopiedBody(const std::string& bytes)
{
    const auto size = static_cast<long long>(bytes.size());
    m_handle.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
    m_handle.set(CURLOPT_COPYPOSTFIELDS, bytes.c_str());
    m_copiedBody = bytes;
    m_size = size;
    m_isSizeOfOwnBody = true;
}

// A size that was set here belongs to the body that it was set with.
void CSending::forgetSizeOfOwnBody()
{
    if (m_copiedBody) {
        m_copiedBody.reset();
        m_handle.setNull(CURLOPT_POSTFIELDS);
        m_handle.set(CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t{-1});
        if (!m_method.isEmpty())
            setMethod(m_method); // the body's option has made it a POST
    }
    if (m_isSizeOfOwnBody)
        setSize(-1);
}

void CSending::setSource(IDataSource* source)
{
    forgetSizeOfOwnBody();
    useSource(source);
}

void CSending::useSource(IDataSource* source)
{
    m_source = source;
    m_holder = nullptr;
}

// In place of what there was, with its size.
void CSending::useBody(kx::IInStream* stream, long long size)
{
    setSizedSource(kx::newObj<CNetRequest::CStreamDataSource>(stream).get(), size);
}

void CSending::setSizedSource(IDataSource* source, long long size)
{
    if (m_copiedBody)
        forgetSizeOfOwnBody();
    useSource(source);
    setSize(size);
    m_isSizeOfOwnBody = true;
}

void CSending::setBuffer(const CNetRequest::Buffer& buffer)
{
    useBody(kx::newObj<kx::CBufferStream>(buffer).get(), static_cast<long long>(buffer.getSize()));
}

void CSending::setText(const kx::String& text)
{
    const std::string bytes = text.toUTF8();
    const auto buffer = kx::newObj<CNetRequest::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    useBody(kx::newObj<kx::CBufferStream>(buffer).get(), static_cast<long long>(buffer->getSize()));
    m_holder = buffer;
}

void CSending::setSize(long long size)
{
    m_handle.set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
    if (m_method == "POST")
        setPostSize(size);
    m_size = size;
    m_isSizeOfOwnBody = false;
}

void CSending::hideRecipients()
{
    if (m_recipients)
        m_handle.setNull(CURLOPT_MAIL_RCPT);
}

void CSending::showRecipients()
{
    if (m_recipients)
        m_handle.set(CURLOPT_MAIL_RCPT, m_recipients);
}

size_t CSending::read(char* buffer, int size, const HeaderMap& responseHeaders)
{
    m_wasRead = true;
    const kx::P<IDataSource> source = m_source; // which may put another one in its place
    return source ? readSource(*source, buffer, size, responseHeaders) : 0;
}

// libcurl 7.88 sends what is more than the size that it was told, as the beginning of another request, and waits for
// what is less.
size_t CSending::readSource(IDataSource& source, char* buffer, int size, const HeaderMap& responseHeaders)
{
    const long long left = m_size == -1 ? size : m_size - m_position;
    if (left <= 0)
        return 0;
    const int count = source.read(
        reinterpret_cast<unsigned char*>(buffer), static_cast<int>(std::min<long long>(size, left)), responseHeaders);
    if (count == 0 && m_size != -1)
        throw kx::CError("The data to be sent have ended " + kx::toString(left) + " bytes before their size of "
            + kx::toString(m_size) + ".");
    m_position += count;
    return static_cast<size_t>(count);
}

bool CSending::seek(long long offset, int origin)
{
    // From libcurl 8 on a rewind that has failed is asked for again at the start of the next transfer, whatever that
    // sends: it begins at 0 anyway.
    if (std::exchange(m_hasRewindPending, false) && !m_wasRead && origin == SEEK_SET && offset == 0)
        return true;
    const kx::P<IDataSource> source = m_source; // which may put another one in its place
    if (!source || !seekSource(*source, offset, origin))
        return false;
    if (m_size != -1)
        m_position = source->getPosition();
    return true;
}

bool CSending::seekSource(IDataSource& source, long long offset, int origin)
{
    if (origin == SEEK_SET) {
        source.seek(offset);
        return true;
    }
    if (origin == SEEK_CUR) {
        source.seek(source.getPosition() + offset);
        return true;
    }
    if (origin != SEEK_END || source.getLength() == -1)
        return false;
    source.seek(source.getLength() + offset);
    return true;
}

} // namespace norla
