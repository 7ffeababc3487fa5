"""Events of a registered server: the worker that received the call waits
until the Python handler, run on the subscribing thread while it pumps, has
filled the exports or failed."""

import os
import pathlib
import threading
import time

import pytest

import veltrane
from conftest import USER, PASSWORD, start_sim

SERVER_DATA = pathlib.Path(__file__).resolve().parent.parent / "server" / "data"


@pytest.fixture(scope="module")
def sim():
    s = start_sim("--data-dir", str(SERVER_DATA))
    yield s
    assert s.stop() == 0


@pytest.fixture
def session(sim):
    s = veltrane.Dispatch("Veltrane.NWRfcSession")
    s.Option["nwrfc.path"] = os.environ["VELTRANE_NWRFC_SDK_DIR"]
    s.RfcSystemData.ConnectString = "ashost=%s gwserv=%d" % (sim.rfc_host, sim.rfc_port)
    s.LogonData.User = USER
    s.LogonData.Password = PASSWORD
    s.LogonData.Client = "001"
    s.Connect()
    yield s
    s.Disconnect()


class Echo:
    def __init__(self):
        self.calls = []
        self.threads = []

    def OnIncomingCall(self, fn):
        self.calls.append(fn.Function)
        self.threads.append(threading.get_ident())
        text = fn.Importing["IV_TEXT"].value
        if text == "fail":
            raise RuntimeError("handler failed on purpose")
        if text == "refuse":
            raise veltrane.ComError(0x80040999, "refused on purpose")
        if text == "raise":
            fn.RaiseException("NOT_FOUND", "nothing for " + text)
            return
        fn.Exporting["EV_TEXT"].value = "py:" + text

    def OnServerError(self, info):
        info.Restart = True  # register again after a lost connection


def serve(sim, handler_class, name):
    server = veltrane.DispatchWithEvents("Veltrane.NWRfcServer", handler_class)
    server.ProgramID = "VPY_%s_%d" % (name, os.getpid())
    server.GatewayHost = sim.rfc_host
    server.GatewayService = str(sim.rfc_port)
    server.Option["nwrfc.path"] = os.environ["VELTRANE_NWRFC_SDK_DIR"]
    return server


def call_program(sim, program, parameters):
    """Lets the system call the registered program from another thread while this one pumps;
    what the call raised is raised here."""
    answer, failure = {}, []

    def run():
        try:
            with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD) as c:
                answer.update(c.call("Z_VSIM_CALL_PROGRAM", PROGRAM_ID=program, FUNCTION="Z_SRV_ECHO",
                                     PARAMETERS=parameters, MODE="S", CONFIRM="X", TIMEOUT_MS=20000))
        except veltrane.Error as e:
            failure.append(e)

    worker = threading.Thread(target=run)
    worker.start()
    while worker.is_alive():
        veltrane.pump(0.1)
    worker.join()
    if failure:
        raise failure[0]
    return answer


def test_the_worker_waits_for_the_handler_that_fills_the_exports(sim, session):
    server = serve(sim, Echo, "ECHO")
    server.InstallFunction(session.ImportCall("Z_SRV_ECHO", False))
    server.Serve()
    try:
        answer = call_program(sim, server.ProgramID, '{"IV_TEXT":"hello"}')
        assert '"EV_TEXT":"py:hello"' in answer["RESULT"], answer
        assert server.calls == ["Z_SRV_ECHO"]
        assert server.threads == [threading.get_ident()]
    finally:
        server.Shutdown()


def test_an_abap_exception_set_by_the_handler_reaches_the_caller(sim, session):
    server = serve(sim, Echo, "RAISE")
    server.InstallFunction(session.ImportCall("Z_SRV_ECHO", False))
    server.Serve()
    try:
        answer = call_program(sim, server.ProgramID, '{"IV_TEXT":"raise"}')
        assert answer["EXCEPTION"] == "NOT_FOUND", answer
        assert answer["EXCEPTION_TEXT"] == "nothing for raise", answer
    finally:
        server.Shutdown()


def call_again(sim, program, parameters):
    """call_program once the program is registered again."""
    deadline = time.monotonic() + 20
    while True:
        try:
            return call_program(sim, program, parameters)
        except veltrane.ABAPApplicationError as e:
            if e.key != "COMMUNICATION_FAILURE" or time.monotonic() > deadline:
                raise
            time.sleep(0.1)


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
def test_a_failing_handler_fails_the_call_and_the_server_serves_on(sim, session):
    server = serve(sim, Echo, "FAIL")
    server.InstallFunction(session.ImportCall("Z_SRV_ECHO", False))
    server.Serve()
    try:
        # The server fails the call of a failed handler: a system failure, after
        # which the SDK ends the connection and the Restart registers again.
        with pytest.raises(veltrane.ABAPApplicationError) as failed:
            call_program(sim, server.ProgramID, '{"IV_TEXT":"fail"}')
        assert failed.value.key == "SYSTEM_FAILURE", failed.value
        assert server.calls == ["Z_SRV_ECHO"]
        # The server goes on serving after a failed call.
        answer = call_again(sim, server.ProgramID, '{"IV_TEXT":"again"}')
        assert '"EV_TEXT":"py:again"' in answer["RESULT"], answer
    finally:
        server.Shutdown()


@pytest.mark.filterwarnings("error::pytest.PytestUnraisableExceptionWarning")
def test_a_handler_that_raises_com_error_fails_the_event_with_its_result(sim, session, tmp_path):
    server = serve(sim, Echo, "REFUSE")
    trace = tmp_path / "server.trc"
    server.Option["trace.file"] = str(trace)
    server.InstallFunction(session.ImportCall("Z_SRV_ECHO", False))
    server.Serve()
    try:
        with pytest.raises(veltrane.ABAPApplicationError) as raised:
            call_program(sim, server.ProgramID, '{"IV_TEXT":"refuse"}')
        assert raised.value.key == "SYSTEM_FAILURE", raised.value
        assert server.calls == ["Z_SRV_ECHO"]
    finally:
        server.Shutdown()
    # The server traces the failed event with the handler's result; nothing is reported as unraisable.
    assert "0x80040999" in trace.read_text(errors="replace")
