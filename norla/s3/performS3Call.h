#pragma once

#include "kx/text/String.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3Document.h"

#include <string>
#include <string_view>

namespace norla {

class CNetRequest;
class CS3Client;

/// Performs a call that a store answers with a document. @return its bytes, 16 MiB at most
/// @throws as CS3Client::performCall(); kx::CError when the answer is longer
std::string performForBytes(CS3Client& client, CNetRequest& request, CS3Call call);

/// Reads such a document.
/// @param rootName of the document that is expected
/// @param title what messages call it, such as "'list buckets' result"
/// @throws as CS3Document, also for more than CS3Document::mostElements; CS3Error with the HTTP status 0 when the store
/// explains a failure behind the status of a success; kx::CError naming the root when the document is another one
CS3Document readS3Document(std::string_view bytes, std::string_view rootName, const kx::String& title);

/// Both. @throws as above
CS3Document performForDocument(
    CS3Client& client, CNetRequest& request, CS3Call call, std::string_view rootName, const kx::String& title);

/// Performs a call of whose answer nothing is wanted. @throws as above, but for a document that makes no
/// sense only when it has more elements than any has
void performForNothing(CS3Client& client, CNetRequest& request, const CS3Call& call);

/// @throws CS3Error with the HTTP status 0 for an answer that is an error document
void requireNoErrorIn(std::string_view answer, const CS3Call& call);

/// Gives the call a document to send, with its type and its MD5, which stores ask for.
void setS3Document(CS3Call& call, std::string document);

} // namespace norla
