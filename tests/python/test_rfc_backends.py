"""The client over the back ends on an SDK, NW RFC and classic RFC alike:
veltrane-sim's RFC front through our libsapnwrfc.so and librfcum.so."""

import datetime
import os
import socket
import subprocess
import sys
import threading
from decimal import Decimal

import pytest

import veltrane
from conftest import PASSWORD, SDK_BACKENDS, USER, sdk_params

# What differs by SDK: the group of an ABAP runtime failure, the key of a
# communication failure, the result of an SDK that cannot be loaded.
RUNTIME_GROUP = {"nwrfc": veltrane.constants.RFCERROR_PROGRAM, "rfc": veltrane.constants.RFCERROR_SYSTEM_FAILURE}
COMMUNICATION_KEY = {"nwrfc": "RFC_COMMUNICATION_FAILURE", "rfc": "RFC_ERROR_COMMUNICATION"}
NO_SDK = {"nwrfc": ("0x80040223", "nwrfc.path", "nwrfcsdk", "libsapnwrfc.so"),
          "rfc": ("0x8004021E", "librfc32u.dll", "rfcsdk", "librfcum.so")}


@pytest.mark.parametrize("backend", SDK_BACKENDS)
def test_connect_call_and_close(sim, backend):
    c = veltrane.connect(backend=backend, **sdk_params(sim, lang="de"))
    assert c.backend == backend and c.connected
    c.ping()
    assert c.call("STFC_CONNECTION", REQUTEXT="hi")["ECHOTEXT"] == "hi"
    assert c.call("STFC_CONNECTION")["RESPTEXT"].endswith("001/DEMO/D")
    assert c.call("RFC_SYSTEM_INFO")["RFCSI_EXPORT"]["RFCSYSID"] == "VSM"
    c.close()
    assert not c.connected
    with pytest.raises(veltrane.CommunicationError, match="closed"):
        c.ping()


def test_values_of_every_type_both_ways(rfc_client):
    flat = {"CHAR": "flat", "NUMC": "42", "DATE": datetime.date(2023, 12, 31), "TIME": datetime.time(23, 59, 59),
            "RAW": b"\x0a\x0b\x0c\x0d", "PACKED": Decimal("-1.25"), "FLOAT": 2.5, "INT": -3, "INT1": 200,
            "INT2": -5}
    sent = {"CHAR": "abc", "NUMC": "123", "DATE": datetime.date(2024, 2, 29), "TIME": datetime.time(13, 14, 15),
            "RAW": b"\x01\x02\x03\x04", "PACKED": Decimal("-12.34"), "FLOAT": 1.5e-3, "INT": -2147483648,
            "INT1": 255, "INT2": -32768, "STRING": "a long string ü", "XSTRING": b"\x00xyz"}
    r = rfc_client.call("Z_VSIM_TYPES", IS_FLAT=flat, **{"IV_" + name: value for name, value in sent.items()})
    assert {name: r["EV_" + name] for name in sent} == dict(sent, NUMC="00000123")
    assert isinstance(r["EV_PACKED"], Decimal) and isinstance(r["EV_DATE"], datetime.date)
    expected = dict(flat, NUMC="00000042")
    assert r["ES_FLAT"] == expected
    c = rfc_client.call("Z_VSIM_TYPES", CV_CHAR="chg", CV_DATE="2024-12-31", CV_TIME="235959", CV_PACKED="1.5",
                        CV_INT=-1, CV_INT1=255, CV_INT2=7, CV_XSTRING=b"\x01")
    assert (c["CV_CHAR"], c["CV_DATE"], c["CV_TIME"]) == ("CHG", datetime.date(2025, 1, 1), datetime.time(0, 0))
    assert c["CV_PACKED"] == Decimal("2.50")
    assert (c["CV_INT"], c["CV_INT1"], c["CV_INT2"]) == (0, 0, 8)
    assert c["CV_XSTRING"] == b"\xfe"
    with pytest.raises(ValueError, match=r"IV_INT1: 256 is out of range"):
        rfc_client.call("Z_VSIM_TYPES", IV_INT1=256)


def test_abap_exception_keeps_the_connection(rfc_client):
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        rfc_client.call("Z_VSIM_RAISE", EXCEPTION="NOT_FOUND", MESSAGE_TEXT="no such thing")
    assert raised.value.key == "NOT_FOUND"
    assert raised.value.group == veltrane.constants.RFCERROR_APPLICATION_EXCEPTION
    rfc_client.ping()


def test_unknown_module_is_fu_not_found(rfc_client):
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        rfc_client.call("Z_NO_SUCH_MODULE")
    assert raised.value.key == "FU_NOT_FOUND"
    assert isinstance(raised.value.__cause__, veltrane.ComError)
    rfc_client.ping()


def test_runtime_error_closes_the_connection_and_the_next_call_opens_one(rfc_client):
    with pytest.raises(veltrane.ABAPRuntimeError) as raised:
        rfc_client.call("Z_VSIM_RAISE", RUNTIME_ERROR="COMPUTE_INT_ZERODIVIDE")
    assert raised.value.key == "COMPUTE_INT_ZERODIVIDE"
    assert raised.value.group == RUNTIME_GROUP[rfc_client.backend]
    assert rfc_client.call("STFC_CONNECTION", REQUTEXT="again")["ECHOTEXT"] == "again"
    with pytest.raises(veltrane.ABAPRuntimeError):
        rfc_client.call("Z_VSIM_RAISE", MESSAGE_TEXT="stop", MESSAGE_TYPE="E")
    rfc_client.ping()


@pytest.mark.parametrize("backend", SDK_BACKENDS)
def test_logon_failures(sim, backend):
    with pytest.raises(veltrane.LogonError) as raised:
        veltrane.connect(backend, **dict(sdk_params(sim), passwd="wrong"))
    assert raised.value.key == "RFC_LOGON_FAILURE"
    assert "password is incorrect" in raised.value.message
    with pytest.raises(veltrane.LogonError, match="locked"):
        veltrane.connect(backend, **dict(sdk_params(sim), user="LOCKED"))


@pytest.mark.parametrize("backend", SDK_BACKENDS)
def test_missing_authorization_is_a_runtime_error(sim, backend):
    with veltrane.connect(backend, **dict(sdk_params(sim), user="RESTRICTED")) as c:
        with pytest.raises(veltrane.ABAPRuntimeError) as raised:
            c.call("BAPI_FLIGHT_GETLIST")
        assert raised.value.key == "RFC_AUTHORIZATION_FAILURE"
        c.ping()


@pytest.mark.parametrize("backend", SDK_BACKENDS)
def test_unreachable_system_is_a_communication_error(backend):
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        port = s.getsockname()[1]
    with pytest.raises(veltrane.CommunicationError) as raised:
        veltrane.connect(backend, ashost="127.0.0.1", gwserv=port, user=USER, passwd=PASSWORD)
    assert raised.value.key == COMMUNICATION_KEY[backend]
    assert "not reached" in raised.value.message


SDK_IN_A_FRESH_PROCESS = """
import os, sys, veltrane
from veltrane._backends import BACKENDS
backend = sys.argv[1]
print(BACKENDS[backend].find_sdk())
try:
    veltrane.connect(backend, ashost="127.0.0.1", user="DEMO", passwd="x", sdk=os.environ["EMPTY_DIR"])
except veltrane.ExternalRuntimeError as e:
    print(e.key, e.message.replace("\\n", " "))
"""


@pytest.mark.parametrize("backend", SDK_BACKENDS)
def test_sdk_found_beside_the_library_or_refused(tmp_path, backend):
    # In a fresh process: the first library loaded stays for the process.
    env = {k: v for k, v in os.environ.items()
           if k not in ("VELTRANE_NWRFC_SDK_DIR", "VELTRANE_RFC_SDK_DIR", "SAPNWRFC_HOME")}
    result = subprocess.run([sys.executable, "-c", SDK_IN_A_FRESH_PROCESS, backend], capture_output=True, text=True,
                            timeout=120, env={**env, "EMPTY_DIR": str(tmp_path)})
    assert result.returncode == 0, result.stderr
    found, failure = result.stdout.splitlines()
    code, text, directory, library = NO_SDK[backend]
    assert found.endswith("/veltrane/" + directory) and os.path.isfile(os.path.join(found, library))
    assert failure.startswith(code + " ") and text in failure


@pytest.mark.parametrize("backend, variable", [("nwrfc", "VELTRANE_NWRFC_SDK_DIR"), ("rfc", "VELTRANE_RFC_SDK_DIR")])
def test_sdk_directory_from_the_environment(monkeypatch, backend, variable):
    monkeypatch.setenv(variable, "/somewhere")
    assert veltrane._backends.BACKENDS[backend].find_sdk() == "/somewhere"


@pytest.mark.parametrize("backend", SDK_BACKENDS)
def test_parameters_of_other_back_ends_are_refused(sim, backend):
    with pytest.raises(TypeError, match="takes no port"):
        veltrane.connect(backend, **sdk_params(sim, port=8000))


def test_describe(rfc_client):
    d = rfc_client.describe("BAPI_FLIGHT_GETLIST")
    assert d.name == "BAPI_FLIGHT_GETLIST"
    assert d.parameter("AIRLINE").type.abap_type == "CHAR"
    flights = d.parameter("FLIGHT_LIST")
    assert flights.direction == "tables" and flights.type.kind == "table"
    price = next(f for f in flights.type.fields if f.name == "PRICE")
    assert price.type.abap_type == "BCD" and price.type.decimals == 4
    with pytest.raises(veltrane.ABAPApplicationError, match="FU_NOT_FOUND"):
        rfc_client.describe("Z_NO_SUCH_MODULE")


def test_flight_list_typed(rfc_client):
    flights = rfc_client.call("BAPI_FLIGHT_GETLIST", AIRLINE="LH", MAX_ROWS=3)["FLIGHT_LIST"]
    assert len(flights) == 3
    assert all(f["AIRLINEID"] == "LH" for f in flights)
    assert isinstance(flights[0]["FLIGHTDATE"], datetime.date)
    assert isinstance(flights[0]["PRICE"], Decimal)


def test_read_table_in_pages_and_wide(rfc_client):
    rows = rfc_client.read_table("SFLIGHT", fields=["CARRID", "FLDATE", "PRICE", "SEATSMAX"], where="CARRID = 'LH'",
                         page_size=7, max_rows=20)
    pages = list(rows.pages())
    assert [len(p) for p in pages] == [7, 7, 6]
    row = pages[0][0]
    assert row["CARRID"] == "LH" and isinstance(row["FLDATE"], datetime.date)
    assert isinstance(row["PRICE"], Decimal) and isinstance(row["SEATSMAX"], int)
    wide = rfc_client.read_table("ZVSIM_WIDE").to_list()  # two reads per page, joined
    assert [(r["ID"], r["FIRST"], r["THIRD"], r["AMOUNT"]) for r in wide] == [
        ("000001", "one", "eins", Decimal("10.50")), ("000002", "two", "zwei", Decimal("-3.25")),
        ("000003", "three", "drei", Decimal("0.00"))]
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        rfc_client.read_table("USR02").to_list()
    assert raised.value.key == "NOT_AUTHORIZED"


class Finished:
    def OnCallFinished(self):
        self.finished = getattr(self, "finished", 0) + 1
        self.thread = threading.get_ident()


def test_events_of_an_asynchronous_call(rfc_client):
    session = rfc_client.session
    handler = veltrane.WithEvents(session, Finished)
    call = session.ImportCall("Z_VSIM_WAIT")
    call.Importing["MILLISECONDS"].value = 30
    session.CallFunction(call, False)
    for _ in range(200):
        if getattr(handler, "finished", 0):
            break
        veltrane.pump(0.1)
    assert handler.finished == 1
    assert handler.thread == threading.get_ident()  # handed to this thread, which pumps
    assert call.Exporting["WAITED"].value >= 30
    for _ in range(200):  # the session's thread clears it once the event is handed over
        if not session.CallActive:
            break
        veltrane.pump(0.01)
    assert session.CallActive is False
    rfc_client.ping()
