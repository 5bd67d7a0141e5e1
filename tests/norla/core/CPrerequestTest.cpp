#include "norla/core/CPrerequest.h"

#include "norla/core/CEasyHandle.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

namespace {

using Texts = std::vector<std::string>;

int ownCallback(void* /*data*/, char* /*peerIP*/, char* /*localIP*/, int /*peerPort*/, int /*localPort*/)
{
    return CURL_PREREQFUNC_OK;
}

int applicationsCallback(void* data, char* peerIP, char* localIP, int peerPort, int localPort)
{
    *static_cast<std::string*>(data)
        = std::string(peerIP) + ":" + std::to_string(peerPort) + " " + localIP + ":" + std::to_string(localPort);
    return CURL_PREREQFUNC_ABORT;
}

class CPrerequestTest : public testing::Test {
protected:
    int callApplications() { return m_prerequest.callApplications(m_peer.data(), m_local.data(), 1, 2); }

    void setApplications()
    {
        m_prerequest.noticePointer(CURLOPT_PREREQFUNCTION, reinterpret_cast<void*>(&applicationsCallback));
        m_prerequest.noticePointer(CURLOPT_PREREQDATA, &m_seen);
    }

    std::string m_peer = "peer";
    std::string m_local = "local";
    std::string m_seen;
    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    norla::CPrerequest m_prerequest{m_handle};
};

TEST_F(CPrerequestTest, isSetWhenItIsUsed)
{
    m_calls.takeOptions();
    m_prerequest.use(&ownCallback, &m_seen);
    EXPECT_EQ(m_calls.takeOptions(), Texts({"PREREQFUNCTION=set", "PREREQDATA=set"}));
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_PREREQDATA), &m_seen);
}

TEST_F(CPrerequestTest, letsEverythingPassWithoutTheApplications)
{
    m_prerequest.noticePointer(CURLOPT_QUOTE, reinterpret_cast<void*>(&applicationsCallback));
    EXPECT_EQ(callApplications(), CURL_PREREQFUNC_OK);
}

TEST_F(CPrerequestTest, answersAsTheApplications)
{
    setApplications();
    m_prerequest.use(&ownCallback, nullptr);
    EXPECT_EQ(callApplications(), CURL_PREREQFUNC_ABORT);
    EXPECT_EQ(m_seen, "peer:1 local:2");
}

TEST_F(CPrerequestTest, staysWholeWhereTheApplicationSetsOneHalf)
{
    std::string own;
    m_prerequest.use(&ownCallback, &own);
    m_handle.set(CURLOPT_PREREQDATA, static_cast<void*>(&m_seen));
    m_prerequest.noticePointer(CURLOPT_PREREQDATA, &m_seen);
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_PREREQDATA), &own);
    void* const applications = reinterpret_cast<void*>(&applicationsCallback);
    m_handle.set(CURLOPT_PREREQFUNCTION, applications);
    m_prerequest.noticePointer(CURLOPT_PREREQFUNCTION, applications);
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_PREREQFUNCTION), reinterpret_cast<void*>(&ownCallback));
    EXPECT_EQ(callApplications(), CURL_PREREQFUNC_ABORT);
    EXPECT_EQ(m_seen, "peer:1 local:2");
}

TEST_F(CPrerequestTest, setsNothingAgainBehindAReset)
{
    m_prerequest.use(&ownCallback, nullptr);
    m_prerequest.forgetOptions();
    m_calls.takeOptions();
    m_prerequest.noticePointer(CURLOPT_PREREQDATA, &m_seen);
    EXPECT_EQ(m_calls.takeOptions(), Texts());
}

TEST_F(CPrerequestTest, forgetsTheApplicationsAtAReset)
{
    setApplications();
    m_prerequest.forgetOptions();
    EXPECT_EQ(callApplications(), CURL_PREREQFUNC_OK);
}

} // namespace
