// Operations of a store that CS3Client has no words of its own for.
#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3AnswerSink.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/hexSHA256.h"

namespace norla {

namespace {

constexpr char functionName[] = "CS3Client::prepareCall";

void requireMakesSense(const CS3Call& call)
{
    if (call.method.isEmpty())
        throw kx::CInvalidArgError("the method must not be empty", functionName);
    if (call.bucketName.isEmpty() && !call.objectName.isEmpty())
        throw kx::CInvalidArgError("bucket name must not be empty", functionName);
    if (call.sourceSize < 0)
        throw kx::CInvalidArgError("size must not be negative", functionName);
    for (const auto& [name, value] : call.parameters) {
        if (name.isEmpty())
            throw kx::CInvalidArgError("the name of a parameter must not be empty", functionName);
    }
    for (const auto& [name, value] : call.headers) {
        if (name.isEmpty() || (name + value).toWide().find_first_of(L"\r\n") != std::wstring::npos)
            throw kx::CInvalidArgError("the header '" + name + "' has no name or holds a line end", functionName);
    }
}

kx::String queryOf(CNetRequest& request, const CS3Call::Fields& parameters)
{
    kx::String query;
    for (const auto& [name, value] : parameters) {
        query += query.isEmpty() ? "?" : "&";
        query += request.urlEscape(name);
        if (!value.isEmpty())
            query += "=" + request.urlEscape(value);
    }
    return query;
}

} // namespace

void CS3Client::prepareCall(CNetRequest& request, const CS3Call& call)
{
    requireMakesSense(call);
    const bool isOfService = call.bucketName.isEmpty();
    const bool isOfBucket = call.objectName.isEmpty();
    const kx::String url = isOfService ? m_endpointURL
        : isOfBucket                   ? bucketURL(request, call.bucketName)
                                       : getObjectURL(request, call.bucketName, call.objectName);
    const auto headers = beginPrepareRequest(request, url + queryOf(request, call.parameters));
    request.setHTTPMethod(call.method);
    for (const auto& [name, value] : call.headers) {
        if (value.isEmpty())
            headers->addEmpty(name);
        else
            headers->add(name, value);
    }
    if (call.sink)
        request.setReceiveDataSink(kx::newObj<CS3AnswerSink>(call.sink, request.getDefaultReceiveBuffer()).get());
    setBody(request, *headers, call);
    finish(request, call.source ? call.sourceSHA256 : hexSHA256(call.body));
}

void CS3Client::setBody(CNetRequest& request, CNetHeaders& headers, const CS3Call& call)
{
    if (call.method == "GET" || call.method == "HEAD")
        return;
    const long long size = call.source ? call.sourceSize : static_cast<long long>(call.body.size());
    if (call.source) {
        request.setSendDataSource(call.source.get());
    } else if (size > 0) {
        const auto bytes = kx::newObj<Buffer>();
        bytes->append(reinterpret_cast<const unsigned char*>(call.body.data()), call.body.size());
        request.setSendDataStream(kx::newObj<kx::CBufferStream>(bytes).get()); // keeps the bytes
    }
    if (size > 0 || call.method != "DELETE")
        request.setSendDataSize(size);
    leaveOutExpect(headers, size);
}

int CS3Client::performCall(CNetRequest& request, const CS3Call& call)
{
    prepareCall(request, call);
    return performRequest(request);
}

} // namespace norla
