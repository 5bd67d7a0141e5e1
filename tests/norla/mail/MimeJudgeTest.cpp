// Messages as other people's parsers read them: hundreds of made ones, and what comes back is what went in.
#include "kx/text/hex.h"
#include "norla/mail/CMultiPartMimeMessage.h"
#include "sela/base64.h"
#include "tests/norla/mail/mimeBytes.h"
#include "tests/norla/mail/repeated.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

/// An entity and what it was made of.
struct CEntity {
    kx::P<norla::CMimeMessage> message;
    std::string body = {};                    ///< before its transfer encoding
    std::optional<kx::String> fromName = {};  ///< of the address from@example.org
    std::optional<kx::String> parameter = {}; ///< "name" of the content type
    std::optional<std::vector<CEntity>> parts = {};
};

struct CCase {
    std::string name;
    CEntity entity;
};

std::string quotedJSON(std::string_view ascii)
{
    std::string quoted = "\"";
    for (const char c : ascii) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted += '"';
}

std::string hexJSON(const std::string& bytes)
{
    return '"' + kx::hexEncode(bytes).toLatin1() + '"';
}

std::string joined(const std::vector<std::string>& items)
{
    std::string all;
    for (const std::string& item : items)
        all += (all.empty() ? "" : ",") + item;
    return all;
}

std::string headersJSON(norla::CMimeMessage& message)
{
    std::vector<std::string> fields;
    for (const auto& [name, value] : message.getHeaders()) {
        if (name != "From")
            fields.push_back('[' + quotedJSON(name.toLatin1()) + ',' + hexJSON(value.toUTF8()) + ']');
    }
    return '[' + joined(fields) + ']';
}

/// The line that a judge prints for an entity in which it reads what was put in. Keys are in the order of the alphabet.
std::string expectedOf(const CEntity& entity)
{
    std::vector<std::string> found;
    if (!entity.parts)
        found.push_back("\"body\":" + hexJSON(entity.body));
    if (entity.fromName)
        found.push_back("\"from\":[" + hexJSON(entity.fromName->toUTF8()) + ',' + hexJSON("from@example.org") + ']');
    found.push_back("\"headers\":" + headersJSON(*entity.message));
    if (entity.parameter)
        found.push_back("\"name\":" + hexJSON(entity.parameter->toUTF8()));
    if (entity.parts) {
        std::vector<std::string> parts;
        std::transform(entity.parts->begin(), entity.parts->end(), std::back_inserter(parts), expectedOf);
        found.push_back("\"parts\":[" + joined(parts) + ']');
    }
    return '{' + joined(found) + '}';
}

CEntity newLeaf(const std::string& body, const kx::String& contentType = "")
{
    return {messageOf(contentType, body), body};
}

CEntity withSubject(CEntity entity, const kx::String& subject)
{
    entity.message->getHeaders()["Subject"] = subject;
    return entity;
}

CEntity newMultiPart(const kx::String& subtype, std::vector<CEntity> parts)
{
    const auto message = kx::newObj<norla::CMultiPartMimeMessage>(subtype);
    for (const CEntity& part : parts)
        message->addPart(part.message.get());
    return {.message = message, .parts = std::move(parts)};
}

CEntity newBase64Leaf(const std::string& body)
{
    const auto message = kx::newObj<norla::CMimeMessage>("application/octet-stream");
    const auto bytes = bufferOf(body);
    const std::string encoded = sela::base64Encode(bytes->getData(), bytes->getSize(), true, true).toLatin1();
    message->setBody(bufferOf(encoded).get(), "base64");
    return {message, body};
}

/// The 66 code points that Unicode gives to nobody, which are valid UTF-8 all the same.
constexpr bool isNoncharacter(wchar_t c)
{
    return (c & 0xFFFE) == 0xFFFE || (c >= 0xFDD0 && c <= 0xFDEF);
}

/// Everything that is made at random, the same in every run but for the boundaries.
class CMaker {
public:
    size_t below(size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(m_random); }

    /// Any character; each length in UTF-8 as likely as the others, and each plane.
    wchar_t character()
    {
        const wchar_t made = scalarValue();
        return isNoncharacter(made) ? L'n' : made;
    }

    wchar_t scalarValue()
    {
        switch (below(4)) {
        case 0:
            return static_cast<wchar_t>(below(0x80));
        case 1:
            return static_cast<wchar_t>(0x80 + below(0x780));
        case 2: {
            const size_t code = 0x800 + below(0x10000 - 0x800 - 0x800);
            return static_cast<wchar_t>(code < 0xD800 ? code : code + 0x800);
        }
        default:
            return static_cast<wchar_t>(0x10000 * (1 + below(16)) + below(0x10000));
        }
    }

    /// Text that has to be encoded.
    kx::String text(size_t maximum)
    {
        kx::String made;
        for (size_t left = below(maximum); left > 0; --left)
            made += character();
        return made + L"\u00FC";
    }

    /// Visible ASCII and single blanks, none at the ends.
    kx::String asciiText(size_t maximum)
    {
        kx::String made;
        for (size_t left = 1 + below(maximum); left > 0; --left)
            made += static_cast<wchar_t>(0x21 + below(0x7F - 0x21));
        return made + kx::String::fromLatin1(below(2) == 0 ? " " : "") + "x";
    }

    /// Any bytes, but for a carriage return at the end.
    std::string bytes(size_t maximum)
    {
        std::string made(below(maximum), '\0');
        std::generate(made.begin(), made.end(), [this] { return static_cast<char>(below(256)); });
        return made.ends_with('\r') ? made + "." : made;
    }

    CEntity tree(size_t depth)
    {
        if (depth == 0 || below(3) == 0)
            return withSubject(
                below(2) == 0 ? newLeaf(bytes(200), "application/octet-stream") : newBase64Leaf(bytes(200)), text(40));
        std::vector<CEntity> parts;
        for (size_t left = 1 + below(4); left > 0; --left)
            parts.push_back(tree(depth - 1));
        return withSubject(newMultiPart("mixed", std::move(parts)), text(80));
    }

private:
    std::mt19937 m_random{20261121};
};

kx::String allOf(wchar_t first, wchar_t last)
{
    kx::String all;
    for (wchar_t c = first; c <= last; ++c)
        all += c;
    return all;
}

std::vector<kx::String> chosenSubjects()
{
    std::vector<kx::String> subjects = {
        L"\u00FC",
        L"Gr\u00FC\u00DFe",
        L" \u00FC ",
        L"  \t\u00FC  two  blanks \t ",
        L"\u00FC\r\n and a line",
        L"\u00FC\r\nBcc: somebody@example.org\r\n\r\nbody",
        L"\u00FC =?utf-8?q?x?= =?= ?= ?q?",
        L"=?iso-8859-1?b?/A==?=\u00FC",
        L"e\u0301\u200D\u202E\uFEFF\u00A0\u2028\u0085",
        L"\uFEFFbegins with a mark",
        allOf(0, 0xFF),
        allOf(0x20, 0x7E).trim(),
        "a  b\tc \t d",
        "",
        "=? ?= =?x",
        repeated("a long line of ASCII ", 200) + "x",
        repeated(L"\U0001F680 ", 150),
    };
    for (wchar_t plane = 0; plane <= 0x10; ++plane) {
        const wchar_t start = plane * 0x10000;
        for (const wchar_t offset : {0x00A0, 0x1234, 0xD7FF, 0xE000, 0xFFFD})
            subjects.push_back(kx::String(std::wstring{L'a', start + offset, L' ', start + offset, L'b'}));
    }
    for (size_t count = 1; count <= 64; ++count) {
        subjects.push_back(repeated("a", count) + L"\u00FC");
        subjects.push_back(repeated("a", count) + L"\U0001F680" + repeated(" ", count));
        subjects.push_back(repeated(L"\u20AC", count));
        subjects.push_back(repeated(" ", count) + L"\u00FC" + repeated("_", count));
    }
    return subjects;
}

std::vector<std::string> chosenBodies()
{
    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte)
        everyByte += static_cast<char>(byte);
    return {
        "",
        "x",
        "\n",
        "\r\n",
        "\r\n\r\n",
        "\n\n",
        "text\r\n",
        "text\r\n\r\n",
        "text\n",
        "bare\nline\nfeeds\n",
        "-",
        "--",
        "--\r\n",
        "\r\n--",
        "\r\n--\r\n",
        "--\r\n--\r\n",
        "--0123456789abcdef\r\n\r\n--0123456789abcdef--\r\n",
        ".\r\n..\r\n.",
        "From somebody\r\n>From somebody else\r\n",
        "Subject: not a field\r\n\r\nbody",
        ": \r\n\tfolded",
        " \t ",
        everyByte,
        everyByte + "\r\n" + everyByte,
        std::string(1000, '\0'),
        std::string(200'000, 'x'),
        "a\r\n" + std::string(2000, ' ') + "\r\nb",
        "\xEF\xBB\xBFGr\xC3\xBC\xC3\x9F"
        "e",
        stored(*newMultiPart("mixed", {newLeaf("another message"), newLeaf("")}).message),
    };
}

/// Bodies that look like the boundary of the message that they are in, and are not: it stands at the start of a line
/// there.
std::vector<std::string> boundaryLike(const std::string& boundary)
{
    return {
        boundary,
        "-" + boundary,
        " --" + boundary,
        "x--" + boundary + "--",
        "--" + boundary.substr(1),
        "--" + boundary.substr(0, boundary.size() - 1),
        "\r\n--" + boundary.substr(0, boundary.size() - 1) + "--\r\n",
        "- -" + boundary + "\r\n",
        "---" + boundary + "\r\n",
        ">--" + boundary + "\r\n--",
    };
}

void addSubjects(std::vector<CCase>& cases, CMaker& maker)
{
    std::vector<kx::String> subjects = chosenSubjects();
    for (int i = 0; i < 200; ++i)
        subjects.push_back(maker.text(i < 190 ? 100 : 1500));
    for (int i = 0; i < 50; ++i)
        subjects.push_back(maker.asciiText(300));
    for (const kx::String& subject : subjects)
        cases.push_back({"subject '" + subject.toDisplayUTF8() + "'", withSubject(newLeaf("body"), subject)});
}

void addFieldNames(std::vector<CCase>& cases, CMaker& maker)
{
    for (int i = 0; i < 50; ++i) {
        CEntity entity = newLeaf("body");
        for (int fields = 0; fields < 10; ++fields) {
            kx::String name = "X-" + maker.asciiText(20).replaceAll(" ", "").replaceAll(":", "");
            entity.message->getHeaders()[name] = maker.below(2) == 0 ? maker.text(30) : maker.asciiText(30);
        }
        cases.push_back({"field names " + std::to_string(i), entity});
    }
}

void addNames(std::vector<CCase>& cases, CMaker& maker)
{
    const auto add = [&cases](const kx::String& name, const kx::String& written) {
        CEntity entity = newLeaf("body");
        entity.message->getHeaders()["From"] = written + " <from@example.org>";
        entity.fromName = name;
        cases.push_back({"name '" + name.toDisplayUTF8() + "'", entity});
    };
    for (int i = 0; i < 100; ++i) {
        const kx::String name = maker.text(60);
        add(name, norla::CMimeMessage::toEncodedWord(name));
        const kx::String ascii = maker.asciiText(40);
        add(ascii, norla::CMimeMessage::toQuotedString(ascii));
    }
}

void addParameters(std::vector<CCase>& cases, CMaker& maker)
{
    for (int i = 0; i < 100; ++i) {
        const kx::String name = maker.asciiText(40);
        CEntity entity = newLeaf("body", "text/plain; name=" + norla::CMimeMessage::toQuotedString(name));
        entity.parameter = name;
        cases.push_back({"parameter '" + name.toDisplayUTF8() + "'", entity});
    }
}

void addAnyParameters(std::vector<CCase>& cases, CMaker& maker)
{
    std::vector<kx::String> values = chosenSubjects();
    for (const kx::String& value :
        kx::TArray<kx::String>{"report.txt", "a\nX-Injected: 1", "a\r\nX-Injected: 1\r\n\r\nbody", "a\\\"b\\",
            "%41%C3%BC", "utf-8''a", "a;b=c", "\"", "\\", "  blanks  in  it  "})
        values.push_back(value);
    for (int i = 0; i < 150; ++i) {
        values.push_back(maker.text(60));
        values.push_back(maker.asciiText(60));
    }
    for (const kx::String& value : values) {
        CEntity entity = newLeaf("body", "text/plain; " + norla::CMimeMessage::makeParameter("name", value));
        entity.parameter = value;
        cases.push_back({"any parameter '" + value.toDisplayUTF8() + "'", entity});
    }
}

void addBodies(std::vector<CCase>& cases, CMaker& maker)
{
    std::vector<std::string> bodies = chosenBodies();
    for (int i = 0; i < 100; ++i)
        bodies.push_back(maker.bytes(2000));
    for (const std::string& body : bodies) {
        const std::string name = "body " + quotedJSON(body.substr(0, 40));
        cases.push_back({name, newLeaf(body)});
        cases.push_back({name + " in base64", newBase64Leaf(body)});
        cases.push_back({name + " as part", newMultiPart("mixed", {newLeaf(body), newLeaf("between"), newLeaf(body)})});
        cases.push_back({name + " as neighbour", newMultiPart("mixed", {newLeaf(body), newLeaf(body)})});
    }
    CEntity without = {kx::newObj<norla::CMimeMessage>("text/plain")};
    cases.push_back({"no body", newMultiPart("mixed", {without, without})});
}

void addBoundaryLikeBodies(std::vector<CCase>& cases)
{
    for (size_t i = 0; i < boundaryLike("0123456789").size(); ++i) {
        const auto message = kx::newObj<norla::CMultiPartMimeMessage>("mixed");
        const std::string body = boundaryLike(message->getBoundary().toLatin1())[i];
        std::vector<CEntity> parts = {newLeaf(body), newLeaf("a line\r\n" + body + "\r\nanother"), newLeaf(body)};
        for (const CEntity& part : parts)
            message->addPart(part.message.get());
        cases.push_back({"boundary-like " + std::to_string(i), {.message = message, .parts = parts}});
    }
}

void addTrees(std::vector<CCase>& cases, CMaker& maker)
{
    for (int i = 0; i < 150; ++i)
        cases.push_back({"tree " + std::to_string(i), newMultiPart("mixed", {maker.tree(4), maker.tree(4)})});
    CEntity chain = newLeaf("deep");
    for (int i = 0; i < 8; ++i)
        chain = newMultiPart("alternative", {newLeaf(""), std::move(chain)});
    cases.push_back({"chain", chain});
}

std::vector<CCase> makeCases()
{
    CMaker maker;
    std::vector<CCase> cases;
    addSubjects(cases, maker);
    addFieldNames(cases, maker);
    addNames(cases, maker);
    addParameters(cases, maker);
    addAnyParameters(cases, maker);
    addBodies(cases, maker);
    addBoundaryLikeBodies(cases);
    addTrees(cases, maker);
    return cases;
}

struct CJudge {
    const char* name;
    std::vector<std::string> command;
    const char* package;
};

const CJudge python = {"Python", {"python3", NORLA_TEST_MAIL_DIR "/judge.py"}, "python3"};
const CJudge perl = {"Perl", {"perl", NORLA_TEST_MAIL_DIR "/judge.pl"}, "libemail-mime-perl"};

/// What the judge says about each message.
std::vector<std::string> verdicts(const CJudge& judge, const std::vector<CCase>& cases)
{
    std::string input;
    for (const CCase& each : cases) {
        const std::string message = stored(*each.entity.message);
        input += std::to_string(message.size()) + '\n' + message;
    }
    const support::CProcessRun run({.arguments = judge.command, .package = judge.package, .input = input});
    EXPECT_EQ(run.errors(), "");
    EXPECT_EQ(run.exitStatus(), 0);
    return support::splitLines(run.output());
}

std::string verdict(const CJudge& judge, const CEntity& entity)
{
    const std::vector<std::string> lines = verdicts(judge, {{"", entity}});
    return lines.size() == 1 ? lines.front() : "(no verdict)";
}

class CMimeJudgeTest : public testing::TestWithParam<CJudge> {};

TEST_P(CMimeJudgeTest, readsWhatWentIn)
{
    const std::vector<CCase> cases = makeCases();
    const std::vector<std::string> lines = verdicts(GetParam(), cases);
    ASSERT_EQ(lines.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(lines[i], expectedOf(cases[i].entity)) << cases[i].name;
}

INSTANTIATE_TEST_SUITE_P(All, CMimeJudgeTest, testing::Values(python, perl),
    [](const testing::TestParamInfo<CJudge>& judge) { return judge.param.name; });

// What does not come back is put in by the caller as it is: the header block checks nothing, and nothing is searched
// for the boundary.

std::string readingOf(const kx::String& name, const kx::String& value)
{
    return "[" + quotedJSON(name.toLatin1()) + ',' + hexJSON(value.toUTF8()) + ']';
}

TEST_P(CMimeJudgeTest, losesBlanksAtTheStartOfAnASCIIValue)
{
    const std::string line = verdict(GetParam(), withSubject(newLeaf("body"), "  after blanks"));
    EXPECT_NE(line.find(readingOf("Subject", "after blanks")), line.npos) << line;
}

TEST_P(CMimeJudgeTest, decodesAnASCIIValueThatLooksLikeAnEncodedWord)
{
    const std::string line = verdict(GetParam(), withSubject(newLeaf("body"), "=?utf-8?q?word?="));
    EXPECT_NE(line.find(readingOf("Subject", "word")), line.npos) << line;
}

TEST_P(CMimeJudgeTest, takesALineWithinAnASCIIValueForAField)
{
    const std::string line = verdict(GetParam(), withSubject(newLeaf("body"), "one\r\nX: two"));
    EXPECT_NE(line.find(readingOf("Subject", "one") + ',' + readingOf("X", "two")), line.npos) << line;
}

TEST_P(CMimeJudgeTest, endsAPartAtTheBoundaryWithinItsBody)
{
    const auto message = kx::newObj<norla::CMultiPartMimeMessage>("mixed");
    message->addPart(messageOf("", "before\r\n--" + message->getBoundary().toLatin1() + "\r\n\r\nafter").get());
    const std::string line = verdict(GetParam(), {message});
    EXPECT_NE(line.find("\"parts\":[{\"body\":" + hexJSON("before") + ','), line.npos) << line;
    EXPECT_NE(line.find("},{\"body\":"), line.npos) << line;
}

TEST_P(CMimeJudgeTest, findsNoPartsInAMultipartWithoutThem)
{
    const std::string line = verdict(GetParam(), newMultiPart("mixed", {}));
    EXPECT_NE(line.find("\"parts\":[]"), line.npos) << line;
}

// And where one of the two differs from what went in, by itself.

const kx::String noncharacters = L"\uFDD0\uFFFE\uFFFF\U0001FFFE\U0010FFFF";

TEST(MimeJudgeTest, pythonReadsNoncharacters)
{
    const CEntity entity = withSubject(newLeaf("body"), noncharacters);
    EXPECT_EQ(verdict(python, entity), expectedOf(entity));
}

TEST(MimeJudgeTest, perlReplacesNoncharacters)
{
    const std::string line = verdict(perl, withSubject(newLeaf("body"), noncharacters));
    EXPECT_NE(line.find(readingOf("Subject", repeated(L"\uFFFD", noncharacters.size()))), line.npos) << line;
}

TEST(MimeJudgeTest, pythonReadsACarriageReturnAtTheEndOfAPart)
{
    const CEntity entity = newMultiPart("mixed", {newLeaf("end\r"), newLeaf("end\r")});
    EXPECT_EQ(verdict(python, entity), expectedOf(entity));
}

TEST(MimeJudgeTest, perlAddsALineEndToACarriageReturnAtTheEndOfAPart)
{
    const std::string line = verdict(perl, newMultiPart("mixed", {newLeaf("end\r"), newLeaf("other")}));
    EXPECT_NE(line.find("{\"body\":" + hexJSON("end\r\r\n") + ','), line.npos) << line;
}

TEST(MimeJudgeTest, pythonMissesTheBoundaryOfAMultipartWithoutParts)
{
    const std::string line = verdict(python, newMultiPart("mixed", {}));
    EXPECT_NE(line.find("\"defects\":[\"StartBoundaryNotFoundDefect\""), line.npos) << line;
}

} // namespace
