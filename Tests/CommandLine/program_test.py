"""Runs the built program as a user does: real time, real processes, real store."""

import json
import os
import signal
import subprocess
import sys
import tempfile
import unittest

PROGRAM = sys.argv.pop(1)


class ProgramTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.data = os.path.join(directory.name, "data")

    def start(self, *arguments):
        command = [PROGRAM, "--json", "--data-dir", self.data, *arguments]
        return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def test_send_delivers_and_keeps_the_store_private(self):
        process = self.start("send", "--to", "someone@example.org", "hello")
        out, errors = process.communicate(timeout=60)
        events = [json.loads(line) for line in out.splitlines()]
        self.assertEqual((process.returncode, errors), (0, ""))
        statuses = [event["value"] for event in events if event["type"] == "status"]
        self.assertEqual(statuses, ["connecting", "sending", "delivered"])
        # The device needs its 300 ms between two chunks.
        pauses = [e["msSincePrevious"] for e in events if "msSincePrevious" in e]
        self.assertTrue(pauses and min(pauses) >= 300, pauses)
        self.assertEqual(events[-1]["type"], "done")
        for name in os.listdir(self.data):
            self.assertEqual(os.stat(os.path.join(self.data, name)).st_mode & 0o077, 0, name)

    def test_interruption_parts_from_the_device(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            process = self.start("watch")
            for line in process.stdout:
                if '"battery"' in line:
                    break
            process.send_signal(number)
            out, errors = process.communicate(timeout=60)
            events = [json.loads(line) for line in out.splitlines()]
            self.assertEqual((process.returncode, errors), (130, ""))
            self.assertIn(("connection", "disconnected"),
                          [(e["type"], e.get("value")) for e in events])
            self.assertEqual(events[-1]["outcome"], "interrupted")

    def test_the_end_of_its_reader_parts_from_the_device_too(self):
        process = self.start("watch")
        process.stdout.readline()
        process.stdout.close()
        self.assertEqual((process.wait(60), process.stderr.read()), (130, ""))

    def test_an_output_that_cannot_be_written_is_a_failure(self):
        for arguments in (["--help"], ["status", "--json", "--data-dir", self.data]):
            with open("/dev/full", "w") as full:
                run = subprocess.run([PROGRAM, *arguments], stdout=full, stderr=subprocess.PIPE,
                                     text=True, timeout=60)
            self.assertEqual(run.returncode, 1)
            self.assertRegex(run.stderr, r"\Atandrell: cannot write to the standard output: .*\n\Z")

    def test_decoding_takes_no_more_memory_for_a_longer_stream(self):
        most = []
        for size in (3, 3 << 20):
            command = [PROGRAM, "decode", "--binary"]
            process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
            process.stdin.write(bytes(size))
            process.stdin.close()
            _, status, usage = os.wait4(process.pid, 0)
            self.assertEqual(status, 0)
            most.append(usage.ru_maxrss)
        self.assertLess(most[1] - most[0], 30000, "in KiB")

    def test_a_store_that_cannot_be_opened_is_named(self):
        open(self.data, "w").close()
        process = self.start("watch", "--for", "1")
        out, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 1)
        self.assertIn(self.data, errors)
        self.assertEqual(json.loads(out)["status"], 1)

    @unittest.skipUnless(os.environ.get("TANDRELL_WITH_BLUEZ") == "1", "built without BlueZ")
    def test_a_radio_that_is_not_there_is_named(self):
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent/bus"
        self.addCleanup(os.environ.pop, "DBUS_SYSTEM_BUS_ADDRESS")
        with open(self.data, "w") as scenario:
            scenario.write("at 0:01 phone connect")
        process = self.start("--link", "bluez", "sim", self.data)
        out, errors = process.communicate(timeout=60)
        self.assertEqual((process.returncode, errors), (5, ""))
        self.assertEqual(json.loads(out.splitlines()[-1])["outcome"], "notSupported")


if __name__ == "__main__":
    unittest.main()
