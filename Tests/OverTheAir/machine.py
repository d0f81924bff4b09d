"""The machine: its adapters and bluetoothd."""

import os
import pathlib
import shutil
import signal
import subprocess
import time

HERE = pathlib.Path(__file__).resolve().parent
DEVICE = "hci0/dev_00_AA_01_01_00_01"  # hci1, as hci0 sees it


class Unexpected(Exception):
    """What a scenario met instead of what it says."""


def check(condition, text):
    if not condition:
        raise Unexpected(text)


def bus_call(path, member, *arguments):
    return subprocess.run(["dbus-send", "--system", "--print-reply", "--dest=org.bluez",
                           f"/org/bluez/{path}", member, *arguments],
                          capture_output=True, text=True)


def power(adapter, on):
    """Switches it, as soon as bluetoothd is done with what it does itself after a block."""
    end = time.monotonic() + 10
    while True:
        call = bus_call(adapter, "org.freedesktop.DBus.Properties.Set", "string:org.bluez.Adapter1",
                        "string:Powered", f"variant:boolean:{str(on).lower()}")
        if "org.bluez.Error.Busy" not in call.stderr or time.monotonic() > end:
            break
        time.sleep(0.1)
    check(call.returncode == 0, f"{adapter} cannot be switched: {call.stderr.strip()}")


def is_known(service):
    """Whether bluetoothd knows this service of the device."""
    call = bus_call(DEVICE, "org.freedesktop.DBus.Properties.Get", "string:org.bluez.Device1",
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


killed = False  # bluetoothd, by the scenario


def has_died():
    """Whether bluetoothd has gone of itself."""
    return not bluetoothd() and not killed


def kill_bluetoothd():
    global killed
    process = bluetoothd()
    check(process, "bluetoothd has died")
    killed = True
    os.kill(process, signal.SIGKILL)
    while os.path.exists(f"/proc/{process}"):
        time.sleep(0.05)


def start_bluetoothd():
    """Both adapters are there when this returns."""
    global killed
    subprocess.run([HERE / "start-bluetoothd"], check=True)
    killed = False


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
