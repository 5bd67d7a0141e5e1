#pragma once

#include <string>
#include <vector>

/// Makes one call fail that the library makes to the C++ runtime or to the system: of all those of its kind the one of
/// that number, while it is armed. One object at a time. Counted are the calls of pools' threads and those within
/// inLibrary().
///
/// Works by interposition: operator new and the system's functions of CFailingCall.cpp stand in the test program
/// itself.
class CFailingCall {
public:
    /// Of operator new, which throws std::bad_alloc.
    static constexpr const char* allocation = "new";

    /// Names of all others, which fail as they do for want of memory or descriptors.
    static std::vector<std::string> functions();

    /// @param function one of these
    /// @param number counted from 0
    CFailingCall(const std::string& function, long number);
    CFailingCall(const CFailingCall&) = delete;
    CFailingCall& operator=(const CFailingCall&) = delete;
    ~CFailingCall();

    void arm() const noexcept;
    static void disarm() noexcept;

    bool hasFailed() const noexcept;

    /// Calls the library.
    template <typename TAction>
    static void inLibrary(TAction action)
    {
        const CInLibrary mark;
        action();
    }

private:
    class CInLibrary {
    public:
        CInLibrary() noexcept;
        CInLibrary(const CInLibrary&) = delete;
        CInLibrary& operator=(const CInLibrary&) = delete;
        ~CInLibrary();
    };

    const int m_kind;
};
