#include "norla/core/CKnownHosts.h"

#include "sela/base64.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CTemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using norla::CKnownHosts;
using testing::ElementsAre;
using testing::IsEmpty;
using Verdict = CKnownHosts::Verdict;

/// As SSH sends a key: texts, each with its length before it.
std::string keyOf(const std::string& type, const std::string& content)
{
    std::string key;
    for (const std::string& text : {type, content})
        key += std::string(3, '\0') + static_cast<char>(text.size()) + text;
    return key;
}

std::string base64Of(const std::string& key)
{
    return sela::base64Encode(reinterpret_cast<const unsigned char*>(key.data()), key.size(), true, false).toUTF8();
}

const std::string type = "ssh-ed25519";
const std::string key = keyOf(type, "one");
const std::string otherKey = keyOf(type, "other");
const std::string ecdsaKey = keyOf("ecdsa-sha2-nistp256", "one");
const std::string keyText = type + " " + base64Of(key);

Verdict judge(const std::string& file, const std::string& host, const std::string& shown = key, int port = 22)
{
    return CKnownHosts(file).judge({.name = host, .port = port}, shown);
}

TEST(CKnownHostsTest, knowNobodyAtFirst)
{
    EXPECT_EQ(CKnownHosts().judge({.name = "host"}, key), Verdict::Unknown);
    EXPECT_EQ(judge("", "host"), Verdict::Unknown);
}

TEST(CKnownHostsTest, knowAHostByItsKey)
{
    const std::string file = "host " + keyText + "\n";
    EXPECT_EQ(judge(file, "host"), Verdict::Known);
    EXPECT_EQ(judge(file, "other"), Verdict::Unknown);
    EXPECT_EQ(judge(file, "host", otherKey), Verdict::Changed);
}

TEST(CKnownHostsTest, knowAHostByEachOfItsKeys)
{
    const std::string file = "host " + keyText + "\nhost " + type + " " + base64Of(otherKey) + "\n";
    EXPECT_EQ(judge(file, "host"), Verdict::Known);
    EXPECT_EQ(judge(file, "host", otherKey), Verdict::Known);
}

// Who is between the two may show a key of another kind, which nobody has seen yet.
TEST(CKnownHostsTest, takeAKeyOfAnotherKindForAChangedOne)
{
    EXPECT_EQ(judge("host " + keyText, "host", ecdsaKey), Verdict::Changed);
}

TEST(CKnownHostsTest, ignoreTheCaseOfNames)
{
    EXPECT_EQ(judge("Host.Example " + keyText, "hOST.eXAMPLE"), Verdict::Known);
    EXPECT_EQ(judge("Host.Example " + keyText, "hOST.eXAMPLE", otherKey), Verdict::Changed);
    EXPECT_EQ(judge("az.[09] " + keyText, "AZ.[09]"), Verdict::Known);
}

TEST(CKnownHostsTest, readListsOfNames)
{
    const std::string file = "one,two,10.0.0.1 " + keyText;
    for (const char* host : {"one", "two", "10.0.0.1"})
        EXPECT_EQ(judge(file, host), Verdict::Known) << host;
    EXPECT_EQ(judge(file, "one,two"), Verdict::Unknown);
}

TEST(CKnownHostsTest, readPatterns)
{
    const std::string file = "*.example,a?c,x*y*z,end* " + keyText;
    for (const char* host :
        {"www.example", ".example", "a.b.example", "abc", "xyz", "x-yy-z", "xyyzz", "end", "ending"})
        EXPECT_EQ(judge(file, host), Verdict::Known) << host;
    for (const char* host : {"example", "www.example.org", "ac", "abbc", "xz", "xy", "xyza"})
        EXPECT_EQ(judge(file, host), Verdict::Unknown) << host;
}

TEST(CKnownHostsTest, leaveOutWhatAPatternExcludes)
{
    for (const std::string list : {"*.example,!bad.example", "!bad.example,*.example"}) {
        EXPECT_EQ(judge(list + " " + keyText, "good.example"), Verdict::Known) << list;
        EXPECT_EQ(judge(list + " " + keyText, "bad.example"), Verdict::Unknown) << list;
    }
    EXPECT_EQ(judge("!bad.example " + keyText, "good.example"), Verdict::Unknown) << "which names nobody";
}

TEST(CKnownHostsTest, readPatternsInReasonableTime)
{
    std::string pattern;
    for (int i = 0; i < 200; ++i)
        pattern += "a*";
    EXPECT_EQ(judge(pattern + "b " + keyText, std::string(5000, 'a')), Verdict::Unknown);
}

TEST(CKnownHostsTest, tellPortsApart)
{
    const std::string file = "[host]:2222 " + keyText;
    EXPECT_EQ(judge(file, "host", key, 2222), Verdict::Known);
    EXPECT_EQ(judge(file, "host", otherKey, 2222), Verdict::Changed);
    EXPECT_EQ(judge(file, "host", key, 22), Verdict::Unknown);
    EXPECT_EQ(judge(file, "host", key, 2223), Verdict::Unknown);
}

TEST(CKnownHostsTest, knowAHostOnEveryPortByTheKeyItHasOnAll)
{
    const std::string file = "host " + keyText;
    EXPECT_EQ(judge(file, "host", key, 2222), Verdict::Known);
    EXPECT_EQ(judge(file, "host", otherKey, 2222), Verdict::Unknown) << "another server on that machine";
}

TEST(CKnownHostsTest, readIPv6Addresses)
{
    EXPECT_EQ(judge("::1 " + keyText, "::1"), Verdict::Known);
    EXPECT_EQ(judge("[::1]:2222 " + keyText, "::1", key, 2222), Verdict::Known);
}

TEST(CKnownHostsTest, believeNoRevokedKey)
{
    const std::string revoked = "@revoked * " + keyText + "\n";
    for (const std::string& file : {revoked, revoked + "host " + keyText, "host " + keyText + "\n" + revoked})
        EXPECT_EQ(judge(file, "host"), Verdict::Revoked) << file;
    EXPECT_EQ(judge(revoked, "host", otherKey), Verdict::Unknown);
    EXPECT_EQ(judge(revoked, "host", key, 2222), Verdict::Revoked);
    EXPECT_EQ(judge("@revoked host " + keyText, "host", key, 2222), Verdict::Revoked) << "on each of its ports";
}

TEST(CKnownHostsTest, knowNobodyByARevokedKey)
{
    EXPECT_THAT(CKnownHosts("@revoked * " + keyText).keysOf({.name = "host"}), IsEmpty());
}

TEST(CKnownHostsTest, takeAnAuthorityForNoHost)
{
    EXPECT_EQ(judge("@cert-authority * " + keyText, "host"), Verdict::Unknown);
}

TEST(CKnownHostsTest, skipWhatIsNoHost)
{
    const std::string line = "host " + keyText + "\n";
    for (const std::string bad : {"#", "# host ", "host", "host ssh-ed25519", "host ssh-ed25519 ***", "host ssh-rsa ",
             "host 1024 35 123456", "@", "@unknown host ", "|1|", "|1|a|b ", "|1|*|* ", " "}) {
        EXPECT_EQ(judge(bad + "\n", "host"), Verdict::Unknown) << bad;
        EXPECT_EQ(judge(bad + "\n" + line, "host"), Verdict::Known) << bad;
    }
    for (const std::string bad : {"|1|", "|1||", "|1|AAAA", "|1|AAAA|*", "|1|*|AAAA", "|1|AAAA|AAAA", "|2|AAAA|AAAA"})
        EXPECT_EQ(judge(bad + " " + keyText, "host"), Verdict::Unknown) << bad;
    EXPECT_EQ(judge("host ssh-rsa " + base64Of(key), "host"), Verdict::Unknown) << "of another type than it says";
    EXPECT_EQ(judge("# " + line, "host"), Verdict::Unknown);
    EXPECT_EQ(judge("#" + line, "#host"), Verdict::Unknown);
}

TEST(CKnownHostsTest, readBlanksTabsCommentsAndLineEnds)
{
    EXPECT_EQ(judge("host " + keyText + "\r\n", "host"), Verdict::Known);
    EXPECT_EQ(judge(" \t host \t " + type + "\t" + base64Of(key) + " a comment\r\n", "host"), Verdict::Known);
}

TEST(CKnownHostsTest, giveTheKeysInOrder)
{
    const CKnownHosts hosts("host ecdsa-sha2-nistp256 " + base64Of(ecdsaKey) + "\nother " + keyText + "\n* " + keyText);
    EXPECT_THAT(hosts.keysOf({.name = "host"}), ElementsAre(ecdsaKey, key));
    EXPECT_THAT(hosts.keysOf({.name = "host", .port = 2222}), ElementsAre(key)) << "by the pattern";
}

TEST(CKnownHostsTest, giveTheKeysOfAllPortsWhereThereAreNoOthers)
{
    EXPECT_THAT(CKnownHosts("host " + keyText).keysOf({.name = "host", .port = 2222}), ElementsAre(key));
}

TEST(CKnownHostsTest, writeALineThatTheyRead)
{
    for (const auto& host : std::vector<CKnownHosts::CHost>{
             {.name = "host.example"}, {.name = "::1"}, {.name = "::1", .port = 2222}, {.name = "a_b", .port = 23}})
        EXPECT_EQ(CKnownHosts(CKnownHosts::lineFor(host, key)).judge(host, key), Verdict::Known) << host.toText();
    EXPECT_EQ(CKnownHosts::lineFor({.name = "Host", .port = 2222}, key), "[host]:2222 " + keyText);
}

TEST(CKnownHostsTest, writeNoNameThatMeansSomethingElse)
{
    for (const char* name : {"", "*", "a,b", "#a", "@revoked", "|1|a|b", "!a", "a b", "a\nb", "\xC3\xA4"})
        EXPECT_EQ(CKnownHosts::lineFor({.name = name}, key), "") << name;
}

TEST(CKnownHostsTest, readTheTypeOfAKey)
{
    EXPECT_EQ(CKnownHosts::typeOf(key), type);
    EXPECT_EQ(CKnownHosts::typeOf(""), "");
    EXPECT_EQ(CKnownHosts::typeOf(std::string(3, '\0')), "");
    const std::string longType(0x102, 'a');
    EXPECT_EQ(CKnownHosts::typeOf(std::string("\0\0\1\2", 4) + longType), longType);
    EXPECT_EQ(CKnownHosts::typeOf(std::string("\0\0\0\5abcd", 8)), "");
    EXPECT_EQ(CKnownHosts::typeOf(std::string("\xFF\xFF\xFF\xFF", 4) + "abcd"), "");
}

TEST(CKnownHostsTest, knowHostsWhoseNamesOpenSSHHasHashed)
{
    const support::CTemporaryFolder folder;
    const auto file
        = folder.write("known_hosts", "host.example,10.0.0.1 " + keyText + "\n[other]:2222 " + keyText + "\n");
    const support::CProcessRun run({.arguments = {"ssh-keygen", "-H", "-f", file}, .package = "openssh-client"});
    ASSERT_EQ(run.exitStatus(), 0) << run.errors();
    const std::string hashed = folder.read("known_hosts");
    ASSERT_EQ(hashed.find("host.example"), std::string::npos);
    EXPECT_EQ(judge(hashed, "Host.Example"), Verdict::Known);
    EXPECT_EQ(judge(hashed, "10.0.0.1", otherKey), Verdict::Changed);
    EXPECT_EQ(judge(hashed, "other", key, 2222), Verdict::Known);
    EXPECT_EQ(judge(hashed, "other"), Verdict::Unknown);
}

} // namespace
