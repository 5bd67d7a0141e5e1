#pragma once

// What the samples of docs/ownership.md define, for the test that runs them.

#include "norla/core/CNetRequest.h"

#include <functional>
#include <string_view>

kx::P<norla::CNetRequest> prepareQuestion(const kx::String& url);
void postBytes(norla::CNetRequest& request, std::string_view bytes);
void tellTheEnd(norla::CNetRequest& request, const std::function<void(const kx::String& text)>& tell);
