#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

/// Watches the calls by which files reach the disk and get and lose their names, as long as the object lives, and makes
/// them fail. One object at a time. Any thread.
///
/// A call is its function and the names in their folder: "fdatasync NAME" and "fsync NAME", of a folder "fsync folder",
/// "renameat OLD NEW", "renameat2 OLD NEW" and "unlinkat NAME".
///
/// Works by interposition: the functions of CDiskCalls.cpp stand in the test program itself.
class CDiskCalls {
public:
    CDiskCalls();
    CDiskCalls(const CDiskCalls&) = delete;
    CDiskCalls& operator=(const CDiskCalls&) = delete;
    ~CDiskCalls();

    /// Those that have succeeded since the construction or the last question, in order.
    std::vector<std::string> takeCalls();

    /// Ahead of the next such call that action is carried out, which makes none of them itself.
    /// @param action returns the number of the error (errno) with which the call fails; 0: it is made
    void onNext(const std::string& call, std::function<int()> action);

    /// For the interposed functions alone.
    int errorOf(const std::string& call);
    void note(const std::string& call);

private:
    std::mutex m_mutex;
    std::vector<std::string> m_calls;
    std::map<std::string, std::function<int()>> m_actions;
};
