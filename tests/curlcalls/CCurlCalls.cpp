#include "tests/curlcalls/CCurlCalls.h"

#include "tests/curlcalls/TWatcher.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <stdexcept>
#include <utility>

// The header has macros of these names, to check the number of arguments.
#undef curl_easy_setopt
#undef curl_easy_getinfo
#undef curl_multi_setopt

namespace support {

namespace {

TWatcher<CCurlCalls> watcher;

bool isSigPipeBlocked()
{
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
}

} // namespace

CCurlCalls::CCurlCalls()
{
    watcher.set(*this);
}

CCurlCalls::~CCurlCalls()
{
    watcher.forget();
}

std::vector<std::string> CCurlCalls::takeOptions()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_options, {});
}

void* CCurlCalls::pointerOf(CURLoption option) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_pointers.find(option);
    return found == m_pointers.end() ? nullptr : found->second;
}

void CCurlCalls::setPointer(CURLoption option, void* value)
{
    const std::lock_guard lock(m_mutex);
    m_pointers[option] = value;
}

void CCurlCalls::failOption(CURLoption option, CURLcode result)
{
    const std::lock_guard lock(m_mutex);
    m_failingOptions[option] = result;
}

void CCurlCalls::fail(const std::string& function, int skip, int count)
{
    const std::lock_guard lock(m_mutex);
    m_faults[function] = {skip, count};
}

void CCurlCalls::succeed()
{
    const std::lock_guard lock(m_mutex);
    m_failingOptions.clear();
    m_faults.clear();
}

int CCurlCalls::countOf(const std::string& function) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_counts.find(function);
    return found == m_counts.end() ? 0 : found->second;
}

int CCurlCalls::placeOf(const std::string& function) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_places.find(function);
    return found == m_places.end() ? 0 : found->second;
}

std::set<std::string> CCurlCalls::refusedOptions() const
{
    const std::lock_guard lock(m_mutex);
    return m_refusedOptions;
}

std::optional<long> CCurlCalls::globalInitFlags() const
{
    const std::lock_guard lock(m_mutex);
    return m_globalInitFlags;
}

void CCurlCalls::setGlobalInitFlags(long flags)
{
    const std::lock_guard lock(m_mutex);
    m_globalInitFlags = flags;
}

bool CCurlCalls::wasSigPipeBlocked(const std::string& function) const
{
    const std::lock_guard lock(m_mutex);
    return m_calledWithSigPipeBlocked.count(function) != 0;
}

bool CCurlCalls::isToFail(const std::string& function)
{
    const std::lock_guard lock(m_mutex);
    if (isSigPipeBlocked())
        m_calledWithSigPipeBlocked.insert(function);
    else
        m_calledWithSigPipeBlocked.erase(function);
    ++m_counts[function];
    m_places.try_emplace(function, ++m_lastPlace);
    const auto fault = m_faults.find(function);
    if (fault == m_faults.end() || fault->second.count == 0 || fault->second.skip-- > 0)
        return false;
    fault->second.skip = 0;
    if (fault->second.count > 0)
        --fault->second.count;
    return true;
}

bool CCurlCalls::isPlumbing(CURLoption option)
{
    constexpr std::array plumbing = {CURLOPT_QUICK_EXIT, CURLOPT_OPENSOCKETFUNCTION, CURLOPT_OPENSOCKETDATA,
        CURLOPT_CLOSESOCKETFUNCTION, CURLOPT_CLOSESOCKETDATA};
    return std::find(plumbing.begin(), plumbing.end(), option) != plumbing.end();
}

CURLcode CCurlCalls::resultFor(CURLoption option, const std::string& name, const std::string& value)
{
    const bool isRefused = isToFail("curl_easy_setopt");
    const std::lock_guard lock(m_mutex);
    if (!isPlumbing(option))
        m_options.push_back(name + "=" + value);
    if (isRefused) {
        m_refusedOptions.insert(name);
        return CURLE_OUT_OF_MEMORY;
    }
    const auto failing = m_failingOptions.find(option);
    return failing == m_failingOptions.end() ? CURLE_OK : failing->second;
}

void CCurlCalls::setMultiResult(CURLMcode result)
{
    const std::lock_guard lock(m_mutex);
    m_multiResult = result;
}

CURLMcode CCurlCalls::multiResult() const
{
    const std::lock_guard lock(m_mutex);
    return m_multiResult;
}

void CCurlCalls::setMultiTimeout(long timeout)
{
    const std::lock_guard lock(m_mutex);
    m_multiTimeout = timeout;
}

void CCurlCalls::changeTimeout(long& timeout) const
{
    const std::lock_guard lock(m_mutex);
    timeout = m_multiTimeout.value_or(timeout);
}

void CCurlCalls::setInfo(CURLINFO info, long long value)
{
    const std::lock_guard lock(m_mutex);
    m_infos[info] = value;
}

/// @param value a curl_off_t or a long, as the question wants it
bool CCurlCalls::answersInfo(CURLINFO info, void* value) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_infos.find(info);
    if (found == m_infos.end())
        return false;
    if ((info & CURLINFO_TYPEMASK) == CURLINFO_OFF_T)
        *static_cast<curl_off_t*>(value) = found->second;
    else
        *static_cast<long*>(value) = static_cast<long>(found->second);
    return true;
}

void CCurlCalls::addMessage(const CURLMsg& message)
{
    const std::lock_guard lock(m_mutex);
    m_messages.push_back(message);
}

CURLMsg* CCurlCalls::nextMessage()
{
    const std::lock_guard lock(m_mutex);
    if (m_messages.empty())
        return nullptr;
    m_lastMessage = m_messages.front();
    m_messages.pop_front();
    return &m_lastMessage;
}

void CCurlCalls::addMulti(CURLM* multi)
{
    const std::lock_guard lock(m_mutex);
    m_multis.insert(multi);
}

void CCurlCalls::removeMulti(CURLM* multi)
{
    const std::lock_guard lock(m_mutex);
    m_multis.erase(multi);
}

size_t CCurlCalls::cleanUpMultis()
{
    std::set<CURLM*> multis;
    {
        const std::lock_guard lock(m_mutex);
        multis = m_multis;
    }
    for (CURLM* const multi : multis)
        curl_multi_cleanup(multi); // comes back to removeMulti()
    return multis.size();
}

namespace {

bool isToFail(const char* function)
{
    return watcher.ask([function](CCurlCalls& calls) { return calls.isToFail(function); });
}

template <typename TFunction>
TFunction* original(TFunction*, const char* name)
{
    void* const found = dlsym(RTLD_NEXT, name);
    if (!found)
        std::abort();
    return reinterpret_cast<TFunction*>(found);
}

template <typename TFunction, typename... TArguments>
CURLMcode callMulti(TFunction* function, const char* name, TArguments... arguments)
{
    const auto failure = watcher.ask(
        [name](CCurlCalls& calls) { return calls.isToFail(name) ? std::optional(calls.multiResult()) : std::nullopt; });
    if (!failure || *failure == CURLM_CALL_MULTI_PERFORM) {
        const CURLMcode result = original(function, name)(arguments...);
        return failure.value_or(result);
    }
    return *failure;
}

std::string listText(const curl_slist* list)
{
    std::string text = "[";
    for (const curl_slist* node = list; node; node = node->next)
        text += std::string(node == list ? "" : ", ") + node->data;
    return text + "]";
}

std::string pointerText(CURLoption option, const void* value)
{
    const curl_easyoption* const known = curl_easy_option_by_id(option);
    if (!value)
        return "null";
    if (known && known->type == CURLOT_STRING)
        return static_cast<const char*>(value);
    if (known && known->type == CURLOT_SLIST)
        return listText(static_cast<const curl_slist*>(value));
    return "set";
}

template <typename TValue>
CURLcode setOption(CURL* handle, CURLoption option, TValue value, const std::string& valueText)
{
    const CURLcode failure = watcher.ask([option, &valueText](CCurlCalls& calls) {
        const curl_easyoption* const known = curl_easy_option_by_id(option);
        const std::string name = known ? known->name : std::to_string(option);
        return calls.resultFor(option, name, valueText);
    });
    if (failure != CURLE_OK)
        return failure;
    return original(&curl_easy_setopt, "curl_easy_setopt")(handle, option, value);
}

} // namespace

} // namespace support

extern "C" {

// The variadic functions stand under names of their own, given libcurl's for the linker: va_start may not follow a
// parameter of an enumeration type, which is what libcurl declares.
CURLcode interposedSetOption(CURL* handle, unsigned int optionNumber, ...) __asm__("curl_easy_setopt");
CURLcode interposedGetInfo(CURL* handle, unsigned int infoNumber, ...) __asm__("curl_easy_getinfo");
CURLMcode interposedMultiSetOption(CURLM* multi, unsigned int optionNumber, ...) __asm__("curl_multi_setopt");
// Newer headers declare the first one const.
CURLUcode interposedGetURLPart(CURLU* url, CURLUPart part, char** text, unsigned int flags) __asm__("curl_url_get");

CURLcode interposedSetOption(CURL* handle, unsigned int optionNumber, ...)
{
    const auto option = static_cast<CURLoption>(optionNumber);
    va_list arguments;
    va_start(arguments, optionNumber);
    CURLcode result = CURLE_OK;
    if (option < CURLOPTTYPE_OBJECTPOINT) {
        const long value = va_arg(arguments, long);
        result = support::setOption(handle, option, value, std::to_string(value));
    } else if (option >= CURLOPTTYPE_OFF_T && option < CURLOPTTYPE_BLOB) {
        const curl_off_t value = va_arg(arguments, curl_off_t);
        result = support::setOption(handle, option, value, std::to_string(value));
    } else {
        void* const value = va_arg(arguments, void*);
        support::watcher.ask([=](support::CCurlCalls& calls) { calls.setPointer(option, value); });
        result = support::setOption(handle, option, value, support::pointerText(option, value));
    }
    va_end(arguments);
    return result;
}

CURLcode interposedGetInfo(CURL* handle, unsigned int infoNumber, ...)
{
    va_list arguments;
    va_start(arguments, infoNumber);
    void* const value = va_arg(arguments, void*);
    va_end(arguments);
    if (support::isToFail("curl_easy_getinfo"))
        return CURLE_BAD_FUNCTION_ARGUMENT;
    const auto info = static_cast<CURLINFO>(infoNumber);
    if (support::watcher.ask([=](const support::CCurlCalls& calls) { return calls.answersInfo(info, value); }))
        return CURLE_OK;
    return support::original(&curl_easy_getinfo, "curl_easy_getinfo")(handle, info, value);
}

CURLMcode interposedMultiSetOption(CURLM* multi, unsigned int optionNumber, ...)
{
    const auto option = static_cast<CURLMoption>(optionNumber);
    va_list arguments;
    va_start(arguments, optionNumber);
    CURLMcode result = CURLM_OK;
    if (optionNumber < CURLOPTTYPE_OBJECTPOINT)
        result = support::callMulti(&curl_multi_setopt, "curl_multi_setopt", multi, option, va_arg(arguments, long));
    else
        result = support::callMulti(&curl_multi_setopt, "curl_multi_setopt", multi, option, va_arg(arguments, void*));
    va_end(arguments);
    return result;
}

CURLcode curl_easy_pause(CURL* handle, int bits)
{
    if (support::isToFail("curl_easy_pause"))
        return CURLE_OUT_OF_MEMORY;
    return support::original(&curl_easy_pause, "curl_easy_pause")(handle, bits);
}

CURLU* curl_url(void)
{
    if (support::isToFail("curl_url"))
        return nullptr;
    return support::original(&curl_url, "curl_url")();
}

CURLUcode curl_url_set(CURLU* url, CURLUPart part, const char* text, unsigned int flags)
{
    if (support::isToFail("curl_url_set"))
        return CURLUE_OUT_OF_MEMORY;
    return support::original(&curl_url_set, "curl_url_set")(url, part, text, flags);
}

CURLUcode interposedGetURLPart(CURLU* url, CURLUPart part, char** text, unsigned int flags)
{
    if (support::isToFail("curl_url_get"))
        return CURLUE_OUT_OF_MEMORY;
    return support::original(&curl_url_get, "curl_url_get")(url, part, text, flags);
}

CURLcode curl_global_init(long flags)
{
    support::watcher.ask([flags](support::CCurlCalls& calls) { calls.setGlobalInitFlags(flags); });
    if (support::isToFail("curl_global_init"))
        return CURLE_FAILED_INIT;
    return support::original(&curl_global_init, "curl_global_init")(flags);
}

void curl_global_cleanup(void)
{
    if (support::isToFail("curl_global_cleanup"))
        throw std::runtime_error("cleanup failed");
    support::original(&curl_global_cleanup, "curl_global_cleanup")();
}

// OpenSSL's, which the library calls before it initialises libcurl.
int OPENSSL_init_ssl(uint64_t options, const void* settings)
{
    if (support::isToFail("OPENSSL_init_ssl"))
        return 0;
    return support::original(&OPENSSL_init_ssl, "OPENSSL_init_ssl")(options, settings);
}

// OpenSSL's, with which the library frees what OpenSSL holds for a thread.
void OPENSSL_thread_stop(void)
{
    support::isToFail("OPENSSL_thread_stop");
    support::original(&OPENSSL_thread_stop, "OPENSSL_thread_stop")();
}

CURL* curl_easy_init(void)
{
    if (support::isToFail("curl_easy_init"))
        return nullptr;
    return support::original(&curl_easy_init, "curl_easy_init")();
}

void curl_easy_cleanup(CURL* handle)
{
    support::isToFail("curl_easy_cleanup");
    support::original(&curl_easy_cleanup, "curl_easy_cleanup")(handle);
}

char* curl_easy_escape(CURL* handle, const char* text, int length)
{
    if (support::isToFail("curl_easy_escape"))
        return nullptr;
    return support::original(&curl_easy_escape, "curl_easy_escape")(handle, text, length);
}

const char* curl_easy_strerror(CURLcode code)
{
    if (support::isToFail("curl_easy_strerror"))
        return nullptr;
    return support::original(&curl_easy_strerror, "curl_easy_strerror")(code);
}

const char* curl_multi_strerror(CURLMcode code)
{
    if (support::isToFail("curl_multi_strerror"))
        return nullptr;
    return support::original(&curl_multi_strerror, "curl_multi_strerror")(code);
}

curl_slist* curl_slist_append(curl_slist* list, const char* text)
{
    if (support::isToFail("curl_slist_append"))
        return nullptr;
    return support::original(&curl_slist_append, "curl_slist_append")(list, text);
}

CURLM* curl_multi_init(void)
{
    if (support::isToFail("curl_multi_init"))
        return nullptr;
    CURLM* const multi = support::original(&curl_multi_init, "curl_multi_init")();
    support::watcher.ask([multi](support::CCurlCalls& calls) { calls.addMulti(multi); });
    return multi;
}

CURLMcode curl_multi_cleanup(CURLM* multi)
{
    support::isToFail("curl_multi_cleanup");
    support::watcher.ask([multi](support::CCurlCalls& calls) { calls.removeMulti(multi); });
    return support::original(&curl_multi_cleanup, "curl_multi_cleanup")(multi);
}

CURLMcode curl_multi_add_handle(CURLM* multi, CURL* handle)
{
    return support::callMulti(&curl_multi_add_handle, "curl_multi_add_handle", multi, handle);
}

CURLMcode curl_multi_remove_handle(CURLM* multi, CURL* handle)
{
    return support::callMulti(&curl_multi_remove_handle, "curl_multi_remove_handle", multi, handle);
}

CURLMcode curl_multi_fdset(CURLM* multi, fd_set* readable, fd_set* writable, fd_set* exceptional, int* highest)
{
    return support::callMulti(&curl_multi_fdset, "curl_multi_fdset", multi, readable, writable, exceptional, highest);
}

CURLMcode curl_multi_timeout(CURLM* multi, long* timeout)
{
    const CURLMcode result = support::callMulti(&curl_multi_timeout, "curl_multi_timeout", multi, timeout);
    support::watcher.ask([timeout](const support::CCurlCalls& calls) { calls.changeTimeout(*timeout); });
    return result;
}

CURLMcode curl_multi_poll(CURLM* multi, curl_waitfd* extra, unsigned int extraCount, int timeout, int* ready)
{
    return support::callMulti(&curl_multi_poll, "curl_multi_poll", multi, extra, extraCount, timeout, ready);
}

CURLMcode curl_multi_perform(CURLM* multi, int* running)
{
    return support::callMulti(&curl_multi_perform, "curl_multi_perform", multi, running);
}

CURLMcode curl_multi_socket_action(CURLM* multi, curl_socket_t socket, int events, int* running)
{
    return support::callMulti(&curl_multi_socket_action, "curl_multi_socket_action", multi, socket, events, running);
}

CURLMcode curl_multi_assign(CURLM* multi, curl_socket_t socket, void* value)
{
    return support::callMulti(&curl_multi_assign, "curl_multi_assign", multi, socket, value);
}

CURLMsg* curl_multi_info_read(CURLM* multi, int* left)
{
    if (support::isToFail("curl_multi_info_read"))
        return nullptr;
    CURLMsg* const message = support::watcher.ask([](support::CCurlCalls& calls) { return calls.nextMessage(); });
    return message ? message : support::original(&curl_multi_info_read, "curl_multi_info_read")(multi, left);
}

} // extern "C"
