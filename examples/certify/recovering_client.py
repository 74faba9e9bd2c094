#!/usr/bin/env python3
"""A client in another language that keeps its session: orders, replaces and cancels, over line drops.

When the line has dropped it logs on with its next number, asks for the messages that it missed, acts on
each of them once and in order, and answers when it is asked itself. With --forget it does the first of
that and no more, as many clients do: README.md shows both verdicts. It takes no feed.

Where the exchange is it takes from the environment, as quorl-certify sets it.
"""

import argparse
import datetime
import os
import re
import select
import signal
import socket
import sys
import time

SOH = "\x01"
HEARTBEAT_S = 2
BETWEEN_ORDERS_S = 0.25
BEFORE_RECONNECT_S = 0.5


def utc_now():
    """UTC to the millisecond: FIX 4.2 has no finer times."""
    return datetime.datetime.now(datetime.timezone.utc).strftime("%Y%m%d-%H:%M:%S.%f")[:-3]


class Line:
    """One TCP connection: bytes to messages and back. A message is a dict of tag to value."""

    def __init__(self, host, port):
        self.socket = socket.create_connection((host, port), timeout=5)
        self.received = b""

    def send(self, comp_id, kind, number, body, again=False):
        head = [(35, kind), (49, comp_id), (56, "IEXG"), (34, number)]
        if again:  # sent before: the exchange may have had it
            head += [(43, "Y")]
        now = utc_now()
        head += [(52, now)]
        if again:  # a message that is made only now has no earlier time; and none later than 52
            head += [(122, now)]
        text = "".join(f"{tag}={value}{SOH}" for tag, value in head + body)
        text = f"8=FIX.4.2{SOH}9={len(text)}{SOH}{text}"
        check_sum = sum(text.encode()) % 256
        self.socket.sendall(f"{text}10={check_sum:03d}{SOH}".encode())

    def receive(self, wait_s):
        """The messages that have come whole. Throws ConnectionError when there is no line."""
        if select.select([self.socket], [], [], wait_s)[0]:
            piece = self.socket.recv(65536)
            if not piece:
                raise ConnectionError("the exchange closed the connection")
            self.received += piece
        messages = []
        while True:
            trailer = self.received.find(b"\x0110=")
            if trailer < 0 or len(self.received) < trailer + 8:
                return messages
            whole = self.received[: trailer + 8].decode("latin-1")
            self.received = self.received[trailer + 8 :]
            fields = (field.split("=", 1) for field in whole.split(SOH) if field)
            messages.append({int(tag): value for tag, value in fields})

    def close(self):
        self.socket.close()


class Orders:
    """What is open, by the ClOrdID under which it is open; and the next thing to do."""

    def __init__(self, symbol):
        self.symbol = symbol
        self.count = 0
        self.open = {}  # ClOrdID: shares done

    def next_request(self):
        """MsgType and body: most are orders, far from the market or through it; each sixth is a
        replace and each ninth a cancel of the oldest open one."""
        self.count += 1
        # A name of its own in each life of this program: the exchange remembers names.
        name = f"{os.getpid() % 100000}-{self.count}"
        order = [(11, name), (55, self.symbol), (54, 1)]
        oldest = next(iter(self.open), None)
        if oldest and self.count % 9 == 0:
            self.open.pop(oldest)  # as good as gone; its report is for the account, not for us
            return "F", [(41, oldest)] + order + [(60, utc_now())]
        # Two ways below the market, to rest there, and one through it; a cent apart, so that what
        # was refused is not sent again as it was.
        price = f"{195 if self.count % 3 == 0 else 185}.{self.count % 100:02d}"
        order += [(38, 100), (40, 2), (44, price), (59, 0), (18, "i"), (21, 1), (60, utc_now())]
        if oldest and self.count % 6 == 0:
            shares = self.open.pop(oldest) + 200
            order = [(tag, shares if tag == 38 else value) for tag, value in order]
            return "G", [(41, oldest)] + order
        return "D", order

    def on_report(self, report):
        """An ExecutionReport: what is left of it (151), and under which name, is all we need."""
        name, left = report[11], int(report.get(151, 0))
        if report[150] in "45":  # cancelled, replaced: the order's name until now is in 41
            self.open.pop(report.get(41), None)
        if left > 0 and report[150] in "015":
            self.open[name] = int(report.get(14, 0))
        elif report[150] != "5":
            self.open.pop(name, None)


class Client:
    """The session: numbers both ways, over as many connections as it takes."""

    def __init__(self, options):
        self.options = options
        self.orders = Orders(options.symbol)
        self.next_out = 1  # MsgSeqNum of our next message
        self.next_in = 1  # and of the exchange's
        self.asked_from = 0  # a ResendRequest from here on waits for its answer; 0: none
        self.line = None
        self.last_sent = 0.0
        self.logged_on = False
        self.leaving = False

    def send(self, kind, body):
        number, self.next_out = self.next_out, self.next_out + 1
        self.last_sent = time.monotonic()
        self.line.send(self.options.comp_id, kind, number, body)

    def connect(self):
        self.logged_on = False
        self.asked_from = 0
        self.line = Line(self.options.host, self.options.port)
        self.send("A", [(98, 0), (108, HEARTBEAT_S)])

    def on_message(self, message):
        kind, number = message[35], int(message[34])
        if not self.options.forget and not self.is_due(message, number):
            return
        self.next_in = max(self.next_in, number + 1)
        if kind == "A":
            self.logged_on = True
        elif kind == "1":
            self.send("0", [(112, message[112])])
        elif kind == "2":
            self.answer_resend_request(int(message[7]))
        elif kind == "4":  # a GapFill: up to 36 there is nothing that matters
            self.next_in = max(self.next_in, int(message[36]))
        elif kind == "5":
            self.on_logout(message.get(58, ""))
        elif kind == "8":
            self.orders.on_report(message)

    def is_due(self, message, number):
        """Whether this message is to be acted on: each number once, and in order."""
        if number < self.next_in:
            return False  # had already: a repetition with 43=Y
        if number > self.next_in:
            # Something is missing. Ask once, from there on to the end (16=0); this message comes
            # again with the answer. Only what is of the session itself cannot wait: it never comes
            # again.
            if message[35] == "A":
                self.logged_on = True
            elif message[35] == "5":
                self.on_logout(message.get(58, ""))
            if self.asked_from != self.next_in:
                self.asked_from = self.next_in
                self.send("2", [(7, self.next_in), (16, 0)])
            if message[35] == "2":
                self.answer_resend_request(int(message[7]))
            return False
        return True

    def on_logout(self, reason):
        """Of a Logon that is refused for its number, the reason names the one that is expected."""
        expected = re.search(r"too low, expecting (\d+)", reason)
        if expected:
            self.next_out = int(expected[1])
        elif self.logged_on:
            self.send("5", [])  # the answer
        raise ConnectionError("Logout: " + reason)

    def answer_resend_request(self, first):
        """Old orders are not worth sending again: the market has moved. One GapFill covers all."""
        body = [(123, "Y"), (36, self.next_out)]
        self.line.send(self.options.comp_id, "4", first, body, again=True)

    def trade(self):
        """One connection, until it ends."""
        self.connect()
        next_order = time.monotonic()
        while not self.leaving:
            for message in self.line.receive(0.05):
                self.on_message(message)
            now = time.monotonic()
            if self.logged_on and now >= next_order:
                next_order = now + BETWEEN_ORDERS_S
                self.send(*self.orders.next_request())
            elif now >= self.last_sent + HEARTBEAT_S and self.logged_on:
                self.send("0", [])

    def run(self):
        while not self.leaving:
            try:
                self.trade()
            except OSError as failure:  # ConnectionError is one
                print(f"{utc_now()} {failure}", flush=True)
                time.sleep(BEFORE_RECONNECT_S)
            finally:
                if self.line is not None:
                    self.line.close()


def read_options():
    environment = os.environ.get
    parser = argparse.ArgumentParser(description="A FIX client that keeps its session.")
    parser.add_argument("--host", default=environment("QUORL_FIX_HOST", "127.0.0.1"))
    parser.add_argument("--port", type=int, default=environment("QUORL_FIX_PORT", "28500"))
    parser.add_argument("--comp-id", default="PYTHON")
    parser.add_argument("--symbol", default=environment("QUORL_SYMBOLS", "AAPL").split(",")[0])
    parser.add_argument("--forget", action="store_true", help="do not ask for what was missed")
    return parser.parse_args()


def main():
    client = Client(read_options())

    def leave(_signal, _frame):
        client.leaving = True

    signal.signal(signal.SIGTERM, leave)
    signal.signal(signal.SIGINT, leave)
    client.run()
    return 0


if __name__ == "__main__":
    sys.exit(main())
