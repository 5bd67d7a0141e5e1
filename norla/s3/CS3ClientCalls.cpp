// Operations of a store that CS3Client has no words of its own for.
#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3AnswerSink.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/hexSHA256.h"

#include <algorithm>

namespace norla {

namespace {

constexpr char callFunction[] = "CS3Client::prepareCall";

/// An answer that breaks off in its header would be an empty object, or an empty answer to what was asked.
constexpr CSafeDefaults wholeAnswers{.redirectsStaySafe = false,
    .maxRedirects = -1,
    .secretsStayWithTheirHost = false,
    .verifyTLS = false,
    .verifySSH = false,
    .expectFrom = 0,
    .maxReceiveBuffer = 0,
    .maxHeaders = 0,
    .judgeByProtocol = true,
    .oneLineEach = false};

void requireMakesSense(const CS3Call& call)
{
    if (call.method.isEmpty())
        throw kx::CInvalidArgError("the method must not be empty", callFunction);
    if (call.bucketName.isEmpty() && !call.objectName.isEmpty())
        throw kx::CInvalidArgError("bucket name must not be empty", callFunction);
    if (call.sourceSize < 0)
        throw kx::CInvalidArgError("size must not be negative", callFunction);
    for (const auto& [name, value] : call.parameters) {
        if (name.isEmpty())
            throw kx::CInvalidArgError("the name of a parameter must not be empty", callFunction);
    }
    for (const auto& [name, value] : call.headers) {
        if (name.isEmpty() || (name + value).toWide().find_first_of(L"\r\n") != std::wstring::npos)
            throw kx::CInvalidArgError("the header '" + name + "' has no name or holds a line end", callFunction);
    }
}

/// A store forgets a customer's key, a network does not.
void requireNoKey(const CS3Call& call, const kx::String& endpointURL)
{
    for (const auto& [name, value] : call.headers) {
        const kx::String header = name.toLower();
        if (header.startsWith("x-amz-") && header.endsWith("server-side-encryption-customer-key"))
            throw kx::CInvalidArgError(
                "the header '" + header + "' holds a key, which is given to no store without TLS: " + endpointURL,
                callFunction);
    }
}

/// libcurl's own for a POST is that of a form, and stores would keep it as the type of an object by parts.
void leaveOutFormType(CNetHeaders& headers, const CS3Call& call)
{
    const bool isTold = std::any_of(call.headers.begin(), call.headers.end(),
        [](const auto& field) { return field.first.toLower() == "content-type"; });
    if (call.method == "POST" && !isTold)
        headers.add("Content-Type", "");
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
    if (!usesTLS())
        requireNoKey(call, m_endpointURL);
    const bool isOfService = call.bucketName.isEmpty();
    const bool isOfBucket = call.objectName.isEmpty();
    const kx::String url = isOfService ? m_endpointURL
        : isOfBucket                   ? bucketURL(request, call.bucketName)
                                       : getObjectURL(request, call.bucketName, call.objectName);
    const auto headers = beginPrepareRequest(request, url + queryOf(request, call.parameters));
    if (!m_safeDefaults)
        request.setSafeDefaults(wholeAnswers);
    request.setHTTPMethod(call.method);
    for (const auto& [name, value] : call.headers) {
        if (value.isEmpty())
            headers->addEmpty(name);
        else
            headers->add(name, value);
    }
    leaveOutFormType(*headers, call);
    if (call.sink)
        request.setReceiveDataSink(kx::newObj<CS3AnswerSink>(call.sink, request.getDefaultReceiveBuffer()).get());
    if (!hasBody(call)) {
        finish(request, hexSHA256(""));
    } else if (call.source) {
        finish(request, setSource(request, *headers, call.source.get(), call.sourceSize, call.sourceSHA256));
    } else {
        const auto bytes = kx::newObj<Buffer>();
        bytes->append(reinterpret_cast<const unsigned char*>(call.body.data()), call.body.size());
        const auto source
            = kx::newObj<CNetRequest::CStreamDataSource>(kx::newObj<kx::CBufferStream>(bytes).get()); // keeps the bytes
        finish(request,
            setSource(request, *headers, source.get(), static_cast<long long>(call.body.size()), hexSHA256(call.body)));
    }
}

bool CS3Client::hasBody(const CS3Call& call)
{
    const bool isAsked = call.method == "PUT" || call.method == "POST";
    return isAsked || call.source || !call.body.empty();
}

int CS3Client::performCall(CNetRequest& request, const CS3Call& call)
{
    prepareCall(request, call);
    return performPrepared(request, call.mayRepeat);
}

} // namespace norla
