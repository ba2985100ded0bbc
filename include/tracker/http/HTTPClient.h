#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <string>

#include "tracker/http/HTTPSession.h"

namespace tracker {
namespace util {
namespace http {

// A minimal blocking HTTP(S) client over one libcurl easy handle, one request at a time:
// startSession(session), then get() or post() (several may follow on one configuration), then
// stopSession(session), which resets the session and every option of the handle.
//
// TLS peer and host verification stay at libcurl's defaults (on): a server whose certificate
// does not chain to the system's trusted roots is refused.
//
// Failure: false or -1 and one error line (tag "TrackerD-HTTPClient"), never an exception.
// HTTP error statuses (4xx, 5xx) are not failures: they are returned. get() and post() log
// libcurl's own text for what failed, e.g. "Failed to send HTTP get, error reason = Timeout was
// reached".
//
// Thread-safety: none; one thread uses a client at a time. Each client initialises and cleans up
// libcurl's global state, which libcurl does not make thread-safe: create and destroy clients on
// one thread.
class HTTPClient {
  public:
    HTTPClient();
    ~HTTPClient();
    HTTPClient(const HTTPClient&) = delete;
    HTTPClient& operator=(const HTTPClient&) = delete;

    // Configures the handle for `session`: TLS version, whole-transfer time-out, URL, the body
    // sink, then addHeaders(). If installing the session's response buffer as the sink fails the
    // session still counts as started (true) but without its headers. A session without a
    // response buffer makes no sink calls: the handle keeps the sink it had (libcurl's default,
    // standard output, or an earlier session's buffer). A null session is refused:
    // "startSessionFailed: reason=nullSession".
    //
    // The client keeps what the handle points into alive (the session and its header list, the
    // buffer installed as the sink) until the next startSession() or stopSession() replaces it,
    // so the caller may drop the session at once.
    bool startSession(std::shared_ptr<HTTPSession> session);
    // Builds the session's header list, installs it on the handle and hands it to the session.
    // No header vector: true, and no header list on the handle (an earlier one is removed). A
    // null session is refused: "addHeadersFailed: reason=nullSession".
    bool addHeaders(std::shared_ptr<HTTPSession> session);
    // Sends `body` as a POST; it is not copied and must not change during the call. Returns the
    // HTTP status code, or -1.
    long post(std::string& body);
    // Sends a GET; returns the HTTP status code, or -1.
    long get();
    // Resets `session` (may be null), then every option of the handle: a get() or post() without
    // a new startSession() has no URL and fails.
    void stopSession(std::shared_ptr<HTTPSession> session);

    // libcurl write callback: appends size * count bytes to the std::string at `userdata` and
    // returns that count, as libcurl expects, in every case: bytes that cannot be stored (no
    // string, no memory left) are dropped, with a log line for the latter.
    static size_t responseCallback(void* data, size_t size, size_t count, void* userdata);

  private:
    // Runs the configured request; `method` ("get" or "post") names it in the log lines.
    long perform(const char* method);

    CURL* m_curl = nullptr;
    // What the handle points into, kept until it no longer does: the started session, the
    // session whose header list is installed, and the buffer installed as the sink.
    std::shared_ptr<HTTPSession> m_session;
    std::shared_ptr<HTTPSession> m_headerOwner;
    std::shared_ptr<std::string> m_sink;
};

}  // namespace http
}  // namespace util
}  // namespace tracker
