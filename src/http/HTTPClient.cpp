#include "tracker/http/HTTPClient.h"

#include <utility>

#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace http {

namespace {

const Log& kLog = *new Log("HTTPClient");

}  // namespace

HTTPClient::HTTPClient() {
    curl_global_init(CURL_GLOBAL_ALL);
    // A null handle is reported by startSession(); every other call fails on it without crashing.
    m_curl = curl_easy_init();
}

HTTPClient::~HTTPClient() {
    curl_easy_cleanup(m_curl);
    curl_global_cleanup();
}

bool HTTPClient::startSession(std::shared_ptr<HTTPSession> session) {
    if (m_curl == nullptr) {
        kLog.e("Error initializing curl, curl handle is null.");
        return false;
    }
    if (session == nullptr) {
        kLog.e("startSessionFailed: reason=nullSession");
        return false;
    }
    if (curl_easy_setopt(m_curl, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_DEFAULT)) !=
        CURLE_OK) {
        kLog.e("Error setting curl SSL version");
        return false;
    }
    // CURLOPT_TIMEOUT bounds the whole transfer, not only the connect phase.
    if (curl_easy_setopt(m_curl, CURLOPT_TIMEOUT, session->getConnectionTimeout()) != CURLE_OK) {
        kLog.e("Error setting curl HTTP connection timeout");
        return false;
    }
    if (curl_easy_setopt(m_curl, CURLOPT_URL, session->getUrl().c_str()) != CURLE_OK) {
        kLog.e("ErrorSettingCurlOption=CURLOPT_URL");
        return false;
    }
    // The handle points into the session (its header list) from here on.
    m_session = session;
    const std::shared_ptr<std::string> buffer = session->getResponseBuffer();
    if (buffer != nullptr) {
        // A sink that cannot be installed still leaves a started session, only without its
        // headers: callers rely on this result.
        CURLcode result = curl_easy_setopt(m_curl, CURLOPT_WRITEFUNCTION, &responseCallback);
        if (result != CURLE_OK) {
            kLog.e("Failed to set opt CURLOPT_WRITEFUNCTION, err=%s", curl_easy_strerror(result));
            return true;
        }
        result = curl_easy_setopt(m_curl, CURLOPT_WRITEDATA, buffer.get());
        if (result != CURLE_OK) {
            kLog.e("Failed to set opt CURLOPT_WRITEDATA, err=%s", curl_easy_strerror(result));
            return true;
        }
        m_sink = buffer;
    }
    return addHeaders(std::move(session));
}

bool HTTPClient::addHeaders(std::shared_ptr<HTTPSession> session) {
    if (session == nullptr) {
        kLog.e("addHeadersFailed: reason=nullSession");
        return false;
    }
    const std::shared_ptr<std::vector<std::string>> headers = session->getHeaders();
    if (headers == nullptr) {
        // An earlier session may have left its list installed, a list that session frees.
        if (curl_easy_setopt(m_curl, CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr)) !=
            CURLE_OK) {
            kLog.e("Error setting HTTPClient headers");
            return false;
        }
        return true;
    }
    curl_slist* list = nullptr;
    for (const std::string& header : *headers) {
        curl_slist* const longer = curl_slist_append(list, header.c_str());
        if (longer == nullptr) {
            curl_slist_free_all(list);
            kLog.e("Failed to append HTTP client header");
            return false;
        }
        list = longer;
    }
    if (curl_easy_setopt(m_curl, CURLOPT_HTTPHEADER, list) != CURLE_OK) {
        kLog.e("Error setting HTTPClient headers");
        curl_slist_free_all(list);
        return false;
    }
    session->setCurlHeaderList(list);
    m_headerOwner = std::move(session);
    return true;
}

long HTTPClient::post(std::string& body) {
    CURLcode result =
        curl_easy_setopt(m_curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    if (result != CURLE_OK) {
        kLog.e("Failed to set opt CURLOPT_POSTFIELDSIZE, res=%s", curl_easy_strerror(result));
        return -1;
    }
    result = curl_easy_setopt(m_curl, CURLOPT_POSTFIELDS, body.data());
    if (result != CURLE_OK) {
        kLog.e("Failed to set opt CURLOPT_POSTFIELDS, res=%s", curl_easy_strerror(result));
        return -1;
    }
    kLog.d("Sending HTTP post request");
    return perform("post");
}

long HTTPClient::get() {
    const CURLcode result = curl_easy_setopt(m_curl, CURLOPT_HTTPGET, 1L);
    if (result != CURLE_OK) {
        kLog.e("Failed to set opt CURLOPT_HTTPGET, res=%s", curl_easy_strerror(result));
        return -1;
    }
    kLog.d("Sending HTTP get request.");
    return perform("get");
}

long HTTPClient::perform(const char* method) {
    CURLcode result = curl_easy_perform(m_curl);
    if (result != CURLE_OK) {
        kLog.e("Failed to send HTTP %s, error reason = %s", method, curl_easy_strerror(result));
        return -1;
    }
    long code = 0;
    result = curl_easy_getinfo(m_curl, CURLINFO_RESPONSE_CODE, &code);
    if (result != CURLE_OK) {
        // The same text for a GET: callers match on it.
        kLog.e("Failed to read post request response code, reason = %s",
               curl_easy_strerror(result));
        return -1;
    }
    return code;
}

void HTTPClient::stopSession(std::shared_ptr<HTTPSession> session) {
    if (session != nullptr) {
        session->reset();
    }
    // curl_easy_reset, unlike the other calls, does not accept a null handle.
    if (m_curl != nullptr) {
        curl_easy_reset(m_curl);
    }
    // Nothing on the handle points anywhere now.
    m_session.reset();
    m_headerOwner.reset();
    m_sink.reset();
}

size_t HTTPClient::responseCallback(void* data, size_t size, size_t count, void* userdata) {
    // libcurl fails a transfer whose callback takes less than it was given: bytes that cannot
    // be kept are dropped, the transfer goes on.
    const size_t bytes = size * count;
    if (userdata != nullptr) {
        try {
            static_cast<std::string*>(userdata)->append(static_cast<const char*>(data), bytes);
        } catch (...) {
            // Nothing may unwind through libcurl's C frames.
            kLog.e("responseCallback: response of %zu bytes dropped", bytes);
        }
    }
    return bytes;
}

}  // namespace http
}  // namespace util
}  // namespace tracker
