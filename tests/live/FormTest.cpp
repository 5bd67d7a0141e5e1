// Forms against nginx, which keeps what it was sent; read by Python.
#include "norla/http/CFormData.h"
#include "norla/http/util.h"
#include "tests/live/liveRequest.h"
#include "tests/norla/http/formJudge.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using live::requestFor;
using norla::CFormData;
using Texts = std::vector<std::string>;

class FormTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CNginxServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    static support::CNginxServer& server() { return *s_server; }

    /// What the server has of what was sent to /store/form.
    static std::string stored() { return support::readFile(server().root() / "store/form"); }

private:
    static inline std::unique_ptr<support::CNginxServer> s_server;
};

TEST_F(FormTest, arrivesAsItWasPutIn)
{
    const support::CTemporaryFolder folder;
    const std::string large(3 << 20, 'x');
    const auto form = kx::newObj<CFormData>();
    form->addText("text", L"gr\u00fcn & \"quoted\"");
    form->addFile("file", CFormData::Path::fromBytes(folder.write("large.bin", large).native()));
    const auto request = requestFor(server().url("/store/form"));
    request->setFormData(form.get());
    request->perform();
    EXPECT_EQ(judgeForm(form->getContentType().toLatin1(), stored()),
        Texts({expectedPart({"text", "gr\u00fcn & \"quoted\""}),
            expectedPart({"file", large, "large.bin", "application/octet-stream"})}));
}

TEST_F(FormTest, arrivesOverHTTP2)
{
    const auto form = kx::newObj<CFormData>();
    form->addText("text", "value");
    const auto request = requestFor(server().httpsURL("/store/form"));
    request->setSSLVerifyPeer(false);
    request->setFormData(form.get());
    request->perform();
    EXPECT_EQ(judgeForm(form->getContentType().toLatin1(), stored()), Texts({expectedPart({"text", "value"})}));
}

TEST_F(FormTest, arrivesInChunks)
{
    class CUnknownStream : public kx::CBufferStream {
    public:
        using kx::CBufferStream::CBufferStream;
        long long getLength() override { return -1; }
    };
    const auto buffer = kx::newObj<CFormData::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>("stream"), 6);
    const auto form = kx::newObj<CFormData>();
    form->addStream("text", kx::newObj<CUnknownStream>(buffer).get());
    const auto request = requestFor(server().url("/store/form"));
    request->setFormData(form.get());
    request->perform();
    EXPECT_EQ(judgeForm(form->getContentType().toLatin1(), stored()), Texts({expectedPart({"text", "stream"})}));
}

TEST_F(FormTest, arrivesWhereItIsRedirectedTo)
{
    const auto form = kx::newObj<CFormData>();
    form->addText("text", "value");
    const auto request = requestFor(server().url("/redirect/307"));
    request->setFormData(form.get());
    request->perform();
    EXPECT_EQ(live::bodyOf(*request), "POST " + std::to_string(form->getLength()) + "\n");
}

TEST_F(FormTest, ofFieldsAloneIsReadByPython)
{
    const kx::TMap<kx::String, kx::String> fields = {{"a b", L"gr\u00fcn & rot=ja"}, {"empty", ""}, {"z", "1+1;2/3"}};
    const auto request = requestFor(server().url("/store/form"));
    request->setSendDataAsUTF8(norla::encodeURLParams(fields));
    request->setHTTPMethod("POST");
    request->perform();
    const support::CProcessRun run({.arguments = {"python3", "-c",
                                        "import sys, urllib.parse\n"
                                        "for name, value in urllib.parse.parse_qsl(sys.stdin.read(), True, True):\n"
                                        "    sys.stdout.buffer.write((name + '|' + value + '\\n').encode())"},
        .package = "python3",
        .input = stored()});
    EXPECT_EQ(run.output(), "a b|gr\u00fcn & rot=ja\nempty|\nz|1+1;2/3\n");
}

} // namespace
