#include "tracker/http/HTTPClient.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "log/LogCapture.h"

namespace tracker {
namespace util {
namespace http {
namespace {

using sim::LogCapture;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

const std::string kSendingGet = "D TrackerD-HTTPClient: Sending HTTP get request.";
const std::string kSendingPost = "D TrackerD-HTTPClient: Sending HTTP post request";

std::string errorLine(const std::string& message) {
    return "E TrackerD-HTTPClient: " + message;
}

std::string sendFailed(const std::string& method, CURLcode code) {
    return errorLine("Failed to send HTTP " + method +
                     ", error reason = " + curl_easy_strerror(code));
}

// tests/http/loopback_server.py, running for one test. It listens once the constructor has read
// its first line, which it waits for at most 30 s; the destructor ends it (it also ends by itself
// after a minute).
class LoopbackServer {
  public:
    explicit LoopbackServer(const std::string& mode = "http")
        : m_scheme(mode == "tls" ? "https://" : "http://") {
        int pipeEnds[2];
        if (pipe2(pipeEnds, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "no pipe for the loopback server";
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
        std::string python = TRACKER_PYTHON3;
        std::string script = TRACKER_LOOPBACK_SERVER;
        std::string argument = mode;
        char* argv[] = {python.data(), script.data(), argument.data(), nullptr};
        if (posix_spawn(&m_pid, python.c_str(), &actions, nullptr, argv, environ) != 0) {
            m_pid = 0;
        }
        posix_spawn_file_actions_destroy(&actions);
        close(pipeEnds[1]);
        const std::string line = readLine(pipeEnds[0], std::chrono::seconds(30));
        close(pipeEnds[0]);
        if (m_pid <= 0 ||
            std::sscanf(line.c_str(), "%d %d %d", &m_serverPid, &m_port, &m_refusingPort) != 3) {
            ADD_FAILURE() << "the loopback server did not start: \"" << line << "\"";
        }
    }
    ~LoopbackServer() {
        // The server's own pid differs from the spawned one if the interpreter is a wrapper.
        if (m_serverPid > 0 && m_serverPid != m_pid) {
            kill(m_serverPid, SIGTERM);
        }
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
    }
    std::string host() const { return "127.0.0.1:" + std::to_string(m_port); }
    std::string url(const std::string& path) const { return m_scheme + host() + path; }
    std::string refusingUrl() const {
        return m_scheme + "127.0.0.1:" + std::to_string(m_refusingPort) + "/";
    }

  private:
    // The first line from `fd`, or what arrived of it before the limit or the end of the output.
    static std::string readLine(int fd, std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        std::string line;
        while (line.find('\n') == std::string::npos) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd ready = {fd, POLLIN, 0};
            const int polled =
                left.count() > 0 ? poll(&ready, 1, static_cast<int>(left.count())) : 0;
            if (polled < 0 && errno == EINTR) {
                continue;
            }
            if (polled <= 0) {
                break;
            }
            char chunk[256];
            const ssize_t got = read(fd, chunk, sizeof chunk);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                break;
            }
            line.append(chunk, static_cast<std::size_t>(got));
        }
        return line.substr(0, line.find('\n'));
    }

    const std::string m_scheme;
    pid_t m_pid = 0;
    pid_t m_serverPid = 0;
    int m_port = 0;
    int m_refusingPort = 0;
};

std::shared_ptr<HTTPSession> sessionFor(const std::string& url, std::shared_ptr<std::string> buffer,
                                        std::vector<std::string> headers = {}, long seconds = 10) {
    return std::make_shared<HTTPSession>(
        url, std::make_shared<std::vector<std::string>>(std::move(headers)), std::move(buffer),
        seconds);
}

// A session without a header vector.
std::shared_ptr<HTTPSession> bareSession(const std::string& url,
                                         std::shared_ptr<std::string> buffer) {
    return std::make_shared<HTTPSession>(url, nullptr, std::move(buffer), 10);
}

TEST(HTTPClient, SendsGetAndPostAsTheCallerGaveThem) {
    LoopbackServer server;
    LogCapture capture;
    HTTPClient client;
    auto buffer = std::make_shared<std::string>("kept|");
    auto session =
        sessionFor(server.url("/echo"), buffer, {"Content-Type: application/json", "Accept: */*"});
    ASSERT_TRUE(client.startSession(session));
    std::string body = R"({"tag":"A1"})";
    EXPECT_EQ(client.get(), 200);
    EXPECT_EQ(client.post(body), 200);
    EXPECT_EQ(client.get(), 200);  // the same configuration again, and a GET after a POST
    const std::string head = " /echo HTTP/1.1\r\nHost: " + server.host() +
                             "\r\nContent-Type: application/json\r\nAccept: */*\r\n";
    EXPECT_EQ(*buffer, "kept|GET" + head + "\r\nPOST" + head + "Content-Length: 12\r\n\r\n" + body +
                           "GET" + head + "\r\n");
    EXPECT_EQ(capture.texts(), (Lines{kSendingGet, kSendingPost, kSendingGet}));

    // A body far larger than one libcurl chunk arrives whole.
    std::string large(300000, 'x');
    buffer->clear();
    EXPECT_EQ(client.post(large), 200);
    EXPECT_EQ(buffer->substr(buffer->size() - large.size() - 4), "\r\n\r\n" + large);
}

TEST(HTTPClient, ErrorStatusesAreResultsAndNeedNoBuffer) {
    LoopbackServer server;
    LogCapture capture;
    HTTPClient client;
    auto session = sessionFor(server.url("/missing"), nullptr);
    ASSERT_TRUE(client.startSession(session));
    std::string body = "{}";
    EXPECT_EQ(client.post(body), 404);
    EXPECT_EQ(client.get(), 404);
    EXPECT_EQ(capture.texts(), (Lines{kSendingPost, kSendingGet}));
}

TEST(HTTPClient, TheTimeOutBoundsTheWholeTransfer) {
    // The connection succeeds at once; the answer never comes.
    LoopbackServer server;
    LogCapture capture;
    HTTPClient client;
    auto session = sessionFor(server.url("/slow"), std::make_shared<std::string>(), {}, 1);
    ASSERT_TRUE(client.startSession(session));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.get(), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(capture.texts(), (Lines{kSendingGet, sendFailed("get", CURLE_OPERATION_TIMEDOUT)}));
}

TEST(HTTPClient, UnreachableAndUntrustedServersFailWithLibcurlsReason) {
    LoopbackServer server("tls");
    LogCapture capture;
    HTTPClient client;
    auto refusing = sessionFor(server.refusingUrl(), std::make_shared<std::string>());
    ASSERT_TRUE(client.startSession(refusing));
    std::string body = "{}";
    EXPECT_EQ(client.get(), -1);
    EXPECT_EQ(client.post(body), -1);
    client.stopSession(refusing);

    // Nobody with a certificate the system does not trust can stand in for the back end.
    auto untrusted = sessionFor(server.url("/echo"), std::make_shared<std::string>());
    ASSERT_TRUE(client.startSession(untrusted));
    EXPECT_EQ(client.get(), -1);
    EXPECT_EQ(*untrusted->getResponseBuffer(), "");
    // Refused either by verification or, on a host without a CA bundle, for want of one.
    EXPECT_THAT(capture.texts(),
                ElementsAre(kSendingGet, sendFailed("get", CURLE_COULDNT_CONNECT), kSendingPost,
                            sendFailed("post", CURLE_COULDNT_CONNECT), kSendingGet,
                            AnyOf(sendFailed("get", CURLE_PEER_FAILED_VERIFICATION),
                                  sendFailed("get", CURLE_SSL_CACERT_BADFILE))));
}

TEST(HTTPClient, StoppingClearsTheSessionAndEveryOption) {
    LoopbackServer server;
    HTTPClient client;
    auto buffer = std::make_shared<std::string>();
    auto session = sessionFor(server.url("/echo"), buffer, {"X-Old: 1"});
    ASSERT_TRUE(client.startSession(session));
    ASSERT_EQ(client.get(), 200);
    client.stopSession(session);
    session->reset();  // a second reset frees nothing twice
    EXPECT_EQ(session->getUrl(), "");
    EXPECT_EQ(session->getConnectionTimeout(), 0);
    EXPECT_EQ(session->getHeaders(), nullptr);
    EXPECT_EQ(session->getResponseBuffer(), nullptr);
    EXPECT_EQ(session->getCurlHeaderList(), nullptr);

    LogCapture capture;
    EXPECT_EQ(client.get(), -1);
    EXPECT_EQ(capture.texts(), (Lines{kSendingGet, sendFailed("get", CURLE_URL_MALFORMAT)}));

    buffer->clear();
    auto next = sessionFor(server.url("/next"), buffer);
    ASSERT_TRUE(client.startSession(next));
    EXPECT_EQ(client.get(), 200);
    EXPECT_EQ(buffer->find("GET /next "), 0u);
    EXPECT_EQ(buffer->find("X-Old"), std::string::npos);
}

TEST(HTTPClient, ANewSessionLeavesNothingOfTheLastOneInUse) {
    // No stopSession() in between: the earlier session's header list and buffer stay alive here,
    // so a handle still pointing at them would show in the echo and in the old buffer.
    LoopbackServer server;
    HTTPClient client;
    auto firstBuffer = std::make_shared<std::string>();
    auto first = sessionFor(server.url("/first"), firstBuffer, {"X-First: 1"});
    ASSERT_TRUE(client.startSession(first));
    ASSERT_EQ(client.get(), 200);
    EXPECT_NE(firstBuffer->find("\r\nX-First: 1\r\n"), std::string::npos);
    firstBuffer->clear();

    auto buffer = std::make_shared<std::string>();
    auto noHeaders = bareSession(server.url("/second"), buffer);
    ASSERT_TRUE(client.startSession(noHeaders));
    EXPECT_EQ(client.get(), 200);
    EXPECT_EQ(*buffer,
              "GET /second HTTP/1.1\r\nHost: " + server.host() + "\r\nAccept: */*\r\n\r\n");

    // Without a buffer the handle keeps the sink it had: the earlier session's buffer, which the
    // client keeps alive for it.
    auto noBuffer = bareSession(server.url("/third"), nullptr);
    ASSERT_TRUE(client.startSession(noBuffer));
    const std::weak_ptr<std::string> kept = buffer;
    noHeaders.reset();
    buffer.reset();
    EXPECT_EQ(client.get(), 200);
    ASSERT_FALSE(kept.expired());
    EXPECT_NE(kept.lock()->find("GET /third HTTP/1.1\r\n"), std::string::npos);
    EXPECT_EQ(*firstBuffer, "");
    client.stopSession(noBuffer);
    EXPECT_TRUE(kept.expired()) << "stopping lets go of everything the handle pointed into";
}

TEST(HTTPClient, TheCallerMayDropTheSessionOnceStarted) {
    LoopbackServer server;
    HTTPClient client;
    auto buffer = std::make_shared<std::string>();
    auto session = sessionFor(server.url("/echo"), buffer, {"X-Kept: yes"});
    ASSERT_TRUE(client.startSession(session));
    const std::weak_ptr<HTTPSession> started = session;
    session.reset();
    // The handle still points at the session's header list and at the buffer.
    EXPECT_EQ(client.get(), 200);
    EXPECT_NE(buffer->find("\r\nX-Kept: yes\r\n"), std::string::npos);
    EXPECT_FALSE(started.expired());
    client.stopSession(nullptr);
    EXPECT_TRUE(started.expired());
}

TEST(HTTPClient, TheWriteCallbackTakesEveryByteItIsGiven) {
    // libcurl fails a transfer whose callback takes fewer bytes than it was handed.
    std::string sink;
    char data[] = "abcdef";
    EXPECT_EQ(HTTPClient::responseCallback(data, 1, 6, &sink), 6u);
    EXPECT_EQ(sink, "abcdef");
    EXPECT_EQ(HTTPClient::responseCallback(data, 2, 3, nullptr), 6u);
}

TEST(HTTPClient, RefusedSettingsFailTheStart) {
    LogCapture capture;
    HTTPClient client;
    EXPECT_FALSE(client.startSession(nullptr));
    EXPECT_FALSE(client.startSession(sessionFor("http://127.0.0.1/", nullptr, {}, -1)));
    EXPECT_FALSE(client.startSession(sessionFor(std::string(9000000, 'u'), nullptr)));  // > 8 MB
    EXPECT_EQ(capture.texts(), (Lines{errorLine("startSessionFailed: reason=nullSession"),
                                      errorLine("Error setting curl HTTP connection timeout"),
                                      errorLine("ErrorSettingCurlOption=CURLOPT_URL")}));
}

TEST(HTTPSession, OwnsOneHeaderListAtATime) {
    HTTPSession session("http://127.0.0.1/", nullptr, nullptr, 1);
    session.setCurlHeaderList(curl_slist_append(nullptr, "A: b"));
    session.setCurlHeaderList(curl_slist_append(nullptr, "C: d"));  // frees the first
    session.setCurlHeaderList(session.getCurlHeaderList());         // keeps it
    EXPECT_STREQ(session.getCurlHeaderList()->data, "C: d");
    // The destructor frees the list; the sanitizer builds report a leak or a second free.
}

}  // namespace
}  // namespace http
}  // namespace util
}  // namespace tracker
