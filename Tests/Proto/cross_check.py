"""Compares the messages of the C++ library with those of Python's protobuf, in both directions, and
the .proto files with the tables of the protocol document.

Python fills every field of every message with typical, default and extreme values, adds unknown
fields and unlisted enumeration numbers, and both sides must agree on the bytes and on the JSON. The
pure Python runtime shares no code with the C++ one."""

import argparse
import importlib
import json
import os
import pathlib
import random
import re
import struct
import subprocess
import sys
import tempfile

os.environ["PROTOCOL_BUFFERS_PYTHON_IMPLEMENTATION"] = "python"
from google.protobuf import json_format  # noqa: E402
from google.protobuf.descriptor import FieldDescriptor as Field  # noqa: E402
from google.protobuf.symbol_database import Default  # noqa: E402

SEED = 20
MIXED_PER_MESSAGE = 25
TYPE_NAMES = {Field.TYPE_BOOL: "bool", Field.TYPE_BYTES: "bytes", Field.TYPE_FIXED32: "fixed32",
              Field.TYPE_FLOAT: "float", Field.TYPE_INT32: "int32", Field.TYPE_INT64: "int64",
              Field.TYPE_SINT32: "sint32", Field.TYPE_STRING: "string",
              Field.TYPE_UINT32: "uint32", Field.TYPE_UINT64: "uint64"}
INT32 = [0, 1, -1, 300, -65, 2**31 - 1, -2**31]
UINT32 = [0, 1, 127, 128, 80_000, 2**31, 2**32 - 1]
VALUES = {
    "bool": [False, True], "fixed32": UINT32, "uint32": UINT32, "int32": INT32, "sint32": INT32,
    "int64": [0, 1, -1, 1_700_000_000, 2**63 - 1, -2**63],
    "uint64": [0, 1, 2**53 + 1, 2**63, 2**64 - 1],
    # Not the very largest: Python refuses the text that it prints for that one itself.
    "float": [0.0, 1.5, -0.125, 51.507351, 1e-45, 3.4e38, float("inf"), float("-inf"),
              float("nan")],
    "string": ["", "hello", "+442079460018", "Grüße \U0001f6f0 \u2028", "\0\x01\"\\/<&>\n", "x" * 400],
    "bytes": [b"", b"\x01", bytes(range(256)), b"\xfb\xff\xfe"],
}
UNLISTED = [2, 9, 126, 1000, -1, 2**31 - 1, -2**31]
# Field 1000 as varint and as bytes, fields 1001 and 1002 as 4 and 8 fixed bytes.
UNKNOWN = [bytes.fromhex(text) for text in
           ("c03e01", "c23e03616263", "cd3e01020304", "d13e0102030405060708", "c03e01c03e02")]


def type_name(field):
    named = field.message_type or field.enum_type
    name = named.full_name if named else TYPE_NAMES[field.type]
    return f"repeated {name}" if field.label == Field.LABEL_REPEATED else name


def compile_protos(protoc, root):
    """The message and enumeration types of every .proto file, by name."""
    files = sorted(path.relative_to(root) for path in root.glob("TandrellCore/Proto/*.proto"))
    messages, enums = {}, {}
    with tempfile.TemporaryDirectory() as out:
        subprocess.run([protoc, "--python_out", out, "--proto_path", root, *files], check=True)
        sys.path.insert(0, out)
        for file in files:
            module = importlib.import_module(".".join(file.with_suffix("").parts) + "_pb2")
            enums.update(module.DESCRIPTOR.enum_types_by_name)
            for name, type_ in module.DESCRIPTOR.message_types_by_name.items():
                messages[name] = Default().GetSymbol(name)
                enums.update((enum.full_name, enum) for enum in type_.enum_types)
    return messages, enums


def documented(text):
    """What the document's tables say: fields by message, values by enumeration."""
    fields, message = {}, None
    for row in re.finditer(r"^\| (?:`(\w+)` )?\| (\d+) \| `(\w+)` \| ([\w. ]+) \|", text, re.M):
        message = row[1] or message
        fields.setdefault(message, []).append((int(row[2]), row[3], row[4]))
    enums = {row[1]: re.findall(r"(\d+) (\w+)", row[2])
             for row in re.finditer(r"^\| `([\w.]+)` \| (\d+ [\w ,]+) \|$", text, re.M)}
    return fields, enums


def check_document(path, messages, enums):
    fields, values = documented(path.read_text(encoding="utf-8"))
    declared = {name: [(field.number, field.name, type_name(field))
                       for field in cls.DESCRIPTOR.fields] for name, cls in messages.items()}
    listed = {name: [(str(value.number), value.name) for value in enum.values]
              for name, enum in enums.items()}
    for kind, ours, theirs in (("message", declared, fields), ("enumeration", listed, values)):
        for name in sorted(ours.keys() | theirs.keys()):
            if ours.get(name) != theirs.get(name):
                yield f"{kind} {name}: .proto {ours.get(name)}, document {theirs.get(name)}"
    for name, cls in messages.items():
        for field in cls.DESCRIPTOR.fields:
            if field.json_name != field.name:
                yield f"{name}.{field.name}: the JSON name is {field.json_name}"


class Filler:
    """Makes messages out of the values above; the same in every run."""

    def __init__(self, messages):
        self.messages = messages
        self.random = random.Random(SEED)

    def choices(self, field):
        if field.message_type:
            return [self.mixed(field.message_type.name) for _ in range(3)] + \
                   [self.messages[field.message_type.name]()]
        if field.enum_type:
            return [value.number for value in field.enum_type.values] + UNLISTED
        return VALUES[TYPE_NAMES[field.type]]

    def set(self, message, field, value):
        if field.label == Field.LABEL_REPEATED:
            getattr(message, field.name).append(value)
        elif field.message_type:
            getattr(message, field.name).CopyFrom(value)
        else:
            setattr(message, field.name, value)

    def each(self, name):
        """One field set at a time, to each of its values."""
        for field in self.messages[name].DESCRIPTOR.fields:
            for value in self.choices(field):
                message = self.messages[name]()
                self.set(message, field, value)
                yield message

    def mixed(self, name):
        """Any fields set, lists of up to three elements."""
        message = self.messages[name]()
        for field in message.DESCRIPTOR.fields:
            repeated = field.label == Field.LABEL_REPEATED
            for _ in range(self.random.randrange(4 if repeated else 2)):
                self.set(message, field, self.random.choice(self.choices(field)))
        return message

    def all(self, name):
        yield self.messages[name]()
        yield from self.each(name)
        for _ in range(MIXED_PER_MESSAGE):
            message = self.mixed(name)
            yield message
            message.MergeFromString(self.random.choice(UNKNOWN))
            yield message


def comparable(text):
    """JSON as a text that is equal where the values are: the runtimes print the same float with
    different numbers of digits, and order fields differently."""
    def as_float(digits):
        return struct.unpack("f", struct.pack("f", float(digits)))[0]
    return json.dumps(json.loads(text, parse_float=as_float), sort_keys=True)


def cases(messages):
    """(line for the tool, expected bytes, expected JSON)"""
    filler = Filler(messages)
    for name, cls in messages.items():
        for message in filler.all(name):
            wire, text = message.SerializeToString(), json_format.MessageToJson(message, indent=None)
            yield f"{name} wire {wire.hex()}", wire, text
            # JSON leaves unknown fields out.
            known = json_format.Parse(text, cls())
            yield f"{name} json {text}", known.SerializeToString(), text


def differs(answer, wire, text):
    status, _, rest = answer.partition(" ")
    hexadecimal, _, their_text = rest.partition(" ")
    return status != "ok" or hexadecimal != (wire.hex() or "-") or \
        comparable(their_text) != comparable(text)


def check_runtimes(tool, messages):
    expected = list(cases(messages))
    run = subprocess.run([tool], input="".join(line + "\n" for line, _, _ in expected),
                         stdout=subprocess.PIPE, text=True, encoding="utf-8", check=True)
    answers = run.stdout.split("\n")[:-1]
    if len(answers) != len(expected):
        yield f"{len(expected)} questions, {len(answers)} answers"
    for (line, wire, text), answer in zip(expected, answers):
        if differs(answer, wire, text):
            yield f"{line}\n  Python: {wire.hex()} {text}\n  C++:    {answer}"
    print(f"{len(messages)} messages, {len(expected)} comparisons, seed {SEED}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for option in ("tool", "protoc", "protos", "document"):
        parser.add_argument(f"--{option}", required=True, type=pathlib.Path)
    options = parser.parse_args()
    messages, enums = compile_protos(options.protoc, options.protos)
    faults = [*check_document(options.document, messages, enums),
              *check_runtimes(options.tool, messages)]
    for fault in faults[:20]:
        print(fault, file=sys.stderr)
    if faults:
        sys.exit(f"{len(faults)} differences")


if __name__ == "__main__":
    main()
