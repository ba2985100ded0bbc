// HTTP responses as any server, or anything between it and the device, may send them, through
// libcurl into HTTPClient's response sink. A loopback server answers each connection with the
// current input as the raw response and closes, so every transfer ends when the bytes do.

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "tracker/http/HTTPClient.h"
#include "tracker/http/HTTPSession.h"

using namespace tracker::util::http;

namespace {

std::mutex g_mutex;
// The response the server sends to the next connection.
std::string g_response;

void answer(int connection) {
    // A stuck client must not stall the server for good.
    const timeval limit{2, 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    // The whole request first: closing with unread bytes would reset the connection and could
    // throw the response away.
    std::string request;
    char buffer[1024];
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t got = recv(connection, buffer, sizeof buffer, 0);
        if (got <= 0) {
            return;
        }
        request.append(buffer, static_cast<std::size_t>(got));
    }
    std::string response;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        response = g_response;
    }
    std::size_t sent = 0;
    while (sent < response.size()) {
        const ssize_t wrote =
            send(connection, response.data() + sent, response.size() - sent, MSG_NOSIGNAL);
        if (wrote <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(wrote);
    }
    shutdown(connection, SHUT_WR);
}

// The server's port, listening on 127.0.0.1 from the first call on.
int serverPort() {
    static const int port = [] {
        const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            listen(listener, 16) != 0 ||
            getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            std::abort();
        }
        std::thread([listener] {
            for (;;) {
                const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
                if (connection >= 0) {
                    answer(connection);
                    close(connection);
                }
            }
        }).detach();
        return static_cast<int>(ntohs(address.sin_port));
    }();
    return port;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The loopback server is reached directly, whatever proxy the environment names.
    setenv("no_proxy", "*", 1);
    // Held for the whole run, so that each client's global init and cleanup only count
    // references instead of setting libcurl up and tearing it down per input.
    curl_global_init(CURL_GLOBAL_ALL);
    serverPort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_response.assign(reinterpret_cast<const char*>(data), size);
    }
    // A new client per input: nothing, a kept-alive connection included, carries over from the
    // one before.
    HTTPClient client;
    const auto body = std::make_shared<std::string>();
    const auto session = std::make_shared<HTTPSession>(
        "http://127.0.0.1:" + std::to_string(serverPort()) + "/", nullptr, body, 2);
    if (client.startSession(session)) {
        client.get();
    }
    client.stopSession(session);
    // No content encoding is asked for: the body is at most what was sent.
    if (body->size() > size) {
        __builtin_trap();
    }
    return 0;
}
