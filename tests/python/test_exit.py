"""Daemon threads that still use Veltrane when the interpreter exits: the process ends
cleanly, whatever such a thread was doing (the interpreter stops it when it next wants
the GIL)."""

import os
import subprocess
import sys

import pytest

HANDLER = """
import threading, time, veltrane

class Handler:
    def OnCallFinished(self, *args):
        self.finished = True

def session():
    s = veltrane.DispatchWithEvents("Veltrane.SoapSession", Handler)
    s.HttpSystemData.Host = HOST
    s.HttpSystemData.Port = PORT
    s.LogonData.User = "DEMO"
    s.LogonData.Password = "Welcome1"
    return s

def calls(ready, wait):
    # Asynchronous calls one after the other, each awaited by wait() until its event came.
    s = session()
    s.Connect()
    call = s.ImportCall("Z_VSIM_WAIT")
    call.Importing["MILLISECONDS"].value = 1
    ready.wait(30)
    while True:
        s.finished = False
        s.CallFunction(call, False)
        while not s.finished:
            wait()

def started(target, count=2):
    ready = threading.Barrier(count + 1)
    for _ in range(count):
        threading.Thread(target=target, args=(ready,), daemon=True).start()
    ready.wait(30)
    time.sleep(0.3)
"""

SCRIPTS = {
    # Sinks made and released in a loop: release or connection falls on the exit.
    "sinks": """
def run(ready):
    ready.wait(30)
    while True:
        s = session()
        del s
started(run)
""",
    # A connected session whose release (a logoff over the network) falls on the exit.
    "connected": """
def run(ready):
    ready.wait(30)
    while True:
        s = session()
        s.Connect()
        del s
started(run)
""",
    # Single-threaded apartments pumping the events of their calls.
    "pumping": """
def run(ready):
    calls(ready, lambda: veltrane.pump(1))
started(run)
""",
    # The multithreaded apartment: handlers run on the session's own worker thread.
    "multithreaded": """
def run(ready):
    veltrane.initialize(multithreaded=True)
    calls(ready, lambda: time.sleep(0.001))
started(run)
""",
}


@pytest.mark.parametrize("case", sorted(SCRIPTS))
def test_the_process_ends_cleanly_while_a_daemon_thread_uses_events(sim, case):
    code = f"HOST, PORT = {sim.host!r}, {sim.port}\n" + HANDLER + SCRIPTS[case]
    for _ in range(3):  # the exit falls on another step of the loop each time
        result = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=120,
                                env=os.environ)
        assert (result.returncode, result.stderr) == (0, "")
