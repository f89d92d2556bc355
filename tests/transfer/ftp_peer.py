"""A packaged FTP server (pyftpdlib) for tests: port 21 of an address, anonymous users who may do everything.

It says on standard output "port " with its port, "ready", "open" and "gone" for each control connection, and "cmd " with each command line
that it gets. A line on its standard input is the new rate of the downloads that follow; it ends when that is closed.
"""
import argparse
import os
import sys
import threading

from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import DTPHandler, FTPHandler, ThrottledDTPHandler
from pyftpdlib.log import config_logging
from pyftpdlib.servers import FTPServer

RIGHTS = "elradfmwMT"


def say(text):
    sys.stdout.buffer.write(text.encode("utf-8", "surrogateescape") + b"\n")
    sys.stdout.buffer.flush()


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address")
    parser.add_argument("directory")
    parser.add_argument("--port", type=int, default=21, help="0 is any")
    parser.add_argument("--user", help="NAME:PASSWORD of a user beside the anonymous one")
    parser.add_argument("--listing", help="file that every LIST gets")
    parser.add_argument("--any-file", help="text that every RETR gets, whatever the name and the directory")
    parser.add_argument("--silent", default="", help="command that is never answered")
    parser.add_argument("--drop", default="", help="command that ends the control connection")
    parser.add_argument("--refuse", default="", help="command that is answered by 550")
    parser.add_argument("--no-size", action="store_true", help="SIZE is no command")
    parser.add_argument("--size-plus", type=int, default=0, help="what SIZE says too much")
    parser.add_argument("--endless", action="store_true", help="a RETR never comes to its end")
    parser.add_argument("--masquerade", help="address that replies to PASV name")
    parser.add_argument("--rate", type=int, default=0, help="bytes that a download brings in a second")
    return parser.parse_args()


class Endless:
    """Bytes without an end."""

    def more(self):
        return b"x" * 4096


class Peer(FTPHandler):
    options = None
    use_sendfile = False
    banner = "peer"

    def on_connect(self):
        say("open")

    def on_disconnect(self):
        say("gone")

    def pre_process_command(self, line, cmd, arg):
        say("cmd " + line)
        if cmd == self.options.silent:
            return
        if cmd == self.options.drop:
            self.close()
            return
        if cmd == self.options.refuse:
            self.respond("550 Refused on demand.")
            return
        if cmd == "SIZE" and self.options.no_size:
            self.respond("500 Unknown command.")
            return
        if cmd == "RETR" and self.options.endless:
            self.push_dtp_data(Endless(), isproducer=True, cmd="RETR")
            return
        if self.options.any_file is not None and cmd in ("CWD", "SIZE", "RETR"):
            self.answer_anything(cmd)
            return
        super().pre_process_command(line, cmd, arg)

    def answer_anything(self, cmd):
        data = self.options.any_file.encode()
        if cmd == "RETR":
            self.push_dtp_data(data, isproducer=False, cmd="RETR")
        else:
            self.respond("250 Gladly." if cmd == "CWD" else "213 %d" % len(data))

    def ftp_SIZE(self, path):
        if self.options.size_plus and os.path.isfile(path):
            self.respond("213 %d" % (os.path.getsize(path) + self.options.size_plus))
        else:
            super().ftp_SIZE(path)

    def ftp_LIST(self, path):
        if self.options.listing is None:
            return super().ftp_LIST(path)
        with open(self.options.listing, "rb") as file:
            self.push_dtp_data(file.read(), isproducer=False, cmd="LIST")
        return path


def main():
    options = parse_arguments()
    authorizer = DummyAuthorizer()
    authorizer.add_anonymous(options.directory, perm=RIGHTS)
    if options.user:
        name, password = options.user.split(":", 1)
        authorizer.add_user(name, password, options.directory, perm=RIGHTS)
    Peer.options = options
    Peer.authorizer = authorizer
    Peer.masquerade_address = options.masquerade
    Peer.dtp_handler = DTPHandler
    if options.rate:
        Peer.dtp_handler = ThrottledDTPHandler
        ThrottledDTPHandler.read_limit = ThrottledDTPHandler.write_limit = options.rate
    config_logging(level=40)
    server = FTPServer((options.address, options.port), Peer)

    def end_with_input():
        for line in sys.stdin:
            ThrottledDTPHandler.read_limit = ThrottledDTPHandler.write_limit = int(line)
        os._exit(0)

    threading.Thread(target=end_with_input, daemon=True).start()
    say("port %d" % server.socket.getsockname()[1])
    say("ready")
    server.serve_forever(handle_exit=False)


if __name__ == "__main__":
    main()
