#pragma once

#include "kx/containers/TArray.h"
#include "kx/text/String.h"
#include "norla/s3/CS3UploadedPart.h"

#include <string>
#include <string_view>

namespace norla {

// The documents of uploads by parts. White space before a document, by which a store keeps the connection open while it
// works, is passed over. What is an "Error" document is thrown as CS3Error with the HTTP status 0; what is none of what
// was asked for, or says what makes no sense, is a kx::CError which names the value.

inline constexpr int mostS3Parts = 10'000;

struct CS3PartPage {
    kx::TArray<CS3UploadedPart> parts; // by number
    int nextMarker = 0;                // greater than the one that was asked for; 0: the list ends here
};

/// Of an InitiateMultipartUploadResult.
kx::String uploadIdIn(std::string_view document);

/// Of a CompleteMultipartUploadResult; empty when it says none, as Ceph's gateway does not.
kx::String completedETagIn(std::string_view document);

/// @param root such as "CopyPartResult"
kx::String eTagIn(std::string_view document, const char* root);

/// Of a ListPartsResult. @param marker the one that was asked for
CS3PartPage partsIn(std::string_view document, int marker);

/// A CompleteMultipartUpload. @param parts by number
std::string completionOf(const kx::TArray<CS3UploadedPart>& parts);

/// @throws kx::CError for what no entity tag can be
/// @param what gives it, such as "part 3"
void requireETag(const kx::String& eTag, const kx::String& what);

/// Without quotes; empty when it is no MD5.
std::string md5InETag(const kx::String& eTag);

/// That of the object which such parts make; empty when the parts' tags are no MD5s.
std::string eTagOfParts(const kx::TArray<CS3UploadedPart>& parts);

/// Compares an object's ETag with the parts that it was made of, where the ETag says how many these were; and where the
/// MD5s of all parts are known, with these.
/// @param isOfBytes whether ETags of the store speak of the bytes, and not of encrypted ones
/// @throws kx::CError naming both
void requireETagOfParts(
    const kx::String& eTag, const kx::TArray<CS3UploadedPart>& parts, bool isOfBytes, const kx::String& objectName);

} // namespace norla
