#!/usr/bin/env python3
"""A small WebDAV server for the faults that real servers do not make on
demand. It keeps files in memory, speaks enough WebDAV for Lumeo's client
(PROPFIND depth 0 and 1, MKCOL, PUT, GET, DELETE, MOVE) and misbehaves in
one chosen way. It listens on 127.0.0.1 on a free port and prints the port
on its first line, then serves until killed.

Modes:
  busy N        the first N requests answer 503 with "Retry-After: 1"
                (429 with "too-many N"), then all is well
  hang          accepts connections and never answers
  html          answers every request with 200 and an HTML login page
  redirect URL  answers every request with 302 to URL
  short-body    GET announces more bytes than it sends, then closes
  long-body     GET sends more bytes than it announces
  cut-proxy UPSTREAM_PORT LIMIT
                a TCP proxy to 127.0.0.1:UPSTREAM_PORT that cuts every
                connection once it has carried LIMIT bytes from the client
  normal        no fault
"""
import socket
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from urllib.parse import quote, unquote, urlsplit

MODE = sys.argv[1] if len(sys.argv) > 1 else "normal"
ARGS = sys.argv[2:]
FILES = {}  # path -> bytes; directories end in "/"
FILES["/"] = None
LOCK = threading.Lock()
COUNT = {"requests": 0}


def multistatus(entries):
    parts = ['<?xml version="1.0" encoding="utf-8"?>\n<d:multistatus xmlns:d="DAV:">']
    for path, data in entries:
        href = quote(path)
        if data is None:
            props = "<d:resourcetype><d:collection/></d:resourcetype>"
        else:
            props = "<d:resourcetype/><d:getcontentlength>%d</d:getcontentlength>" % len(data)
        parts.append(
            "<d:response><d:href>%s</d:href><d:propstat><d:prop>%s</d:prop>"
            "<d:status>HTTP/1.1 200 OK</d:status></d:propstat></d:response>" % (href, props))
    parts.append("</d:multistatus>")
    return "".join(parts).encode()


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def path_of(self, url):
        path = unquote(urlsplit(url).path)
        if len(path) > 1 and path.endswith("/"):
            path = path[:-1]
        return path

    def reply(self, status, body=b"", headers=()):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def body(self):
        length = int(self.headers.get("Content-Length") or 0)
        return self.rfile.read(length) if length else b""

    def fault(self):
        """Answers with the mode's fault; True when it did."""
        with LOCK:
            COUNT["requests"] += 1
            n = COUNT["requests"]
        if MODE in ("busy", "too-many") and n <= int(ARGS[0]):
            self.body()
            status = 503 if MODE == "busy" else 429
            self.reply(status, b"busy", [("Retry-After", "1")])
            return True
        if MODE == "html":
            self.body()
            page = b"<html><head><title>Sign in - Hotel WiFi</title></head><body>Please sign in</body></html>"
            self.reply(200, page, [("Content-Type", "text/html; charset=utf-8")])
            return True
        if MODE == "redirect":
            self.body()
            self.reply(302, b"", [("Location", ARGS[0])])
            return True
        return False

    def do_PROPFIND(self):
        if self.fault():
            return
        self.body()
        path = self.path_of(self.path)
        depth = self.headers.get("Depth", "1")
        with LOCK:
            if path not in FILES:
                return self.reply(404)
            entries = [(path + ("/" if FILES[path] is None and path != "/" else ""), FILES[path])]
            if depth != "0" and FILES[path] is None:
                prefix = path if path.endswith("/") else path + "/"
                for other, data in FILES.items():
                    if other != path and other.startswith(prefix) and "/" not in other[len(prefix):]:
                        entries.append((other + ("/" if data is None else ""), data))
        self.reply(207, multistatus(entries), [("Content-Type", "application/xml; charset=utf-8")])

    def parent_exists(self, path):
        parent = path.rsplit("/", 1)[0] or "/"
        return parent in FILES and FILES[parent] is None

    def do_MKCOL(self):
        if self.fault():
            return
        path = self.path_of(self.path)
        with LOCK:
            if path in FILES:
                return self.reply(405)
            if not self.parent_exists(path):
                return self.reply(409)
            FILES[path] = None
        self.reply(201)

    def do_PUT(self):
        if self.fault():
            return
        data = self.body()
        path = self.path_of(self.path)
        with LOCK:
            if not self.parent_exists(path):
                return self.reply(409)
            FILES[path] = data
        self.reply(201)

    def do_GET(self):
        if self.fault():
            return
        path = self.path_of(self.path)
        with LOCK:
            data = FILES.get(path)
        if data is None:
            return self.reply(404)
        if MODE == "short-body":
            self.send_response(200)
            self.send_header("Content-Length", str(len(data) + 100))
            self.end_headers()
            self.wfile.write(data)
            self.wfile.flush()
            self.close_connection = True
            return
        if MODE == "long-body":
            self.send_response(200)
            self.send_header("Content-Length", str(max(0, len(data) - 3)))
            self.end_headers()
            self.wfile.write(data)
            self.close_connection = True
            return
        self.reply(200, data, [("Content-Type", "application/octet-stream")])

    def do_DELETE(self):
        if self.fault():
            return
        path = self.path_of(self.path)
        with LOCK:
            if path not in FILES:
                return self.reply(404)
            for other in [p for p in FILES if p == path or p.startswith(path + "/")]:
                del FILES[other]
        self.reply(204)

    def do_MOVE(self):
        if self.fault():
            return
        path = self.path_of(self.path)
        target = self.path_of(self.headers.get("Destination", ""))
        with LOCK:
            if path not in FILES:
                return self.reply(404)
            existed = target in FILES
            FILES[target] = FILES.pop(path)
        self.reply(204 if existed else 201)


def serve_hang():
    listener = socket.socket()
    listener.bind(("127.0.0.1", 0))
    listener.listen(16)
    print(listener.getsockname()[1], flush=True)
    held = []
    while True:
        connection, _ = listener.accept()
        held.append(connection)  # read nothing, answer nothing


def pump(source, target, counter, limit):
    try:
        while True:
            data = source.recv(65536)
            if not data:
                break
            if counter is not None:
                counter[0] += len(data)
                if counter[0] > limit:
                    target.sendall(data[: max(0, len(data) - (counter[0] - limit))])
                    break
            target.sendall(data)
    except OSError:
        pass
    for s in (source, target):
        try:
            s.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        s.close()


def serve_cut_proxy(upstream_port, limit):
    listener = socket.socket()
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", 0))
    listener.listen(16)
    print(listener.getsockname()[1], flush=True)
    while True:
        client, _ = listener.accept()
        upstream = socket.create_connection(("127.0.0.1", upstream_port))
        counter = [0]
        threading.Thread(target=pump, args=(client, upstream, counter, limit), daemon=True).start()
        threading.Thread(target=pump, args=(upstream, client, None, 0), daemon=True).start()


def main():
    if MODE == "hang":
        return serve_hang()
    if MODE == "cut-proxy":
        return serve_cut_proxy(int(ARGS[0]), int(ARGS[1]))
    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
