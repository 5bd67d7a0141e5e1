#include "norla/files/CFileQueue.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/files/CFileQueueWork.h"
#include "norla/files/CFileSignals.h"

namespace norla {

namespace {

constexpr char queueClass[] = "CFileQueue";

const CFileQueueOptions& checkedQueueOptions(const CFileQueueOptions& options)
{
    constexpr int mostAtOnce = 256;
    if (options.atOnce < 1 || options.atOnce > mostAtOnce)
        throw kx::CInvalidArgError("atOnce is " + kx::toString(options.atOnce) + ", and not 1 to 256", queueClass);
    return options;
}

} // namespace

CFileQueue::CFileQueue(const Options& options)
    : m_work(std::make_unique<CFileQueueWork>(checkedQueueOptions(options)))
{
}

CFileQueue::~CFileQueue()
{
    if (!m_work->isOfThisProcess())
        static_cast<void>(m_work.release()); // threads of the parent wait in it, which nobody can wake
}

void CFileQueue::add(CFileTransfer* file)
{
    if (!file)
        throw kx::CInvalidArgError("the file is null", queueClass);
    m_work->add(*file);
}

void CFileQueue::cancel()
{
    m_work->cancel();
}

void CFileQueue::pause()
{
    m_work->pause();
}

void CFileQueue::resume()
{
    m_work->resume();
}

void CFileQueue::wait()
{
    m_work->waitUntil({});
}

bool CFileQueue::waitFor(const kx::CTimeSpan& time)
{
    return m_work->waitUntil(CFileSignals::momentAfter(time));
}

CFileQueueSummary CFileQueue::getSummary() const
{
    return m_work->getSummary();
}

} // namespace norla
