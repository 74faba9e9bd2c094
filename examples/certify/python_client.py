#!/usr/bin/env python3
"""A first client in another language: logs on, buys far from the market, cancels, and keeps alive.

It is as small as a client can be, and does not recover: see README.md for what the judge says.
It takes the port of FIX from QUORL_FIX_PORT, as quorl-certify sets it.
"""
import os
import signal
import socket
import sys
import time

SOH = "\x01"
HEARTBEAT_S = 2


class Client:
    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port))
        self.socket.settimeout(0.1)
        self.number = 0
        self.last_sent = 0.0
        self.unread = b""

    def send(self, kind, *fields):
        self.number += 1
        now = time.time()
        stamp = time.strftime("%Y%m%d-%H:%M:%S", time.gmtime(now)) + f".{int(now * 1000) % 1000:03}"
        body = SOH.join([f"35={kind}", f"34={self.number}", "49=PYTHON", "56=IEXG", f"52={stamp}",
                         *fields]) + SOH
        frame = f"8=FIX.4.2{SOH}9={len(body)}{SOH}{body}"
        frame += f"10={sum(frame.encode()) % 256:03}{SOH}"
        self.socket.sendall(frame.encode())
        self.last_sent = now

    def receive(self):
        """The messages that have come, each a dictionary by tag; None at the end of the line."""
        try:
            piece = self.socket.recv(65536)
        except TimeoutError:
            return []
        if not piece:
            return None
        self.unread += piece
        messages = []
        # The last field is 10=, three digits and a separator.
        while (end := self.unread.find(b"\x0110=")) >= 0 and len(self.unread) >= end + 8:
            frame, self.unread = self.unread[:end + 8], self.unread[end + 8:]
            messages.append(dict(field.split("=", 1) for field in frame.decode().split(SOH)[:-1]))
        return messages


def main():
    symbol = os.environ.get("QUORL_SYMBOLS", "AAPL").split(",")[0]
    client = Client(int(os.environ.get("QUORL_FIX_PORT", "28500")))
    signals = []
    signal.signal(signal.SIGTERM, lambda number, _: signals.append(number))
    leaving = False
    client.send("A", "98=0", f"108={HEARTBEAT_S}", "141=Y")
    orders = 0
    while True:
        messages = client.receive()
        if messages is None:
            return 0 if leaving else 1
        for message in messages:
            kind = message["35"]
            if kind == "1":
                client.send("0", f"112={message['112']}")
            elif kind == "2":  # nothing is sent again: one GapFill up to the next number
                next_number, client.number = client.number + 1, int(message["7"]) - 1
                client.send("4", "43=Y", f"36={next_number}", "123=Y")
                client.number = next_number - 1
            elif kind == "5":
                return 0
            elif leaving:
                pass
            elif kind == "A" or (kind == "8" and message["150"] == "4"):
                orders += 1
                client.send("D", f"11=o{orders}", f"55={symbol}", "54=1", f"38={100 * orders}", "40=2",
                            "44=100.00", "59=0", "18=i")
            elif kind == "8" and message["150"] == "0":
                client.send("F", f"11=c{orders}", f"41=o{orders}", f"55={symbol}", "54=1",
                            f"38={100 * orders}")
                time.sleep(0.2)
        if signals and not leaving:
            leaving = True
            client.send("5")
        if time.time() - client.last_sent >= HEARTBEAT_S:
            client.send("0")


if __name__ == "__main__":
    sys.exit(main())
