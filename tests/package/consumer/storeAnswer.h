#pragma once

#include <string>
#include <string_view>

/// The code in an error document of an S3 store.
std::string codeOfStoreAnswer(std::string_view document);
