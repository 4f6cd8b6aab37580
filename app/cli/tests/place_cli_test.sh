#!/usr/bin/env bash
# lumeo place against a local HTTP server that serves recorded Nominatim
# answers: search, reverse, no match, the open sea, a busy server and one
# that is down, and the server setting itself.
set -u
lumeo=$1
source_dir=$(cd "$(dirname "$0")/../../.." && pwd)
home=$(mktemp -d)
server=
cleanup() { [ -n "$server" ] && kill "$server" 2>/dev/null && wait "$server" 2>/dev/null; rm -rf "$home"; }
trap cleanup EXIT
export TZ=UTC LANG=en_US.UTF-8
fail=0
source "$(dirname "$0")/checks.sh"
L() { "$lumeo" --home "$home" "$@"; }

python3 - "$source_dir/testdata/map/nominatim" "$home/port" >"$home/server.log" 2>&1 <<'PY' &
import http.server, os, sys, urllib.parse
answers, port_file = sys.argv[1], sys.argv[2]
class Nominatim(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        url = urllib.parse.urlparse(self.path)
        q = urllib.parse.parse_qs(url.query)
        status, body, extra = 200, b'[]', {}
        if url.path == '/search':
            text = q.get('q', [''])[0]
            if text == 'busy':
                status, extra = 429, {'Retry-After': '5'}
            elif text.startswith('Graz'):
                body = open(os.path.join(answers, 'search_graz.json'), 'rb').read()
        elif url.path == '/reverse':
            name = 'reverse_graz.json' if q.get('lat', ['0'])[0].startswith('47.') else 'reverse_sea.json'
            body = open(os.path.join(answers, name), 'rb').read()
        else:
            status = 404
        self.send_response(status)
        for k, v in extra.items():
            self.send_header(k, v)
        self.send_header('Content-Type', 'application/json')
        self.send_header('Content-Length', str(len(body)))
        self.end_headers()
        self.wfile.write(body)
    def log_message(self, *args):
        pass
httpd = http.server.HTTPServer(('127.0.0.1', 0), Nominatim)
with open(port_file, 'w') as f:
    f.write(str(httpd.server_address[1]))
httpd.serve_forever()
PY
server=$!
for _ in $(seq 1 200); do [ -s "$home/port" ] && break; sleep 0.05; done
port=$(cat "$home/port")

expect "the public server by default" 0 "nominatim.openstreetmap.org" L place server
expect "a server must be an address" 2 "http:// or https://" L place server ftp://example.org
expect "set the server" 0 "127.0.0.1:$port" L place server "http://127.0.0.1:$port"
expect "search" 0 "47.07087,15.43828 +Graz, Steiermark, Österreich" L place search "Graz"
expect "search as json" 0 '"name": "Graz Hauptbahnhof"' L place search "Graz Hbf" --near 47,15 --json
expect "no match" 0 "No place found" L place search "Xyzzy"
expect "reverse" 0 "Graz Hauptbahnhof" L place reverse 47.0779,15.4213
expect "the open sea" 0 "No named place" L place reverse 40,-30
expect "a busy server" 1 "wait 5 seconds" L place search busy
expect "bad coordinates" 2 "latitude -90..90" L place reverse 91,0
expect "NaN coordinates" 2 "latitude -90..90" L place reverse nan,0
expect "an empty search" 2 "what to search for" L place search "  "

kill "$server"; wait "$server" 2>/dev/null; server=
expect "a server that is down" 1 "cannot reach the place server" L place search Graz
expect "back to the public server" 0 "nominatim.openstreetmap.org" L place server --reset

exit $fail
