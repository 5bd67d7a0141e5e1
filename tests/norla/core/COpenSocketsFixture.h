#pragma once

#include "norla/core/COpenSockets.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/loopback.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>

/// The sockets of a connection cache that libcurl knows nothing of.
class COpenSocketsFixture : public testing::Test {
protected:
    int openSocket()
    {
        curl_sockaddr address{};
        address.family = AF_INET;
        address.socktype = SOCK_STREAM;
        address.protocol = IPPROTO_TCP;
        return m_sockets.open(address);
    }

    /// A socket of these that is connected to the test.
    int connectedSocket()
    {
        const support::CDescriptor listener = support::listenOnLoopback();
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(support::portOf(listener.get()));
        const int socket = openSocket();
        EXPECT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        m_peer = support::CDescriptor(accept(listener.get(), nullptr, nullptr));
        return socket;
    }

    /// Whether a read of the socket would find the end at once.
    static bool isAtItsEnd(int socket)
    {
        char byte = 0;
        return recv(socket, &byte, 1, MSG_DONTWAIT) == 0;
    }

    norla::COpenSockets m_sockets;
    support::CDescriptor m_peer;
};
