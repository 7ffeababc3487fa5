"""What is the NW RFC back end's own in the client: the connect string in the
SDK's names, the SDK's own failures (test_rfc_backends.py has what the back
ends on an SDK share)."""

import datetime
from decimal import Decimal

import pytest

import veltrane


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


def test_the_session_gets_the_connect_string(nw, sim):
    assert nw.session.RfcSystemData.ConnectString == f"ashost={sim.rfc_host} gwserv={sim.rfc_port}"


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


def test_a_table_of_structures_both_ways(nw):
    flat = {"CHAR": "flat", "NUMC": "42", "DATE": datetime.date(2023, 12, 31), "TIME": datetime.time(23, 59, 59),
            "RAW": b"\x0a\x0b\x0c\x0d", "PACKED": Decimal("-1.25"), "FLOAT": 2.5, "INT": -3, "INT1": 200,
            "INT2": -5}
    r = nw.call("Z_VSIM_TYPES", IS_FLAT=flat, TT_FLAT=[flat, {"INT": 9}], IT_FLAT=[flat])
    changed = dict(flat, CHAR="FLAT", NUMC="00000043", DATE=datetime.date(2024, 1, 1), TIME=datetime.time(0, 0),
                   RAW=b"\xf5\xf4\xf3\xf2", PACKED=Decimal("-0.25"), FLOAT=5.0, INT=-2, INT1=201, INT2=-4)
    assert r["TT_FLAT"][0] == changed
    assert r["TT_FLAT"][1]["INT"] == 10 and r["TT_FLAT"][1]["CHAR"] == ""
    assert r["TT_FLAT"][2] == dict(flat, NUMC="00000042")  # IS_FLAT appended
    assert r["ET_FLAT"] == [dict(flat, NUMC="00000042")]
