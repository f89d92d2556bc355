#include "tests/transfer/CurlSpy.h"

#include <atomic>
#include <cstdarg>
#include <dlfcn.h>

namespace {

std::atomic<CurlSpy*> s_current = nullptr;
std::atomic<int> s_inits = 0;
std::atomic<int> s_cleanups = 0;
std::atomic<bool> s_isUnbalanced = false;

template <typename Function> Function* real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void needGlobalInit()
{
    if (s_inits <= s_cleanups)
        s_isUnbalanced = true;
}

} // namespace

CurlSpy::CurlSpy()
{
    s_inits = 0;
    s_cleanups = 0;
    s_isUnbalanced = false;
    s_current = this;
}

CurlSpy::~CurlSpy()
{
    s_current = nullptr;
}

CurlSpy* CurlSpy::current()
{
    return s_current;
}

int CurlSpy::globalInits()
{
    return s_inits;
}

int CurlSpy::globalCleanups()
{
    return s_cleanups;
}

bool CurlSpy::isUnbalanced()
{
    return s_isUnbalanced;
}

CURLcode CurlSpy::performAs(CURL* curl)
{
    m_performed.push_back(m_options[curl]);
    return perform ? perform(m_performed.back()) : CURLE_OK;
}

void CurlSpy::countHandle(int change)
{
    m_openHandles += change;
    m_handlesMade += change > 0 ? 1 : 0;
}

#define NVX_INTERPOSED extern "C" __attribute__((visibility("default")))
#undef curl_easy_setopt

NVX_INTERPOSED CURLcode curl_global_init(long flags)
{
    ++s_inits;
    return real<CURLcode(long)>("curl_global_init")(flags);
}

NVX_INTERPOSED void curl_global_cleanup()
{
    if (++s_cleanups > s_inits)
        s_isUnbalanced = true;
    real<void()>("curl_global_cleanup")();
}

NVX_INTERPOSED CURL* curl_easy_init()
{
    needGlobalInit();
    CurlSpy* const spy = CurlSpy::current();
    if (spy != nullptr && spy->initFails)
        return nullptr;
    if (spy != nullptr)
        spy->countHandle(1);
    return real<CURL*()>("curl_easy_init")();
}

NVX_INTERPOSED void curl_easy_cleanup(CURL* curl)
{
    needGlobalInit();
    if (CurlSpy* const spy = CurlSpy::current())
        spy->countHandle(-1);
    real<void(CURL*)>("curl_easy_cleanup")(curl);
}

NVX_INTERPOSED CURLcode curl_easy_perform(CURL* curl)
{
    needGlobalInit();
    if (CurlSpy* const spy = CurlSpy::current())
        return spy->performAs(curl);
    return real<CURLcode(CURL*)>("curl_easy_perform")(curl);
}

NVX_INTERPOSED CURLcode curl_easy_setopt(CURL* curl, CURLoption option, ...)
{
    auto* const set = real<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt");
    CurlSpy* const spy = CurlSpy::current();
    CurlSpy::Value value;
    va_list arguments;
    va_start(arguments, option);
    CURLcode result = CURLE_OK;
    const int kind = static_cast<int>(option) / 10000 * 10000;
    if (kind == CURLOPTTYPE_LONG) {
        const long number = va_arg(arguments, long);
        value.number = number;
        result = set(curl, option, number);
    } else if (kind == CURLOPTTYPE_OFF_T) {
        value.number = va_arg(arguments, curl_off_t);
        result = set(curl, option, value.number);
    } else {
        value.pointer = va_arg(arguments, void*);
        result = set(curl, option, value.pointer);
        if (option == CURLOPT_URL || option == CURLOPT_USERPWD || option == CURLOPT_NOPROXY)
            value.text = static_cast<const char*>(value.pointer);
    }
    va_end(arguments);
    if (spy != nullptr)
        spy->optionsOf(curl)[option] = value;
    return result;
}
