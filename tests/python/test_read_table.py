"""Client.read_table: typed rows read lazily in pages, the command's split of
wide tables into several reads per page, and the failures of RFC_READ_TABLE."""

import datetime
import json
import sys
import urllib.request
from decimal import Decimal

import pytest

import veltrane


def requests_served(sim):
    with urllib.request.urlopen(urllib.request.Request(f"{sim.url}/vsim/control/status", data=b"")) as answer:
        return json.load(answer)["requests"]


def test_typed_rows_with_fields_and_selection(client):
    rows = client.read_table("sflight", fields="CARRID, connid ,FLDATE,PRICE,SEATSMAX", where="CARRID = 'LH'",
                             max_rows=4)
    assert rows.fields == ["CARRID", "CONNID", "FLDATE", "PRICE", "SEATSMAX"]
    got = list(rows)
    assert len(got) == 4
    for row in got:
        assert list(row) == rows.fields
        assert row["CARRID"] == "LH"
        assert isinstance(row["FLDATE"], datetime.date)
        assert isinstance(row["PRICE"], Decimal)
        assert isinstance(row["SEATSMAX"], int)


def test_all_fields_by_default(client):
    rows = client.read_table("SCARR")
    assert rows.fields[:3] == ["MANDT", "CARRID", "CARRNAME"]
    data = rows.to_list()
    assert len(data) == 17
    assert {r["CARRID"] for r in data} >= {"LH", "AA", "UA"}


def test_several_conditions_are_joined_with_and(client):
    rows = client.read_table("SFLIGHT", fields=["CARRID", "CONNID"], where=["CARRID = 'LH'", "CONNID = '0400'"])
    data = rows.to_list()
    assert data and all(r == {"CARRID": "LH", "CONNID": "0400"} for r in data)


def test_pages_skip_and_limits(client):
    everything = client.read_table("SFLIGHT", fields="CARRID,CONNID,FLDATE", page_size=0).to_list()
    assert len(everything) == 3120
    paged = client.read_table("SFLIGHT", fields="CARRID,CONNID,FLDATE", page_size=500)
    pages = list(paged.pages())
    assert [len(p) for p in pages] == [500] * 6 + [120]
    assert [r for p in pages for r in p] == everything
    window = client.read_table("SFLIGHT", fields="CARRID,CONNID,FLDATE", skip=100, max_rows=250, page_size=100)
    assert window.to_list() == everything[100:350]
    assert client.read_table("SFLIGHT", fields="CARRID", skip=5000).to_list() == []


def test_rows_are_read_lazily(sim, client):
    rows = client.read_table("SFLIGHT", fields="CARRID,CONNID", page_size=100)
    rows.fields  # the layout: one read without data
    before = requests_served(sim)
    first = next(iter(rows))
    assert first["CARRID"]
    assert requests_served(sim) - before <= 2  # one page (and at most the reader's interface)
    before = requests_served(sim)
    assert len(rows.to_list()) == 3120
    assert requests_served(sim) - before >= 32


def test_wide_rows_are_read_in_several_reads_and_joined(client):
    rows = client.read_table("ZVSIM_WIDE")
    assert rows.fields == ["MANDT", "ID", "FIRST", "SECOND", "THIRD", "AMOUNT", "CREATED"]
    data = rows.to_list()
    assert [list(r) for r in data] == [rows.fields] * 3
    assert [(r["ID"], r["FIRST"], r["SECOND"], r["THIRD"]) for r in data] == [
        ("000001", "one", "uno", "eins"), ("000002", "two", "dos", "zwei"), ("000003", "three", "tres", "drei")]
    assert [r["AMOUNT"] for r in data] == [Decimal("10.50"), Decimal("-3.25"), Decimal("0.00")]
    assert [r["CREATED"] for r in data] == [datetime.date(2024, 1, 1), datetime.date(2024, 2, 2), None]
    plan = veltrane._veltrane.split_fields([(n, 200 if n in ("FIRST", "SECOND", "THIRD") else 8) for n in rows.fields])
    assert len(plan) == 2


def test_raw_rows_keep_the_text_as_it_stands(client):
    rows = client.read_table("ZVSIM_WIDE", fields="ID,FIRST,AMOUNT", where="ID = '000003'", raw=True).to_list()
    assert len(rows) == 1
    assert rows[0]["FIRST"].startswith("  three  ") and len(rows[0]["FIRST"]) == 200
    assert isinstance(rows[0]["AMOUNT"], str)


def test_failures_of_rfc_read_table(client):
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        client.read_table("ZNO_SUCH_TABLE").to_list()
    assert raised.value.key == "TABLE_NOT_AVAILABLE"
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        client.read_table("USR02").to_list()
    assert raised.value.key == "NOT_AUTHORIZED"
    with pytest.raises(veltrane.ABAPApplicationError):
        client.read_table("SFLIGHT", fields="NO_SUCH_FIELD").to_list()
    with pytest.raises(ValueError):
        client.read_table("SFLIGHT", max_rows=-1)


def test_to_pandas_names_the_package_when_it_is_missing(client, monkeypatch):
    monkeypatch.setitem(sys.modules, "pandas", None)
    with pytest.raises(ImportError, match="python3-pandas"):
        client.read_table("SCARR").to_pandas()


def test_to_pandas(client):
    pandas = pytest.importorskip("pandas")
    frame = client.read_table("SFLIGHT", fields="CARRID,FLDATE,PRICE", max_rows=10).to_pandas()
    assert isinstance(frame, pandas.DataFrame)
    assert list(frame.columns) == ["CARRID", "FLDATE", "PRICE"] and len(frame) == 10


def test_the_plan_of_the_command():
    lines = veltrane._veltrane.selection_lines(["CARRID = 'LH'", "PRICE > 100 AND SEATSMAX < 300"])
    assert lines == ["( CARRID = 'LH' ) AND ( PRICE > 100 AND SEATSMAX < 300 )"]
    assert all(len(line) <= 72 for line in veltrane._veltrane.selection_lines(["A = 'x'"] * 20))
    assert veltrane._veltrane.field_list(["a, b", "c"]) == ["A", "B", "C"]
    assert veltrane._veltrane.split_fields([("A", 300), ("B", 300), ("C", 10)]) == [[0], [1, 2]]
