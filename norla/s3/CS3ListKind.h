#pragma once

namespace norla {

/// How one of a store's lists is asked for and where it says how it goes on.
struct CS3ListKind {
    struct CMarker {
        const char* parameter; // null: there is none
        const char* element;   // of the page, which holds the next page's
        bool isName;           // of an object, and encoded as these are
    };

    const char* rootName;
    const char* title;
    const char* selector; // the parameter that asks for the list
    const char* selectorValue;
    const char* maxParameter;
    const char* startParameter;
    CMarker first;
    CMarker second; // tells among those of the same name
};

inline constexpr CS3ListKind s3ObjectList{.rootName = "ListBucketResult",
    .title = "'list objects' result",
    .selector = "list-type",
    .selectorValue = "2",
    .maxParameter = "max-keys",
    .startParameter = "start-after",
    .first = {"continuation-token", "NextContinuationToken", false},
    .second = {nullptr, nullptr, false}};

inline constexpr CS3ListKind s3VersionList{.rootName = "ListVersionsResult",
    .title = "'list versions' result",
    .selector = "versions",
    .selectorValue = "",
    .maxParameter = "max-keys",
    .startParameter = "key-marker",
    .first = {"key-marker", "NextKeyMarker", true},
    .second = {"version-id-marker", "NextVersionIdMarker", false}};

inline constexpr CS3ListKind s3UploadList{.rootName = "ListMultipartUploadsResult",
    .title = "'list uploads' result",
    .selector = "uploads",
    .selectorValue = "",
    .maxParameter = "max-uploads",
    .startParameter = "key-marker",
    .first = {"key-marker", "NextKeyMarker", true},
    .second = {"upload-id-marker", "NextUploadIdMarker", false}};

} // namespace norla
