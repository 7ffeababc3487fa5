"""The client over the NW RFC back end: veltrane-sim's RFC front through our
libsapnwrfc.so (VELTRANE_NWRFC_SDK_DIR, or found beside libveltrane.so)."""

import datetime
import os
import socket
import subprocess
import sys
import threading
from decimal import Decimal

import pytest

import veltrane
from conftest import PASSWORD, USER, nw_params


def test_connect_call_and_close(sim):
    c = veltrane.connect(backend="nwrfc", **nw_params(sim, lang="de"))
    assert c.backend == "nwrfc" and c.connected
    assert c.session.RfcSystemData.ConnectString == f"ashost={sim.rfc_host} gwserv={sim.rfc_port}"
    c.ping()
    assert c.call("STFC_CONNECTION", REQUTEXT="hi")["ECHOTEXT"] == "hi"
    assert c.call("RFC_SYSTEM_INFO")["RFCSI_EXPORT"]["RFCSYSID"] == "VSM"
    c.close()
    assert not c.connected
    with pytest.raises(veltrane.CommunicationError, match="closed"):
        c.ping()


def test_connect_string_from_the_parameters(monkeypatch):
    backend = veltrane._backends.BACKENDS["nwrfc"]
    for name in ("VELTRANE_HOST", "VELTRANE_SYSNR", "VELTRANE_GWSERV"):
        monkeypatch.delenv(name, raising=False)
    assert backend.connect_string({}) == "ashost=127.0.0.1 sysnr=00"
    assert backend.connect_string({"ashost": "app1", "sysnr": "05"}) == "ashost=app1 sysnr=05"
    assert backend.connect_string({"mshost": "ms", "group": "PUBLIC", "r3name": "PRD"}) == \
        "mshost=ms group=PUBLIC r3name=PRD"
    assert backend.connect_string({"connect": "dest=PRD"}) == "dest=PRD"
    assert backend.connect_string({"saprouter": '/H/a b/"x"'}) == \
        'ashost=127.0.0.1 saprouter="/H/a b/\\"x\\"" sysnr=00'
    monkeypatch.setenv("VELTRANE_HOST", "envhost")
    monkeypatch.setenv("VELTRANE_GWSERV", "3301")
    assert backend.connect_string({}) == "ashost=envhost gwserv=3301"
    monkeypatch.setenv("VELTRANE_SYSNR", "02")
    assert backend.connect_string({}) == "ashost=envhost sysnr=02"
    with pytest.raises(ValueError, match="not a system number"):
        backend.connect_string({"sysnr": "7"})


def test_values_of_every_type_both_ways(nw):
    flat = {"CHAR": "flat", "NUMC": "42", "DATE": datetime.date(2023, 12, 31), "TIME": datetime.time(23, 59, 59),
            "RAW": b"\x0a\x0b\x0c\x0d", "PACKED": Decimal("-1.25"), "FLOAT": 2.5, "INT": -3, "INT1": 200,
            "INT2": -5}
    r = nw.call("Z_VSIM_TYPES", IV_CHAR="abc", IV_NUMC="123", IV_DATE=datetime.date(2024, 2, 29),
                IV_TIME=datetime.time(13, 14, 15), IV_RAW=b"\x01\x02\x03\x04", IV_PACKED=Decimal("-12.34"),
                IV_FLOAT=1.5e-3, IV_INT=-2147483648, IV_INT1=255, IV_INT2=-32768, IV_STRING="a long string ü",
                IV_XSTRING=b"\x00xyz", IS_FLAT=flat, IT_FLAT=[flat, {"INT": 9}])
    assert r["EV_CHAR"] == "abc"
    assert r["EV_NUMC"] == "00000123"
    assert r["EV_DATE"] == datetime.date(2024, 2, 29)
    assert r["EV_TIME"] == datetime.time(13, 14, 15)
    assert r["EV_RAW"] == b"\x01\x02\x03\x04"
    assert r["EV_PACKED"] == Decimal("-12.34") and isinstance(r["EV_PACKED"], Decimal)
    assert r["EV_FLOAT"] == 1.5e-3
    assert (r["EV_INT"], r["EV_INT1"], r["EV_INT2"]) == (-2147483648, 255, -32768)
    assert r["EV_STRING"] == "a long string ü"
    assert r["EV_XSTRING"] == b"\x00xyz"
    expected = dict(flat, NUMC="00000042")
    assert r["ES_FLAT"] == expected
    assert r["ET_FLAT"][0] == expected
    assert r["ET_FLAT"][1]["INT"] == 9 and r["ET_FLAT"][1]["DATE"] is None
    c = nw.call("Z_VSIM_TYPES", CV_CHAR="chg", CV_DATE="2024-12-31", CV_TIME="235959", CV_PACKED="1.5",
                CV_INT=-1, CV_INT1=255, CV_INT2=7, CV_XSTRING=b"\x01")
    assert (c["CV_CHAR"], c["CV_DATE"], c["CV_TIME"]) == ("CHG", datetime.date(2025, 1, 1), datetime.time(0, 0))
    assert c["CV_PACKED"] == Decimal("2.50")
    assert (c["CV_INT"], c["CV_INT1"], c["CV_INT2"]) == (0, 0, 8)
    assert c["CV_XSTRING"] == b"\xfe"
    with pytest.raises(ValueError, match=r"IV_INT1: 256 is out of range"):
        nw.call("Z_VSIM_TYPES", IV_INT1=256)


def test_abap_exception_keeps_the_connection(nw):
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        nw.call("Z_VSIM_RAISE", EXCEPTION="NOT_FOUND", MESSAGE_TEXT="no such thing")
    assert raised.value.key == "NOT_FOUND"
    assert raised.value.group == veltrane.constants.RFCERROR_APPLICATION_EXCEPTION
    nw.ping()


def test_unknown_module_is_fu_not_found(nw):
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        nw.call("Z_NO_SUCH_MODULE")
    assert raised.value.key == "FU_NOT_FOUND"
    assert "Z_NO_SUCH_MODULE" in raised.value.message
    assert isinstance(raised.value.__cause__, veltrane.ComError)
    nw.ping()


def test_runtime_error_closes_the_connection_and_the_next_call_opens_one(nw):
    with pytest.raises(veltrane.ABAPRuntimeError) as raised:
        nw.call("Z_VSIM_RAISE", RUNTIME_ERROR="COMPUTE_INT_ZERODIVIDE")
    assert raised.value.key == "COMPUTE_INT_ZERODIVIDE"
    assert raised.value.group == veltrane.constants.RFCERROR_PROGRAM
    assert nw.call("STFC_CONNECTION", REQUTEXT="again")["ECHOTEXT"] == "again"
    with pytest.raises(veltrane.ABAPRuntimeError) as raised:
        nw.call("Z_VSIM_RAISE", MESSAGE_TEXT="stop", MESSAGE_TYPE="E")
    nw.ping()


def test_sdk_failure_is_an_external_runtime_error(nw):
    session = nw.session  # a runtime error the client does not see closes the connection
    call = session.ImportCall("Z_VSIM_RAISE")
    call.Importing["RUNTIME_ERROR"].value = "RAISE_EXCEPTION"
    session.CallFunction(call, True)
    assert session.ErrorInfo.ERRORGROUP == veltrane.constants.RFCERROR_PROGRAM
    with pytest.raises(veltrane.ExternalRuntimeError) as raised:
        nw.ping()
    assert raised.value.key == "RFC_INVALID_HANDLE"
    nw.ping()  # the client connected anew


def test_logon_failures(sim):
    with pytest.raises(veltrane.LogonError) as raised:
        veltrane.connect("nwrfc", **dict(nw_params(sim), passwd="wrong"))
    assert raised.value.key == "RFC_LOGON_FAILURE"
    assert "password is incorrect" in raised.value.message
    with pytest.raises(veltrane.LogonError, match="locked"):
        veltrane.connect("nwrfc", **dict(nw_params(sim), user="LOCKED"))


def test_missing_authorization_is_a_runtime_error(sim):
    with veltrane.connect("nwrfc", **dict(nw_params(sim), user="RESTRICTED")) as c:
        with pytest.raises(veltrane.ABAPRuntimeError) as raised:
            c.call("BAPI_FLIGHT_GETLIST")
        assert raised.value.key == "RFC_AUTHORIZATION_FAILURE"


def test_unreachable_system_is_a_communication_error():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        port = s.getsockname()[1]
    with pytest.raises(veltrane.CommunicationError) as raised:
        veltrane.connect("nwrfc", ashost="127.0.0.1", gwserv=port, user=USER, passwd=PASSWORD)
    assert raised.value.key == "RFC_COMMUNICATION_FAILURE"
    assert "not reached" in raised.value.message


SDK_IN_A_FRESH_PROCESS = """
import os, veltrane
from veltrane._backends import find_nwrfc_sdk
print(find_nwrfc_sdk())
try:
    veltrane.connect("nwrfc", ashost="127.0.0.1", user="DEMO", passwd="x", sdk=os.environ["EMPTY_DIR"])
except veltrane.ExternalRuntimeError as e:
    print(e.key, e.message)
"""


def test_sdk_found_beside_the_library_or_refused(tmp_path):
    # In a fresh process: the first library loaded stays for the process.
    env = {k: v for k, v in os.environ.items() if k not in ("VELTRANE_NWRFC_SDK_DIR", "SAPNWRFC_HOME")}
    result = subprocess.run([sys.executable, "-c", SDK_IN_A_FRESH_PROCESS], capture_output=True, text=True,
                            timeout=120, env={**env, "EMPTY_DIR": str(tmp_path)})
    assert result.returncode == 0, result.stderr
    found, _, failure = result.stdout.partition("\n")
    assert found.endswith("/veltrane/nwrfcsdk") and os.path.isfile(found + "/libsapnwrfc.so")
    assert failure.startswith("0x80040223 ") and "nwrfc.path" in failure


def test_sdk_directory_from_the_environment(monkeypatch):
    monkeypatch.setenv("VELTRANE_NWRFC_SDK_DIR", "/somewhere")
    assert veltrane._backends.find_nwrfc_sdk() == "/somewhere"


def test_parameters_of_other_back_ends_are_refused(sim):
    with pytest.raises(TypeError, match="takes no port"):
        veltrane.connect("nwrfc", **nw_params(sim, port=8000))


def test_describe(nw):
    d = nw.describe("BAPI_FLIGHT_GETLIST")
    assert d.name == "BAPI_FLIGHT_GETLIST"
    assert d.parameter("AIRLINE").type.abap_type == "CHAR"
    flights = d.parameter("FLIGHT_LIST")
    assert flights.direction == "tables" and flights.type.kind == "table"
    price = next(f for f in flights.type.fields if f.name == "PRICE")
    assert price.type.abap_type == "BCD" and price.type.decimals == 4
    with pytest.raises(veltrane.ABAPApplicationError, match="FU_NOT_FOUND"):
        nw.describe("Z_NO_SUCH_MODULE")


def test_flight_list_typed(nw):
    r = nw.call("BAPI_FLIGHT_GETLIST", AIRLINE="LH", MAX_ROWS=3)
    flights = r["FLIGHT_LIST"]
    assert len(flights) == 3
    assert all(f["AIRLINEID"] == "LH" for f in flights)
    assert isinstance(flights[0]["FLIGHTDATE"], datetime.date)
    assert isinstance(flights[0]["PRICE"], Decimal)


def test_read_table_in_pages_and_wide(nw):
    rows = nw.read_table("SFLIGHT", fields=["CARRID", "FLDATE", "PRICE", "SEATSMAX"], where="CARRID = 'LH'",
                         page_size=7, max_rows=20)
    pages = list(rows.pages())
    assert [len(p) for p in pages] == [7, 7, 6]
    row = pages[0][0]
    assert row["CARRID"] == "LH" and isinstance(row["FLDATE"], datetime.date)
    assert isinstance(row["PRICE"], Decimal) and isinstance(row["SEATSMAX"], int)
    wide = nw.read_table("ZVSIM_WIDE").to_list()  # two reads per page, joined
    assert [(r["ID"], r["FIRST"], r["THIRD"], r["AMOUNT"]) for r in wide] == [
        ("000001", "one", "eins", Decimal("10.50")), ("000002", "two", "zwei", Decimal("-3.25")),
        ("000003", "three", "drei", Decimal("0.00"))]
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        nw.read_table("USR02").to_list()
    assert raised.value.key == "NOT_AUTHORIZED"


class Finished:
    def OnCallFinished(self):
        self.finished = getattr(self, "finished", 0) + 1
        self.thread = threading.get_ident()


def test_events_of_an_asynchronous_call_on_the_nw_session(nw):
    handler = veltrane.WithEvents(nw.session, Finished)
    call = nw.session.ImportCall("Z_VSIM_WAIT")
    call.Importing["MILLISECONDS"].value = 30
    nw.session.CallFunction(call, False)
    for _ in range(200):
        if getattr(handler, "finished", 0):
            break
        veltrane.pump(0.1)
    assert handler.finished == 1
    assert handler.thread == threading.get_ident()  # handed to this thread, which pumps
    assert call.Exporting["WAITED"].value >= 30
    assert nw.session.CallActive is False
    nw.ping()
