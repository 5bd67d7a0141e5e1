#pragma once

#include "kx/base/CBase.h"
#include "kx/containers/TArray.h"
#include "kx/text/String.h"
#include "norla/s3/CS3DeleteFailure.h"

#include <functional>
#include <memory>
#include <vector>

namespace norla {

class CNetRequest;
class CS3Client;
class CS3XMLWriter;

/// Removes any number of objects, up to 1,000 with a request ("DeleteObjects"):
/// `while (objects->next()) removal->add(objects->getCurrent()->key);` and at the end `removal->finish();`
///
/// What the store does not remove is collected, for each object, and stops nothing. An object that does not exist
/// counts as removed. Objects whose names XML has no way to write, such as those with U+0001, are removed by requests
/// of their own. Used by one thread at a time.
class KX_EXPORT CS3BatchDelete : public kx::CBase {
public:
    /// How many objects were removed so far, and how many not.
    using Progress = std::function<void(long long removed, long long failed)>;

    /// Sends nothing yet.
    /// @param client, request not null; the caller keeps both as long as methods are called, and may use the request
    /// for something else in between, such as for pages of a list. A client of an endpoint: one that was made with a
    /// key does not sign such requests as stores want it.
    /// @throws kx::CInvalidArgError for null and for an empty bucket name
    CS3BatchDelete(CS3Client* client, CNetRequest* request, const kx::String& bucketName);
    CS3BatchDelete(const CS3BatchDelete&) = delete;
    CS3BatchDelete& operator=(const CS3BatchDelete&) = delete;

    /// Sends nothing: what was added behind the last request is not removed without finish().
    ~CS3BatchDelete() override;

    /// Is called after each request, on the thread that add() or finish() was called on. What it throws ends these;
    /// what was removed before counts as such.
    void setProgress(const Progress& progress) { m_progress = progress; }

    /// Takes note of an object to be removed. May block for a request that removes earlier ones, or this one alone.
    /// @param versionId the version that is removed for ever; empty: the object, of which a store that keeps versions
    /// keeps all
    /// @throws kx::CInvalidArgError for an empty key; kx::CError for one without a UTF-8 form; as finish(). This object
    /// was not taken note of then, and the earlier ones still wait: calling it again tries again.
    void add(const kx::String& key, const kx::String& versionId = {});

    /// Removes what waits. May block for a request; calling it again after an error tries again.
    /// @throws CS3Error, CCURLError as CS3Client::performCall(), when the request as a whole has failed; kx::CError
    /// naming the bucket when the answer makes no sense or is about objects that were not to be removed
    void finish();

    /// What was not removed, in the store's order; grows until it is taken.
    const kx::TArray<CS3DeleteFailure>& getFailures() const noexcept { return m_failures; }
    kx::TArray<CS3DeleteFailure> takeFailures();

    long long getRemovedCount() const noexcept { return m_removedCount; }

private:
    struct CItem {
        kx::String key;
        kx::String versionId;
    };

    void removeAlone(const CItem& item);
    void startDocument();
    void count(size_t removed, kx::TArray<CS3DeleteFailure> failures);
    kx::TArray<CS3DeleteFailure> sendWaiting();

    CS3Client* const m_client;
    CNetRequest* const m_request;
    const kx::String m_bucketName;
    Progress m_progress;
    std::vector<CItem> m_waiting;
    std::unique_ptr<CS3XMLWriter> m_document; // of these
    kx::TArray<CS3DeleteFailure> m_failures;
    long long m_removedCount = 0;
    long long m_failedCount = 0;
};

} // namespace norla
