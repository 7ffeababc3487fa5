"""Transactional RFC through the client, on both back ends on an SDK: a unit
runs once however often it is sent under one ID; failures carry the ID to
send again; SOAP has none."""

import uuid

import pytest

import veltrane
from conftest import sdk_params


def runs(client, key):
    return client.call("Z_VSIM_COUNT_RUNS", KEY=key, READ_ONLY="X")["RUNS"]


def test_a_unit_is_created_sent_and_confirmed(rfc_client):
    key = uuid.uuid4().hex[:20]
    tid = rfc_client.call_trfc("Z_VSIM_COUNT_RUNS", KEY=key)
    assert isinstance(tid, str) and len(tid) == 24
    assert runs(rfc_client, key) == 1
    assert rfc_client.call_trfc("Z_VSIM_COUNT_RUNS", KEY=key) != tid  # a new ID each time
    assert runs(rfc_client, key) == 2


def test_sent_again_under_its_id_it_runs_once(rfc_client):
    key = uuid.uuid4().hex[:20]
    tid = rfc_client.create_tid()
    assert rfc_client.call_trfc("Z_VSIM_COUNT_RUNS", tid=tid, confirm=False, KEY=key) == tid
    assert rfc_client.call_trfc("Z_VSIM_COUNT_RUNS", tid=tid, confirm=False, KEY=key) == tid
    assert rfc_client.call_trfc("Z_VSIM_COUNT_RUNS", tid=tid, KEY=key) == tid
    assert runs(rfc_client, key) == 1
    rfc_client.call_trfc("Z_VSIM_COUNT_RUNS", KEY=key)
    assert runs(rfc_client, key) == 2


def test_a_refused_unit_carries_its_id(rfc_client):
    with pytest.raises(veltrane.ABAPApplicationError) as raised:
        rfc_client.call_trfc("Z_VSIM_RAISE", EXCEPTION="NOT_FOUND")
    tid = raised.value.tid
    assert raised.value.key == "NOT_FOUND" and len(tid) == 24
    key = uuid.uuid4().hex[:20]
    rfc_client.call_trfc("Z_VSIM_COUNT_RUNS", tid=tid, KEY=key)  # not recorded: the ID can carry a unit again
    assert runs(rfc_client, key) == 1


def test_parameters_are_checked_before_an_id_is_taken(rfc_client):
    with pytest.raises(TypeError, match="has no importing"):
        rfc_client.call_trfc("Z_VSIM_COUNT_RUNS", NOPE=1)
    with pytest.raises(veltrane.ABAPApplicationError, match="FU_NOT_FOUND"):
        rfc_client.call_trfc("Z_NO_SUCH_MODULE")


def test_nw_refuses_an_id_of_another_session(nw, sim):
    with veltrane.connect("nwrfc", **sdk_params(sim)) as other:
        foreign = other.create_tid()
    with pytest.raises(veltrane.ExternalRuntimeError) as raised:
        nw.call_trfc("Z_VSIM_COUNT_RUNS", tid=foreign, KEY="x")
    assert raised.value.tid == foreign
    assert "Unknown or invalid transaction ID" in raised.value.message
    with pytest.raises(veltrane.ExternalRuntimeError, match="Unknown or invalid transaction ID"):
        nw.confirm_tid(foreign)


def test_soap_has_no_transactional_rfc(client):
    with pytest.raises(veltrane.UnsupportedBackendError, match="back end 'soap' has no transactional RFC"):
        client.call_trfc("Z_VSIM_COUNT_RUNS", KEY="x")
    client.ping()
