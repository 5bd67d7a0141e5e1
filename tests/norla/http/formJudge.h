#pragma once

#include "kx/text/hex.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/files.h"

#include <optional>
#include <string>
#include <vector>

/// What Python's parser finds in the body of a form: a line for each part, as expectedPart() makes them.
inline std::vector<std::string> judgeForm(const std::string& contentType, const std::string& body)
{
    const support::CProcessRun run({.arguments = {"python3", NORLA_HTTP_TESTS_DIR "/form_judge.py"},
        .package = "python3",
        .input = contentType + '\n' + body});
    return support::splitLines(run.output() + run.errors());
}

struct CExpectedPart {
    std::string name;
    std::string body;
    std::optional<std::string> fileName = {};
    std::optional<std::string> contentType = {};
};

inline std::string expectedPart(const CExpectedPart& part)
{
    const auto hexadecimal = [](const std::string& bytes) { return '"' + kx::hexEncode(bytes).toLatin1() + '"'; };
    return "{\"body\":" + hexadecimal(part.body) + ",\"file\":" + (part.fileName ? hexadecimal(*part.fileName) : "null")
        + ",\"kind\":\"form-data\",\"name\":" + hexadecimal(part.name)
        + ",\"type\":" + (part.contentType ? '"' + *part.contentType + '"' : "null") + '}';
}
