#pragma once

#include "kx/base/CStdExceptionError.h"
#include "norla/core/CNetRequest.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <utility>

/// An application's own error, of a class of its own.
class CApplicationError : public kx::CError {
public:
    explicit CApplicationError(const kx::String& message)
        : CError(message, "application", 4711, props(), kx::newObj<kx::CError>("the disk is full"))
    {
    }
    CApplicationError(const CApplicationError&) = default;

    kx::P<CError> clone() const override { return kx::newObj<CApplicationError>(*this); }
    [[noreturn]] void throwClone() const override { throw CApplicationError(*this); }

    static kx::CProps props()
    {
        kx::CProps props;
        props.set("path", "/some/where");
        return props;
    }
};

/// A sink that does something else than to take the data.
class CThrowingSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    explicit CThrowingSink(std::function<void()> action)
        : m_action(std::move(action))
    {
    }

    int write(const unsigned char*, int size, int, const norla::CNetRequest::HeaderMap&) override
    {
        m_action();
        return size;
    }

private:
    const std::function<void()> m_action;
};

/// A source of blanks that does something else at the chosen operations.
class CThrowingSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    explicit CThrowingSource(std::function<void()> atRead, std::function<void()> atSeek = {})
        : m_atRead(std::move(atRead))
        , m_atSeek(std::move(atSeek))
    {
    }

    int read(unsigned char* buffer, int size, const norla::CNetRequest::HeaderMap&) override
    {
        if (m_atRead)
            m_atRead();
        const int given = m_position < getLength() && size > 0 ? 1 : 0;
        if (given == 1)
            *buffer = ' ';
        m_position += given;
        return given;
    }

    long long getLength() override { return 8; }

    void seek(long long position) override
    {
        if (m_atSeek)
            m_atSeek();
        m_position = position;
    }

    long long getPosition() override { return m_position; }

private:
    const std::function<void()> m_atRead;
    const std::function<void()> m_atSeek;
    long long m_position = 0;
};

/// Something that a callback throws, and what a caller is told in the end.
struct CThrown {
    const char* name;
    void (*action)();
    void (*expect)(const kx::CError& error);
};

inline void expectApplicationError(const kx::CError& error)
{
    EXPECT_TRUE(dynamic_cast<const CApplicationError*>(&error));
    EXPECT_EQ(error.getMessage(), "own error");
    EXPECT_EQ(error.getDomain(), "application");
    EXPECT_EQ(error.getCode(), 4711);
    EXPECT_EQ(error.getProps().getMap(), CApplicationError::props().getMap());
    ASSERT_NE(error.getCause(), nullptr);
    EXPECT_EQ(error.getCause()->getMessage(), "the disk is full");
}

inline void expectStandardError(const kx::CError& error)
{
    EXPECT_TRUE(dynamic_cast<const kx::CStdExceptionError*>(&error));
    EXPECT_EQ(error.getMessage(), "a range");
    EXPECT_EQ(error.getDomain(), "");
    EXPECT_EQ(error.getCode(), -1);
    EXPECT_TRUE(error.getProps().getMap().empty());
    EXPECT_EQ(error.getCause(), nullptr);
}

inline const CThrown thrownThings[] = {
    {"applicationError", [] { throw CApplicationError("own error"); }, expectApplicationError},
    {"standardException", [] { throw std::out_of_range("a range"); }, expectStandardError},
};

/// Which operation of the application throws.
enum class FailingPlace { Sink, Read, Seek };

inline const char* nameOf(FailingPlace place)
{
    constexpr const char* names[] = {"sink", "read", "seek"};
    return names[static_cast<size_t>(place)];
}

/// Gives the request a sink or source that throws there.
inline void failAt(FailingPlace place, norla::CNetRequest& request, void (*action)())
{
    if (place == FailingPlace::Sink) {
        request.setReceiveDataSink(kx::newObj<CThrowingSink>(action).get());
        return;
    }
    const bool atRead = place == FailingPlace::Read;
    const std::function<void()> nothing;
    request.setSendDataSource(kx::newObj<CThrowingSource>(atRead ? action : nothing, atRead ? nothing : action).get());
    request.setSendDataSize(8);
    request.setHTTPMethod("PUT");
}

/// The action throws what the thing makes of itself. Caught by reference: what is thrown keeps its class.
template <typename TAction>
void expectThrown(const CThrown& thrown, TAction action)
{
    try {
        action();
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        thrown.expect(error);
    }
}
