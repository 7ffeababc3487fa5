"""What is the classic RFC back end's own in the client: the connect string in
the SDK's upper-case names, with the password sent as given."""

import datetime
from decimal import Decimal

import pytest

import veltrane
from conftest import sdk_params


def test_connect_string_from_the_parameters(monkeypatch):
    backend = veltrane._backends.BACKENDS["rfc"]
    for name in ("VELTRANE_HOST", "VELTRANE_SYSNR", "VELTRANE_GWSERV"):
        monkeypatch.delenv(name, raising=False)
    assert backend.connect_string({}) == "ASHOST=127.0.0.1 SYSNR=00 TOUPPER=0"
    assert backend.connect_string({"ashost": "app1", "sysnr": "05"}) == "ASHOST=app1 SYSNR=05 TOUPPER=0"
    assert backend.connect_string({"mshost": "ms", "r3name": "PRD", "group": "PUBLIC"}) == \
        "MSHOST=ms R3NAME=PRD GROUP=PUBLIC TOUPPER=0"
    assert backend.connect_string({"connect": "DEST=PRD toupper=1"}) == "DEST=PRD toupper=1"
    with pytest.raises(ValueError, match="not a system number"):
        backend.connect_string({"sysnr": "123"})


def test_the_session_gets_the_connect_string(sim):
    with veltrane.connect("rfc", ashost=sim.rfc_host, gwserv=sim.rfc_port, user="demo", passwd="Welcome1") as c:
        assert c.session.RfcSystemData.ConnectString == f"ASHOST={sim.rfc_host} GWSERV={sim.rfc_port} TOUPPER=0"
        assert c.call("STFC_CONNECTION")["RESPTEXT"].endswith("001/DEMO/E")


def test_a_table_of_structures_both_ways(sim):
    # The table type parameters (IT_FLAT, ET_FLAT) are left out of the classic
    # interface; the table parameter carries the same rows.
    flat = {"CHAR": "flat", "NUMC": "42", "DATE": datetime.date(2023, 12, 31), "TIME": datetime.time(23, 59, 59),
            "RAW": b"\x0a\x0b\x0c\x0d", "PACKED": Decimal("-1.25"), "FLOAT": 2.5, "INT": -3, "INT1": 200,
            "INT2": -5}
    with veltrane.connect("rfc", **sdk_params(sim)) as c:
        r = c.call("Z_VSIM_TYPES", IS_FLAT=flat, TT_FLAT=[flat, {"INT": 9}])
    changed = dict(flat, CHAR="FLAT", NUMC="00000043", DATE=datetime.date(2024, 1, 1), TIME=datetime.time(0, 0),
                   RAW=b"\xf5\xf4\xf3\xf2", PACKED=Decimal("-0.25"), FLOAT=5.0, INT=-2, INT1=201, INT2=-4)
    assert r["TT_FLAT"][0] == changed
    assert r["TT_FLAT"][1]["INT"] == 10 and r["TT_FLAT"][1]["CHAR"] == ""
    assert r["TT_FLAT"][2] == dict(flat, NUMC="00000042")  # IS_FLAT appended
