#include "tracker/http/HTTPSession.h"

#include <utility>

namespace tracker {
namespace util {
namespace http {

HTTPSession::HTTPSession(std::string url, std::shared_ptr<std::vector<std::string>> headers,
                         std::shared_ptr<std::string> responseBuffer, long connectionTimeout)
    : m_headers(std::move(headers)),
      m_url(std::move(url)),
      m_connectionTimeout(connectionTimeout),
      m_responseBuffer(std::move(responseBuffer)) {}

HTTPSession::~HTTPSession() {
    freeCurlHeaderList();
}

void HTTPSession::setCurlHeaderList(curl_slist* list) {
    if (list != m_curlHeaderList) {
        freeCurlHeaderList();
        m_curlHeaderList = list;
    }
}

void HTTPSession::reset() {
    freeCurlHeaderList();
    m_url.clear();
    m_connectionTimeout = 0;
    m_headers.reset();
    m_responseBuffer.reset();
}

void HTTPSession::freeCurlHeaderList() {
    if (m_curlHeaderList != nullptr) {
        curl_slist_free_all(m_curlHeaderList);
        m_curlHeaderList = nullptr;
    }
}

}  // namespace http
}  // namespace util
}  // namespace tracker
