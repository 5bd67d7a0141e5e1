#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

/// What is done while something may fail once, between the calls of the first function and of the second.
using Play = std::function<void(const std::function<void()>& arm, const std::function<void()>& disarm)>;

/// Plays until nothing fails any more.
/// @param name for people
/// @param function of CFailingCall
/// @return how often it has failed
long letFail(const std::string& name, const Play& play, const std::string& function);

/// The same with a function of CCurlCalls. @param options gets the names of those that were refused
int letFailOfLibcurls(
    const std::string& name, const Play& play, const std::string& function, std::set<std::string>& options);

/// All that a pool calls, but for curl_easy_setopt.
std::vector<std::string> functionsOfLibcurl();
