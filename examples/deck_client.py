#!/usr/bin/env python3
"""A control-deck client for Beamcrafter's WebSocket server, in plain Python 3 (standard library only).

    python3 examples/deck_client.py                 # list the lights and groups
    python3 examples/deck_client.py --dim ID 30     # then set light (or group) ID to 30 % and
                                                    # print what the program answers

It finds the server through the port the program publishes in its settings (or --port).
"""
import argparse
import base64
import configparser
import hashlib
import json
import os
import socket
import struct
import sys
import time

SETTINGS = os.path.join(os.environ.get("XDG_CONFIG_HOME") or os.path.expanduser("~/.config"),
                        "brivon", "com.brivon.beamcrafter.pluginserver.conf")
GUID = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11"


class DeckSocket:
    """The client side of RFC 6455, just enough for text messages."""

    def __init__(self, port, timeout=5.0):
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=timeout)
        key = base64.b64encode(os.urandom(16)).decode()
        self.sock.sendall((f"GET / HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nUpgrade: websocket\r\n"
                           f"Connection: Upgrade\r\nSec-WebSocket-Key: {key}\r\n"
                           "Sec-WebSocket-Version: 13\r\n\r\n").encode())
        head = b""
        while b"\r\n\r\n" not in head:
            chunk = self.sock.recv(4096)
            if not chunk:
                raise ConnectionError("the server closed the connection during the handshake")
            head += chunk
        head, self.buffer = head.split(b"\r\n\r\n", 1)
        self.partial = b""
        lines = head.decode("latin-1").split("\r\n")
        if not lines[0].startswith("HTTP/1.1 101"):
            raise ConnectionError("handshake refused: " + lines[0])
        expected = base64.b64encode(hashlib.sha1((key + GUID).encode()).digest()).decode()
        accept = [l.split(":", 1)[1].strip() for l in lines[1:] if l.lower().startswith("sec-websocket-accept:")]
        if accept != [expected]:
            raise ConnectionError("bad Sec-WebSocket-Accept")

    def send(self, obj):
        data = json.dumps(obj, separators=(",", ":")).encode()
        header = bytes([0x81])  # final frame, text
        if len(data) < 126:
            header += bytes([0x80 | len(data)])
        elif len(data) < 65536:
            header += bytes([0x80 | 126]) + struct.pack("!H", len(data))
        else:
            header += bytes([0x80 | 127]) + struct.pack("!Q", len(data))
        mask = os.urandom(4)  # clients must mask what they send
        self.sock.sendall(header + mask + bytes(b ^ mask[i % 4] for i, b in enumerate(data)))

    def _frame(self):
        """(first byte, payload) of the next whole frame; a timeout leaves the buffer intact."""
        while True:
            b = self.buffer
            if len(b) >= 2:
                length, offset = b[1] & 0x7F, 2
                if length == 126:
                    length, offset = (struct.unpack("!H", b[2:4])[0] if len(b) >= 4 else None), 4
                elif length == 127:
                    length, offset = (struct.unpack("!Q", b[2:10])[0] if len(b) >= 10 else None), 10
                if length is not None and len(b) >= offset + length:
                    self.buffer = b[offset + length:]
                    return b[0], b[offset:offset + length]
            chunk = self.sock.recv(65536)
            if not chunk:
                raise ConnectionError("connection closed")
            self.buffer += chunk

    def receive(self):
        """The next message as a dict; None when the server closes."""
        while True:
            first, payload = self._frame()
            opcode = first & 0x0F
            if opcode == 0x8:
                code = struct.unpack("!H", payload[:2])[0] if len(payload) >= 2 else 1005
                print(f"server closed the connection: code {code} {payload[2:].decode(errors='replace')}")
                return None
            if opcode == 0x9:  # ping: answer with the same payload
                mask = os.urandom(4)
                self.sock.sendall(bytes([0x8A, 0x80 | len(payload)]) + mask
                                  + bytes(b ^ mask[i % 4] for i, b in enumerate(payload)))
                continue
            if opcode in (0x1, 0x0):
                self.partial += payload
                if first & 0x80:
                    message, self.partial = self.partial, b""
                    return json.loads(message.decode())


def published_port():
    config = configparser.ConfigParser()
    if not config.read(SETTINGS) or not config.has_option("server", "port"):
        sys.exit(f"no published port in {SETTINGS}: is Beamcrafter running?")
    return config.getint("server", "port")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--port", type=int, help="the server's port (default: the published one)")
    parser.add_argument("--dim", nargs=2, metavar=("ID", "PERCENT"), help="set a light or group's brightness")
    args = parser.parse_args()

    deck = DeckSocket(args.port or published_port())
    deck.send({"cmd": 20000, "subCmd": "listdevice"})
    while True:
        msg = deck.receive()
        if msg is None:
            return 1
        if msg.get("cmd") == 20000:
            break
    listing = msg["param"]
    for light in listing["light"]:
        print(f'light {light["id"]}  "{light["name"]}"  {"on" if light["switch"] else "off"}'
              f'  brightness {light["brightness"]}  {"linked" if light.get("linked") else "not linked"}'
              f'  effects: {", ".join(e["name"] for e in light.get("effects", [])) or "none"}')
    for group in listing["group"]:
        print(f'group {group["id"]}  "{group["name"]}"  {"on" if group["switch"] else "off"}')
    if not args.dim:
        return 0

    light_id, percent = args.dim
    deck.send({"cmd": 10000, "subCmd": "brightness", "param": {"id": light_id, "value": percent}})
    # A refusal is answered at once; a change shows up as a "state" notice of each light.
    deadline = time.monotonic() + 2.0
    deck.sock.settimeout(0.2)
    while time.monotonic() < deadline:
        try:
            msg = deck.receive()
        except socket.timeout:
            continue
        if msg is None:
            return 1
        param = msg.get("param", {})
        if msg.get("subCmd") == "error":
            print(f'refused: {param.get("reason")}')
            return 2
        if msg.get("subCmd") == "state":
            print(f'state {param["id"]}: {"on" if param["switch"] else "off"}, brightness {param["brightness"]}')
    return 0


if __name__ == "__main__":
    sys.exit(main())
