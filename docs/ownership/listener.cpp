#include "norla/core/CNetRequest.h"
#include "norla/core/explain.h"

#include <functional>

namespace {

using Tell = std::function<void(const kx::String& text)>;

// The request keeps its listener. Would the listener keep the request as well, both would stay for ever: it is told
// which one has ended.
class CTeller : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    explicit CTeller(Tell tell)
        : m_tell(std::move(tell))
    {
    }

    void onNetRequestDone(norla::CNetRequest* request, const kx::CError* error) override
    {
        m_tell(error ? norla::explain(*error) : request->getURL() + ": done");
    }

private:
    const Tell m_tell;
};

} // namespace

// Lets a request tell how each of its transfers ends.
void tellTheEnd(norla::CNetRequest& request, const Tell& tell)
{
    request.setDoneListener(kx::newObj<CTeller>(tell).get());
}
