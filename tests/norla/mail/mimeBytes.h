#pragma once

#include "kx/streams/CBufferStream.h"
#include "norla/mail/CMimeMessage.h"

#include <string>
#include <string_view>

inline kx::P<kx::TBuffer<unsigned char>> bufferOf(std::string_view bytes)
{
    const auto buffer = kx::newObj<kx::TBuffer<unsigned char>>();
    buffer->append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return buffer;
}

inline std::string bytesOf(const kx::TBuffer<unsigned char>& buffer)
{
    return {reinterpret_cast<const char*>(buffer.getData()), buffer.getSize()};
}

/// A part or message with a body.
inline kx::P<norla::CMimeMessage> messageOf(const kx::String& contentType, std::string_view body)
{
    const auto message = kx::newObj<norla::CMimeMessage>(contentType);
    message->setBody(bufferOf(body).get(), "");
    return message;
}

/// Everything that store() writes.
inline std::string stored(const norla::CMimeMessage& message)
{
    const auto buffer = kx::newObj<kx::TBuffer<unsigned char>>();
    message.store(*kx::newObj<kx::CBufferStream>(buffer));
    return bytesOf(*buffer);
}
