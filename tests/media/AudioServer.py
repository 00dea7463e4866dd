#!/usr/bin/env python3
"""A loopback http or ftp server for the media tests.

usage: AudioServer.py http|https|ftp ROOT PORT_FILE LOG_FILE

Serves the files of ROOT on 127.0.0.1 at a port below 32768, writes that
port to PORT_FILE once listening, and appends every request path to
LOG_FILE. Besides plain files, http answers these paths:
  /drop/NAME      sends half of NAME under the full length, then hangs up
  /flaky/NAME     like /drop/ the first time, the whole file after that
  /stall/NAME     sends half of NAME, then goes quiet for a while
  /redirect/NAME  redirects to /NAME
https serves the same behind a certificate signed by nobody a client trusts,
and logs "handshake" for every connection it accepts.
The server stops by itself after a few minutes.
"""
import http.server
import os
import random
import socket
import sys
import threading
import time

LIFETIME_SECONDS = 240
STALL_SECONDS = 20


def free_port():
    # Below 32768, so that the port survives being passed as a signed
    # 16-bit number.
    for _ in range(200):
        port = random.randint(20000, 32000)
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue
    raise SystemExit("no free port")


def announce(port_file, port):
    partial = port_file + ".part"
    with open(partial, "w") as out:
        out.write(str(port))
    os.replace(partial, port_file)


def make_logger(log_file):
    lock = threading.Lock()

    def log(path):
        with lock, open(log_file, "a") as out:
            out.write(path + "\n")
    return log


def self_signed_context():
    import ssl
    import subprocess
    import tempfile
    folder = tempfile.mkdtemp(prefix="audio-server-tls-")
    key, cert = os.path.join(folder, "key.pem"), os.path.join(folder, "cert.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", cert,
                    "-days", "2", "-subj", "/CN=127.0.0.1"], check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    for name in (key, cert):
        os.remove(name)
    os.rmdir(folder)
    return context


def serve_http(root, port_file, log, tls=False):
    flaky_seen = set()

    class Handler(http.server.SimpleHTTPRequestHandler):
        def __init__(self, *args, **kwargs):
            super().__init__(*args, directory=root, **kwargs)

        def log_message(self, *args):
            pass

        def send_half(self, name):
            with open(os.path.join(root, name), "rb") as f:
                body = f.read()
            self.send_response(200)
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body[: len(body) // 2])
            self.wfile.flush()

        def hang_up(self):
            self.close_connection = True
            try:
                self.connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

        def do_GET(self):
            log(self.path)
            kind, _, name = self.path.lstrip("/").partition("/")
            if kind == "drop" or (kind == "flaky" and name not in flaky_seen):
                if kind == "flaky":
                    flaky_seen.add(name)
                self.send_half(name)
                self.hang_up()
            elif kind == "flaky":
                self.path = "/" + name
                super().do_GET()
            elif kind == "stall":
                self.send_half(name)
                time.sleep(STALL_SECONDS)
                self.hang_up()
            elif kind == "redirect":
                self.send_response(302)
                self.send_header("Location", "/" + name)
                self.send_header("Content-Length", "0")
                self.end_headers()
            else:
                super().do_GET()

    context = self_signed_context() if tls else None

    class Server(http.server.ThreadingHTTPServer):
        def get_request(self):
            connection, address = self.socket.accept()
            if context is not None:
                log("handshake")
                # A client that refuses the certificate ends here: the
                # error is an OSError, which the server passes over.
                connection = context.wrap_socket(connection, server_side=True)
            return connection, address

    while True:
        try:
            server = Server(("127.0.0.1", free_port()), Handler)
            break
        except OSError:
            continue
    server.daemon_threads = True
    announce(port_file, server.server_address[1])
    server.serve_forever()


def serve_ftp(root, port_file, log):
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import FTPHandler
    from pyftpdlib.servers import FTPServer
    import logging
    # With a handler in place the library keeps its session log to itself.
    logging.basicConfig(level=logging.ERROR)

    authorizer = DummyAuthorizer()
    authorizer.add_anonymous(root)

    class Handler(FTPHandler):
        def ftp_RETR(self, file):
            log(os.path.relpath(file, root))
            return super().ftp_RETR(file)

    Handler.authorizer = authorizer
    while True:
        try:
            server = FTPServer(("127.0.0.1", free_port()), Handler)
            break
        except OSError:
            continue
    announce(port_file, server.address[1])
    server.serve_forever()


def main():
    kind, root, port_file, log_file = sys.argv[1:5]
    threading.Timer(LIFETIME_SECONDS, lambda: os._exit(0)).start()
    log = make_logger(log_file)
    if kind in ("http", "https"):
        serve_http(root, port_file, log, tls=kind == "https")
    else:
        serve_ftp(root, port_file, log)


if __name__ == "__main__":
    main()
