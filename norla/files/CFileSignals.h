#pragma once

#include "kx/time/CTimeSpan.h"
#include "norla/files/CFileProgress.h"
#include "norla/files/CFileTransfer.h"
#include "norla/files/CRateMeter.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

namespace norla {

/// What the thread of a file's transfer is told, and what it tells others. Any thread.
class CFileSignals {
public:
    using Clock = std::chrono::steady_clock;

    /// So long from now: not before, and thirty years at most.
    static Clock::time_point momentAfter(const kx::CTimeSpan& span);

    /// @throws kx::CError when it was called before
    void begin();

    /// The one end, or else fail().
    void succeed();

    /// Of a cancelled one too. @param error not null
    void fail(const kx::P<kx::CError>& error);

    void cancel();
    void pause();
    void resume();

    /// Has it called on every cancel() and pause(), on their threads, and now when one of them came before. It must not
    /// use this object. Null: nobody; behind that it is called no more.
    void setWishListener(std::function<void()> listener);

    /// A connection of that number has come to the end of its attempt.
    void tellEnd(int connection);

    FileState getState() const;
    kx::P<kx::CError> getError() const; ///< null before the end, and behind a success
    bool isCancelled() const;
    bool isPauseWanted() const;

    /// Behind Waiting and before the ends. Of Paused and Running only one is wanted.
    void setState(FileState state);

    /// Blocks until a connection ends, cancel(), a wish to pause that was not there when it began, or that moment.
    /// @param minds a wish to pause; otherwise that ends no waiting
    /// @return the connections that have ended since the last time
    std::vector<int> wait(Clock::time_point until, bool minds = true);

    /// Blocks until resume() or cancel().
    void waitForResume();

    /// So much is there from before, and was not moved by this object.
    void setStart(long long done);

    void setProgress(long long done, std::optional<long long> total);
    CFileProgress getProgress() const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<int> m_ended;
    FileState m_state = FileState::Waiting;
    kx::P<kx::CError> m_error;
    bool m_isCancelled = false;
    bool m_isPauseWanted = false;
    long long m_done = 0;
    std::optional<long long> m_total;
    long long m_moved = 0;
    CRateMeter m_rate;
    std::function<void()> m_wishListener;
};

} // namespace norla
