"""Values between Python and VARIANT, both ways, through a VARIANT property
(RfcType.Tag keeps what it is given)."""

import datetime
from decimal import Decimal

import pytest

import veltrane
from veltrane import Variant


@pytest.fixture
def holder():
    return veltrane.Dispatch("Veltrane.SoapSession").CreateType()


def through(holder, value):
    holder.Tag = value
    return holder.Tag


@pytest.mark.parametrize("value", [
    None, True, False, 0, 1, -1, 2**31 - 1, -2**31, 2**31, -2**31 - 1, 2**62, -2**63, 2**63 - 1,
    0.0, 1.5, -2.25e300, "", "text", "äöü €", "emoji \U0001F600 astral", "nul\0inside",
])
def test_round_trip_keeps_value_and_type(holder, value):
    result = through(holder, value)
    assert result == value and type(result) is type(value)


def test_lone_surrogates_pass(holder):
    assert through(holder, "a\ud800b") == "a\ud800b"


def test_unsigned_and_huge_integers(holder):
    assert through(holder, 2**64 - 1) == 2**64 - 1
    assert through(holder, 2**80) == Decimal(2**80)  # beyond 64 bits: VT_DECIMAL
    assert through(holder, -(2**90)) == Decimal(-(2**90))
    with pytest.raises(OverflowError):
        holder.Tag = 2**100


@pytest.mark.parametrize("text", ["0", "12.34", "-0.0001", "79228162514264337593543950335", "1.0000000000000000000000000001",
                                  "-123456789.123456789"])
def test_decimal_round_trip(holder, text):
    result = through(holder, Decimal(text))
    assert result == Decimal(text) and isinstance(result, Decimal)
    assert str(result) == text


def test_decimal_rounding_and_limits(holder):
    assert through(holder, Decimal("1E+5")) == Decimal(100000)
    assert through(holder, Decimal("0." + "1" * 40)) == Decimal("0." + "1" * 28)
    assert through(holder, Decimal("2.5E-28")) == Decimal("2E-28")  # half to even
    with pytest.raises(OverflowError):
        holder.Tag = Decimal("1E+30")
    with pytest.raises(ValueError):
        holder.Tag = Decimal("NaN")


def test_dates_and_times(holder):
    moment = datetime.datetime(2024, 2, 29, 23, 59, 58)
    assert through(holder, moment) == moment
    assert through(holder, datetime.date(1900, 1, 1)) == datetime.datetime(1900, 1, 1)
    assert through(holder, datetime.time(6, 7, 8)) == datetime.datetime(1899, 12, 30, 6, 7, 8)
    assert through(holder, datetime.datetime(1800, 6, 1, 12)) == datetime.datetime(1800, 6, 1, 12)
    with pytest.raises(ValueError):
        holder.Tag = datetime.date(50, 1, 1)


def test_bytes_like_values_come_back_as_bytes(holder):
    assert through(holder, b"\x00\x01\xff") == b"\x00\x01\xff"
    assert through(holder, bytearray(b"ab")) == b"ab"
    assert through(holder, memoryview(b"xyz")) == b"xyz"
    assert through(holder, b"") == b""


def test_sequences_become_arrays_and_come_back_as_tuples(holder):
    assert through(holder, [1, "two", 3.0, None, [4, (5,)]]) == (1, "two", 3.0, None, (4, (5,)))
    assert through(holder, ()) == ()


def test_objects_travel_as_dispatch(holder):
    session = veltrane.Dispatch("Veltrane.SoapSession")
    logon = session.LogonData
    back = through(holder, logon)
    assert isinstance(back, veltrane.Dispatch) and back == logon
    back.User = "SEEN"
    assert logon.User == "SEEN"


def test_explicit_variant_types(holder):
    assert through(holder, Variant(veltrane.VT_I2, 5)) == 5
    assert through(holder, Variant(veltrane.VT_BSTR, 12)) == "12"
    assert through(holder, Variant(veltrane.VT_R8, "2.5")) == 2.5
    assert through(holder, Variant(veltrane.VT_CY, Decimal("1.23456"))) == Decimal("1.2346")
    assert through(holder, Variant(veltrane.VT_NULL)) is None
    assert through(holder, Variant(veltrane.VT_BOOL, 1)) is True
    assert through(holder, Variant(veltrane.VT_ARRAY | veltrane.VT_I4, [1, "2", 3.0])) == (1, 2, 3)
    assert through(holder, Variant(veltrane.VT_ARRAY | veltrane.VT_UI1, b"ab")) == b"ab"
    assert through(holder, Variant(veltrane.VT_ARRAY | veltrane.VT_BSTR, ["a", 1])) == ("a", "1")
    with pytest.raises(veltrane.ComError) as raised:
        holder.Tag = Variant(veltrane.VT_I2, 100000)
    assert raised.value.hresult == 0x8002000A  # DISP_E_OVERFLOW
    assert through(holder, Variant(veltrane.VT_BYREF | veltrane.VT_I4, 7)) == 7  # an argument by reference
    with pytest.raises(TypeError, match="by-reference"):
        holder.Tag = [Variant(veltrane.VT_BYREF | veltrane.VT_I4, 1)]


def test_values_without_variant_form_are_refused(holder):
    for value in ({"a": 1}, {1, 2}, object(), 1j):
        with pytest.raises(TypeError, match="no VARIANT form"):
            holder.Tag = value


def test_missing_is_refused_where_a_value_is_needed(holder):
    with pytest.raises(veltrane.ComError) as raised:
        holder.Tag = veltrane.Missing
    assert raised.value.hresult == 0x8002000F  # DISP_E_PARAMNOTOPTIONAL
    assert repr(veltrane.Missing) == "veltrane.Missing" and not veltrane.Missing
