#pragma once

#include <QByteArray>

#include <curl/curl.h>
#include <functional>
#include <map>
#include <vector>

/// Stands between the library and libcurl while it lives: this program's functions of libcurl's names come
/// first when the loader binds. Without one all calls go straight through. One at a time; from the thread
/// that created it, but for the counts of the global calls.
class CurlSpy
{
public:
    /// An option as it was set last: numbers as numbers, texts as texts, pointers as pointers.
    struct Value
    {
        curl_off_t number = 0;
        void* pointer = nullptr;
        QByteArray text;
    };
    using Options = std::map<CURLoption, Value>;

    CurlSpy();
    ~CurlSpy();
    CurlSpy(const CurlSpy&) = delete;
    CurlSpy& operator=(const CurlSpy&) = delete;

    /// What curl_easy_perform() does instead of a transfer; its result is the transfer's.
    std::function<CURLcode(const Options&)> perform;
    /// curl_easy_init() gives no handle.
    bool initFails = false;

    /// Options of each handle, in the order in which they were performed.
    const std::vector<Options>& performed() const { return m_performed; }
    const Options& last() const { return m_performed.back(); }

    /// Handles that were made and not yet cleaned up.
    int openHandles() const { return m_openHandles; }
    int handlesMade() const { return m_handlesMade; }
    /// Calls of curl_global_init(), and those that came while an earlier one was in force.
    static int globalInits();
    static int globalCleanups();
    /// True if at any time the cleanups outran the inits or a handle was made or used outside of them.
    static bool isUnbalanced();

    static CurlSpy* current();
    Options& optionsOf(CURL* curl) { return m_options[curl]; }
    CURLcode performAs(CURL* curl);
    void countHandle(int change);

private:
    std::map<CURL*, Options> m_options;
    std::vector<Options> m_performed;
    int m_openHandles = 0;
    int m_handlesMade = 0;
};
