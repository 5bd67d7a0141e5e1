#pragma once

#include "examples/CInterruption.h"
#include "examples/CProgressBar.h"
#include "examples/CS3Lists.h"
#include "examples/CS3Place.h"
#include "examples/CS3Settings.h"
#include "examples/CSentFile.h"
#include "examples/CTargetFile.h"
#include "examples/naming.h"
#include "examples/objectNotes.h"
#include "examples/runProgram.h"
#include "examples/terminal.h"
#include "norla/s3/CS3BatchDelete.h"
#include "norla/s3/CS3Buckets.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3ObjectCopy.h"
#include "norla/s3/CS3ObjectListing.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3ParallelUpload.h"

#include <atomic>
#include <iostream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

/// What the program does with an S3 store, a method for each command, with its operands.
class CS3Commands {
public:
    using Words = std::vector<std::string>;

    CS3Commands(kx::P<norla::CS3Client> client, CS3Settings settings)
        : m_client(std::move(client))
        , m_settings(std::move(settings))
        , m_objects(m_client.get(), m_request.get())
    {
    }

    void makeBucket(const Words& words)
    {
        const kx::String bucket = textOf(words[0], "BUCKET");
        naming(bucket, m_request.get(), [&] { norla::CS3Buckets(m_client.get(), m_request.get()).create(bucket); });
    }

    void removeBucket(const Words& words)
    {
        const kx::String bucket = textOf(words[0], "BUCKET");
        naming(bucket, m_request.get(), [&] { norla::CS3Buckets(m_client.get(), m_request.get()).remove(bucket); });
    }

    /// Several parts at once, if there are several.
    void put(const Words& words)
    {
        const CS3Place place = CS3Place::ofObject(words[1]);
        const auto file = kx::newObj<CSentFile>(words[0]);
        const long long size = file->getLength();
        constexpr long long usualPart = 8 << 20;
        if (size > (m_settings.partSize == 0 ? usualPart : m_settings.partSize))
            putByParts(*file, place);
        else
            naming(place.name(), m_request.get(),
                [&] { m_objects.put(place.bucket, place.key, file.get(), size, m_settings.object); });
        file->endProgress();
        std::cerr << size << " bytes stored\n";
    }

    /// All at once. When the store is busy or the connection is lost it begins anew.
    void get(const Words& words)
    {
        const CS3Place place = CS3Place::ofObject(words[0]);
        const auto file = kx::newObj<CTargetFile>(*m_request, words[1]);
        norla::CS3ObjectInfo info;
        naming(place.name(), m_request.get(),
            [&] { info = m_objects.get(place.bucket, place.key, file.get(), {.versionId = m_settings.versionId}); });
        file->finish();
        std::cerr << info.size << " bytes fetched\n";
    }

    /// The objects of a bucket, or without a word the buckets.
    void list(const Words& words)
    {
        CS3Lists lists(m_client.get(), m_request.get(), m_settings);
        if (words.empty()) {
            if (m_settings.showsFolders || m_settings.showsVersions || m_settings.pageSize >= 0)
                throw usageError("BUCKET is missing");
            naming("buckets", m_request.get(), [&] { lists.showBuckets(); });
            return;
        }
        const CS3Place place(words[0]);
        naming(place.name(), m_request.get(), [&] { lists.show(place); });
    }

    void copy(const Words& words) { copyOnStore(words); }

    void move(const Words& words)
    {
        const CS3Place source = CS3Place::ofObject(words[0]);
        if (source == CS3Place(words[1]))
            throw usageError("the object has that name already"); // it would be removed
        const bool isUndisturbed = copyOnStore(words);
        naming(source.name(), m_request.get(), [&] {
            if (!isUndisturbed)
                throw kx::CError("it was copied and is not removed: a signal has come");
            m_objects.remove(source.bucket, source.key);
        });
    }

    /// A URL for whoever has no key of the store.
    void presign(const Words& words)
    {
        const CS3Place place = CS3Place::ofObject(words[0]);
        naming(place.name(), m_request.get(), [&] {
            print(m_client->presignObjectURL(*m_request, "GET", place.bucket, place.key, m_settings.lifetime).toUTF8()
                + '\n');
        });
    }

    /// What the store does not remove is told, and stops nothing.
    void remove(const Words& words)
    {
        if (!m_settings.versionId.isEmpty() && (words.size() > 1 || m_settings.isRecursive))
            throw usageError("a version is one of one object");
        std::vector<CS3Place> places;
        for (const std::string& word : words)
            places.push_back(m_settings.isRecursive ? CS3Place(word) : CS3Place::ofObject(word));
        long long failed = 0;
        for (size_t i = 0; i < places.size();) { // those of one bucket together
            const kx::String bucket = places[i].bucket;
            norla::CS3BatchDelete removal(m_client.get(), m_request.get(), bucket);
            naming(bucket, m_request.get(), [&] {
                for (; i < places.size() && places[i].bucket == bucket; ++i)
                    failed += add(removal, places[i]);
                removal.finish();
            });
            failed += tellFailures(removal, bucket);
            if (m_settings.isRecursive)
                std::cerr << "objects removed: " << removal.getRemovedCount() << '\n';
        }
        if (failed > 0)
            throw kx::CError("objects that were not removed: " + kx::toString(failed));
    }

    /// What the store has noted of an object, under the names of its headers.
    void stat(const Words& words)
    {
        const CS3Place place = CS3Place::ofObject(words[0]);
        norla::CS3ObjectInfo info;
        naming(place.name(), m_request.get(),
            [&] { info = m_objects.head(place.bucket, place.key, {.versionId = m_settings.versionId}); });
        const auto& headers = m_request->getResponseHeaderMap();
        const auto modified = headers.find("last-modified");
        showAlways("content-length", info.size < 0 ? "" : kx::toString(info.size));
        showAlways("content-type", info.contentType);
        showAlways("last-modified", modified == headers.end() ? kx::String() : modified->second);
        showAlways("etag", info.eTag);
        showIfSaid("x-amz-version-id", info.versionId);
        showIfSaid("x-amz-storage-class", info.storageClass);
        showIfSaid("x-amz-server-side-encryption", info.encryption);
        showIfSaid("cache-control", info.cacheControl);
        showIfSaid("content-disposition", info.contentDisposition);
        showIfSaid("content-encoding", info.contentEncoding);
        showIfSaid("content-language", info.contentLanguage);
        for (const auto& [name, value] : info.metadata)
            showAlways("x-amz-meta-" + name, value);
    }

    /// Gives an object those tags alone; without any, prints those that it has.
    void tag(const Words& words)
    {
        const CS3Place place = CS3Place::ofObject(words[0]);
        kx::TArray<kx::String> texts;
        for (size_t i = 1; i < words.size(); ++i)
            texts.push_back(textOf(words[i], "NAME=VALUE"));
        const NamedTexts tags = namedTextsOf(texts, "tag");
        naming(place.name(), m_request.get(), [&] {
            if (!tags.empty()) {
                m_objects.setTags(place.bucket, place.key, tags, m_settings.versionId);
                return;
            }
            for (const auto& [name, value] : m_objects.getTags(place.bucket, place.key, m_settings.versionId))
                print(shownOnOutput(name) + '=' + shownOnOutput(value) + '\n');
        });
    }

    /// Takes all tags of an object away.
    void untag(const Words& words)
    {
        const CS3Place place = CS3Place::ofObject(words[0]);
        naming(place.name(), m_request.get(),
            [&] { m_objects.removeTags(place.bucket, place.key, m_settings.versionId); });
    }

private:
    static void showAlways(const kx::String& name, const kx::String& value)
    {
        print(shownOnOutput(name) + ": " + shownOnOutput(value) + '\n');
    }

    static void showIfSaid(const kx::String& name, const kx::String& value)
    {
        if (!value.isEmpty())
            showAlways(name, value);
    }

    /// An object that is too large for one request is copied by parts.
    /// @return whether no signal has come until the copy was there
    bool copyOnStore(const Words& words)
    {
        const CS3Place source = CS3Place::ofObject(words[0]);
        const CS3Place target = CS3Place::ofObject(words[1]);
        CProgressBar progress;
        std::atomic<bool> isCancelled = false;
        norla::CS3ObjectCopyOptions options{.partSize = m_settings.partSize, .retries = m_settings.retries};
        if (m_settings.partSize != 0)
            options.threshold = m_settings.partSize;
        options.onProgress = [&](long long done, long long total) {
            progress.show(static_cast<double>(done), static_cast<double>(total));
            if (isCancelled)
                throw kx::CError("the copy was cancelled");
        };
        norla::CS3ObjectCopy copying(m_client.get(), m_request.get(), options);
        {
            const CInterruption interruption([&] {
                tellCancelling();
                isCancelled = true;
            });
            naming(source.name() + " to " + target.name(), m_request.get(), [&] {
                copying.copy({.bucketName = source.bucket, .objectName = source.key, .versionId = m_settings.versionId},
                    target.bucket, target.key);
            });
        } // behind which a signal that has come has been told
        return !isCancelled;
    }

    /// It may take as long as the store takes for an answer.
    static void tellCancelling()
    {
        std::cerr << (isatty(STDERR_FILENO) != 0 ? "\n" : "") << "s3: cancelling; a second signal ends at once\n";
    }

    void putByParts(CSentFile& file, const CS3Place& place)
    {
        CProgressBar progress;
        file.hideProgress(); // it is read ahead
        constexpr long long memory = 32LL << 20;
        norla::CS3ParallelUpload upload(m_client.get(), m_request.get(),
            {.multipart = norla::CS3MultipartOptions::of(m_settings.object),
                .partSize = m_settings.partSize,
                .memory = memory,
                .retries = m_settings.retries,
                .onProgress = [&](long long done, long long total) {
                    progress.show(static_cast<double>(done), static_cast<double>(total));
                }});
        const CInterruption interruption([&] {
            tellCancelling();
            upload.cancel();
        });
        naming(place.name(), m_request.get(), [&] { upload.upload(&file, place.bucket, place.key); });
    }

    /// An object, or all whose names begin so. @return how many were not removed so far
    long long add(norla::CS3BatchDelete& removal, const CS3Place& place)
    {
        if (!m_settings.isRecursive) {
            removal.add(place.key, m_settings.versionId);
            return tellFailures(removal, place.bucket);
        }
        norla::CS3ObjectListing objects(
            m_client.get(), m_request.get(), place.bucket, {.prefix = place.key, .maxKeys = m_settings.pageSize});
        long long failed = 0;
        while (objects.next()) {
            removal.add(objects.getCurrent()->key);
            failed += tellFailures(removal, place.bucket);
        }
        return failed;
    }

    static long long tellFailures(norla::CS3BatchDelete& removal, const kx::String& bucket)
    {
        const auto failures = removal.takeFailures();
        for (const norla::CS3DeleteFailure& failure : failures) {
            const kx::String reason = failure.message.isEmpty() ? "" : failure.message + " ";
            tellError("s3", kx::CError(bucket + "/" + failure.key + ": " + reason + "(" + failure.code + ")"));
        }
        return static_cast<long long>(failures.size());
    }

    const kx::P<norla::CS3Client> m_client;
    const CS3Settings m_settings;
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
    norla::CS3Objects m_objects;
};
