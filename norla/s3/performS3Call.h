#pragma once

#include "kx/text/String.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3Document.h"

#include <string_view>

namespace norla {

class CNetRequest;
class CS3Client;

/// How the characters that XML cannot hold are found in an answer.
enum class S3DocumentText {
    AsXML,
    WithEscapedControls ///< as "%XX": for documents that percent-encode their names, but not everywhere
};

/// Performs a call that a store answers with a document of at most 64 MiB.
/// @param rootName of the document that is expected
/// @param title what messages call it, such as "'list buckets' result"
/// @throws as CS3Client::performCall(), as CS3Document; CS3Error with the HTTP status 0 when the store explains a failure
/// behind the status of a success; kx::CError naming the root when the document is another one
CS3Document performForDocument(CS3Client& client, CNetRequest& request, CS3Call call, std::string_view rootName,
    const kx::String& title, S3DocumentText text = S3DocumentText::AsXML);

/// Performs a call of whose answer nothing is wanted. @throws as above, but not for a document that makes no sense
void performForNothing(CS3Client& client, CNetRequest& request, CS3Call call);

/// Gives the call a document to send, with its type and its MD5, which stores ask for.
void setS3Document(CS3Call& call, std::string document);

} // namespace norla
