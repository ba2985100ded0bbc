#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>
#include <vector>

namespace tracker {
namespace util {
namespace http {

// One request as HTTPClient::startSession() reads it: URL, header lines ("Name: value", sent in
// vector order; may be null), the time-out in seconds for the whole transfer, and the string
// the response body is appended to (null: libcurl's default sink, standard output).
//
// Ownership: the session owns the libcurl header list that startSession() builds from `headers`;
// reset() and the destructor free it. The client's handle points at that list and at the response
// buffer, and the client does not hold the session: whoever started it must keep it alive until
// stopSession(). reset() may be called any number of times: it clears the list pointer after
// freeing, so nothing is freed twice. Not copyable.
//
// Thread-safety: none; used by the one thread that uses its client.
class HTTPSession {
  public:
    HTTPSession(std::string url, std::shared_ptr<std::vector<std::string>> headers,
                std::shared_ptr<std::string> responseBuffer, long connectionTimeout);
    ~HTTPSession();
    HTTPSession(const HTTPSession&) = delete;
    HTTPSession& operator=(const HTTPSession&) = delete;

    std::string getUrl() const { return m_url; }
    long getConnectionTimeout() const { return m_connectionTimeout; }
    std::shared_ptr<std::vector<std::string>> getHeaders() const { return m_headers; }
    curl_slist* getCurlHeaderList() const { return m_curlHeaderList; }
    // Takes ownership of `list`, freeing the list held before (unless it is the same one).
    void setCurlHeaderList(curl_slist* list);
    std::shared_ptr<std::string> getResponseBuffer() const { return m_responseBuffer; }

    // Frees the header list, sets the URL to "" and the time-out to 0, and releases the header
    // vector and the response buffer.
    void reset();

  private:
    void freeCurlHeaderList();

    curl_slist* m_curlHeaderList = nullptr;
    std::shared_ptr<std::vector<std::string>> m_headers;
    std::string m_url;
    long m_connectionTimeout;
    std::shared_ptr<std::string> m_responseBuffer;
};

}  // namespace http
}  // namespace util
}  // namespace tracker
