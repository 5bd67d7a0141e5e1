#pragma once

// What the samples of docs/text.md define, for the test that runs them.

#include "norla/core/CNetRequest.h"

#include <filesystem>
#include <string>

kx::String textOf(const std::string& bytes);
kx::String countText(long long done, long long all);
norla::CNetRequest::Path placeOf(const std::filesystem::path& folder, const kx::String& name);
std::filesystem::path systemPathOf(const norla::CNetRequest::Path& path);
std::string shownPathOf(const norla::CNetRequest::Path& path);
kx::String fileURL(const kx::String& host, const kx::String& path);
kx::String questionURL(const kx::String& host, const kx::String& name);
