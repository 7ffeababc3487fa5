"""Typed values of the client: every ABAP type in and out through Z_VSIM_TYPES
(EV_/ES_/ET_ echo IV_/IS_/IT_, CV_/CS_/CT_ come back changed), and the refusal of
values that do not fit."""

import datetime
from decimal import Decimal

import pytest

import veltrane

FLAT = {"CHAR": "flat", "NUMC": "42", "DATE": datetime.date(2023, 12, 31), "TIME": datetime.time(23, 59, 59),
        "RAW": b"\x0a\x0b\x0c\x0d", "PACKED": Decimal("-1.25"), "FLOAT": 2.5, "INT": 3, "INT1": 4, "INT2": 5}


def test_every_type_is_echoed_with_its_python_type(client):
    r = client.call("Z_VSIM_TYPES", IV_CHAR="abc", IV_NUMC="123", IV_DATE=datetime.date(2024, 2, 29),
                    IV_TIME=datetime.time(13, 14, 15), IV_RAW=b"\x01\x02\x03\x04", IV_PACKED=Decimal("-12.34"),
                    IV_FLOAT=1.5e-3, IV_INT=2147483647, IV_INT1=255, IV_INT2=32767, IV_STRING="a long string ü",
                    IV_XSTRING=b"\x00xyz", IS_FLAT=FLAT, IT_FLAT=[FLAT, {"INT": 9}])
    assert r["EV_CHAR"] == "abc"
    assert r["EV_NUMC"] == "00000123"
    assert r["EV_DATE"] == datetime.date(2024, 2, 29)
    assert r["EV_TIME"] == datetime.time(13, 14, 15)
    assert r["EV_RAW"] == b"\x01\x02\x03\x04"
    assert r["EV_PACKED"] == Decimal("-12.34") and isinstance(r["EV_PACKED"], Decimal)
    assert r["EV_FLOAT"] == 1.5e-3
    assert (r["EV_INT"], r["EV_INT1"], r["EV_INT2"]) == (2147483647, 255, 32767)
    assert r["EV_STRING"] == "a long string ü"
    assert r["EV_XSTRING"] == b"\x00xyz"
    expected = dict(FLAT, NUMC="00000042", PACKED=Decimal("-1.25"))
    assert r["ES_FLAT"] == expected
    assert r["ET_FLAT"][0] == expected
    assert r["ET_FLAT"][1]["INT"] == 9 and r["ET_FLAT"][1]["DATE"] is None and r["ET_FLAT"][1]["CHAR"] == ""
    assert len(r["ET_FLAT"]) == 2


def test_changing_values_come_back_changed(client):
    r = client.call("Z_VSIM_TYPES", CV_CHAR="chg", CV_NUMC="9", CV_DATE="2024-12-31", CV_TIME="235959",
                    CV_RAW=b"\x00\xff\x0f\xf0", CV_PACKED="1.5", CV_FLOAT=2, CV_INT=41, CV_INT1=255, CV_INT2=7,
                    CV_STRING="up", CV_XSTRING=b"\x01")
    assert r["CV_CHAR"] == "CHG"
    assert r["CV_NUMC"] == "00000010"
    assert r["CV_DATE"] == datetime.date(2025, 1, 1)
    assert r["CV_TIME"] == datetime.time(0, 0, 0)
    assert r["CV_RAW"] == b"\xff\x00\xf0\x0f"
    assert r["CV_PACKED"] == Decimal("2.50")
    assert r["CV_FLOAT"] == 4.0
    assert (r["CV_INT"], r["CV_INT1"], r["CV_INT2"]) == (42, 0, 8)
    assert r["CV_STRING"] == "UP"
    assert r["CV_XSTRING"] == b"\xfe"


def test_tables_parameter_is_changed_and_extended(client):
    r = client.call("Z_VSIM_TYPES", IS_FLAT={"CHAR": "appended"}, TT_FLAT=[{"CHAR": "row", "INT": 1}])
    rows = r["TT_FLAT"]
    assert [row["CHAR"] for row in rows] == ["ROW", "appended"]
    assert rows[0]["INT"] == 2


def test_dates_and_times_as_text_and_initial_values(client):
    r = client.call("Z_VSIM_TYPES", IV_DATE="20000229", IV_TIME="01:02:03", CV_DATE="00000000")
    assert r["EV_DATE"] == datetime.date(2000, 2, 29)
    assert r["EV_TIME"] == datetime.time(1, 2, 3)
    r = client.call("Z_VSIM_TYPES", IV_DATE="")
    assert r["EV_DATE"] is None
    assert r["EV_TIME"] == datetime.time(0, 0)


def test_leading_blanks_stay(client):
    assert client.call("Z_VSIM_TYPES", IV_CHAR=" ab  ")["EV_CHAR"] == " ab"
    assert client.call("Z_VSIM_TYPES", IV_STRING=" ab  ")["EV_STRING"] == " ab  "


def test_trailing_blanks_of_characters_are_cut_unless_kept(session):
    call = session.ImportCall("Z_VSIM_TYPES")
    schema_of = veltrane._veltrane.schema_of
    for name in ("IV_CHAR", "IV_STRING", "IV_NUMC"):
        call.Importing[name].value = "12  "
    char = call.Importing["IV_CHAR"]
    assert schema_of(char.RfcType).read(char) == "12"
    assert schema_of(char.RfcType).read(char, rstrip=False) == "12  "
    for name in ("IV_STRING", "IV_NUMC"):  # only CHAR is padded by ABAP
        p = call.Importing[name]
        assert schema_of(p.RfcType).read(p) == "12  "


def test_decimals_from_int_float_and_text(client):
    assert client.call("Z_VSIM_TYPES", IV_PACKED=7)["EV_PACKED"] == Decimal("7.00")
    assert client.call("Z_VSIM_TYPES", IV_PACKED=0.1)["EV_PACKED"] == Decimal("0.10")
    assert client.call("Z_VSIM_TYPES", IV_PACKED=" 3.5 ")["EV_PACKED"] == Decimal("3.50")


@pytest.mark.parametrize("name, value, error, text", [
    ("IV_DATE", 20240101, TypeError, "IV_DATE: expects datetime.date"),
    ("IV_DATE", "2024-02-30", ValueError, "not a date"),
    ("IV_TIME", "25:00:00", ValueError, "not a time"),
    ("IV_TIME", 5, TypeError, "IV_TIME: expects datetime.time"),
    ("IV_PACKED", "12,5", ValueError, "not a decimal number"),
    ("IV_PACKED", True, TypeError, "IV_PACKED"),
    ("IV_PACKED", float("nan"), ValueError, "not a finite number"),
    ("IV_INT", "5", TypeError, "IV_INT: expects int"),
    ("IV_INT", 2**31, ValueError, "out of range"),
    ("IV_INT1", 256, ValueError, r"out of range \(0 to 255\)"),
    ("IV_INT2", -32769, ValueError, "out of range"),
    ("IV_FLOAT", "1.5", TypeError, "IV_FLOAT: expects float"),
    ("IV_NUMC", "12a", ValueError, "not a string of digits"),
    ("IV_CHAR", 5, TypeError, "IV_CHAR: expects str"),
    ("IV_RAW", "0102", TypeError, "IV_RAW: expects bytes"),
    ("IS_FLAT", "x", TypeError, "IS_FLAT: expects a dict"),
    ("IS_FLAT", {"NOPE": 1}, KeyError, "IS_FLAT: no field NOPE"),
    ("IS_FLAT", {"DATE": 5}, TypeError, "IS_FLAT.DATE"),
    ("IT_FLAT", {"INT": 1}, TypeError, "IT_FLAT: expects a list"),
    ("IT_FLAT", [{"INT": 1}, {"INT": "x"}], TypeError, r"IT_FLAT\[1\].INT"),
])
def test_values_that_do_not_fit_are_refused_with_their_path(client, name, value, error, text):
    with pytest.raises(error, match=text):
        client.call("Z_VSIM_TYPES", **{name: value})


def test_negative_integers_are_refused_by_the_soap_service(client):
    # The SOAP writer sends integers as unsigned 32-bit text; the system refuses -1 as 4294967295.
    with pytest.raises(veltrane.ABAPRuntimeError) as raised:
        client.call("Z_VSIM_TYPES", IV_INT=-1)
    assert raised.value.key == "CONVERSION_ERROR"


def test_parameter_names_in_any_case(client):
    assert client.call("STFC_CONNECTION", requtext="lower")["ECHOTEXT"] == "lower"


def test_schema_of_a_type(session):
    call = session.ImportCall("Z_VSIM_TYPES")
    flat = veltrane._veltrane.schema_of(call.Importing["IS_FLAT"].RfcType)
    assert flat.kind == "structure"
    assert flat.names == ["CHAR", "NUMC", "DATE", "TIME", "RAW", "PACKED", "FLOAT", "INT", "INT1", "INT2"]
    table = veltrane._veltrane.schema_of(call.Tables["TT_FLAT"].RfcType)
    assert table.kind == "table" and table.names == flat.names
    scalar = veltrane._veltrane.schema_of(call.Importing["IV_DATE"].RfcType)
    assert (scalar.kind, scalar.abap_type) == ("scalar", veltrane.constants.TYPE_DATE)
