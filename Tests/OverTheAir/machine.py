"""What a scenario has at hand in the machine: adapters, bluetoothd, and programs that run."""

import json
import os
import pathlib
import queue
import shutil
import signal
import subprocess
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent


class Unexpected(Exception):
    """What a scenario met instead of what it says."""


def check(condition, text):
    if not condition:
        raise Unexpected(text)


def property_call(method, path, *arguments):
    return subprocess.run(["dbus-send", "--system", "--print-reply", "--dest=org.bluez",
                           f"/org/bluez/{path}", f"org.freedesktop.DBus.Properties.{method}",
                           *arguments], capture_output=True, text=True)


def power(adapter, on):
    call = property_call("Set", adapter, "string:org.bluez.Adapter1", "string:Powered",
                         f"variant:boolean:{str(on).lower()}")
    check(call.returncode == 0, f"{adapter} cannot be switched: {call.stderr.strip()}")


def is_known(service):
    """Whether bluetoothd knows this service of the device on hci1, as seen from hci0."""
    call = property_call("Get", "hci0/dev_00_AA_01_01_00_01", "string:org.bluez.Device1",
                         "string:UUIDs")
    check(call.returncode == 0, f"no device: {call.stderr.strip()}")
    return service in call.stdout


def block(adapter, on):
    """As an aeroplane mode does. The other side of a link is not told, unlike with `power`."""
    for switch in pathlib.Path("/sys/class/rfkill").iterdir():
        if (switch / "name").read_text().strip() == adapter:
            (switch / "soft").write_text(str(int(on)))


def bluetoothd():
    """The number of its process, or 0."""
    return int(subprocess.run(["pidof", "bluetoothd"], capture_output=True).stdout or 0)


def kill_bluetoothd():
    process = bluetoothd()
    check(process, "bluetoothd has died")
    os.kill(process, signal.SIGKILL)
    while os.path.exists(f"/proc/{process}"):
        time.sleep(0.05)


def start_bluetoothd():
    """Both adapters are there when this returns."""
    subprocess.run([HERE / "start-bluetoothd"], check=True)


def begin_anew():
    """Ends every link, and lets bluetoothd and the program forget everything; hci0 is on."""
    if not bluetoothd():
        start_bluetoothd()  # it died in the scenario before
    block("hci0", False)
    power("hci0", False)
    power("hci1", False)
    kill_bluetoothd()
    for folder in (*pathlib.Path("/var/lib/bluetooth").iterdir(),
                   *pathlib.Path("/run/home").iterdir()):
        shutil.rmtree(folder)
    start_bluetoothd()
    power("hci0", True)


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

    def wait_for_end(self, status, limit=60):
        try:
            found = self.process.wait(limit)
        except subprocess.TimeoutExpired:
            raise Unexpected(f"no end in {limit} s") from None
        check(found == status, f"exit status {found}, not {status}")

    def kill(self):
        self.process.kill()
        self.process.wait()

    def interrupt(self):
        self.process.send_signal(signal.SIGINT)
        self.wait_for_end(130)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()
        self.reader.join()
