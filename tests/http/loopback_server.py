#!/usr/bin/env python3
"""HTTP server on 127.0.0.1 for the HTTP client tests; with the argument "tls", HTTPS with a
self-signed certificate for 127.0.0.1 made by the openssl command, which no client should trust.

Prints "<pid> <port> <refusing port>" once it listens (the second port is bound but never
listens, so connections to it are refused), then serves until terminated, or LIFETIME passes.
Every reply echoes the request as received: request line, header lines in order, body.
"/missing" answers 404; "/slow" never answers and holds the connection until the client leaves.
"""
import os
import re
import socket
import socketserver
import ssl
import subprocess
import sys
import tempfile
import threading
import time

LIFETIME_SECONDS = 60


class EchoHandler(socketserver.StreamRequestHandler):
    def handle(self):
        head = b""
        while not head.endswith(b"\r\n\r\n"):
            line = self.rfile.readline(65536)
            if not line:
                return
            head += line
        target = head.split(b" ", 2)[1]
        if target == b"/slow":
            self.rfile.read()
            return
        length = re.search(rb"\r\ncontent-length: *(\d+)", head, re.I)
        echo = head + self.rfile.read(int(length.group(1)) if length else 0)
        status = b"404 Not Found" if target == b"/missing" else b"200 OK"
        self.wfile.write(b"HTTP/1.1 %s\r\nContent-Length: %d\r\nConnection: close\r\n\r\n%s"
                         % (status, len(echo), echo))


def tls_context():
    with tempfile.TemporaryDirectory() as directory:
        key, certificate = os.path.join(directory, "key.pem"), os.path.join(directory, "cert.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:P-256", "-nodes", "-days", "1", "-subj", "/CN=127.0.0.1",
                        "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key,
                        "-out", certificate], check=True, capture_output=True)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate, key)
        return context


def main():
    socketserver.ThreadingTCPServer.daemon_threads = True
    server = socketserver.ThreadingTCPServer(("127.0.0.1", 0), EchoHandler)
    if sys.argv[1:] == ["tls"]:
        server.socket = tls_context().wrap_socket(server.socket, server_side=True)
    refusing = socket.socket()
    refusing.bind(("127.0.0.1", 0))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    print(os.getpid(), server.server_address[1], refusing.getsockname()[1], flush=True)
    time.sleep(LIFETIME_SECONDS)
    os._exit(0)  # at once, whatever connection is still held


if __name__ == "__main__":
    main()
