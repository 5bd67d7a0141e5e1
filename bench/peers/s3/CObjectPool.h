#pragma once

#include "bench/peers/s3/CDigestedFile.h"
#include "bench/peers/s3/s3Work.h"
#include "norla/pool/CTransferPool.h"
#include "norla/s3/CS3Client.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <future>
#include <utility>

namespace bench {

/// Many small objects in a pool, on whose thread each end prepares and starts the next transfer. Used once.
class CObjectPool {
public:
    CObjectPool(norla::CS3Client& client, const kx::String& bucket, std::string folder)
        : m_client(client)
        , m_bucket(bucket)
        , m_folder(std::move(folder))
    {
    }

    /// From files of these names.
    void put(const Names& names)
    {
        run(names, [this](CSlot& slot, const std::string& name) {
            const std::string bytes = bytesOf(m_folder + '/' + name);
            m_client.preparePutObjectRequest(*slot.request, m_bucket, kx::String::fromUTF8(name), bytes.data(),
                static_cast<int>(bytes.size()), kx::String());
        });
    }

    /// Into files of these names.
    void get(const Names& names)
    {
        run(names, [this](CSlot& slot, const std::string& name) {
            m_client.prepareGetObjectRequest(*slot.request, m_bucket, kx::String::fromUTF8(name), 0, -1);
            slot.file = kx::newObj<CDigestedFile>(*slot.request, CFilePath::fromBytes(m_folder + '/' + name));
            slot.request->setReceiveDataSink(slot.file.get());
        });
    }

private:
    using CFilePath = norla::CNetRequest::Path;

    struct CSlot {
        kx::P<norla::CNetRequest> request = kx::newObj<norla::CNetRequest>();
        kx::P<CDigestedFile> file = {}; // of an object that is fetched
    };

    using CPrepare = std::function<void(CSlot&, const std::string& name)>;

    /// What prepares uses the client and runs on one thread at a time: here before the first start, then on the pool's.
    void run(const Names& names, const CPrepare& prepare)
    {
        std::vector<CSlot> slots(std::min<size_t>(s3ObjectsAtOnce, names.size()));
        m_names = &names;
        m_prepare = prepare;
        for (CSlot& slot : slots)
            m_prepare(slot, names[m_next++]);
        m_running = slots.size();
        const auto pool = kx::newObj<norla::CTransferPool>(); // stops before the slots go
        for (CSlot& slot : slots)
            start(*pool, slot);
        if (!slots.empty())
            m_done.get_future().wait();
        if (m_error)
            std::rethrow_exception(m_error);
    }

    void start(norla::CTransferPool& pool, CSlot& slot)
    {
        norla::CTransfer::Options options;
        options.onDone = [this, &pool, &slot](norla::CTransfer& transfer) { end(pool, slot, transfer); };
        pool.start(slot.request.get(), options);
    }

    void end(norla::CTransferPool& pool, CSlot& slot, const norla::CTransfer& transfer)
    {
        try {
            transfer.check();
            if (slot.file)
                slot.file->finish(slot.request->getResponseHeaderMap().at("etag"));
            if (!m_error && m_next < m_names->size()) {
                m_prepare(slot, (*m_names)[m_next++]);
                start(pool, slot);
                return;
            }
        } catch (const std::exception&) {
            m_error = std::current_exception();
        }
        if (--m_running == 0)
            m_done.set_value();
    }

    norla::CS3Client& m_client;
    const kx::String m_bucket;
    const std::string m_folder;
    const Names* m_names = nullptr;
    CPrepare m_prepare;
    size_t m_next = 0;    // of the names
    size_t m_running = 0; // transfers
    std::exception_ptr m_error;
    std::promise<void> m_done;
};

} // namespace bench
