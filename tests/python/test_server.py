"""veltrane.Server against veltrane-sim, on both server classes: the system calls
the registered program through its gateway (Z_VSIM_CALL_PROGRAM) and Python
handlers answer."""

import datetime
import itertools
import json
import logging
import os
import signal
import subprocess
import sys
import threading
import time
from decimal import Decimal

import pytest

import veltrane
from conftest import PASSWORD, USER, run_python, sdk_params

BACKENDS = ("nwrfc", "rfc")
_ids = itertools.count(1)

ORDER = {"IV_CUSTOMER": "ann", "IV_DATE": "20241231", "IV_TIME": "123456", "IV_QUANTITY": 3,
         "IV_DISCOUNT": "1.25", "CV_COUNTER": 4,
         "T_ITEMS": [{"ITEM": "1", "PRICE": "10.50", "DUE": "20250101"}, {"ITEM": "2", "PRICE": "-0.25"}]}


def program_id(backend):
    return f"VPY_{backend.upper()}_{os.getpid()}_{next(_ids)}"


def new_server(sim, backend, **more):
    params = dict(program_id=program_id(backend), gwhost=sim.rfc_host, gwserv=str(sim.rfc_port), user=USER,
                  passwd=PASSWORD)
    params.update(more)
    return veltrane.Server(backend, **params)


def call_program(sim, program, parameters, function="Z_PY_ORDER"):
    """The system calls `function` of the registered program; its answer as
    (result values, exception, exception text)."""
    with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD) as c:
        r = c.call("Z_VSIM_CALL_PROGRAM", PROGRAM_ID=program, FUNCTION=function,
                   PARAMETERS=json.dumps(parameters), TIMEOUT_MS=20000)
    return json.loads(r["RESULT"] or "{}"), r["EXCEPTION"], r["EXCEPTION_TEXT"]


def system_failure(sim, program, parameters, function="Z_PY_ORDER"):
    """The text of the system failure the caller gets: the server fails the call, and
    Z_VSIM_CALL_PROGRAM raises SYSTEM_FAILURE as CALL FUNCTION ... DESTINATION does."""
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        call_program(sim, program, parameters, function)
    assert raised.value.key == "SYSTEM_FAILURE", raised.value
    return raised.value.message


def call_again(sim, program, parameters, function="Z_PY_ORDER"):
    """call_program once the program serves again: after a failed call the SDK may
    end the connection, and the server registers again."""
    deadline = time.monotonic() + 20
    while True:
        try:
            return call_program(sim, program, parameters, function)
        except veltrane.ABAPApplicationError as e:
            if e.key != "COMMUNICATION_FAILURE" or time.monotonic() > deadline:
                raise
            time.sleep(0.1)


def registered(sim):
    with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD) as c:
        return c.call("Z_VSIM_GATEWAY", ACTION="LIST")["PROGRAMS"].split()


def wait_until(condition, seconds=20):
    deadline = time.monotonic() + seconds
    while not condition() and time.monotonic() < deadline:
        time.sleep(0.05)
    return condition()


def start(sim, srv):
    """Starts the server and waits until the gateway lists it: the gateway enters a
    program once its answer to the registration has gone out."""
    srv.start()
    assert wait_until(lambda: srv.program_id in registered(sim))


def order(**values):
    """A handler of Z_PY_ORDER: the total of the items, the first item, the date back."""
    items = values["T_ITEMS"]
    if values["IV_CUSTOMER"] == "nobody":
        raise veltrane.ABAPApplicationError("NO_CUSTOMER", "no customer " + values["IV_CUSTOMER"])
    if values["IV_CUSTOMER"] == "boom":
        raise ZeroDivisionError("the handler failed on purpose")
    return {"ev_total": sum((i["PRICE"] for i in items), Decimal(0)) * values["IV_QUANTITY"],
            "EV_DUE": values["IV_DATE"] + datetime.timedelta(days=1),
            "EV_MESSAGE": f"{values['IV_CUSTOMER']} at {values['IV_TIME']:%H:%M}",
            "ES_FIRST": items[0] if items else None,
            "CV_COUNTER": values["CV_COUNTER"] + 1,
            "T_ITEMS": items + [{"ITEM": "99", "PRICE": values["IV_DISCOUNT"], "DUE": datetime.date(2025, 2, 28)}]}


@pytest.fixture(params=BACKENDS)
def backend(request):
    return request.param


@pytest.fixture
def server(sim, backend):
    """A started server of Z_PY_ORDER."""
    srv = new_server(sim, backend)
    srv.function("Z_PY_ORDER")(order)
    start(sim, srv)
    yield srv
    srv.shutdown()


def test_the_handler_gets_typed_values_and_fills_exporting_changing_and_tables(sim, backend):
    seen = []
    srv = new_server(sim, backend)

    @srv.function("z_py_order")
    def handler(**values):
        seen.append(values)
        return order(**values)

    with srv:
        start(sim, srv)
        result, exception, _ = call_program(sim, srv.program_id, ORDER)
    assert exception == ""
    [values] = seen
    assert values["IV_CUSTOMER"] == "ann"
    assert values["IV_DATE"] == datetime.date(2024, 12, 31)
    assert values["IV_TIME"] == datetime.time(12, 34, 56)
    assert values["IV_QUANTITY"] == 3
    assert values["IV_DISCOUNT"] == Decimal("1.25") and isinstance(values["IV_DISCOUNT"], Decimal)
    assert values["CV_COUNTER"] == 4
    assert values["T_ITEMS"] == [
        {"ITEM": "0001", "PRICE": Decimal("10.50"), "DUE": datetime.date(2025, 1, 1)},
        {"ITEM": "0002", "PRICE": Decimal("-0.25"), "DUE": None},
    ]
    assert result["EV_DUE"] == "20250101"
    assert result["EV_MESSAGE"] == "ann at 12:34"
    assert result["ES_FIRST"] == {"ITEM": "0001", "PRICE": "10.50", "DUE": "20250101"}
    assert result["CV_COUNTER"] == 5
    assert result["T_ITEMS"] == [{"ITEM": "0001", "PRICE": "10.50", "DUE": "20250101"},
                                 {"ITEM": "0002", "PRICE": "-0.25", "DUE": "00000000"},
                                 {"ITEM": "0099", "PRICE": "1.25", "DUE": "20250228"}]


def test_a_packed_exporting_value_keeps_its_decimals(sim, backend, server):
    result, _, _ = call_program(sim, server.program_id, ORDER)
    assert result["EV_TOTAL"] == "30.75"


def test_a_packed_value_with_fewer_decimals_than_its_type_keeps_its_scale(sim, backend, server):
    # The system sends 1.5 for a P(2) as 1.50, whichever SDK receives it.
    parameters = {**ORDER, "IV_DISCOUNT": "1.5", "T_ITEMS": [{"ITEM": "1", "PRICE": 2.5}]}
    result, exception, _ = call_program(sim, server.program_id, parameters)
    assert exception == ""
    assert result["EV_TOTAL"] == "7.50"
    assert result["T_ITEMS"][-1]["PRICE"] == "1.50"


def test_an_abap_exception_of_the_handler_reaches_the_caller_with_the_tables(sim, server):
    result, exception, text = call_program(sim, server.program_id, {**ORDER, "IV_CUSTOMER": "nobody"})
    assert (exception, text) == ("NO_CUSTOMER", "no customer nobody")
    # The exception goes with the tables, without exporting and changing values.
    assert [row["ITEM"] for row in result["T_ITEMS"]] == ["0001", "0002"]
    assert "EV_MESSAGE" not in result and "CV_COUNTER" not in result


def test_a_python_error_is_a_system_failure_and_the_server_serves_on(sim, server, caplog):
    with caplog.at_level(logging.ERROR, logger="veltrane.server"):
        system_failure(sim, server.program_id, {**ORDER, "IV_CUSTOMER": "boom"})
    assert "the handler of Z_PY_ORDER failed" in caplog.text
    assert "ZeroDivisionError: the handler failed on purpose" in caplog.text  # with the traceback
    result, exception, _ = call_again(sim, server.program_id, ORDER)
    assert exception == "" and result["EV_MESSAGE"] == "ann at 12:34"
    assert server.listening and server.running


def test_an_abap_exception_without_a_key_is_a_system_failure(sim, backend, caplog):
    srv = new_server(sim, backend)

    @srv.function("Z_PY_ORDER")
    def nameless(**values):
        raise veltrane.ABAPApplicationError("", "no name")

    with srv, caplog.at_level(logging.ERROR, logger="veltrane.server"):
        start(sim, srv)
        system_failure(sim, srv.program_id, ORDER)
    assert "raised ABAPApplicationError without a key" in caplog.text


@pytest.mark.parametrize("answer, text", [
    ({"EV_NOPE": 1}, "Z_PY_ORDER has no exporting, changing or table parameter EV_NOPE"),
    ({"EV_DUE": 5}, "EV_DUE: expects datetime.date"),
    ({"ES_FIRST": {"COLOUR": "red"}}, "ES_FIRST: no field COLOUR"),
    ({"IV_CUSTOMER": "x"}, "no exporting, changing or table parameter IV_CUSTOMER"),
    ("not a dict", "returned str, not a dict"),
])
def test_an_answer_that_does_not_fit_the_interface_is_a_system_failure(sim, backend, answer, text, caplog):
    srv = new_server(sim, backend)
    srv.function("Z_PY_ORDER")(lambda **values: answer)
    with srv, caplog.at_level(logging.ERROR, logger="veltrane.server"):
        start(sim, srv)
        system_failure(sim, srv.program_id, ORDER)
    assert text in caplog.text


def test_a_function_nobody_serves_is_a_system_failure(sim, server, caplog):
    with caplog.at_level(logging.ERROR, logger="veltrane.server"):
        system_failure(sim, server.program_id, {}, function="Z_SRV_NOBODY")
    assert "a call of Z_SRV_NOBODY, which is not served here" in caplog.text
    assert call_again(sim, server.program_id, ORDER)[1] == ""


def test_shutdown_while_idle_unregisters_and_may_come_twice(sim, backend):
    srv = new_server(sim, backend)
    srv.function("Z_PY_ORDER")(order)
    srv.shutdown()  # not started: nothing to do
    assert not srv.running
    start(sim, srv)
    assert srv.running and srv.listening
    srv.shutdown()
    assert not srv.running and not srv.listening
    srv.shutdown()
    assert wait_until(lambda: srv.program_id not in registered(sim))
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        call_program(sim, srv.program_id, ORDER)
    assert raised.value.key == "COMMUNICATION_FAILURE"
    # It starts again.
    start(sim, srv)
    try:
        assert call_program(sim, srv.program_id, ORDER)[1] == ""
    finally:
        srv.shutdown()


def test_serve_answers_on_this_thread_until_a_handler_asks_for_the_shutdown(sim, backend):
    srv = new_server(sim, backend)
    threads = []

    @srv.function("Z_PY_ORDER")
    def last(**values):
        threads.append(threading.get_ident())
        srv.shutdown()  # from the handler: the stop follows its answer
        return {"EV_MESSAGE": "last"}

    answers = []

    def caller():
        wait_until(lambda: srv.program_id in registered(sim))
        answers.append(call_program(sim, srv.program_id, ORDER))

    thread = threading.Thread(target=caller)
    thread.start()
    srv.serve()
    thread.join()
    assert answers[0][0]["EV_MESSAGE"] == "last"
    assert threads == [threading.get_ident()]
    assert not srv.running


def script(sim, backend, log):
    """The start of a program with a server `srv` of Z_PY_ORDER that logs to sys.<log>."""
    return f"""
import logging, sys, veltrane
logging.basicConfig(level=logging.INFO, stream=sys.{log}, format="%(message)s")
srv = veltrane.Server({backend!r}, program_id={program_id(backend)!r}, gwhost={sim.rfc_host!r},
                      gwserv={str(sim.rfc_port)!r}, user={USER!r}, passwd={PASSWORD!r})
srv.function("Z_PY_ORDER")(lambda **values: None)
"""


def test_ctrl_c_ends_serve(sim, backend):
    code = script(sim, backend, "stderr") + """
srv.serve()
print("served", srv.running)
"""
    process = subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    try:
        lines = []
        while not lines or "registered at" not in lines[-1]:
            lines.append(process.stderr.readline())
            assert lines[-1], "".join(lines)
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=30)
    finally:
        process.kill()
    assert process.returncode == 0, err
    assert out == "served False\n"
    assert "interrupted" in err and "stopped" in err


def describe(sim, backend, function):
    """The interface of a function as the back end describes it."""
    with veltrane.connect(backend, **sdk_params(sim)) as c:
        return c.describe(function)


def text_handler(IV_TEXT, IV_DATE):
    return {"EV_TEXT": IV_TEXT.upper(), "EV_DATE": IV_DATE.replace(year=IV_DATE.year + 1)}


def test_in_the_multithreaded_apartment_handlers_run_on_the_server_thread(sim, backend):
    out = run_python(script(sim, backend, "stderr") + f"""
import json, threading
veltrane.initialize(multithreaded=True)
threads = []

@srv.function("Z_PY_TEXT")
def text(IV_TEXT, IV_DATE):
    threads.append(threading.get_ident())
    srv.shutdown()  # from the handler: the stop follows its answer
    return {{"EV_TEXT": IV_TEXT + " from " + veltrane.apartment()}}

def call():
    while not srv.listening:
        pass
    with veltrane.connect(url={sim.url!r}, user={USER!r}, passwd={PASSWORD!r}) as c:
        for attempt in range(100):
            try:
                r = c.call("Z_VSIM_CALL_PROGRAM", PROGRAM_ID=srv.program_id, FUNCTION="Z_PY_TEXT",
                           PARAMETERS='{{"IV_TEXT": "hello"}}')
                break
            except veltrane.ABAPApplicationError as e:  # not yet registered
                assert e.key == "COMMUNICATION_FAILURE", e
    print(json.loads(r["RESULT"])["EV_TEXT"])

caller = threading.Thread(target=call)
caller.start()
srv.serve()
caller.join()
print(threads[0] != threading.get_ident(), srv.running)
""")
    # The server's thread is an apartment of its own.
    assert out.splitlines() == ["hello from sta", "True False"]


def test_a_server_still_running_stops_at_exit(sim, backend):
    out = run_python(script(sim, backend, "stdout") + "srv.start()\n").splitlines()
    assert out[0].endswith("registered at " + f"{sim.rfc_host}/{sim.rfc_port}")
    assert out[-1].endswith(" stopped")


def test_the_interface_given_in_its_xml_form_needs_no_connection(sim, backend, tmp_path):
    description = describe(sim, backend, "Z_PY_TEXT")
    path = tmp_path / "z_py_text.xml"
    path.write_text(description.xml, encoding="utf-8")
    for interface in (description, description.xml, path, str(path)):
        # No user or password: the server opens no connection of its own.
        srv = veltrane.Server(backend, program_id=program_id(backend), gwhost=sim.rfc_host, gwserv=str(sim.rfc_port))
        srv.function("Z_PY_TEXT", interface=interface)(text_handler)
        with srv:
            start(sim, srv)
            result, exception, _ = call_program(sim, srv.program_id, {"IV_TEXT": "xml", "IV_DATE": "20240301"},
                                                function="Z_PY_TEXT")
        assert exception == "", interface
        assert result == {"EV_TEXT": "XML", "EV_DATE": "20250301"}, result


@pytest.mark.parametrize("server_backend", BACKENDS)
def test_an_interface_with_structures_in_its_xml_form(sim, server_backend):
    srv = veltrane.Server(server_backend, program_id=program_id(server_backend), gwhost=sim.rfc_host,
                          gwserv=str(sim.rfc_port))
    srv.function("Z_PY_ORDER", interface=describe(sim, server_backend, "Z_PY_ORDER").xml)(order)
    with srv:
        start(sim, srv)
        result, exception, _ = call_program(sim, srv.program_id, ORDER)
    assert exception == ""
    assert result["ES_FIRST"] == {"ITEM": "0001", "PRICE": "10.50", "DUE": "20250101"}


def test_a_wrong_interface_is_refused_when_it_is_given(sim):
    srv = veltrane.Server("nwrfc", program_id="X", gwhost=sim.rfc_host, gwserv=str(sim.rfc_port))
    other = describe(sim, "nwrfc", "STFC_CONNECTION")
    with pytest.raises(ValueError, match="interface of Z_PY_ORDER: it describes STFC_CONNECTION"):
        srv.function("Z_PY_ORDER", interface=other)
    with pytest.raises(ValueError, match="not the XML form of an interface"):
        srv.function("Z_PY_ORDER", interface="<nothing/>")
    with pytest.raises(TypeError, match="expects the XML form"):
        srv.function("Z_PY_ORDER", interface=42)
    with pytest.raises(FileNotFoundError):
        srv.function("Z_PY_ORDER", interface="/nonexistent/z_py_order.xml")


def test_the_interface_from_a_client_of_the_same_back_end(sim, backend):
    with veltrane.connect(backend, **sdk_params(sim)) as c:
        srv = veltrane.Server(backend, program_id=program_id(backend), gwhost=sim.rfc_host, gwserv=str(sim.rfc_port),
                              client=c)
        srv.function("Z_PY_ORDER")(order)
        with srv:
            start(sim, srv)
            assert c.connected  # the server leaves the client as it was
            result, exception, _ = call_program(sim, srv.program_id, ORDER)
    assert exception == "" and result["CV_COUNTER"] == 5
    with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD) as c:
        with pytest.raises(ValueError, match=f"the interfaces of a {backend} server come over a {backend} client"):
            veltrane.Server(backend, program_id="X", client=c)


def test_the_interface_of_an_unknown_function_fails_the_start(sim, backend):
    srv = new_server(sim, backend)
    srv.function("Z_PY_NO_SUCH_FUNCTION")(order)
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        srv.start()
    assert raised.value.key == "FU_NOT_FOUND"
    assert not srv.running
    assert wait_until(lambda: srv.program_id not in registered(sim))


def test_a_start_without_a_logon_for_the_interfaces_says_so(sim, backend):
    srv = veltrane.Server(backend, program_id=program_id(backend), gwhost=sim.rfc_host, gwserv=str(sim.rfc_port))
    srv.function("Z_PY_ORDER")(order)
    with pytest.raises(TypeError, match="no user"):
        srv.start()
    assert not srv.running


def test_a_gateway_that_is_not_there_fails_the_start(sim, backend):
    with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD) as c:
        description = c.describe("Z_PY_ORDER")
    srv = veltrane.Server(backend, program_id=program_id(backend), gwhost="127.0.0.1", gwserv="1")
    srv.function("Z_PY_ORDER", interface=description)(order)
    with pytest.raises(veltrane.CommunicationError, match=f"registering {srv.program_id} at 127.0.0.1/1"):
        srv.start()
    assert not srv.running
    with pytest.raises(veltrane.CommunicationError):
        srv.serve()
    assert not srv.running


def test_a_lost_gateway_connection_is_registered_again(sim, backend):
    srv = new_server(sim, backend)
    srv.function("Z_PY_ORDER")(order)
    with srv:
        start(sim, srv)
        with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD) as c:
            c.call("Z_VSIM_GATEWAY", ACTION="DROP")
        assert wait_until(lambda: srv.program_id in registered(sim))
        assert call_program(sim, srv.program_id, ORDER)[1] == ""
        assert srv.running


def test_without_reconnect_a_lost_gateway_connection_ends_the_server(sim, backend):
    srv = new_server(sim, backend, reconnect=False)
    srv.function("Z_PY_ORDER")(order)
    start(sim, srv)
    with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD) as c:
        c.call("Z_VSIM_GATEWAY", ACTION="DROP")
    assert wait_until(lambda: not srv.running)
    srv.shutdown()


def test_functions_are_added_before_the_start(sim, server):
    with pytest.raises(RuntimeError, match="before the server starts"):
        server.function("Z_PY_OTHER")(order)
    with pytest.raises(RuntimeError, match="is running"):
        server.start()


def test_what_a_server_is_made_of_is_checked_when_it_is_made(sim):
    with pytest.raises(veltrane.UnsupportedBackendError, match="no registered server on back end 'soap'"):
        veltrane.Server("soap", program_id="X")
    with pytest.raises(TypeError, match="takes no port"):
        veltrane.Server("nwrfc", program_id="X", port=8000)
    with pytest.raises(ValueError, match="program_id is empty"):
        veltrane.Server("rfc", program_id="")
    srv = veltrane.Server("nwrfc", program_id="X")
    with pytest.raises(RuntimeError, match="no function to serve"):
        srv.start()
    with pytest.raises(TypeError, match="not callable"):
        srv.function("Z_PY_ORDER")("not a function")


def test_the_gateway_defaults_follow_the_connection(monkeypatch):
    for name in ("VELTRANE_HOST", "VELTRANE_SYSNR", "VELTRANE_GWSERV"):
        monkeypatch.delenv(name, raising=False)
    srv = veltrane.Server("nwrfc", program_id="X")
    assert (srv.gwhost, srv.gwserv) == ("127.0.0.1", "sapgw00")
    srv = veltrane.Server("nwrfc", program_id="X", ashost="sap.example.com", sysnr="02", client="100")
    assert (srv.gwhost, srv.gwserv) == ("sap.example.com", "sapgw02")
    assert srv._dictionary_params() == {"ashost": "sap.example.com", "sysnr": "02", "client": "100"}
    srv = veltrane.Server("rfc", program_id="X", gwhost="gw", gwserv="3301")
    assert srv._dictionary_params() == {"ashost": "gw", "gwserv": "3301"}
    monkeypatch.setenv("VELTRANE_GWSERV", "sapgw07")
    assert veltrane.Server("nwrfc", program_id="X").gwserv == "sapgw07"


def test_an_abap_application_error_names_its_key_first():
    e = veltrane.ABAPApplicationError("NOT_FOUND", "nothing there")
    assert (e.key, e.message, str(e)) == ("NOT_FOUND", "nothing there", "NOT_FOUND: nothing there")
    assert veltrane.ABAPApplicationError("NOT_FOUND").message == ""
