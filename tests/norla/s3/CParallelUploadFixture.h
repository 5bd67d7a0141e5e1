#pragma once

#include "kx/streams/CBufferStream.h"
#include "kx/text/hex.h"
#include "norla/core/CStreamDataSource.h"
#include "norla/s3/CS3ParallelUpload.h"
#include "sela/CDigest.h"
#include "tests/norla/s3/CMultipartFixture.h"
#include "tests/support/errorOf.h"

#include <gmock/gmock.h>

#include <string>

/// Uploads by several parts at once, from memory, without pauses between attempts.
class CParallelUploadFixture : public CMultipartFixture {
protected:
    static constexpr size_t leastPart = 5 << 20;

    CParallelUploadFixture()
    {
        m_options.partSize = leastPart;
        m_options.retries.firstPause = {};
        m_options.onStarted = [this](const kx::String& id) { m_startedId = id; };
    }

    kx::String upload(const std::string& content) { return upload(store(), content); }

    kx::String upload(norla::CS3Client& client, const std::string& content)
    {
        m_upload = kx::newObj<norla::CS3ParallelUpload>(&client, &request(), m_options);
        return run(content);
    }

    kx::String run(const std::string& content)
    {
        const auto bytes = kx::newObj<norla::CNetRequest::Buffer>();
        bytes->append(reinterpret_cast<const unsigned char*>(content.data()), content.size());
        const auto source = kx::newObj<norla::CStreamDataSource>(kx::newObj<kx::CBufferStream>(bytes).get());
        return m_upload->upload(source.get(), "bucket", "key");
    }

    /// Takes a part and answers so.
    void answerPart(size_t size, const std::string& bytes)
    {
        server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readBytes(size).send(bytes);
    }

    static std::string md5Of(const std::string& bytes)
    {
        sela::CDigest digest("MD5");
        digest.update(bytes.data(), bytes.size());
        digest.finish();
        return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()}).toUTF8();
    }

    static std::string tagOf(const std::string& bytes) { return "\"" + md5Of(bytes) + "\""; }

    norla::CS3ParallelUploadOptions m_options;
    kx::P<norla::CS3ParallelUpload> m_upload;
    kx::String m_startedId;
    const std::string m_first = std::string(leastPart, 'a');
    const std::string m_second = std::string(leastPart, 'b');
};
