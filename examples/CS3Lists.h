#pragma once

#include "examples/CS3Place.h"
#include "examples/CS3Settings.h"
#include "examples/runProgram.h"
#include "examples/terminal.h"
#include "norla/s3/CS3Buckets.h"
#include "norla/s3/CS3FolderEnum.h"
#include "norla/s3/CS3ObjectListing.h"
#include "norla/s3/CS3VersionEnum.h"

#include <string>

/// Prints what a store has, a line each, whose fields stand between tabs. It keeps nothing.
class CS3Lists {
public:
    /// @param settings outlive it
    CS3Lists(norla::CS3Client* client, norla::CNetRequest* request, const CS3Settings& settings)
        : m_client(client)
        , m_request(request)
        , m_settings(settings)
    {
    }

    void showBuckets()
    {
        for (const norla::CS3ListedBucket& bucket : norla::CS3Buckets(m_client, m_request).list())
            print(fields(-1, bucket.creationDate) + shownOnOutput(bucket.name) + '\n');
    }

    /// The objects, folders or versions whose names begin so.
    void show(const CS3Place& place)
    {
        const norla::CS3ListOptions options{.prefix = place.key, .maxKeys = m_settings.pageSize};
        if (m_settings.showsVersions)
            showVersions(place.bucket, options);
        else if (m_settings.showsFolders)
            showAll(norla::CS3FolderEnum(m_client, m_request, place.bucket, options));
        else
            showAll(norla::CS3ObjectListing(m_client, m_request, place.bucket, options));
    }

private:
    /// Size and time; "-" for what is not known.
    static std::string fields(long long size, const kx::String& time)
    {
        return (size < 0 ? "-" : std::to_string(size)) + '\t' + (time.isEmpty() ? "-" : shownOnOutput(time)) + '\t';
    }

    template <typename TList>
    static void showAll(TList&& list)
    {
        while (list.next())
            print(fields(list.getCurrent()->size, list.getCurrent()->lastModified)
                + shownOnOutput(list.getCurrent()->key) + '\n');
    }

    void showVersions(const kx::String& bucket, const norla::CS3ListOptions& options)
    {
        norla::CS3VersionEnum versions(m_client, m_request, bucket, options);
        while (versions.next()) {
            const norla::CS3ListedVersion& version = *versions.getCurrent();
            const char* const kind = version.isDeleteMarker ? "removed" : version.isLatest ? "latest" : "older";
            print(fields(version.size, version.lastModified) + shownOnOutput(version.versionId) + '\t' + kind + '\t'
                + shownOnOutput(version.key) + '\n');
        }
    }

    norla::CS3Client* const m_client;
    norla::CNetRequest* const m_request;
    const CS3Settings& m_settings;
};
