#!/usr/bin/env python3
"""Whether the packet analyser, with the dissector, shows every message field by field.

    dissector.py DESCRIPTION DISSECTOR

DESCRIPTION is what vimbra-protocol --json writes. Each request, reply and notification goes into a
capture, every field with a value of its own, and comes back as text.
"""
import ipaddress
import json
import struct
import subprocess
import sys
import tempfile

DIRECTIONS = {"request": 0, "reply": 1, "notification": 2}


class Message:
    """The bytes of a record, and the lines that tell them."""

    def __init__(self, record):
        self.body = bytearray(record["size"]) if record else bytearray()
        self.lines = []
        self.count = 0
        if record:
            self.fill(record, 0, 1)

    def fill(self, record, base, depth):
        for field in record["fields"]:
            for i in range(field["count"]):
                at = base + field["offset"] + i * field["size"]
                name = field["name"] + (f"[{i}]" if field["count"] > 1 else "")
                if field["kind"] == "record":
                    self.tell(depth, name)
                    self.fill(field["record"], at, depth + 1)
                else:
                    value, shown = self.value(field)
                    self.body[at : at + len(value)] = value
                    self.tell(depth, f"{name}: {shown}")

    def tell(self, depth, text):
        self.lines.append("    " * depth + text)

    def value(self, field):
        self.count += 1
        kind, size = field["kind"], field["size"]
        if kind in ("unsigned", "signed"):
            number = -self.count if kind == "signed" else 2 ** (8 * size) - self.count
            if kind == "signed" and size == 1:
                number = -(self.count % 100)
            if kind == "unsigned" and size == 1:
                number = 255 - self.count % 100
            return number.to_bytes(size, "little", signed=kind == "signed"), str(number)
        if kind in ("text", "secret"):
            text = f"t{self.count}"[: size - 1]
            return text.encode(), "***" if kind == "secret" else text
        if kind == "address" and self.count % 2:
            shown = ipaddress.IPv4Address(0xC0000200 + self.count % 250)
            return struct.pack("<HH", 2, 0) + shown.packed, str(shown)
        if kind == "address":
            shown = ipaddress.IPv6Address(f"2001:db8::{self.count:x}")
            return struct.pack("<HH", 10, 0) + shown.packed, str(shown)
        value = bytes((self.count + i) % 256 for i in range(size))
        return value, value.hex().upper()


def messages(told):
    for each in told["requests"]:
        for part, direction in (("body", "request"), ("reply", "reply")):
            yield direction, each["name"], each["type"], (each.get(part) or {}).get("record")
    for each in told["notifications"]:
        yield "notification", each["name"], each["types"][0], (each["body"] or {}).get("record")


def capture(packets):
    data = struct.pack("=IHHIIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 147)
    for packet in packets:
        data += struct.pack("=IIII", 0, 0, len(packet), len(packet)) + packet
    return data


def main():
    description, dissector = sys.argv[1:]
    with open(description, encoding="utf-8") as file:
        told = json.load(file)
    packets, wanted, first = [], [], {}
    for direction, name, number, record in messages(told):
        message = Message(record)
        # Two requests of one number differ in size, their replies do not.
        name = first.setdefault((direction, number, len(message.body)), name)
        packets.append(bytes([DIRECTIONS[direction]])
                       + struct.pack("<IIi", number, len(message.body), -7) + message.body)
        wanted.append([f"Vimbra {direction}: {name}",
                       f"    Direction: {direction} ({DIRECTIONS[direction]})",
                       f"    Type: {number}", f"    Size: {len(message.body)}", "    Flag: -7"]
                      + message.lines)
    with tempfile.NamedTemporaryFile(suffix=".pcap") as file:
        file.write(capture(packets))
        file.flush()
        out = subprocess.run(["tshark", "-X", "lua_script:" + dissector, "-r", file.name, "-V"],
                             check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    assert "Lua" not in out.stderr, out.stderr
    shown = [["Vimbra " + lines[0], *lines[1:]] for lines in
             (part.split("\n\n")[0].splitlines() for part in out.stdout.split("\nVimbra ")[1:])]
    assert len(shown) == len(wanted) > 100, (len(shown), len(wanted))
    for is_shown, is_wanted in zip(shown, wanted):
        for at, (left, right) in enumerate(zip(is_shown + [None], is_wanted + [None])):
            assert left == right, f"{is_wanted[0]}, line {at}: {left!r} instead of {right!r}"
    print(len(wanted), "messages")


main()
