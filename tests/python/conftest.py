"""Fixtures of the Python tests: veltrane-sim as a child process on a free port
(the program named by VELTRANE_SIM, as the C++ tests start it), and sessions
and clients connected to it."""

import ctypes
import os
import signal
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

import pytest

import veltrane

DATA = Path(__file__).parent / "data"
USER, PASSWORD = "DEMO", "Welcome1"


@dataclass
class Sim:
    process: subprocess.Popen
    url: str
    host: str
    port: int
    rfc_host: str
    rfc_port: int

    def stop(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                return self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                return self.process.wait()
        return self.process.returncode


def _end_with_parent():
    """In the child before exec: SIGTERM when the test process ends, however it ends."""
    ctypes.CDLL(None, use_errno=True).prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG


def start_sim(*args):
    """Starts veltrane-sim on free ports and waits for its ready line."""
    program = os.environ.get("VELTRANE_SIM", "veltrane-sim")
    process = subprocess.Popen([program, "--soap-port", "0", "--rfc-port", "0", "--log-level", "error", *args],
                               stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, text=True,
                               preexec_fn=_end_with_parent)
    line = process.stdout.readline().strip()
    prefix = "veltrane-sim listening "
    if not line.startswith(prefix):
        process.kill()
        raise RuntimeError(f"veltrane-sim did not start: {line!r}")
    fields = dict(field.split("=", 1) for field in line[len(prefix):].split())
    url = fields["soap"]
    host, port = url.removeprefix("http://").rsplit(":", 1)
    rfc_host, rfc_port = fields["rfc"].rsplit(":", 1)
    return Sim(process, url, host, int(port), rfc_host, int(rfc_port))


@pytest.fixture(scope="session")
def sim():
    s = start_sim("--data-dir", str(DATA))
    yield s
    assert s.stop() == 0


@pytest.fixture
def client(sim):
    with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD) as c:
        yield c


SDK_BACKENDS = ("nwrfc", "rfc")


def sdk_params(sim, **more):
    """Parameters of connect("nwrfc") and connect("rfc") for the simulated system's RFC front."""
    return dict(ashost=sim.rfc_host, gwserv=sim.rfc_port, client="001", user=USER, passwd=PASSWORD, **more)


@pytest.fixture
def nw(sim):
    with veltrane.connect("nwrfc", **sdk_params(sim)) as c:
        yield c


@pytest.fixture(params=SDK_BACKENDS)
def rfc_client(request, sim):
    """A client of each back end on an SDK."""
    with veltrane.connect(request.param, **sdk_params(sim)) as c:
        yield c


def configure(session, sim, user=USER, password=PASSWORD):
    """Fills the connection data of a SoapSession for the simulated system."""
    http = session.HttpSystemData
    http.Host = sim.host
    http.Port = sim.port
    session.LogonData.User = user
    session.LogonData.Password = password
    session.LogonData.Client = "001"
    return session


@pytest.fixture
def session(sim):
    s = configure(veltrane.Dispatch("Veltrane.SoapSession"), sim)
    s.Connect()
    yield s
    if s.IsConnected:
        s.Disconnect()


def run_python(code, **env):
    """Runs code in a fresh interpreter (the one running the tests) and returns its output."""
    result = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=120,
                            env={**os.environ, **env})
    assert result.returncode == 0, result.stderr
    return result.stdout
