"""The record of what passed between the kernel and the controllers, as btmon writes it."""

import struct

RECORD = "/out/hci.btsnoop"
EPOCH = 0x00dcddb30f2f8000  # 1970 in its microseconds
EVENT = 3              # kinds of packets: from the controller
SENT, RECEIVED = 4, 5  # over the air, from this adapter and to it
ATTRIBUTES = 4         # the fixed channel of the attribute protocol


def packets(since):
    """(seconds since 1970, the adapter's number, kind, bytes) of each packet from that moment on."""
    with open(RECORD, "rb") as file:
        data = file.read()
    at = 16
    while at + 24 <= len(data):
        _, size, flags, _, time = struct.unpack_from(">IIIIq", data, at)
        seconds = (time - EPOCH) / 1e6
        if seconds >= since:
            yield seconds, flags >> 16, flags & 0xffff, data[at + 24:at + 24 + size]
        at += 24 + size


def has_failed_attempt(since):
    """Whether a controller said of an attempt to connect that it "failed to be established"."""
    failure = b"\x3e", b"\x01\x3e"  # the event that a connection is complete, with that status
    return any(kind == EVENT and (packet[:1], packet[2:4]) == failure
               for _, _, kind, packet in packets(since))


def attribute_packets(since, adapter=0):
    """(seconds, whether sent, operation, the rest) of each packet of the attribute protocol."""
    parts = {SENT: b"", RECEIVED: b""}
    for seconds, number, kind, packet in packets(since):
        if number != adapter or kind not in parts:
            continue
        goes_on = packet[1] >> 4 & 3 == 1
        parts[kind] = (parts[kind] if goes_on else b"") + packet[4:]
        size, channel = struct.unpack_from("<HH", parts[kind])
        whole = parts[kind][4:]
        if channel == ATTRIBUTES and len(whole) == size:
            yield seconds, kind == SENT, whole[0], whole[1:]
