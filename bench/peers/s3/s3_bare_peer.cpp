// libcurl by hand: one large object, or many small ones, eight at once, from files and into files, with the same
// digests as the library. The environment names the store.
#include "bench/peers/s3/CBareS3Call.h"

#include <cstdio>
#include <expat.h>
#include <functional>
#include <map>
#include <memory>

namespace {

using bench::CBareS3Call;
using Words = std::vector<std::string>; // bucket and whatever comes behind it

/// Some calls at once, on one thread.
class CCalls {
public:
    explicit CCalls(int atOnce)
    {
        for (int i = 0; i < atOnce; ++i)
            m_calls.push_back(std::make_unique<CBareS3Call>());
    }
    CCalls(const CCalls&) = delete;
    CCalls& operator=(const CCalls&) = delete;
    ~CCalls()
    {
        m_calls.clear();
        curl_multi_cleanup(m_multi);
    }

    /// @param prepare makes the number a request @param end looks at the answer to it
    void run(size_t count, const std::function<void(CBareS3Call&, size_t)>& prepare,
        const std::function<void(CBareS3Call&, size_t)>& end)
    {
        size_t next = 0;
        std::map<CBareS3Call*, size_t> running;
        const auto startNext = [&](CBareS3Call& call) {
            if (next == count)
                return;
            prepare(call, next);
            curl_multi_add_handle(m_multi, call.handle());
            running[&call] = next++;
        };
        for (const auto& call : m_calls)
            startNext(*call);
        while (!running.empty()) {
            int handles = 0;
            curl_multi_perform(m_multi, &handles);
            int rest = 0;
            while (const CURLMsg* const message = curl_multi_info_read(m_multi, &rest)) {
                CBareS3Call* call = nullptr;
                curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &call);
                const CURLcode result = message->data.result;
                curl_multi_remove_handle(m_multi, call->handle());
                call->end(result);
                end(*call, running.at(call));
                running.erase(call);
                startNext(*call);
            }
            if (!running.empty())
                curl_multi_poll(m_multi, nullptr, 0, 1000, nullptr);
        }
    }

private:
    CURLM* const m_multi = curl_multi_init();
    std::vector<std::unique_ptr<CBareS3Call>> m_calls;
};

void perform(CBareS3Call& call)
{
    call.end(curl_easy_perform(call.handle()));
}

/// What stands in the first element of that name.
std::string valueOf(const std::string& document, const std::string& name)
{
    const size_t start = document.find('<' + name + '>');
    if (start == std::string::npos)
        return {};
    const size_t first = start + name.size() + 2;
    return document.substr(first, document.find('<', first) - first);
}

void up(const Words& words, bool isDigested)
{
    const std::string path = '/' + words.at(0) + '/' + words.at(2);
    CBareS3Call call;
    call.prepare("POST", path, "uploads=");
    perform(call);
    const std::string id = valueOf(call.answer(), "UploadId");
    std::ifstream file(words.at(1), std::ios::binary);
    const auto fileSize = static_cast<long long>(std::filesystem::file_size(words[1]));
    const auto partCount = static_cast<size_t>((fileSize + bench::s3PartSize - 1) / bench::s3PartSize);
    std::vector<std::string> tags(partCount);
    const auto prepare = [&](CBareS3Call& part, size_t index) {
        const long long start = static_cast<long long>(index) * bench::s3PartSize;
        std::string bytes(static_cast<size_t>(std::min(bench::s3PartSize, fileSize - start)), '\0');
        if (!file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())))
            throw std::runtime_error("the file cannot be read");
        part.prepare(
            "PUT", path, "partNumber=" + std::to_string(index + 1) + "&uploadId=" + id, std::move(bytes), isDigested);
    };
    CCalls(bench::s3PartsAtOnce).run(partCount, prepare, [&](CBareS3Call& part, size_t index) {
        tags[index] = part.eTag();
    });
    std::string document = "<CompleteMultipartUpload>";
    for (size_t i = 0; i < partCount; ++i)
        document
            += "<Part><PartNumber>" + std::to_string(i + 1) + "</PartNumber><ETag>\"" + tags[i] + "\"</ETag></Part>";
    call.prepare("POST", path, "uploadId=" + id, document + "</CompleteMultipartUpload>");
    perform(call);
}

void down(const Words& words, bool isDigested)
{
    CBareS3Call call;
    call.prepare("GET", '/' + words.at(0) + '/' + words.at(1));
    call.takeToFile(words.at(2), isDigested);
    perform(call);
}

void put(const Words& words)
{
    const bench::Names names = bench::namesIn(words.at(1));
    const auto prepare = [&](CBareS3Call& call, size_t index) {
        call.prepare("PUT", '/' + words[0] + '/' + names[index], {}, bench::bytesOf(words[1] + '/' + names[index]));
    };
    CCalls(bench::s3ObjectsAtOnce).run(names.size(), prepare, [](CBareS3Call&, size_t) {});
}

/// What a page of a list holds, by expat.
struct CPage {
    explicit CPage(const std::string& document)
    {
        const XML_Parser parser = XML_ParserCreate(nullptr);
        XML_SetUserData(parser, this);
        XML_SetElementHandler(
            parser, [](void* page, const XML_Char*, const XML_Char**) { static_cast<CPage*>(page)->text.clear(); },
            [](void* page, const XML_Char* name) { static_cast<CPage*>(page)->endElement(name); });
        XML_SetCharacterDataHandler(parser, [](void* page, const XML_Char* data, int size) {
            static_cast<CPage*>(page)->text.append(data, static_cast<size_t>(size));
        });
        const bool isGood = XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK;
        XML_ParserFree(parser);
        if (!isGood)
            throw std::runtime_error("a list that is no XML");
    }

    void endElement(std::string_view name)
    {
        if (name == "Key")
            names.push_back(text);
        else if (name == "Size")
            sizes.push_back(text);
        else if (name == "IsTruncated")
            hasNext = text == "true";
    }

    std::string text;
    bench::Names names;
    bench::Names sizes;
    bool hasNext = false;
};

void forEachPage(const std::string& bucket, const std::function<void(const CPage&)>& action)
{
    CBareS3Call call;
    std::string last;
    for (;;) {
        call.prepare("GET", '/' + bucket, "list-type=2&start-after=" + last);
        perform(call);
        const CPage page(call.answer());
        action(page);
        if (!page.hasNext)
            return;
        last = page.names.back(); // of digits
    }
}

void list(const Words& words)
{
    forEachPage(words[0], [](const CPage& page) {
        for (size_t i = 0; i < page.names.size(); ++i)
            std::printf("%s %s\n", page.sizes.at(i).c_str(), page.names[i].c_str());
    });
}

void get(const Words& words)
{
    bench::Names names;
    forEachPage(
        words[0], [&names](const CPage& page) { names.insert(names.end(), page.names.begin(), page.names.end()); });
    const auto prepare = [&](CBareS3Call& call, size_t index) {
        call.prepare("GET", '/' + words[0] + '/' + names[index]);
        call.takeToFile(words.at(1) + '/' + names[index], true);
    };
    CCalls(bench::s3ObjectsAtOnce).run(names.size(), prepare, [](CBareS3Call&, size_t) {});
}

void removeAll(const Words& words)
{
    CBareS3Call call;
    forEachPage(words[0], [&](const CPage& page) {
        std::string document = "<Delete><Quiet>true</Quiet>";
        for (const std::string& name : page.names)
            document += "<Object><Key>" + name + "</Key></Object>";
        call.prepare("POST", '/' + words[0], "delete=", document + "</Delete>");
        perform(call);
        if (call.answer().find("<Error>") != std::string::npos)
            throw std::runtime_error(call.answer());
    });
}

const std::map<std::string, std::function<void(const Words&)>> operations{
    {"up", [](const Words& words) { up(words, true); }},
    {"up-undigested", [](const Words& words) { up(words, false); }},
    {"down", [](const Words& words) { down(words, true); }},
    {"down-unchecked", [](const Words& words) { down(words, false); }},
    {"put", put},
    {"get", get},
    {"list", list},
    {"delete", removeAll},
};

} // namespace

int main(int count, char** arguments)
{
    try {
        if (count < 3)
            throw std::runtime_error("operation and bucket are missing");
        operations.at(arguments[1])(Words(arguments + 2, arguments + count));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "s3_bare_peer: %s\n", error.what());
        return 1;
    }
}
