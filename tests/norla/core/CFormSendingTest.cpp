#include "norla/core/CFormSending.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CSending.h"
#include "norla/core/CSentHeaders.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using norla::CFormSending;
using Texts = std::vector<std::string>;

class CFormSendingTest : public testing::Test {
protected:
    CFormSendingTest() { m_data->addText("name", "text"); }

    /// The options that the action and the beginning of a transfer set.
    template <typename TAction>
    Texts optionsOf(TAction action)
    {
        m_calls.takeOptions();
        action();
        m_form.begin();
        m_headers.begin();
        return m_calls.takeOptions();
    }

    std::string line() const { return "HTTPHEADER=[Content-Type: " + m_data->getContentType().toLatin1() + "]"; }

    static bool has(const Texts& options, const std::string& option)
    {
        return std::find(options.begin(), options.end(), option) != options.end();
    }

    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    norla::CSentHeaders m_headers{m_handle};
    norla::CSending m_sending{m_handle};
    CFormSending m_form{m_sending, m_headers};
    const kx::P<norla::CFormData> m_data = kx::newObj<norla::CFormData>();
};

TEST_F(CFormSendingTest, setsNothingWithoutAForm)
{
    EXPECT_EQ(optionsOf([this] { m_form.set(nullptr); }), Texts());
}

TEST_F(CFormSendingTest, postsTheFormWithSizeAndType)
{
    const Texts options = optionsOf([this] { m_form.set(m_data.get()); });
    EXPECT_EQ(m_sending.getMethod(), "POST");
    EXPECT_TRUE(has(options, "POST=1"));
    EXPECT_TRUE(has(options, "POSTFIELDSIZE_LARGE=" + std::to_string(m_data->getLength())));
    EXPECT_EQ(options.back(), line());
}

TEST_F(CFormSendingTest, takesPartsThatAreAddedLater)
{
    m_form.set(m_data.get());
    const Texts options = optionsOf([this] { m_data->addText("another", "text"); });
    EXPECT_TRUE(has(options, "POSTFIELDSIZE_LARGE=" + std::to_string(m_data->getLength())));
}

TEST_F(CFormSendingTest, goesBackToTheMethodThatWasSetBefore)
{
    m_sending.setMethod("HEAD");
    m_form.set(m_data.get());
    m_form.set(kx::newObj<norla::CFormData>().get());
    const Texts options = optionsOf([this] { m_form.set(nullptr); });
    EXPECT_EQ(m_sending.getMethod(), "HEAD");
    EXPECT_TRUE(has(options, "INFILESIZE_LARGE=-1"));
    EXPECT_FALSE(m_sending.hasSource(*m_data));
    EXPECT_FALSE(has(options, line()));
}

TEST_F(CFormSendingTest, leavesAnotherBodyItsType)
{
    m_form.set(m_data.get());
    const Texts options = optionsOf([this] { m_sending.setText("text"); });
    EXPECT_EQ(options, Texts({"INFILESIZE_LARGE=4", "POSTFIELDSIZE_LARGE=4"}));
    EXPECT_EQ(optionsOf([this] { m_form.set(nullptr); }), Texts()); // the text stays
}

} // namespace
