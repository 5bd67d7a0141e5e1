#include "norla/pool/CTransferLanes.h"

#include <algorithm>
#include <limits>

namespace norla {

namespace {

constexpr auto never = CTransferLanes::CMoment::max();
constexpr auto closingDelay = std::chrono::seconds(5);

} // namespace

CTransferLanes::CTransferLanes(int wakeDescriptor, long idleConnections)
    : m_idleConnections(idleConnections)
{
    m_events.watch(wakeDescriptor);
    open(0);
}

CTransferLanes::~CTransferLanes() = default;

CTransferLanes::CLane::CLane(CTransferLanes& theLanes, size_t theNumber, long idleConnections)
    : CEventMulti(theLanes.m_events, theLanes.m_calls, idleConnections)
    , lanes(theLanes)
    , number(theNumber)
{
}

CTransferLanes::CLane::~CLane() = default;

CTransferLanes::CLane& CTransferLanes::open(size_t number)
{
    if (number >= m_lanes.size())
        m_lanes.resize(number + 1);
    if (!m_lanes[number]) {
        const long idleConnections = number == 0 ? m_idleConnections : std::min<long>(m_idleConnections, width);
        auto lane = std::make_unique<CLane>(*this, number, idleConnections);
        m_timers.set(lane.get(), lane->timer, never);
        m_lanes[number] = std::move(lane);
    }
    return *m_lanes[number];
}

void CTransferLanes::setTimer(CLane& lane) noexcept
{
    const CMoment moment = std::min(lane.getTime().value_or(never), lane.closing.value_or(never));
    if (moment != *lane.timer)
        m_timers.set(&lane, lane.timer, moment);
}

void CTransferLanes::add(CNetRequest& request, size_t number)
{
    CLane& lane = open(number);
    settle(lane); // libcurl may refuse
    lane.add(request);
    settle(lane);
}

void CTransferLanes::remove(CNetRequest& request, size_t number) noexcept
{
    at(number).remove(request);
    settle(at(number));
}

void CTransferLanes::withdraw(CNetRequest& request, size_t number) noexcept
{
    at(number).withdraw(request);
    settle(at(number));
}

// Who goes on at once uses its connections again.
void CTransferLanes::settle(CLane& lane) noexcept
{
    lane.closing.reset();
    if (lane.number > 0 && lane.getCount() == 0)
        lane.closing = std::chrono::steady_clock::now() + closingDelay;
    setTimer(lane);
}

bool CTransferLanes::addAgain(CNetRequest& request, size_t number) noexcept
{
    return at(number).addAgain(request);
}

void CTransferLanes::wait(std::optional<CMoment> moment) noexcept
{
    const CMoment first = std::min(*m_timers.getFirst(), moment.value_or(never));
    int milliseconds = -1;
    if (first != never) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(first - std::chrono::steady_clock::now());
        milliseconds = static_cast<int>(std::clamp<long long>(left.count(), 0, std::numeric_limits<int>::max()));
    }
    m_events.wait(milliseconds);
}

CURLMcode CTransferLanes::act() noexcept
{
    m_acted = {};
    CURLMcode result = CURLM_OK;
    CSocketEvents::CEvent event;
    if (m_events.take(event) && event.owner) {
        auto& lane = static_cast<CLane&>(*event.owner);
        result = lane.act(event.socket, event.bits);
        m_acted[0] = &lane;
    }
    if (*m_timers.getFirst() == never || result != CURLM_OK)
        return result;
    const CMoment now = std::chrono::steady_clock::now();
    if (CLane* const lane = m_timers.getDue(now))
        result = actOnTime(*lane, now);
    return result;
}

CURLMcode CTransferLanes::actOnTime(CLane& lane, CMoment now) noexcept
{
    if (lane.closing && *lane.closing <= now) {
        m_timers.clear(&lane, lane.timer);
        if (m_acted[0] == &lane)
            m_acted[0] = nullptr; // nobody is in it who could have ended
        m_lanes[lane.number].reset();
        return CURLM_OK;
    }
    m_acted[1] = &lane;
    const CURLMcode result = lane.actOnTime();
    setTimer(lane);
    return result;
}

bool CTransferLanes::takeEnd(const CURL*& handle, CURLcode& result) noexcept
{
    return std::any_of(
        m_acted.begin(), m_acted.end(), [&](CLane* lane) { return lane && lane->takeEnd(handle, result); });
}

void CTransferLanes::forget() noexcept
{
    for (const auto& lane : m_lanes) {
        if (lane)
            lane->forget();
    }
}

} // namespace norla
