#include "norla/s3/performS3Call.h"

#include "kx/base/CError.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3DocumentSink.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "sela/CDigestType_MD5.h"
#include "sela/base64.h"

#include <optional>
#include <utility>

namespace norla {

namespace {

void requireNoS3Error(const CXMLElement& root)
{
    constexpr int noHTTPFailure = 0;
    if (root.isNamed("Error"))
        throw CS3Error(CS3ErrorResponse(root), noHTTPFailure);
}

} // namespace

std::string performForBytes(CS3Client& client, CNetRequest& request, CS3Call call)
{
    const auto sink = kx::newObj<CS3DocumentSink>();
    call.sink = sink;
    client.performCall(request, call);
    return sink->getBytes();
}

CS3Document readS3Document(std::string_view bytes, std::string_view rootName, const kx::String& title)
{
    CS3Document document(bytes, title, CS3Document::mostElements);
    const CXMLElement root = document.getRoot();
    requireNoS3Error(root);
    if (!root.isNamed(rootName))
        throw kx::CError("Error parsing Amazon S3 " + title + ": unknown root element '" + root.getName() + "'.");
    return document;
}

CS3Document performForDocument(
    CS3Client& client, CNetRequest& request, CS3Call call, std::string_view rootName, const kx::String& title)
{
    return readS3Document(performForBytes(client, request, std::move(call)), rootName, title);
}

void performForNothing(CS3Client& client, CNetRequest& request, const CS3Call& call)
{
    requireNoErrorIn(performForBytes(client, request, call), call);
}

void requireNoErrorIn(std::string_view answer, const CS3Call& call)
{
    const std::optional<CXMLTree> tree
        = CS3Document::parse(answer, "answer to " + call.method, CS3Document::mostElements);
    if (tree && tree->hasRoot())
        requireNoS3Error(tree->getRoot());
}

void setS3Document(CS3Call& call, std::string document)
{
    const auto md5 = sela::CDigestType_MD5::createDigest();
    md5->update(document.data(), document.size());
    md5->finish();
    call.headers.emplace_back("Content-Type", "application/xml");
    call.headers.emplace_back("Content-MD5", sela::base64Encode(md5->getBytes(), md5->getLength(), true, false));
    call.body = std::move(document);
}

} // namespace norla
