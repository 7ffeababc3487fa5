"""Apartments of Python threads, and the GIL while Veltrane blocks."""

import threading

import pytest

import veltrane
from conftest import configure, run_python


def in_thread(function):
    result = {}

    def run():
        try:
            result["value"] = function()
        except BaseException as e:  # handed to the test
            result["error"] = e

    t = threading.Thread(target=run)
    t.start()
    t.join(60)
    if "error" in result:
        raise result["error"]
    return result["value"]


def test_a_thread_is_initialised_on_first_use():
    def first_use():
        before = veltrane.apartment()
        veltrane.Dispatch("Veltrane.SoapSession")
        return before, veltrane.apartment()

    assert in_thread(first_use) == (None, "sta")


def test_a_thread_may_choose_the_multithreaded_apartment_first():
    def choose():
        veltrane.initialize(multithreaded=True)
        veltrane.initialize(multithreaded=True)  # again: nothing changes
        s = veltrane.Dispatch("Veltrane.SoapSession")
        return veltrane.apartment(), s.SessionType

    assert in_thread(choose) == ("mta", "SOAP")


def test_the_apartment_cannot_change_later():
    def change():
        veltrane.Dispatch("Veltrane.SoapSession")
        veltrane.initialize(multithreaded=True)

    with pytest.raises(veltrane.ComError) as raised:
        in_thread(change)
    assert raised.value.hresult == 0x80010106  # RPC_E_CHANGED_MODE


def test_pump_without_work_returns_zero():
    assert veltrane.pump() == 0
    assert veltrane.pump(0.01) == 0
    assert in_thread(lambda: veltrane.pump(0)) == 0


def runs_during(action):
    """Whether another Python thread ran while `action` was under way."""
    under_way = threading.Event()
    seen = threading.Event()
    stop = threading.Event()

    def watcher():
        while not stop.is_set():
            if under_way.is_set():
                seen.set()
                return
            stop.wait(0.001)

    t = threading.Thread(target=watcher)
    t.start()
    under_way.set()
    action()
    under_way.clear()
    stop.set()
    t.join()
    return seen.is_set()


def test_the_gil_is_released_while_a_call_blocks(session):
    call = session.ImportCall("Z_VSIM_WAIT")
    call.Importing["MILLISECONDS"].value = 1500
    assert runs_during(lambda: session.CallFunction(call))


def test_the_gil_is_released_while_pumping():
    assert runs_during(lambda: veltrane.pump(1.0))


def test_sessions_in_several_threads_at_once(sim):
    def work(n):
        s = configure(veltrane.Dispatch("Veltrane.SoapSession"), sim)
        s.Connect()
        call = s.ImportCall("STFC_CONNECTION")
        texts = []
        for i in range(5):
            call.Importing["REQUTEXT"].value = f"thread {n} call {i}"
            s.CallFunction(call)
            texts.append(call.Exporting["ECHOTEXT"].value)
        s.Disconnect()
        return texts

    results = {}
    threads = [threading.Thread(target=lambda n=n: results.__setitem__(n, work(n))) for n in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join(60)
    assert results == {n: [f"thread {n} call {i}" for i in range(5)] for n in range(4)}


def test_objects_are_released_when_python_lets_go(sim):
    out = run_python(f"""
import gc, threading, veltrane
from decimal import Decimal

class Handler:
    def OnCallFinished(self):
        self.done = True

s = veltrane.DispatchWithEvents("Veltrane.SoapSession", Handler)
s.HttpSystemData.Host = {sim.host!r}
s.HttpSystemData.Port = {sim.port}
s.LogonData.User = "DEMO"
s.LogonData.Password = "Welcome1"
s.Connect()
call = s.ImportCall("Z_VSIM_WAIT")
call.Importing["MILLISECONDS"].value = 1
s.CallFunction(call, False)
while not getattr(s, "done", False):
    veltrane.pump(1)
rows = [dict(r) for r in []]
t = s.CreateType()
t.Tag = [Decimal("1.5"), b"x", s.LogonData]
names = [p.name for p in s.ImportCall("STFC_CONNECTION").Exporting]
h = veltrane.WithEvents(s, Handler)
print(veltrane._veltrane.can_unload())
del s, call, t, h
gc.collect()
veltrane.pump(0)  # releases handed home by the proxies of event handlers
print(veltrane._veltrane.can_unload())
""")
    assert out.split() == ["False", "True"]
