#pragma once

#include "kx/base/CBase.h"
#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "kx/containers/TBuffer.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CDeadlines.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CRetryPolicy.h"
#include "norla/core/CSafeDefaults.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3Corrections.h"
#include "norla/s3/CS3Endpoint.h"
#include "norla/s3/CS3ListObjectsResult.h"
#include "norla/s3/IS3Credentials.h"
#include "norla/s3/IS3Signer.h"

#include <atomic>
#include <exception>
#include <functional>
#include <optional>
#include <string>

namespace sela {
class CDigest;
}

namespace norla {

class CNetHeaders;
class CS3ChunkedSource;

/// Objects in the buckets of Amazon S3 or of a store that speaks its REST protocol.
///
/// Every operation comes as a pair: prepare...Request() resets a request and fills it, for callers who perform it
/// themselves; the operation prepares and performs it, again and again as long as the failure looks transient. One
/// request may serve any number of operations, one after the other, and so reuses its connection.
///
/// Bucket and object names are Unicode text and need no escaping; "." and ".." are names as others. Names are checked
/// before the request is touched. The client is used by one thread at a time.
///
/// A client that uses https follows no redirect to anything else: it fails with CURLE_UNSUPPORTED_PROTOCOL.
class KX_EXPORT CS3Client : public virtual kx::CBase {
public:
    using HeaderMap = kx::TMap<kx::String, kx::String>;
    using Buffer = kx::TBuffer<unsigned char>;

    /// A client that addresses buckets in the path and signs with the "AWS" signature (HMAC-SHA1).
    /// @param useSSL whether to use https rather than http
    /// @param endpointHost "host" or "host:port" of the store, fixed for the client's life
    /// @throws kx::CInvalidArgError when the host is empty or more than a host and a port, or when the access key id
    /// holds a line end; kx::CError when the secret has no UTF-8 form
    CS3Client(const kx::String& accessKeyId, const kx::String& secretAccessKey, bool useSSL,
        const kx::String& endpointHost = "s3.amazonaws.com");

    /// A client for the stores of today. Its requests follow no redirects, which would need another signature.
    /// @param credentials not null, asked for each request; a reference is kept
    /// @param signer null for the one that the endpoint names; a reference is kept
    /// @throws kx::CInvalidArgError when the credentials are null, or the host or the region is none
    CS3Client(const CS3Endpoint& endpoint, IS3Credentials* credentials, IS3Signer* signer = nullptr);
    CS3Client(const CS3Client&) = delete;
    CS3Client& operator=(const CS3Client&) = delete;
    ~CS3Client() override;

    /// How often a failed request is tried again, 50 at first; 0 and less for never. Looked at by performRequest().
    /// Each attempt may take as long as a request may: 30 seconds to connect, 30 seconds in which nothing moves, and no
    /// limit on the whole, unless setDeadlines() says otherwise. A program in which somebody waits wants a small number
    /// here, and so does one that asks for headers: status 400 without a document, as in all answers to a HEAD, counts
    /// as transient, whatever is wrong with the request.
    void setMaxRetries(int maxRetries) { m_maxRetries = maxRetries; }

    /// Lets performRequest() try again as the policy says, in place of setMaxRetries(): with growing pauses, and no
    /// longer than its budget. Where it has no word of its own, also the service's codes of performRequest() count as
    /// transient.
    void setRetryPolicy(const CRetryPolicy& policy);

    /// The following two affect requests prepared afterwards, as CNetRequest::setVerbose() (off at first) and
    /// setSSLVerifyPeer() (on at first).
    void setPrintDebugInfo(bool print) { m_printDebugInfo = print; }
    void setSSLVerifyPeer(bool verify) { m_sslVerifyPeer = verify; }

    /// The certificates that the store is verified against, for requests prepared afterwards, as
    /// CNetRequest::setRootCertBundlePath(). Empty, as at first, for libcurl's own.
    void setRootCertBundlePath(const CNetRequest::Path& path) { m_rootCertBundlePath = path; }

    /// What every request that is prepared afterwards begins with, behind its reset, as CNetRequest::setSafeDefaults();
    /// those of operations that perform at once, too. What this client sets by itself counts in its place: redirects
    /// out of https are followed nowhere, and setSSLVerifyPeer(false) believes every issuer.
    ///
    /// An object that is fetched into the default receive buffer may have as many bytes as maxReceiveBuffer says.
    ///
    /// A client of an endpoint begins with them, but without a limit of that buffer. One that was made with a key
    /// begins with nothing; in its performCall() an answer that breaks off in its header is an error all the same.
    void setSafeDefaults(const CSafeDefaults& defaults = {}) { m_safeDefaults = defaults; }

    /// How long may be waited for what, as CNetRequest::setDeadlines(), in each request that is prepared afterwards:
    /// one attempt, one part of an upload, one page of a listing. Without that call a request's own limits count.
    /// A negative one is an error of what is then prepared.
    void setDeadlines(const CDeadlines& deadlines) { m_deadlines = deadlines; }

    /// Whether bodies that come from a source are signed as they are sent, chunk by chunk, by a client that signs in
    /// version 4: for requests prepared afterwards. At first only where no TLS protects them.
    void setSignSources(bool sign) { m_signSources = sign; }

    /// Whether listings are asked for with percent-encoded names ("encoding-type=url"), for requests prepared
    /// afterwards; off at first. Only so can names be listed that hold what XML has no way to write, such as U+0001.
    /// listObjects(), and with it CS3ObjectEnum, decodes the names of an answer that says that they are encoded.
    void setURLEncodedListings(bool encoded) { m_urlEncodedListings = encoded; }

    /// Stores an object, replacing an earlier one. The bytes are copied.
    /// Below 1 MiB no answer to "Expect: 100-continue" is waited for before the bytes are sent.
    /// @param size in bytes, 0 or more
    /// @param contentType such as "image/png"; empty leaves it to the store
    /// @throws kx::CInvalidArgError for an empty name, a negative size or a content type with a line end; the others as
    /// performRequest()
    void preparePutObjectRequest(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName,
        const void* data, int size, const kx::String& contentType);
    void putObject(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName, const void* data,
        int size, const kx::String& contentType);

    /// The same for bytes that come from a source, of which nothing is kept in memory.
    /// @param source not null, gives exactly `size` bytes; a reference is kept until the request is reset. Each attempt
    /// seeks to its start first.
    /// @param size in bytes, 0 or more
    /// @param contentMD5 the Base64 form of the MD5 of the bytes (sela::CDigestType_MD5, sela::base64Encode()), by
    /// which the store checks what arrives; empty for no such check
    void preparePutObjectRequest(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName,
        CNetRequest::IDataSource* source, long long size, const kx::String& contentMD5, const kx::String& contentType);
    void putObject(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName,
        CNetRequest::IDataSource* source, long long size, const kx::String& contentMD5, const kx::String& contentType);

    /// Fetches an object, or a part of it, into the request's default receive buffer. A sink that is set on a prepared
    /// request gets the data of every attempt, and the store's error documents too: its write() is told the status.
    /// @param start of the first byte, counted from 0
    /// @param length in bytes; -1 up to the end; 0 asks for the headers alone. A part that ends behind the object's end
    /// is cut there, one that starts behind it is an error (status 416).
    ///
    /// getObject() looks at what a success holds: a store that ignores what it was asked for answers with the whole
    /// object. Who performs a prepared request looks at status and Content-Range himself (CHTTPContentRange).
    /// @throws kx::CInvalidArgError also for a negative start, a length below -1 and an end beyond 64 bits; getObject()
    /// kx::CError "The store was asked for ... and gave something else: ..." when a part was asked for and the answer
    /// is neither that part nor, from 0 on, a whole object that is no longer; the buffer holds the answer then
    void prepareGetObjectRequest(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName,
        long long start, long long length);
    void getObject(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName, long long start,
        long long length);

    void prepareGetObjectHeadersRequest(
        CNetRequest& request, const kx::String& bucketName, const kx::String& objectName);

    /// @return lower-case header name to value
    HeaderMap getObjectHeaders(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName);

    /// False also when the bucket does not exist.
    bool objectExists(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName);

    /// In bytes; -1 when the object does not exist.
    /// @throws kx::CError "Error: Content-Length header was expected but not included in response."
    long long getObjectSize(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName);

    /// Copies within one bucket, on the store's side. It is performed once, without retries.
    /// @throws CCURLError; CS3Error when the store reports the failure after the status of a success; as
    /// CS3CopyObjectResult
    void prepareCopyObjectRequest(CNetRequest& request, const kx::String& bucketName,
        const kx::String& existingObjectName, const kx::String& newObjectName);
    void copyObject(CNetRequest& request, const kx::String& bucketName, const kx::String& existingObjectName,
        const kx::String& newObjectName);

    /// Throws what the body of the answer to a copy reports, a CS3Error with the HTTP status 0; returns after a
    /// success.
    void checkCopyObjectResult(const Buffer* responseData);

    /// Removes an object. One that does not exist is a success.
    void prepareDeleteObjectRequest(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName);
    void deleteObject(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName);

    /// Lists one page of a bucket, ordered by name. CS3ObjectEnum walks all pages.
    /// @param prefix only objects whose names begin with it; empty for all
    /// @param delimiter names that hold it behind the prefix are summed up as common prefixes; empty for none
    /// @param marker only names behind it; empty for all
    /// @param maxKeys objects and prefixes at most; -1 lets the store choose
    void prepareListObjectsRequest(CNetRequest& request, const kx::String& bucketName, const kx::String& prefix,
        const kx::String& delimiter, const kx::String& marker, int maxKeys);
    /// @throws also as CS3ListObjectsResult
    kx::P<CS3ListObjectsResult> listObjects(CNetRequest& request, const kx::String& bucketName,
        const kx::String& prefix, const kx::String& delimiter, const kx::String& marker, int maxKeys);

    /// Performs a prepared request. After a transient failure it waits 100 ms and tries again, with the same date and
    /// signature, and says so in the log; it blocks all the while and cannot be interrupted: setMaxRetries() bounds how
    /// long. Transient are the service's codes InternalError, SlowDown, IncompleteBody, InvalidDigest, OperationAborted
    /// and RequestTimeTooSkewed; without a code the HTTP statuses 400, 409, 500 and 503; without an answer connections
    /// that could not be made, timed out or were lost.
    ///
    /// A client of an endpoint signs each attempt anew. Where the store forbids, and its clock is more than five
    /// minutes from ours, the request is made once more by the store's time, which counts from then on; where it says
    /// that the bucket is in another region, once more for that one, if the signer is the endpoint's own. Each of
    /// the two is done once a call at most, whatever the attempts; a region whose host is not there counts for
    /// nothing. Neither leads to another scheme. A failure without a document, such as that of a HEAD, gets the code
    /// that its status stands for.
    /// @return how many attempts it took, 1 or more
    /// @throws CS3Error when the store explained the failure, else CCURLError
    int performRequest(CNetRequest& request);

    /// For operations that have no word of their own here: resets the request and makes it one.
    /// @throws kx::CInvalidArgError for an object without a bucket, an empty method or parameter name, a negative size
    /// and for a line end in a header; for a customer's key ("x-amz-server-side-encryption-customer-key", also of the
    /// source of a copy) without TLS
    void prepareCall(CNetRequest& request, const CS3Call& call);

    /// Prepares and performs it. @return, @throws as performRequest()
    int performCall(CNetRequest& request, const CS3Call& call);

    // What the prepare methods are made of.

    /// Resets the request and gives it URL, settings and, for a client that was made with a key, a "Date" header.
    /// @return the request's header list, to be added to
    kx::P<CNetHeaders> beginPrepareRequest(CNetRequest& request, const kx::String& url);

    /// Signs the request. Nothing that is signed (method, headers, URL) may change afterwards.
    /// @throws as IS3Credentials::get() and IS3Signer::sign()
    void finishPrepareRequest(CNetRequest& request);

    /// The object's URL, in which every "/" of its name is escaped.
    /// @throws kx::CInvalidArgError for a bucket that would stand in the host's name and cannot
    kx::String getObjectURL(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName);

    /// A URL by which whoever has it may fetch the object, or do with it what the method says, for a while.
    /// @param method "GET", "PUT", "HEAD" or "DELETE"
    /// @param lifetime whole seconds from now on, 1 at least; with signatures V4 seven days at most
    /// @throws kx::CInvalidArgError for an empty name or method, as getObjectURL() and as IS3Signer::presign(); as
    /// IS3Credentials::get()
    kx::String presignObjectURL(CNetRequest& request, const kx::String& method, const kx::String& bucketName,
        const kx::String& objectName, kx::CTimeSpan lifetime);

    /// Makes a header value of several lines a single one: every line feed with the white space behind it becomes one
    /// space. A carriage return before it stays.
    static void makeSingleLineHeaderValue(kx::String& value);

    // What a signature of a client with a key is made of; of one with an endpoint its signer tells.

    /// The value under exactly that name, empty when there is none.
    static kx::String getHeaderFromMap(const HeaderMap& map, const kx::String& name);

    /// A line for every "x-amz-" header, by name.
    /// @param map lower-case header name to value
    static kx::String getCanonicalizedAMZHeaders(const HeaderMap& map);

    /// The path, with the query only where that is a sub-resource such as "?acl".
    /// @throws kx::CError "Invalid Amazon S3 query URL: '...'." for a URL without "://" or without a path
    static kx::String getCanonicalizedResource(const kx::String& url);

    /// What the store will compute from the request too, and sign with its copy of the secret.
    static kx::String getStringToSign(CNetRequest* request);

    /// Base64, 28 characters.
    kx::String getSignature(CNetRequest* request);

    /// Adds the "Authorization" header, and lets "x-amz-" headers with an empty value be sent. Call it once, when the
    /// request is complete.
    void signRequest(CNetRequest* request);

    // What is known about a failure.

    /// The service's code and the HTTP status in decimal, each empty when the error has none.
    static void extractErrorCodes(const std::exception& e, kx::String& s3Code, kx::String& httpCode);

    /// Whether the failure looks transient.
    bool shouldRetryRequest(const std::exception& e) const;

    /// Whether the store asks for fewer requests.
    bool shouldSlowDown(const std::exception& e) const;

    /// Whether object or bucket do not exist.
    bool isNotFoundError(const std::exception& e) const;

    /// Throws a CS3Error when a CCURLError's response data are the service's error document, with that error as its
    /// cause. Otherwise returns, and logs response data that it does not understand.
    void tryThrowBetterError(std::exception& e, const Buffer& responseData);

private:
    friend class CS3Attempt; // for requests that others perform
    friend class CS3ClientClaim;
    friend class CS3PerformedBy; // the same of those that this client performs

    /// Where requests go, and what they are signed for.
    struct CPlace {
        kx::String endpointURL;
        kx::P<IS3Signer> signer;
        kx::String region;
        kx::String url; // of a request
    };

    /// An attempt at a request: it is made again by what the store says of time and region.
    struct CCorrectedAttempt {
        CPlace begun;  // before the first correction
        int known = 0; // m_corrected when the request was signed
        bool isSignedAgain = false;
        bool isTimeCorrected = false;  // by this attempt, or one before it at the same request
        bool isRegionFollowed = false; // the same
    };

    bool usesTLS() const { return m_endpointURL.startsWith("https:"); }
    kx::String bucketURL(CNetRequest& request, const kx::String& bucketName);
    void preparePut(CNetRequest& request, const kx::String& objectURL, CNetRequest::IDataSource* source, long long size,
        const kx::String& contentMD5, const kx::String& contentType, const std::string& payloadSHA256);
    void finish(CNetRequest& request, const std::string& payloadSHA256);
    std::string bucketOfHost(const kx::String& url) const;
    static bool saysNotFound(const kx::CError& error);

    static bool hasBody(const CS3Call& call);
    std::string setSource(CNetRequest& request, CNetHeaders& headers, CNetRequest::IDataSource* source, long long size,
        const std::string& payloadSHA256);
    static void leaveOutExpect(CNetHeaders& headers, long long size);
    static void sendPlainly(CNetRequest& request, const CS3ChunkedSource& chunked);

    void performOnce(CNetRequest& request);
    void throwBetterError(CNetRequest& request, std::exception& error);
    int performPrepared(CNetRequest& request, bool mayRepeat);
    int performByPolicy(CNetRequest& request, bool mayRepeat);
    void explainFailure(CNetRequest& request, const std::exception& error);
    void explainRedirect(const std::exception& error) const;
    void beginAttempt(CCorrectedAttempt& attempt, CNetRequest& request) const;
    bool isCorrected(CCorrectedAttempt& attempt, CNetRequest& request, const std::exception& error);
    bool correctTime(CCorrectedAttempt& attempt, CNetRequest& request);
    bool correctRegion(CCorrectedAttempt& attempt, CNetRequest& request, const std::exception& error);
    void performAttempt(CCorrectedAttempt& attempt, CNetRequest& request);
    void goBack(CNetRequest& request, const CPlace& place);
    void signAgain(CNetRequest& request);
    kx::String md5Of(const void* data, size_t size);

    kx::String m_endpointURL; // ends in "/"
    const kx::P<sela::CDigest> m_md5;
    const kx::String m_accessKeyId;
    const std::string m_secretAccessKeyUTF8;
    const CS3Endpoint::Addressing m_addressing = CS3Endpoint::Addressing::Path;
    const kx::P<IS3Credentials> m_credentials; // null for a client with a key
    kx::P<IS3Signer> m_signer;                 // the same
    kx::String m_region;                       // of the signer, if that is the endpoint's own; else empty
    CS3Corrections m_corrections;
    int m_corrected = 0; // how often time or region have changed
    std::optional<CRetryPolicy> m_retryPolicy;
    std::function<void(CNetRequest&)> m_performer; // null: each request performs itself
    std::atomic<bool> m_isClaimed = false;
    std::optional<bool> m_signSources;
    int m_maxRetries = 50;
    bool m_printDebugInfo = false;
    bool m_sslVerifyPeer = true;
    bool m_urlEncodedListings = false;
    CNetRequest::Path m_rootCertBundlePath;
    std::optional<CSafeDefaults> m_safeDefaults;
    std::optional<CDeadlines> m_deadlines;
    Buffer m_signatureBuffer;
};

} // namespace norla
