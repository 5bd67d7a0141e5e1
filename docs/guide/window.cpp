#include "kx/text/numbers.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/explain.h"
#include "norla/pool/CExecutorQueue.h"
#include "norla/pool/CTransferPool.h"

#include <functional>
#include <glib-unix.h>

namespace {

gboolean runPending(int, GIOCondition, void* queue)
{
    static_cast<norla::CExecutorQueue*>(queue)->runPending();
    return G_SOURCE_CONTINUE;
}

} // namespace

// The pool of a program with windows: GLib's main loop calls the callbacks, on the thread of the windows.
kx::P<norla::CTransferPool> makeWindowPool()
{
    static const auto queue = kx::newObj<norla::CExecutorQueue>();
    static const auto watch = g_unix_fd_add(queue->getDescriptor(), G_IO_IN, &runPending, queue.get());
    static_cast<void>(watch); // as long as the program runs
    return kx::newObj<norla::CTransferPool>(norla::CTransferPool::Options{.executor = queue});
}

// Starts a download, of which a window shows how it goes. Returns what the window's button "Cancel" does.
std::function<void()> showDownload(
    norla::CTransferPool& pool, const kx::String& url, const std::function<void(const kx::String& line)>& show)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    norla::CTransfer::Options options;
    options.onProgress = [show](const norla::CTransferProgress& progress) {
        show(kx::toString(progress.received) + " bytes"); // progress.toReceive: of how many, when that is known
    };
    options.onDone = [show](norla::CTransfer& transfer) {
        const auto error = transfer.getError();
        show(error ? norla::explain(*error) : "It is all there.");
    };
    const auto transfer = pool.start(request.get(), options);
    return [transfer] { transfer->cancel(); }; // returns at once: the end is told as any other
}
