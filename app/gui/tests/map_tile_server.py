#!/usr/bin/env python3
"""A slippy-map tile server for the map's tests: GET /{z}/{x}/{y}.png answers
a generated 256 x 256 PNG (a pale land colour with a grid, a darker band per
zoom level and a river-like line, so that a parent tile scaled up is told
from a real one), with Cache-Control, ETag and Last-Modified as a public
server sends them, and honours If-None-Match with 304.

  map_tile_server.py --port-file FILE [--log FILE] [--max-age SECONDS] [--places DIR]

It listens on 127.0.0.1 at a free port, writes the port to FILE once it
listens, and appends every tile request (z/x/y and the User-Agent) to the log.
Anything but a tile path in the scheme is 404; a tile outside the world, 400.
With --places DIR it also answers Nominatim's /search and /reverse with the
recorded answers in DIR (search_graz.json, reverse_graz.json), so the place
chooser can be tested without the internet.
"""
import argparse
import http.server
import os
import re
import struct
import sys
import zlib

TILE = 256
PATH = re.compile(r"^/(\d+)/(\d+)/(\d+)\.png$")


def png(width, height, rows):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    raw = b"".join(b"\x00" + row for row in rows)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(raw, 6)) + chunk(b"IEND", b""))


def tile_picture(z, x, y):
    # Land, tinted a little by zoom so levels differ; a grid every 32 pixels;
    # a "river" whose course is continuous across tiles of one zoom.
    land = (236 - 2 * (z % 5), 232 - (z % 7), 220 + (z % 3) * 4)
    grid = (214, 208, 196)
    water = (170, 200, 230)
    n = 1 << z
    rows = []
    for py in range(TILE):
        row = bytearray(land * TILE)
        # World latitude position of this row, 0..1.
        wy = (y + py / TILE) / n
        for px in range(0, TILE, 32):
            row[px * 3:px * 3 + 3] = bytes(grid)
        if py % 32 == 0:
            row[:] = bytes(grid) * TILE
        # The river: a thin zigzag band around wy = 0.3225, continuous
        # across the tiles of a zoom.
        if abs(wy - 0.3225) > 0.003 + 1.0 / n:
            rows.append(bytes(row))
            continue
        for px in range(TILE):
            wx = (x + px / TILE) / n
            centre = 0.3225 + 0.0015 * ((wx * 400) % 2 - 1)
            if abs(wy - centre) < 0.0004 + 0.5 / (TILE * n):
                row[px * 3:px * 3 + 3] = bytes(water)
        rows.append(bytes(row))
    return png(TILE, TILE, rows)


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def do_GET(self):
        if self.server.places and (self.path.startswith("/search") or self.path.startswith("/reverse")):
            name = "search_graz.json" if self.path.startswith("/search") else "reverse_graz.json"
            if self.server.log:
                with open(self.server.log, "a") as log:
                    log.write("%s %s\n" % (self.path, self.headers.get("User-Agent", "")))
            with open(os.path.join(self.server.places, name), "rb") as answer:
                body = answer.read()
            self.send_response(200)
            self.send_header("Content-Type", "application/json; charset=utf-8")
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)
            return
        match = PATH.match(self.path)
        if not match:
            self.answer(404, b"not a tile")
            return
        z, x, y = (int(v) for v in match.groups())
        if z > 22 or x >= (1 << z) or y >= (1 << z):
            self.answer(400, b"outside the world")
            return
        if self.server.log:
            with open(self.server.log, "a") as log:
                log.write("%d/%d/%d inm=%s %s\n" % (z, x, y, self.headers.get("If-None-Match", "-"),
                                                     self.headers.get("User-Agent", "")))
        etag = '"%d-%d-%d"' % (z, x, y)
        if self.headers.get("If-None-Match") == etag:
            self.send_response(304)
            self.send_header("ETag", etag)
            self.send_header("Cache-Control", "max-age=%d" % self.server.max_age)
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        body = tile_picture(z, x, y)
        self.send_response(200)
        self.send_header("Content-Type", "image/png")
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Cache-Control", "max-age=%d" % self.server.max_age)
        self.send_header("ETag", etag)
        self.send_header("Last-Modified", "Mon, 02 Nov 2026 10:00:00 GMT")
        self.end_headers()
        self.wfile.write(body)

    def answer(self, status, text):
        self.send_response(status)
        self.send_header("Content-Type", "text/plain")
        self.send_header("Content-Length", str(len(text)))
        self.end_headers()
        self.wfile.write(text)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--port-file", required=True)
    parser.add_argument("--log")
    parser.add_argument("--max-age", type=int, default=7 * 24 * 3600)
    parser.add_argument("--places")
    args = parser.parse_args()
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.log = args.log
    server.max_age = args.max_age
    server.places = args.places
    temporary = args.port_file + ".part"
    with open(temporary, "w") as out:
        out.write(str(server.server_address[1]))
    os.replace(temporary, args.port_file)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass
    return 0


if __name__ == "__main__":
    sys.exit(main())
