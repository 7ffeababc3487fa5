"""Events: handlers connected by the type information, CallFinished of an
asynchronous call run in the subscribing thread while it pumps, or on the
firing thread in the multithreaded apartment."""

import sys
import threading

import pytest

import veltrane
from conftest import configure


class Recorder:
    def __init__(self):
        self.finished = 0
        self.threads = []

    def OnCallFinished(self):
        self.finished += 1
        self.threads.append(threading.get_ident())


def wait_call(session, milliseconds=20):
    call = session.ImportCall("Z_VSIM_WAIT")
    call.Importing["MILLISECONDS"].value = milliseconds
    return call


def pump_until(condition, seconds=20.0):
    for _ in range(int(seconds * 10)):
        if condition():
            return True
        veltrane.pump(0.1)
    return condition()


def test_dispatch_with_events_runs_the_handler_on_this_thread(sim):
    s = veltrane.DispatchWithEvents("Veltrane.SoapSession", Recorder)
    assert isinstance(s, Recorder) and isinstance(s, veltrane.Dispatch)
    assert s.finished == 0 and s.SessionType == "SOAP"
    configure(s, sim)
    s.Connect()
    call = wait_call(s)
    s.CallFunction(call, False)
    assert veltrane.pump(30) >= 1  # the handler is queued for this thread; pump returns once it ran
    assert pump_until(lambda: s.finished == 1)
    assert s.threads == [threading.get_ident()]
    assert s.CallActive is False
    assert call.Exporting["WAITED"].value >= 20
    s.Disconnect()


def test_with_events_connects_a_handler_to_an_existing_object(session):
    handler = veltrane.WithEvents(session, Recorder)
    assert isinstance(handler, Recorder)
    for n in (1, 2):
        session.CallFunction(wait_call(session, 1), False)
        assert pump_until(lambda: handler.finished == n)
    assert handler.finished == 2


def test_a_synchronous_call_raises_no_event(session):
    handler = veltrane.WithEvents(session, Recorder)
    session.CallFunction(wait_call(session, 1))
    session.CallFunction(wait_call(session, 1), True)
    assert veltrane.pump(0) == 0
    assert handler.finished == 0


def test_events_stop_when_the_connection_closes(session):
    handler = veltrane.WithEvents(session, Recorder)
    handler._veltrane_events.close()
    assert not handler._veltrane_events.connected
    session.CallFunction(wait_call(session, 1), False)
    assert pump_until(lambda: not session.CallActive)
    veltrane.pump(0.2)
    assert handler.finished == 0


def test_events_stop_when_the_handler_is_dropped(session):
    finished = []

    class Dropped:
        def OnCallFinished(self):
            finished.append(1)

    handler = veltrane.WithEvents(session, Dropped)
    del handler
    session.CallFunction(wait_call(session, 1), False)
    assert pump_until(lambda: not session.CallActive)
    veltrane.pump(0.2)
    assert finished == []


def test_no_event_after_abort(session):
    handler = veltrane.WithEvents(session, Recorder)
    session.CallFunction(wait_call(session, 300), False)
    session.AbortCall()
    assert session.CallActive is False
    veltrane.pump(0.6)
    assert handler.finished == 0


def test_a_handler_without_the_method_ignores_the_event(session):
    class Nothing:
        pass

    handler = veltrane.WithEvents(session, Nothing)
    session.CallFunction(wait_call(session, 1), False)
    assert pump_until(lambda: not session.CallActive)
    veltrane.pump(0.2)
    assert handler._veltrane_events.connected


def test_a_failing_handler_is_reported_and_the_session_goes_on(session, monkeypatch):
    reported = []
    monkeypatch.setattr(sys, "unraisablehook", reported.append)

    class Failing:
        def OnCallFinished(self):
            raise RuntimeError("handler failed")

    handler = veltrane.WithEvents(session, Failing)
    session.CallFunction(wait_call(session, 1), False)
    assert pump_until(lambda: reported)
    assert isinstance(reported[0].exc_value, RuntimeError)
    assert "handler failed" in str(reported[0].exc_value)
    assert session.CallActive is False
    assert handler is not None
    assert session.ImportCall("RFC_PING") is not None


def test_an_object_without_events_is_refused(session):
    with pytest.raises(TypeError, match="raises no events"):
        veltrane.WithEvents(session.LogonData, Recorder)


def test_a_handler_in_the_multithreaded_apartment_runs_on_the_firing_thread(sim):
    result = {}

    def worker():
        veltrane.initialize(multithreaded=True)
        s = configure(veltrane.Dispatch("Veltrane.SoapSession"), sim)
        s.Connect()
        done = threading.Event()

        class Handler:
            def OnCallFinished(self):
                result["thread"] = threading.get_ident()
                result["apartment"] = veltrane.apartment()
                result["active"] = s.CallActive
                done.set()

        handler = veltrane.WithEvents(s, Handler)
        s.CallFunction(wait_call(s, 1), False)
        result["fired"] = done.wait(30)
        result["own"] = threading.get_ident()
        del handler
        s.Disconnect()

    t = threading.Thread(target=worker)
    t.start()
    t.join(60)
    assert result["fired"]
    assert result["thread"] != result["own"]
    assert result["apartment"] == "mta"
    assert result["active"] is False


def test_events_of_a_second_thread_run_in_that_thread(sim):
    seen = {}

    def worker():
        s = veltrane.DispatchWithEvents("Veltrane.SoapSession", Recorder)
        configure(s, sim)
        s.Connect()
        s.CallFunction(wait_call(s, 1), False)
        seen["ran"] = pump_until(lambda: s.finished == 1)
        seen["threads"] = list(s.threads)
        seen["own"] = threading.get_ident()
        s.Disconnect()

    t = threading.Thread(target=worker)
    t.start()
    t.join(60)
    assert seen["ran"] and seen["threads"] == [seen["own"]]
