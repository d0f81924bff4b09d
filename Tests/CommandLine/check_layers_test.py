"""The layer check finds what is planted, and nothing else."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECKER = sys.argv.pop(1)

PLANTED = [
    ("TandrellCore/Utility/A.h", "#include <TandrellCore/Core/DeviceUtil.h>", "must not include"),
    ("TandrellCore/Platform/B.h", '#include "TandrellCore/Async/Promise.h"', "must not include"),
    ("Simulator/C.cpp", "#include <TandrellCore/Utility/CommandParser.h>", "must not include"),
    ("TandrellCore/Core/D.cpp", "#include <Hosts/System/SystemDispatcher.h>", "must not include"),
    ("TandrellCore/Api/E.cpp", "#include <Tests/Support/LogCapture.h>", "must not include"),
    ("CommandLine/F.cpp", "#include <TandrellCore/Core/DeviceUtilImpl.h>", "private"),
    ("TandrellCore/Core/G.cpp", "auto t = std::chrono::steady_clock::now();", "clock"),
    ("Tests/Core/H.cpp", "std::this_thread::sleep_for(1s);", "sleeps"),
    ("Simulator/I.cpp", "std::thread t(run);", "thread"),
    ("TandrellCore/Utility/J.cpp", "std::random_device device;", "random device"),
    ("CommandLine/K.cpp", "std::ofstream file(path);", "file"),
    ("Simulator/U.cpp", "const auto file = ::open(path, 0);", "file"),
    ("CommandLine/V.cpp", "std::filesystem::remove(path);", "file"),
    ("TandrellCore/Core/W.cpp", "clock_gettime(CLOCK_REALTIME, &time);", "clock"),
    ("Examples/OwnHost/main.cpp", "std::thread t(run);", "thread"),
    ("Examples/OwnHost/Host/S.cpp", "usleep(1);", "sleeps"),
]
ALLOWED = [
    ("TandrellCore/Core/L.cpp", "#include <TandrellCore/Core/DeviceUtilImpl.h>"),
    ("TandrellCore/Core/M.cpp", "// steady_clock::now() is not for us; /* usleep(1) */"),
    ("TandrellCore/Core/N.cpp", 'log("std::thread");  // and the id of one is no thread'),
    ("TandrellCore/Async/O.h", "std::this_thread::get_id();"),
    ("Hosts/System/P.cpp", "std::thread t([] { usleep(1); });"),
    ("Tests/Hosts/Q.cpp", "std::thread t(run);"),
    ("CommandLine/R.cpp", "#include <Simulator/VirtualTime.h>"),
    ("Examples/OwnHost/Host/T.cpp", "std::thread t(run);"),
]


def check(files):
    with tempfile.TemporaryDirectory() as root:
        pathlib.Path(root, "TandrellCore").mkdir()
        for path, line in files:
            file = pathlib.Path(root, path)
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text("#pragma once\n" + line + "\n", encoding="utf-8")
        return subprocess.run([sys.executable, CHECKER, root], capture_output=True, text=True)


class CheckLayersTest(unittest.TestCase):
    def test_finds_each_planted_violation(self):
        for path, line, what in PLANTED:
            result = check([(path, line)])
            self.assertEqual(result.returncode, 1, line)
            self.assertRegex(result.stdout, f"^{path}:2: .*{what}")
            self.assertEqual(len(result.stdout.splitlines()), 1, result.stdout)

    def test_leaves_the_rest_alone(self):
        result = check(ALLOWED)
        self.assertEqual((result.returncode, result.stderr), (0, ""), result.stdout)


if __name__ == "__main__":
    unittest.main()
