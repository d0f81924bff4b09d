"""Programs that run in the machine: tandrell on hci0, and a communicator on hci1."""

import json
import pathlib
import queue
import signal
import subprocess
import sys
import threading
import time

from machine import Unexpected, check, power

MESSAGE = ("send", "--to", "+442079460018", "At the hut, all well. We stay for two nights.")
COMMUNICATOR = ("device battery 81", 'device reply "Received."',
                "satellite connect 1s send 1s deliver 1s", "at 0 device quality 3")


def tandrell(*arguments, state="phone"):
    return Program(sys.argv[1], "--link", "bluez:hci0", "--json", "--data-dir", f"/run/home/{state}",
                   *arguments)


def communicator(*statements):
    """The simulated one on the air, with these statements of a scenario."""
    power("hci1", True)
    scenario = pathlib.Path("/run/communicator.scenario")
    scenario.write_text("\n".join((*COMMUNICATOR, *statements)) + "\n", encoding="utf-8")
    device = Program(sys.argv[1], "--link", "bluez:hci1", "--json", "sim", scenario)
    device.wait_for("air", value="advertising")
    return device


class Program:
    """A program that runs until it ends or the `with` does; what it prints is kept in `told`."""
    started = []

    def __init__(self, *arguments):
        self.name = " ".join(map(str, arguments))
        self.told, self.lines = [], queue.Queue()
        self.process = subprocess.Popen(arguments, text=True, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT)
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        Program.started.append(self)

    def _read(self):
        for line in self.process.stdout:
            self.told.append(line)
            self.lines.put(line)
        self.lines.put("")

    def wait_for(self, kind, limit=60, **fields):
        """The next event of this kind with these fields; others are passed over."""
        end = time.monotonic() + limit
        line = None
        while line != "":
            try:
                line = self.lines.get(timeout=max(0, end - time.monotonic()))
            except queue.Empty:
                break
            event = json.loads(line) if line.startswith("{") else {}
            if event.get("type") == kind and fields.items() <= event.items():
                return event
        raise Unexpected(f"no {kind} {fields} " + ("before the end" if line == "" else f"in {limit} s"))

    def events(self, kind):
        """All events of this kind so far; a program that is killed may leave half a line."""
        said = (json.loads(line) for line in self.told if line.startswith("{") and "}\n" in line)
        return [event for event in said if event["type"] == kind]

    def wait_for_end(self, status, limit=60):
        try:
            found = self.process.wait(limit)
        except subprocess.TimeoutExpired:
            raise Unexpected(f"no end in {limit} s") from None
        check(found == status, f"exit status {found}, not {status}")

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.reader.join()

    def interrupt(self):
        self.process.send_signal(signal.SIGINT)
        self.wait_for_end(130)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()
