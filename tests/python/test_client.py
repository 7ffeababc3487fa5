"""veltrane.connect and the Client: calls, interfaces, typed exceptions, back ends."""

import pytest

import veltrane
from conftest import PASSWORD, USER


def test_connect_close_and_context(sim):
    c = veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD)
    assert c.connected and c.backend == "soap"
    assert c.session.SessionType == "SOAP"
    c.ping()
    c.close()
    assert not c.connected
    with pytest.raises(veltrane.CommunicationError, match="closed"):
        c.call("RFC_PING")
    with veltrane.connect(host=sim.host, port=sim.port, user=USER.lower(), passwd=PASSWORD, client="001",
                          lang="en") as c:
        assert c.call("STFC_CONNECTION", REQUTEXT="x")["RESPTEXT"].endswith("001/DEMO/E")
    assert not c.connected


def test_connection_data_from_the_environment(sim, monkeypatch):
    monkeypatch.setenv("VELTRANE_HOST", sim.host)
    monkeypatch.setenv("VELTRANE_PORT", str(sim.port))
    monkeypatch.setenv("VELTRANE_USER", USER)
    monkeypatch.setenv("VELTRANE_PASSWORD", PASSWORD)
    monkeypatch.setenv("VELTRANE_LANG", "DE")
    with veltrane.connect() as c:
        assert c.call("RFC_SYSTEM_INFO")["RFCSI_EXPORT"]["RFCSYSID"] == "VSM"
        assert c.call("STFC_CONNECTION")["RESPTEXT"].endswith("001/DEMO/D")


def test_call_returns_exporting_changing_and_tables(client):
    r = client.call("BAPI_FLIGHT_GETLIST", AIRLINE="LH", DESTINATION_FROM={"CITY": "FRANKFURT"}, MAX_ROWS=3)
    assert set(r) == {"DATE_RANGE", "EXTENSION_IN", "FLIGHT_LIST", "EXTENSION_OUT", "RETURN"}
    flights = r["FLIGHT_LIST"]
    assert 0 < len(flights) <= 3
    assert all(f["AIRLINEID"] == "LH" and f["CITYFROM"] == "FRANKFURT" for f in flights)
    import datetime
    from decimal import Decimal
    assert isinstance(flights[0]["FLIGHTDATE"], datetime.date)
    assert isinstance(flights[0]["DEPTIME"], datetime.time)
    assert isinstance(flights[0]["PRICE"], Decimal)


def test_abap_exception_is_an_application_error(client):
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        client.call("Z_VSIM_RAISE", EXCEPTION="NOT_FOUND", MESSAGE_TEXT="no such thing")
    e = raised.value
    assert e.key == "NOT_FOUND"
    assert "no such thing" in e.message
    assert e.group == veltrane.constants.RFCERROR_APPLICATION_EXCEPTION
    assert isinstance(e, veltrane.Error)


def test_runtime_errors_and_unknown_modules(client):
    with pytest.raises(veltrane.ABAPRuntimeError) as raised:
        client.call("Z_VSIM_RAISE", RUNTIME_ERROR="COMPUTE_INT_ZERODIVIDE")
    assert raised.value.key == "COMPUTE_INT_ZERODIVIDE"
    assert "COMPUTE_INT_ZERODIVIDE" in raised.value.message
    with pytest.raises(veltrane.ABAPApplicationError) as raised:  # from the interface's import
        client.call("Z_NO_SUCH_MODULE")
    assert raised.value.key == "FU_NOT_FOUND"
    assert 'Function module "Z_NO_SUCH_MODULE" not found' in raised.value.message
    client.ping()  # the client goes on


def test_logon_failures(sim):
    with pytest.raises(veltrane.LogonError) as raised:
        veltrane.connect(url=sim.url, user=USER, passwd="wrong")
    assert "401" in raised.value.message
    with pytest.raises(veltrane.LogonError):
        veltrane.connect(url=sim.url, user="LOCKED", passwd=PASSWORD)


def test_restricted_user_gets_a_runtime_error(sim):
    with veltrane.connect(url=sim.url, user="RESTRICTED", passwd=PASSWORD) as c:  # the logon's RFC_PING works
        with pytest.raises(veltrane.ABAPRuntimeError) as raised:
            c.call("BAPI_FLIGHT_GETLIST")
        assert raised.value.key == "RFC_AUTHORIZATION_FAILURE"


def test_unreachable_system_is_a_communication_error():
    import socket
    with socket.socket() as s:  # a port that nothing listens on
        s.bind(("127.0.0.1", 0))
        port = s.getsockname()[1]
    with pytest.raises(veltrane.CommunicationError) as raised:
        veltrane.connect(host="127.0.0.1", port=port, user=USER, passwd=PASSWORD)
    assert raised.value.key == "0x80040207"
    assert isinstance(raised.value.__cause__, veltrane.ComError)


def test_stateful_connection_keeps_the_abap_session(sim):
    with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD, stateful=True) as c:
        counts = [c.call("Z_VSIM_COUNTER", STEP=1) for _ in range(3)]
    with veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD) as c:
        stateless = [c.call("Z_VSIM_COUNTER", STEP=1) for _ in range(2)]
    assert [r["VALUE"] for r in counts] == [1, 2, 3]
    assert [r["VALUE"] for r in stateless] == [1, 1]


def test_wrong_parameters_are_refused(client, sim):
    with pytest.raises(TypeError, match="STFC_CONNECTION has no importing, changing or table parameter NOPE"):
        client.call("STFC_CONNECTION", NOPE=1)
    with pytest.raises(TypeError, match="takes no ashost"):
        veltrane.connect(url=sim.url, user=USER, passwd=PASSWORD, ashost="x")
    with pytest.raises(ValueError, match="url"):
        veltrane.connect(url="https://example.invalid/", user=USER, passwd=PASSWORD)


def test_missing_logon_data_is_refused(sim, monkeypatch):
    monkeypatch.delenv("VELTRANE_USER", raising=False)
    monkeypatch.delenv("VELTRANE_PASSWORD", raising=False)
    with pytest.raises(TypeError, match="no user"):
        veltrane.connect(url=sim.url, passwd=PASSWORD)
    with pytest.raises(TypeError, match="no password"):
        veltrane.connect(url=sim.url, user=USER)


def test_unknown_back_end():
    with pytest.raises(veltrane.UnsupportedBackendError, match="unknown back end 'carrier-pigeon'"):
        veltrane.connect("carrier-pigeon")


def test_describe(client):
    d = client.describe("bapi_flight_getlist")
    assert d.name == "BAPI_FLIGHT_GETLIST"
    airline = d.parameter("AIRLINE")
    assert (airline.direction, airline.type.kind, airline.type.abap_type) == ("importing", "scalar", "CHAR")
    assert airline.optional
    dest = d.parameter("DESTINATION_FROM")
    assert dest.type.kind == "structure"
    assert [f.name for f in dest.type.fields][:2] == ["AIRPORTID", "CITY"]
    flights = d.parameter("FLIGHT_LIST")
    assert flights.direction == "tables" and flights.type.kind == "table"
    fldate = next(f for f in flights.type.fields if f.name == "FLIGHTDATE")
    assert fldate.type.abap_type == "DATE"
    price = next(f for f in flights.type.fields if f.name == "PRICE")
    assert price.type.abap_type == "BCD" and price.type.decimals == 4
    assert "BAPI_FLIGHT_GETLIST" in d.xml
    types = client.describe("Z_VSIM_TYPES")
    assert types.parameter("IV_PACKED").type.decimals == 2
    assert types.parameter("CV_INT").direction == "changing"
    with pytest.raises(KeyError):
        d.parameter("NOPE")
    with pytest.raises(veltrane.ABAPApplicationError, match="FU_NOT_FOUND"):
        client.describe("Z_NO_SUCH_MODULE")


def test_the_session_stays_reachable(client):
    s = client.session
    assert s.IsConnected
    call = s.ImportCall("RFC_PING")
    s.CallFunction(call)
    assert s.Error is False
