#!/usr/bin/env python3
"""The CGI scripts of an array controller in another language: the standard library's HTTP server on port 80 of
--address.

On standard output it says "ready", and for each request "get TARGET", the target as it came, followed by "json TEXT"
where its query holds JSON in data=, written again by the json module with sorted keys. It ends when its standard
input ends. Each line there is an order in JSON for the coming requests of one script:

    script   name, such as "Status.cgi"; everything below is for it alone
    json     the reply's body, as an object; or body, as a text; or size, as so many bytes of blanks
    status   HTTP status, 200
    pieces   bytes of the body in each write, 0 for all at once
    length   what Content-Length says, if not the truth
    stop     where the server goes silent, or closes: "silent", "close", "half" (behind half of the body)
"""
import argparse
import http.server
import json
import sys
import threading
import urllib.parse

STATUS = {"serialNumber": 600, "currentTime": 1700000000, "devs": [
    {"devSerial": 11, "state": 1, "name": "a"}, {"devSerial": 12, "state": 1, "name": "b"}]}
orders = {}


def say(*words):
    print(*words, flush=True)


class Scripts(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True

    def log_message(self, *_):
        pass

    def do_GET(self):
        say("get", self.path)
        url = urllib.parse.urlsplit(self.path)
        data = urllib.parse.parse_qs(url.query).get("data")
        if data:
            say("json", json.dumps(json.loads(data[0]), sort_keys=True, separators=(",", ":")))
        self.answer(orders.get(url.path.rpartition("/")[2], {}))

    def answer(self, order):
        if "size" in order:
            body = b" " * order["size"]
        elif "body" in order:
            body = order["body"].encode()
        else:
            body = json.dumps(order.get("json", STATUS), separators=(",", ":")).encode()
        stop = order.get("stop")
        if stop == "silent":
            threading.Event().wait()
        if stop == "close":
            self.close_connection = True
            return
        self.send_response(order.get("status", 200))
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(order.get("length", len(body))))
        self.end_headers()
        if stop == "half":
            body = body[:len(body) // 2]
            self.close_connection = True
        piece = order.get("pieces", 0) or len(body) or 1
        try:
            for at in range(0, len(body), piece):
                self.wfile.write(body[at:at + piece])
        except OSError:
            self.close_connection = True


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--address", required=True)
    options = parser.parse_args()
    server = Server((options.address, 80), Scripts)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    say("ready")
    for line in sys.stdin:
        order = json.loads(line)
        orders[order["script"]] = order
        say("ordered", order["script"])


if __name__ == "__main__":
    main()
