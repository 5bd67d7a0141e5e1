#pragma once

#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetRequest.h"
#include "norla/mail/CSMTPClient.h"

#include <string>
#include <vector>

namespace live {

/// Makes the request send a message to a server on 127.0.0.1.
inline void prepareMail(
    norla::CNetRequest& request, unsigned short port, norla::CSMTPParams::ConnectType type, const std::string& message)
{
    norla::CSMTPParams params;
    params.host = "127.0.0.1";
    params.port = port;
    params.connectType = type;
    const auto buffer = kx::newObj<norla::CSMTPClient::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(message.data()), message.size());
    norla::CSMTPClient::makeSendMailRequest(
        request, params, "from@a.example", {"to@b.example"}, kx::newObj<kx::CBufferStream>(buffer).get());
}

inline constexpr const char* shortMessage = "Subject: 1\r\n\r\ntext\r\n";

/// What a server may take for the end of a message ...
inline const std::vector<std::string> falseMessageEnds = {"\n.\n", "\n.\r\n", "\r.\r", "\r\n.\n", "\r\n.\r", "\n.\r"};

/// ... and behind it what would be a message of somebody else.
inline const std::string smuggledMessage
    = "MAIL FROM:<smuggler@a.example>\r\nRCPT TO:<victim@b.example>\r\nDATA\r\nsmuggled\r\n.\r\n";

} // namespace live
