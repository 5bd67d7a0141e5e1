// How a CS3Client sends a body.
#include "kx/text/numbers.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3ChunkedSource.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3SignerV4.h"
#include "norla/s3/headerLines.h"
#include "norla/s3/hexSHA256.h"

namespace norla {

namespace {

constexpr long long expectThreshold = 1 << 20;
constexpr char decodedLength[] = "x-amz-decoded-content-length";

} // namespace

// libcurl's own "Expect: 100-continue": with stores that do not answer it, it costs a second.
void CS3Client::leaveOutExpect(CNetHeaders& headers, long long size)
{
    if (size > 0 && size < expectThreshold)
        headers.add("Expect", "");
}

/// @return what a signature says of the body
std::string CS3Client::setSource(CNetRequest& request, CNetHeaders& headers, CNetRequest::IDataSource* source,
    long long size, const std::string& payloadSHA256)
{
    const bool isSigned = dynamic_cast<CS3SignerV4*>(m_signer.get()) && payloadSHA256.empty() && size > 0
        && m_signSources.value_or(!usesTLS());
    leaveOutExpect(headers, size);
    if (!isSigned) {
        request.setSendDataSource(source);
        request.setSendDataSize(size);
        return size == 0 ? hexSHA256("") : payloadSHA256;
    }
    // Without the "Content-Encoding: aws-chunked" of the documentation: some stores keep it with the object, whose
    // readers know of no such coding.
    headers.add(decodedLength, kx::toString(size));
    request.setSendDataSource(kx::newObj<CS3ChunkedSource>(request, source, size).get());
    request.setSendDataSize(CS3ChunkedSource::encodedSize(size));
    return CS3RequestToSign::streamingPayload;
}

// A body that nobody signs would be stored with all that stands between its chunks.
void CS3Client::sendPlainly(CNetRequest& request, const CS3ChunkedSource& chunked)
{
    request.setSendDataSource(chunked.getSource().get());
    request.setSendDataSize(chunked.getSize());
    if (const auto headers = request.getCustomHTTPHeaders())
        request.setCustomHTTPHeaders(headersWithout(*headers, {decodedLength}).get());
}

} // namespace norla
